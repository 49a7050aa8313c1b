#include "tools/zobiconnect/ScenarioFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tools/zobiconnect/Console.h"
#include "tools/zobiconnect/Hex.h"
#include "tools/zobiconnect/RadioStateNames.h"

namespace zobiconnect {

using nlohmann::json;
using platform::CBManagerState;
using platform::CBUUID;
using platform::UIApplicationState;
using platform::simulation::BeaconDescription;
using platform::simulation::ServiceData;
using platform::simulation::SimulatedBeacon;

namespace {

constexpr double longestTime = 1e9;

/// A mistake at a place in the file, of which its message tells the path and the reason.
class Mistake : public std::runtime_error {
public:
    Mistake(const std::string& path, const std::string& reason)
        : std::runtime_error((path.empty() ? "top level" : path) + ": " + reason) {}
};

std::string joinedPath(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + '.' + key;
}

std::string elementPath(const std::string& path, std::size_t index) {
    return path + '[' + std::to_string(index) + ']';
}

/// Whole numbers without a fraction.
std::string numberText(double number) {
    return number == std::floor(number) ? json(static_cast<std::int64_t>(number)).dump()
                                        : json(number).dump();
}

std::string listed(const auto& names) {
    std::string text;
    for (const auto& name : names) text += (text.empty() ? "" : ", ") + std::string(name);
    return text;
}

/// One object of the file. It notes which keys it was asked for: what it has besides is a mistake.
class Object {
public:
    Object(const json& value, std::string path) : value_(value), path_(std::move(path)) {
        if (!value.is_object()) throw Mistake(path_, "must be an object");
    }

    std::string path(const std::string& key) const { return joinedPath(path_, key); }

    [[noreturn]] void fail(const std::string& key, const std::string& reason) const {
        throw Mistake(path(key), reason);
    }

    /// The value under `key`, or null when the key is missing.
    const json* find(const std::string& key) {
        if (std::ranges::find(known_, key) == known_.end()) known_.push_back(key);
        const auto found = value_.find(key);
        return found == value_.end() ? nullptr : &*found;
    }

    const json& get(const std::string& key) {
        if (const json* value = find(key)) return *value;
        fail(key, "missing");
    }

    std::string text(const std::string& key) {
        const json& value = get(key);
        if (!value.is_string()) fail(key, "must be a text");
        return value;
    }

    double number(const std::string& key, double smallest, double largest) {
        const json& value = get(key);
        if (!value.is_number()) fail(key, "must be a number");
        return inRange(key, value, smallest, largest);
    }

    template <typename Integer>
    Integer integer(const std::string& key, double smallest = std::numeric_limits<Integer>::min(),
                    double largest = std::numeric_limits<Integer>::max()) {
        const json& value = get(key);
        if (!value.is_number_integer()) fail(key, "must be a whole number");
        return static_cast<Integer>(inRange(key, value, smallest, largest));
    }

    const json& list(const std::string& key) {
        const json& value = get(key);
        if (!value.is_array()) fail(key, "must be a list");
        return value;
    }

    /// One of `names`, as its place among them.
    std::size_t oneOf(const std::string& key, const auto& names) {
        const std::string name = text(key);
        const auto found = std::ranges::find(names, name);
        if (found == names.end()) fail(key, '"' + name + "\" is none of " + listed(names));
        return static_cast<std::size_t>(found - names.begin());
    }

    /// To be called last.
    void refuseOtherKeys() const {
        for (const auto& [key, value] : value_.items()) {
            if (std::ranges::find(known_, key) == known_.end()) {
                fail(key, "unknown key; known here: " + listed(known_));
            }
        }
    }

private:
    double inRange(const std::string& key, const json& value, double smallest, double largest) const {
        const auto number = value.get<double>();
        if (number < smallest || number > largest) {
            fail(key, value.dump() + " is not from " + numberText(smallest) + " to " + numberText(largest));
        }
        return number;
    }

