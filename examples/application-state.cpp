// How a program says that it is in the foreground or in the background, which on Linux only it can know: it
// declares the state, and a running scan follows. A program with a window would do so when the window is
// hidden and shown; this one does it by the clock, in virtual time, so that it ends at once.
//
// In the foreground every advertisement is heard. In the background each beacon is heard once per scan, to
// save power, so the list of live beacons runs empty after 20 to 30 seconds.

#include <cstdio>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/simulation/SimulatedPlatform.h"

namespace {

using platform::UIApplicationState;
using platform::simulation::SimulatedPlatform;

class Watcher : public ZOKManagerDelegate {
public:
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        if (state == static_cast<int>(platform::CBManagerState::poweredOn)) manager->startMonitoring();
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
    }
};

}  // namespace

int main() {
    auto simulated = std::make_unique<SimulatedPlatform>(platform::StandardPlatform::Time::virtualTime);
    simulated->log().setSink(nullptr);
    simulated->world().addBeacon({.major = 1, .minor = 7}).comeIntoRange();
    platform::Platform::install(std::move(simulated));
    auto& current = platform::Platform::current();

    const auto watcher = std::make_shared<Watcher>();
    ZOKManager::shared()->setDelegate(watcher);

    current.runLoop().runFor(5);
    std::puts("to the background");
    current.application().setApplicationState(UIApplicationState::background);
    current.runLoop().runFor(35);
    std::puts("to the foreground");
    current.application().setApplicationState(UIApplicationState::active);
    current.runLoop().runFor(5);
}
