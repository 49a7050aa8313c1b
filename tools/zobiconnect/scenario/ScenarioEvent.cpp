#include "tools/zobiconnect/scenario/ScenarioEvent.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zobiconnect/scenario/ScenarioValues.h"
#include "tools/zobiconnect/text/Names.h"

namespace zobi::tool {

using platform::CBManagerState;
using platform::CBUUID;
using platform::NSError;
using platform::UIApplicationState;
using platform::simulation::CharacteristicDescription;
using platform::simulation::GATTServer;
using platform::simulation::ServiceDescription;

namespace {

using BeaconAction = std::function<void(SimulatedBeacon&)>;
using OptionalError = std::optional<NSError>;

CBUUID readOwnCharacteristic(const CheckedObject& event, const BeaconDescription& beacon) {
    const CBUUID uuid = readUUID(event, "characteristic");
    const bool isOwn = std::ranges::any_of(beacon.services, [&](const ServiceDescription& service) {
        return std::ranges::find(service.characteristics, uuid, &CharacteristicDescription::uuid) !=
               service.characteristics.end();
    });
    if (!isOwn) event.fail("characteristic", "the beacon has no characteristic " + uuid.UUIDString());
    return uuid;
}

CBUUID readOwnService(const CheckedObject& event, const BeaconDescription& beacon) {
    const CBUUID uuid = readUUID(event, "service");
    if (std::ranges::find(beacon.services, uuid, &ServiceDescription::uuid) == beacon.services.end()) {
        event.fail("service", "the beacon has no service " + uuid.UUIDString());
    }
    return uuid;
}

BeaconAction readBeaconError(const CheckedObject& event, void (SimulatedBeacon::*set)(OptionalError)) {
    return [set, error = readError(event, "error")](auto& beacon) { (beacon.*set)(error); };
}

BeaconAction readGATTError(const CheckedObject& event, const CBUUID& uuid,
                           void (GATTServer::*set)(const CBUUID&, const OptionalError&)) {
    return
        [set, uuid, error = readError(event, "error")](auto& beacon) { (beacon.gatt().*set)(uuid, error); };
}

struct ReadableBeaconAction {
    std::string_view name;
    /// Those that it has besides those of all events; empty texts fill the list up.
    std::array<std::string_view, 2> keys;
    /// @param beacon as it is at the start.
    BeaconAction (*read)(const CheckedObject& event, const BeaconDescription& beacon);
};

const auto& beaconActions() {
    using Event = const CheckedObject;
    using Beacon = BeaconDescription;
    static constexpr auto actions = std::to_array<ReadableBeaconAction>({
        {"comeIntoRange",
         {},
         [](Event&, const Beacon&) -> BeaconAction { return &SimulatedBeacon::comeIntoRange; }},
        {"goOutOfRange",
         {},
         [](Event&, const Beacon&) -> BeaconAction { return &SimulatedBeacon::goOutOfRange; }},
        {"pressButton",
         {"action", "seconds"},
         [](Event& event, const Beacon&) -> BeaconAction {
             const auto action = event.integer<std::int8_t>("action");
             const double seconds = event.has("seconds") ? event.number("seconds", 0, longestTime) : 1;
             return [=](auto& beacon) { beacon.pressButton(action, seconds); };
         }},
        {"setBattery",
         {"battery"},
         [](Event& event, const Beacon&) -> BeaconAction {
             return [level = readBattery(event)](auto& beacon) { beacon.setBatteryLevel(level); };
         }},
        {"setTemperature",
         {"temperature"},
         [](Event& event, const Beacon&) -> BeaconAction {
             return [degrees = readTemperature(event)](auto& beacon) { beacon.setTemperature(degrees); };
         }},
        {"setSignalStrength",
         {"signalStrength"},
         [](Event& event, const Beacon&) -> BeaconAction {
             return [dBm = readSignalStrength(event)](auto& beacon) { beacon.setSignalStrength(dBm); };
         }},
        {"setLocalName",
         {"localName"},
         [](Event& event, const Beacon&) -> BeaconAction {
             return [name = readLocalName(event)](auto& beacon) { beacon.setLocalName(name); };
         }},
        {"setServiceData",
         {"serviceData"},
         [](Event& event, const Beacon&) -> BeaconAction {
             if (event.get("serviceData").is_null()) {
                 return [](auto& beacon) { beacon.setServiceData(std::nullopt); };
             }
             return [data = readServiceData(event)](auto& beacon) { beacon.setServiceData(data); };
         }},
        {"sendOnce",
         {"serviceData"},
         [](Event& event, const Beacon&) -> BeaconAction {
             return [data = readServiceData(event)](auto& beacon) { beacon.sendOnce(data); };
         }},
        {"endLink",
         {"error"},
         [](Event& event, const Beacon&) { return readBeaconError(event, &SimulatedBeacon::endLink); }},
        {"setConnectionError",
         {"error"},
         [](Event& event, const Beacon&) {
             return readBeaconError(event, &SimulatedBeacon::setConnectionError);
         }},
        {"setServiceDiscoveryError",
         {"error"},
         [](Event& event, const Beacon&) {
             return readBeaconError(event, &SimulatedBeacon::setServiceDiscoveryError);
         }},
        {"setSignalReadError",
         {"error"},
         [](Event& event, const Beacon&) {
             return readBeaconError(event, &SimulatedBeacon::setSignalReadError);
         }},
        {"setValue",
         {"characteristic", "value"},
         [](Event& event, const Beacon& beacon) -> BeaconAction {
             const CBUUID uuid = readOwnCharacteristic(event, beacon);
             const auto value = valueFrom(event.get("value"), event.path("value"));
             return [=](auto& changed) { changed.gatt().setValue(uuid, value); };
         }},
        {"setReadError",
         {"characteristic", "error"},
         [](Event& event, const Beacon& beacon) {
             return readGATTError(event, readOwnCharacteristic(event, beacon), &GATTServer::setReadError);
         }},
        {"setWriteError",
         {"characteristic", "error"},
         [](Event& event, const Beacon& beacon) {
             return readGATTError(event, readOwnCharacteristic(event, beacon), &GATTServer::setWriteError);
         }},
        {"setNotifyError",
         {"characteristic", "error"},
         [](Event& event, const Beacon& beacon) {
             return readGATTError(event, readOwnCharacteristic(event, beacon), &GATTServer::setNotifyError);
         }},
        {"setDiscoveryError",
         {"service", "error"},
         [](Event& event, const Beacon& beacon) {
             return readGATTError(event, readOwnService(event, beacon), &GATTServer::setDiscoveryError);
         }},
    });
    return actions;
}

constexpr auto otherActions =
    std::to_array<std::string_view>({"setRadio", "enterBackground", "becomeActive"});

void addNewKeys(std::vector<std::string>& keys, std::span<const std::string_view> added) {
    for (const std::string_view key : added) {
        const bool isNew = !key.empty() && std::ranges::find(keys, key) == keys.end();
        if (isNew) keys.emplace_back(key);
    }
}

/// The keys that events have, whatever their actions.
std::vector<std::string> keysOfAllEvents() {
    std::vector<std::string> keys{"at", "do", "beacon", "state"};
    for (const auto& action : beaconActions()) addNewKeys(keys, action.keys);
    return keys;
}

}  // namespace

void readEvent(const CheckedObject& event, const BeaconIndices& beacons, Scenario& scenario) {
    if (!event.has("do")) event.allowOnly(keysOfAllEvents());
    std::vector<std::string_view> names;
    for (const auto& action : beaconActions()) names.push_back(action.name);
    names.insert(names.end(), otherActions.begin(), otherActions.end());
    const std::size_t action = event.oneOf("do", names);
    const bool isOfBeacon = action < beaconActions().size();
    std::vector<std::string> keys{"at", "do"};
    if (isOfBeacon) {
        keys.emplace_back("beacon");
        addNewKeys(keys, beaconActions()[action].keys);
    }
    if (names[action] == "setRadio") keys.emplace_back("state");
    event.allowOnly(keys);
    const double at = event.number("at", 0, longestTime);
    if (scenario.repeatEvery && at >= *scenario.repeatEvery) {
        event.fail("at", numberText(at) + " is not less than repeatEvery");
    }
    if (isOfBeacon) {
        const std::string beaconName = event.text("beacon");
        const auto beacon = beacons.find(beaconName);
        if (beacon == beacons.end()) event.fail("beacon", "there is no beacon \"" + beaconName + '"');
        const std::size_t index = beacon->second;
        scenario.addBeaconEvent(at, index, beaconActions()[action].read(event, scenario.beacons[index]));
    } else if (names[action] == "setRadio") {
        const auto state = static_cast<CBManagerState>(event.oneOf("state", radioStateNames));
        scenario.timeline.push_back({at, [=](const Stage& stage) { stage.world.setRadioState(state); }});
    } else {
        const auto state =
            names[action] == "becomeActive" ? UIApplicationState::active : UIApplicationState::background;
        scenario.timeline.push_back(
            {at, [=](const Stage& stage) { stage.platform.application().setApplicationState(state); }});
    }
}

}  // namespace zobi::tool
