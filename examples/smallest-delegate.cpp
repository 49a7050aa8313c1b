// The smallest program that ranges beacons: it starts monitoring when Bluetooth is on, prints what is in
// range each second, and ends after ten reports.

#include <cstdio>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/simulation/SimulatedPlatform.h"

class Watcher : public ZOKManagerDelegate {
public:
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        if (state == static_cast<int>(platform::CBManagerState::poweredOn)) manager->startMonitoring();
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
        for (const auto& beacon : beacons) std::printf("  %s\n", beacon->description().c_str());
        if (++reports_ == 10) platform::Platform::current().runLoop().stop();
    }

private:
    int reports_ = 0;
};

int main() {
    using platform::simulation::SimulatedPlatform;

    // The radio. A simulated one needs no hardware; here two beacons are about.
    auto simulated = std::make_unique<SimulatedPlatform>(platform::StandardPlatform::Time::real);
    simulated->log().setSink(nullptr);
    simulated->world()
        .addBeacon({.macAddress = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56}, .major = 300, .minor = 7})
        .comeIntoRange();
    simulated->world().addBeacon({.major = 300, .minor = 8, .layoutVersion = 2}).comeIntoRange();
    platform::Platform::install(std::move(simulated));

    // The manager does not keep its delegate alive, so the program does.
    const auto watcher = std::make_shared<Watcher>();
    ZOKManager::shared()->setDelegate(watcher);
    platform::Platform::current().runLoop().run();
}
