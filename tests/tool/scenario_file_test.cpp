#include "tools/zobiconnect/scenario/ScenarioFile.h"

#include <gmock/gmock.h>

#include <array>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "tools/zobiconnect/terminal/Console.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace zobi::tool {
namespace {

using platform::simulation::SimulatedPlatform;
using ::testing::ElementsAre;

// Each indented line of mistakes.txt has a mistake, which takes the place of the @ in the scenario above it,
// and what is said of it.
TEST(ToolScenario, IsRefusedWithThePlaceAndTheReason) {
    std::ifstream file(ZOBI_SOURCES "/tests/tool/scenarios/mistakes.txt");
    std::string scenario;
    int mistakes = 0;
    for (std::string line; std::getline(file, line);) {
        const std::size_t arrow = line.find(" => ");
        if (arrow == std::string::npos) {
            scenario = line;
            continue;
        }
        std::string text = scenario;
        text.replace(text.find('@'), 1, line.substr(2, arrow - 2));
        EXPECT_THAT([&] { scenarioFromText(text, "a.json"); },
                    ::testing::ThrowsMessage<UsageError>("a.json: " + line.substr(arrow + 4)))
            << text;
        ++mistakes;
    }
    EXPECT_GE(mistakes, 25);
}

TEST(ToolScenario, IsReadToTheLastKey) {
    SimulatedPlatform platform(platform::StandardPlatform::Time::virtualTime);
    const Scenario scenario = scenarioFromFile(ZOBI_SOURCES "/tests/tool/scenarios/everything.json");
    const auto* const beacon = playScenario(scenario, platform, platform.world()).at(0);
    const auto& device = beacon->description();
    const auto& link = device.link;
    const auto& service = device.services.at(0);
    const auto& characteristic = service.characteristics.at(0);
    EXPECT_THAT((std::vector<double>{device.advertisingInterval, device.advertisingJitter,
                                     1.0 * device.signalStrength, 1.0 * device.signalStrengthSpread,
                                     link.connectionDelay, link.supervisionTimeout, link.responseDelay,
                                     1.0 * static_cast<int>(characteristic.width)}),
                ElementsAre(0.5, 0.25, -71, 4, 1.5, 2.5, 0.75, 8));
    const auto& properties = characteristic.properties;
    EXPECT_THAT(
        (std::array{properties.read, properties.write, properties.writeWithoutResponse, properties.notify}),
        ElementsAre(true, false, true, false));
    const auto errors = [&] {
        return std::array{link.connectionError.value().code(),      link.serviceDiscoveryError.value().code(),
                          link.signalReadError.value().code(),      service.discoveryError.value().code(),
                          characteristic.readError.value().code(),  characteristic.writeError.value().code(),
                          characteristic.notifyError.value().code()};
    };
    EXPECT_THAT(errors(), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_EQ(characteristic.writeError.value().domain(), "D");
    EXPECT_EQ(characteristic.writeError.value().localizedDescription(), "T");
    EXPECT_EQ(device.localName, std::nullopt);
    platform.runLoop().runFor(2);
    EXPECT_THAT(errors(), ElementsAre(11, 12, 13, 14, 15, 16, 17));
    EXPECT_EQ(device.localName, "kettle");
    EXPECT_THAT(characteristic.value.value(), ElementsAre(1, 2));
}

}  // namespace
}  // namespace zobi::tool
