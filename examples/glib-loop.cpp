// The library in a program that runs another main loop, here GLib's: GLibLoop.h. The same works with Qt, asio
// and sd-event. It ends after three reports.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "GLibLoop.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/PollWaiting.h"

namespace {

using zobi::platform::Platform;

class Watcher : public ZOKManagerDelegate {
public:
    explicit Watcher(GLibLoop& loop) : loop_(loop) {}

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
        if (++reports_ == 3) loop_.stop();
    }

private:
    GLibLoop& loop_;
    int reports_ = 0;
};

}  // namespace

int rangeBeaconsWithGLib(Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    GLibLoop loop(platform);
    const auto watcher = std::make_shared<Watcher>(loop);
    manager->setDelegate(watcher);
    loop.run();
    platform.shutDown();
    return EXIT_SUCCESS;
}

int main() {
    // A loop that is driven from outside waits on descriptors, so that other threads can wake it.
    using zobi::platform::simulation::SimulatedPlatform;
    SimulatedPlatform platform(SimulatedPlatform::Time::real, 0,
                               std::make_unique<zobi::platform::PollWaiting>());
    platform.log().setDiagnosticSink(nullptr);
    zobi::addBeacon(platform.world(), {.major = 1, .minor = 7}).comeIntoRange();
    return rangeBeaconsWithGLib(platform);
}
