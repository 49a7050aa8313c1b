#include "tools/zobiconnect/scenario/ScenarioFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/zobiconnect/scenario/CheckedJson.h"
#include "tools/zobiconnect/scenario/ScenarioBeacon.h"
#include "tools/zobiconnect/scenario/ScenarioEvent.h"
#include "tools/zobiconnect/scenario/ScenarioValues.h"
#include "tools/zobiconnect/terminal/Console.h"

namespace zobi::tool {

namespace {

Scenario readScenario(CheckedObject& top) {
    Scenario scenario;
    BeaconIndices indices;
    top.forEach("beacons", [&](CheckedObject& beacon) {
        const std::string name = beacon.text("name");
        if (!indices.emplace(name, scenario.beacons.size()).second) {
            beacon.fail("name", "another beacon is named \"" + name + "\" already");
        }
        scenario.beacons.push_back(readBeacon(beacon));
    });
    if (top.find("repeatEvery")) scenario.repeatEvery = top.number("repeatEvery", 1, longestTime);
    if (top.find("timeline")) {
        top.forEach("timeline", [&](CheckedObject& event) { readEvent(event, indices, scenario); });
    }
    top.refuseOtherKeys();
    return scenario;
}

}  // namespace

Scenario scenarioFromText(std::string_view text, const std::string& fileName) {
    try {
        const auto value = parseJson(text);
        CheckedObject top(value, "");
        return readScenario(top);
    } catch (const Mistake& mistake) {
        throw UsageError(fileName + ": " + mistake.what());
    }
}

Scenario scenarioFromFile(const std::string& fileName) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(fileName.c_str(), "rb"),
                                                               std::fclose);
    const auto failToRead = [&] { throw UsageError(fileName + ": cannot be read: " + std::strerror(errno)); };
    if (!file) failToRead();
    std::string text;
    std::array<char, 4096> buffer{};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), file.get())) {
        text.append(buffer.data(), count);
    }
    if (std::ferror(file.get())) failToRead();
    return scenarioFromText(text, fileName);
}

}  // namespace zobi::tool
