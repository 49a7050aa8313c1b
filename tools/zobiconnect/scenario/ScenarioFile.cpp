#include "tools/zobiconnect/scenario/ScenarioFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
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

constexpr std::size_t largestFile = 16 * 1024 * 1024;

Scenario readScenario(const CheckedObject& top) {
    top.allowOnly({"beacons", "repeatEvery", "timeline"});
    Scenario scenario;
    BeaconIndices indices;
    top.forEach("beacons", [&](const CheckedObject& beacon) { readBeacon(beacon, indices, scenario); });
    if (top.has("repeatEvery")) scenario.repeatEvery = top.number("repeatEvery", 1, longestTime);
    if (top.has("timeline")) {
        top.forEach("timeline", [&](const CheckedObject& event) { readEvent(event, indices, scenario); });
    }
    return scenario;
}

}  // namespace

Scenario scenarioFromText(std::string_view text, const std::string& fileName) {
    try {
        const auto value = parseJson(text);
        return readScenario(CheckedObject(value, ""));
    } catch (const Mistake& mistake) {
        throw UsageError(fileName + ": " + mistake.what());
    }
}

std::string shownFileName(const std::string& fileName) {
    if (fileName.empty()) return "\"\"";
    return fileName == "-" ? "stdin" : fileName;
}

Scenario scenarioFromFile(const std::string& fileName) {
    const bool isInput = fileName == "-";
    const std::string shownName = shownFileName(fileName);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
        isInput ? nullptr : std::fopen(fileName.c_str(), "rb"), std::fclose);
    std::FILE* const file = isInput ? stdin : opened.get();
    const auto failToRead = [&] {
        throw UsageError(shownName + ": cannot be read: " + std::strerror(errno));
    };
    if (!file) failToRead();
    std::string text;
    std::array<char, 4096> buffer{};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), file)) {
        text.append(buffer.data(), count);
        if (text.size() > largestFile) throw UsageError(shownName + ": larger than 16 MiB");
    }
    if (std::ferror(file)) failToRead();
    return scenarioFromText(text, shownName);
}

}  // namespace zobi::tool