    const json& value_;
    std::string path_;
    std::vector<std::string> known_;
};

CBUUID readUUID(const json& value, const std::string& path) {
    if (!value.is_string()) throw Mistake(path, "must be a text");
    try {
        return CBUUID::UUIDWithString(value.get<std::string>());
    } catch (const std::invalid_argument&) {
        throw Mistake(path, "must be a UUID of 4, 8 or 36 characters");
    }
}

std::vector<std::uint8_t> readHex(Object& object, const std::string& key) {
    try {
        return bytesFromHex(object.text(key));
    } catch (const std::invalid_argument& error) {
        object.fail(key, error.what());
    }
}

std::optional<std::string> readLocalName(Object& object) {
    if (object.get("localName").is_null()) return std::nullopt;
    return object.text("localName");
}

std::vector<ServiceData> readServiceData(Object& object) {
    std::vector<ServiceData> elements;
    for (const json& value : object.list("serviceData")) {
        Object element(value, elementPath(object.path("serviceData"), elements.size()));
        const CBUUID service = readUUID(element.get("service"), element.path("service"));
        elements.push_back({service, readHex(element, "data")});
        element.refuseOtherKeys();
    }
    return elements;
}

std::uint8_t readBattery(Object& object) {
    return object.integer<std::uint8_t>("battery");
}

std::int32_t readTemperature(Object& object) {
    return object.integer<std::int32_t>("temperature", -4, 65531);
}

int readSignalStrength(Object& object) {
    return object.integer<int>("signalStrength", -127, 20);
}

BeaconDescription readBeacon(Object& object) {
    BeaconDescription beacon;
    const auto mac = readHex(object, "mac");
    if (mac.size() != beacon.macAddress.size()) object.fail("mac", "must be 12 hexadecimal digits");
    std::ranges::copy(mac, beacon.macAddress.begin());
    beacon.major = object.integer<std::uint16_t>("major");
    beacon.minor = object.integer<std::uint16_t>("minor");
    if (object.find("layoutVersion")) beacon.layoutVersion = object.integer<std::int8_t>("layoutVersion");
    if (object.find("battery")) beacon.batteryLevel = readBattery(object);
    if (object.find("temperature")) beacon.temperature = readTemperature(object);
    if (object.find("localName")) beacon.localName = readLocalName(object);
    if (object.find("advertisedServices")) {
        beacon.advertisedServices.clear();
        for (const json& value : object.list("advertisedServices")) {
            const auto path =
                elementPath(object.path("advertisedServices"), beacon.advertisedServices.size());
            beacon.advertisedServices.push_back(readUUID(value, path));
        }
    }
    if (object.find("interval")) beacon.advertisingInterval = object.number("interval", 0.01, 3600);
    if (object.find("jitter")) beacon.advertisingJitter = object.number("jitter", 0, 3600);
    if (object.find("signalStrength")) beacon.signalStrength = readSignalStrength(object);
    if (object.find("signalStrengthSpread")) {
        beacon.signalStrengthSpread = object.integer<int>("signalStrengthSpread", 0, 100);
    }
    return beacon;
}

using BeaconAction = std::function<void(SimulatedBeacon&)>;

struct ReadableBeaconAction {
    std::string_view name;
    BeaconAction (*read)(Object&);
};

const auto& beaconActions() {
    static constexpr auto actions = std::to_array<ReadableBeaconAction>({
        {"comeIntoRange", [](Object&) -> BeaconAction { return &SimulatedBeacon::comeIntoRange; }},
        {"goOutOfRange", [](Object&) -> BeaconAction { return &SimulatedBeacon::goOutOfRange; }},
        {"pressButton",
         [](Object& event) -> BeaconAction {
             const auto action = event.integer<std::int8_t>("action");
             const double seconds = event.find("seconds") ? event.number("seconds", 0, longestTime) : 1;
             return [=](auto& beacon) { beacon.pressButton(action, seconds); };
         }},
        {"setBattery",
         [](Object& event) -> BeaconAction {
             return [level = readBattery(event)](auto& beacon) { beacon.setBatteryLevel(level); };
         }},
        {"setTemperature",
         [](Object& event) -> BeaconAction {
             return [degrees = readTemperature(event)](auto& beacon) { beacon.setTemperature(degrees); };
         }},
        {"setSignalStrength",
         [](Object& event) -> BeaconAction {
             return [dBm = readSignalStrength(event)](auto& beacon) { beacon.setSignalStrength(dBm); };
         }},
        {"setLocalName",
         [](Object& event) -> BeaconAction {
             return [name = readLocalName(event)](auto& beacon) { beacon.setLocalName(name); };
         }},
        {"setServiceData",
         [](Object& event) -> BeaconAction {
             if (event.get("serviceData").is_null()) {
                 return [](auto& beacon) { beacon.setServiceData(std::nullopt); };
             }
             return [data = readServiceData(event)](auto& beacon) { beacon.setServiceData(data); };
         }},
        {"sendOnce",
         [](Object& event) -> BeaconAction {
             return [data = readServiceData(event)](auto& beacon) { beacon.sendOnce(data); };
         }},
    });
    return actions;
}

constexpr auto otherActions =
    std::to_array<std::string_view>({"setRadio", "enterBackground", "becomeActive"});

using BeaconIndices = std::map<std::string, std::size_t>;

void readEvent(Object& event, const BeaconIndices& beacons, Scenario& scenario) {
    const double at = event.number("at", 0, longestTime);
    if (scenario.repeatEvery && at >= *scenario.repeatEvery) {
        event.fail("at", "must be less than repeatEvery");
    }
    std::vector<std::string_view> names;
    for (const auto& action : beaconActions()) names.push_back(action.name);
    names.insert(names.end(), otherActions.begin(), otherActions.end());
    const std::size_t action = event.oneOf("do", names);
    if (action < beaconActions().size()) {
        const std::string name = event.text("beacon");
        const auto beacon = beacons.find(name);
        if (beacon == beacons.end()) event.fail("beacon", "there is no beacon \"" + name + '"');
        scenario.addBeaconEvent(at, beacon->second, beaconActions()[action].read(event));
    } else if (names[action] == "setRadio") {
        const auto state = static_cast<CBManagerState>(event.oneOf("state", radioStateNames));
        scenario.timeline.push_back({at, [=](const Stage& stage) { stage.world.setRadioState(state); }});
    } else {
        const auto state =
            names[action] == "becomeActive" ? UIApplicationState::active : UIApplicationState::background;
        scenario.timeline.push_back(
            {at, [=](const Stage& stage) { stage.application.setApplicationState(state); }});
    }
    event.refuseOtherKeys();
}

Scenario readScenario(const json& value) {
    Scenario scenario;
    Object top(value, "");
    BeaconIndices indices;
    for (const json& element : top.list("beacons")) {
        Object beacon(element, elementPath("beacons", scenario.beacons.size()));
        const std::string name = beacon.text("name");
        if (!indices.emplace(name, scenario.beacons.size()).second) {
            beacon.fail("name", "another beacon is named \"" + name + "\" already");
        }
        scenario.beacons.push_back(readBeacon(beacon));
        beacon.refuseOtherKeys();
    }
    if (top.find("repeatEvery")) scenario.repeatEvery = top.number("repeatEvery", 1, longestTime);
    if (top.find("timeline")) {
        for (const json& element : top.list("timeline")) {
            Object event(element, elementPath("timeline", scenario.timeline.size()));
            readEvent(event, indices, scenario);
        }
    }
    top.refuseOtherKeys();
    return scenario;
}

/// Follows the parser, which would keep one of two values under the same key and say nothing.
class RepeatedKeyCheck {
public:
    bool operator()(int /*depth*/, json::parse_event_t event, const json& parsed) {
        switch (event) {
            case json::parse_event_t::object_start:
            case json::parse_event_t::array_start:
                levels_.push_back({pathHere(), event == json::parse_event_t::array_start, 0, "", {}});
                break;
            case json::parse_event_t::key:
                levels_.back().key = parsed.get<std::string>();
                if (!levels_.back().keys.insert(levels_.back().key).second) {
                    throw Mistake(pathHere(), "the key is repeated");
                }
                break;
            case json::parse_event_t::object_end:
            case json::parse_event_t::array_end:
                levels_.pop_back();
                [[fallthrough]];
            case json::parse_event_t::value:
                if (!levels_.empty()) ++levels_.back().index;
                break;
        }
        return true;
    }

