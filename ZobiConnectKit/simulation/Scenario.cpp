#include "ZobiConnectKit/simulation/Scenario.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi {

namespace {

struct Play {
    Scenario scenario;
    Stage stage;
};

void playRound(const std::shared_ptr<const Play>& play) {
    const auto& timeline = play->scenario.timeline;
    for (const Scenario::Event& event : timeline) {
        if (event.at > 0) {
            play->stage.platform.runLoop().after(event.at, [play, &event] { event.happen(play->stage); });
        }
    }
    platform::ExceptionKeeper exceptions;
    for (const Scenario::Event& event : timeline) {
        if (!(event.at > 0)) exceptions.run([&] { event.happen(play->stage); });
    }
    exceptions.rethrow();
}

}  // namespace

void Scenario::addBeaconEvent(double at, std::size_t index, std::function<void(SimulatedBeacon&)> happen) {
    if (index >= beacons.size()) throw std::out_of_range("the scenario has no such beacon");
    timeline.push_back(
        {at, [index, happen = std::move(happen)](const Stage& stage) { happen(*stage.beacons.at(index)); }});
}

std::vector<SimulatedBeacon*> playScenario(Scenario scenario, platform::Platform& platform,
                                           platform::simulation::World& world) {
    if (scenario.repeatEvery && !(*scenario.repeatEvery > 0)) {
        throw std::invalid_argument("a scenario is repeated after more than 0 s");
    }
    Stage stage{platform, world, {}};
    for (const BeaconDescription& beacon : scenario.beacons) {
        stage.beacons.push_back(&addBeacon(world, beacon));
    }
    const auto play = std::make_shared<const Play>(Play{std::move(scenario), std::move(stage)});
    // First, so that the scenario goes on though an event at its start throws.
    if (play->scenario.repeatEvery) {
        platform.runLoop().every(*play->scenario.repeatEvery, [play] { playRound(play); });
    }
    playRound(play);
    return play->stage.beacons;
}

}  // namespace zobi
