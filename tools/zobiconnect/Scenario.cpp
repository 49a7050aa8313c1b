#include "tools/zobiconnect/Scenario.h"

#include <utility>

namespace zobi::tool {

void Scenario::addBeaconEvent(double at, std::size_t index,
                              std::function<void(platform::simulation::SimulatedBeacon&)> happen) {
    timeline.push_back({at, [index, happen = std::move(happen)](const Stage& stage) {
                            happen(*stage.world.beacons()[index]);
                        }});
}

void happenAfter(platform::RunLoop& runLoop, double seconds, std::function<void()> happen) {
    if (!(seconds > 0)) return happen();
    runLoop.after(seconds, std::move(happen));
}

void playScenario(const std::shared_ptr<const Scenario>& scenario, const Stage& stage) {
    for (const auto& beacon : scenario->beacons) stage.world.addBeacon(beacon);
    const auto playRound = [scenario, stage] {
        for (const Scenario::Event& event : scenario->timeline) {
            happenAfter(stage.runLoop, event.at, [scenario, stage, &event] { event.happen(stage); });
        }
    };
    playRound();
    if (scenario->repeatEvery) {
        stage.runLoop.every(*scenario->repeatEvery, playRound);
    }
}

}  // namespace zobi::tool
