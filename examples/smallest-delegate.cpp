// The smallest program that ranges beacons: it monitors whenever Bluetooth is on, prints what is in range
// each second, and ends after ten reports.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

class Watcher : public ZOKManagerDelegate {
public:
    explicit Watcher(zobi::platform::RunLoop& runLoop) : runLoop_(runLoop) {}

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
        for (const auto& beacon : beacons) std::printf("  %s\n", beacon->description().c_str());
        if (++reports_ == 10) runLoop_.stop();
    }

private:
    zobi::platform::RunLoop& runLoop_;
    int reports_ = 0;
};

int rangeBeacons(zobi::platform::Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    // The manager does not keep its delegate alive, so the program does.
    const auto watcher = std::make_shared<Watcher>(platform.runLoop());
    manager->setDelegate(watcher);
    platform.runLoop().run();
    platform.shutDown();
    return EXIT_SUCCESS;
}

int main() {
    // The platform has the radio, and must outlive all that uses it. The simulated one needs no hardware.
    // That of a Linux machine is `zobi::platform::bluez::BlueZPlatform platform;`
    using zobi::platform::simulation::SimulatedPlatform;
    SimulatedPlatform platform(SimulatedPlatform::Time::real);
    platform.log().setDiagnosticSink(nullptr);
    zobi::addBeacon(platform.world(),
                    {.macAddress = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56}, .major = 300, .minor = 7})
        .comeIntoRange();
    zobi::addBeacon(platform.world(), {.major = 300, .minor = 8, .layoutVersion = 2}).comeIntoRange();
    return rangeBeacons(platform);
}