    /// What the parser is reading.
    std::string pathHere() const {
        if (levels_.empty()) return "";
        const Level& level = levels_.back();
        return level.isList ? elementPath(level.path, level.index) : joinedPath(level.path, level.key);
    }

private:
    struct Level {
        std::string path;
        bool isList;
        std::size_t index;
        std::string key;
        std::set<std::string> keys;
    };

    std::vector<Level> levels_;
};

/// The parser's message without its own name for the error.
std::string parserMessage(const json::exception& error) {
    std::string_view message = error.what();
    for (const std::string_view introduction : {"] ", "parse error at ", "parse error: "}) {
        const auto found = message.find(introduction);
        if (found != std::string_view::npos) message.remove_prefix(found + introduction.size());
    }
    return std::string(message);
}

}  // namespace

Scenario scenarioFromText(std::string_view text, const std::string& fileName) {
    // Shared, for the parser copies it.
    const auto check = std::make_shared<RepeatedKeyCheck>();
    try {
        return readScenario(
            json::parse(text, [check](int depth, json::parse_event_t event, const json& parsed) {
                return (*check)(depth, event, parsed);
            }));
    } catch (const json::out_of_range&) {
        // The one error of the parser that does not tell where.
        throw UsageError(fileName + ": " + check->pathHere() + ": the number is too large");
    } catch (const json::exception& error) {
        throw UsageError(fileName + ": " + parserMessage(error));
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

}  // namespace zobiconnect
