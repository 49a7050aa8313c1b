// A scenario in C++: a door and a desk, a button that is pressed, and Bluetooth that is turned off and on. It
// is played in virtual time, so it ends at once.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/Scenario.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

using zobi::platform::CBManagerState;

zobi::Scenario officeMorning() {
    constexpr std::size_t door = 0;
    constexpr std::size_t desk = 1;
    zobi::Scenario scenario;
    scenario.beacons = {{.major = 1, .minor = 1}, {.major = 1, .minor = 2, .advertisingInterval = 0.5}};
    scenario.addBeaconEvent(0, door, &zobi::SimulatedBeacon::comeIntoRange);
    scenario.addBeaconEvent(2, desk, &zobi::SimulatedBeacon::comeIntoRange);
    scenario.addBeaconEvent(4, desk, [](auto& beacon) { beacon.pressButton(1, 1.5); });
    scenario.timeline.push_back(
        {6, [](const zobi::Stage& stage) { stage.world.setRadioState(CBManagerState::poweredOff); }});
    scenario.timeline.push_back(
        {8, [](const zobi::Stage& stage) { stage.world.setRadioState(CBManagerState::poweredOn); }});
    return scenario;
}

namespace {

class Watcher : public ZOKManagerDelegate {
public:
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        std::printf("Bluetooth %d\n", state);
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
    }

    void zobiConnectManagerDidButtonActionChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int action,
        const std::shared_ptr<ZOKBeacon>& beacon) override {
        std::printf("action %d of beacon %d\n", action, beacon->minor().integerValue());
    }
};

}  // namespace

int watchFor10Seconds(zobi::platform::Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto watcher = std::make_shared<Watcher>();
    manager->setDelegate(watcher);
    platform.runLoop().runFor(10);
    platform.shutDown();
    return EXIT_SUCCESS;
}

int main() {
    using zobi::platform::simulation::SimulatedPlatform;
    SimulatedPlatform platform(SimulatedPlatform::Time::virtualTime);
    platform.log().setDiagnosticSink(nullptr);
    zobi::playScenario(officeMorning(), platform, platform.world());
    return watchFor10Seconds(platform);
}
