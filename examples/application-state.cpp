// How a program says that it is in the foreground or in the background. Linux does not know this, so the
// program sets the state itself, and the manager restarts a running scan. A program with a window would do so
// when the window is hidden and shown; this one does it by the clock, in virtual time, so that it ends at
// once.
//
// In the foreground every advertisement is heard. In the background each beacon is heard once per scan, to
// save power, so the list of live beacons runs empty after 20 to 30 seconds.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using zobi::platform::UIApplicationState;

class Watcher : public ZOKManagerDelegate {
public:
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
    }
};

}  // namespace

int changeApplicationState(zobi::platform::Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto watcher = std::make_shared<Watcher>();
    manager->setDelegate(watcher);

    platform.runLoop().runFor(5);
    std::puts("to the background");
    platform.application().setApplicationState(UIApplicationState::background);
    platform.runLoop().runFor(35);
    std::puts("to the foreground");
    platform.application().setApplicationState(UIApplicationState::active);
    platform.runLoop().runFor(5);
    platform.shutDown();
    return EXIT_SUCCESS;
}

int main() {
    using zobi::platform::simulation::SimulatedPlatform;
    SimulatedPlatform platform(SimulatedPlatform::Time::virtualTime);
    platform.log().setDiagnosticSink(nullptr);
    zobi::addBeacon(platform.world(), {.major = 1, .minor = 7}).comeIntoRange();
    return changeApplicationState(platform);
}
