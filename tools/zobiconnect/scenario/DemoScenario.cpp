#include "tools/zobiconnect/scenario/DemoScenario.h"

#include <array>
#include <random>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "platform/simulation/UniformInteger.h"

namespace zobi::tool {

namespace {

constexpr double roundLength = 120;
constexpr double arrivalTime = 6;
// Longer than the 20 s after which the library may drop a beacon and the 10 s between its looks.
constexpr double silence = 36;

class Demo {
public:
    explicit Demo(std::uint64_t seed) {
        std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32)};
        random_.seed(sequence);
    }

    int integer(int smallest, int largest) {
        return platform::simulation::uniformInteger(random_, smallest, largest);
    }

    /// To the tenth of a second.
    double moment(double earliest, double latest) {
        return integer(static_cast<int>(earliest * 10), static_cast<int>(latest * 10)) / 10.0;
    }

    BeaconDescription beacon(std::size_t index) {
        constexpr std::array<std::int8_t, 8> layoutVersions{3, 2, 3, 1, 3, 3, 4, 3};
        constexpr std::array intervals{0.25, 0.5, 1.0, 2.0};
        BeaconDescription beacon;
        for (std::uint8_t& byte : beacon.macAddress) byte = static_cast<std::uint8_t>(integer(0, 255));
        beacon.major = static_cast<std::uint16_t>(1 + index % 3);
        beacon.minor = static_cast<std::uint16_t>(1 + index);
        beacon.layoutVersion = layoutVersions[index % layoutVersions.size()];
        beacon.batteryLevel = static_cast<std::uint8_t>(integer(30, 100));
        beacon.temperature = integer(17, 25);
        beacon.advertisingInterval = intervals[static_cast<std::size_t>(integer(0, intervals.size() - 1))];
        beacon.signalStrength = integer(-90, -50);
        beacon.signalStrengthSpread = integer(1, 4);
        swingAxes(beacon);
        return beacon;
    }

    /// What happens to a beacon in a round. The rounds follow one another, so each sets again what it
    /// changes.
    void addLife(Scenario& scenario, std::size_t index, double arrival) {
        const BeaconDescription& beacon = scenario.beacons[index];
        const auto add = [&](double at, auto happen) { scenario.addBeaconEvent(at, index, happen); };
        add(arrival, &SimulatedBeacon::comeIntoRange);
        for (int quarter = 0; quarter < 4; ++quarter) {
            const double from = quarter * roundLength / 4;
            const int strength = beacon.signalStrength + integer(-8, 8);
            const int temperature = beacon.temperature + integer(-2, 2);
            const int level = beacon.batteryLevel - quarter;
            add(moment(from, from + 29), [strength](auto& it) { it.setSignalStrength(strength); });
            add(moment(from, from + 29), [temperature](auto& it) { it.setTemperature(temperature); });
            add(from, [level](auto& it) { it.setBatteryLevel(static_cast<std::uint8_t>(level)); });
        }
        for (int presses = integer(1, 3); presses > 0; --presses) {
            const auto action = static_cast<std::int8_t>(integer(1, 3));
            // Long enough to be heard once at least.
            const double seconds = beacon.advertisingInterval + 0.2;
            add(moment(4, 110), [=](auto& it) { it.pressButton(action, seconds); });
        }
        if (index % 4 == 3) {
            const double leaving = moment(12, 60);
            add(leaving, &SimulatedBeacon::goOutOfRange);
            add(leaving + silence, &SimulatedBeacon::comeIntoRange);
        }
    }

private:
    /// Each axis at its own pace. Seen by whoever connects.
    static void swingAxes(BeaconDescription& beacon) {
        constexpr double interval = 0.5;
        for (auto& service : beacon.services) {
            if (service.uuid != ZOKGATTProfile::accelerometerService) continue;
            double period = 4;
            for (auto& axis : service.characteristics) {
                axis.generated = platform::simulation::swingingValue(interval, 200, 800, period);
                period += 3;
            }
        }
    }

    std::minstd_rand random_;
};

}  // namespace

Scenario demoScenario(std::size_t count, std::uint64_t seed) {
    Demo demo(seed);
    Scenario scenario;
    scenario.repeatEvery = roundLength;
    for (std::size_t i = 0; i < count; ++i) {
        scenario.beacons.push_back(demo.beacon(i));
        demo.addLife(scenario, i, arrivalTime * static_cast<double>(i) / static_cast<double>(count));
    }
    return scenario;
}

}  // namespace zobi::tool
