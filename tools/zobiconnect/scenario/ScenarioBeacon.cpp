#include "tools/zobiconnect/scenario/ScenarioBeacon.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "tools/zobiconnect/scenario/ScenarioValues.h"
#include "zobi/platform/simulation/GATTServer.h"

namespace zobi::tool {

using nlohmann::json;
using platform::simulation::CharacteristicDescription;
using platform::simulation::CharacteristicProperties;
using platform::simulation::GeneratedValue;
using platform::simulation::LinkDescription;
using platform::simulation::ServiceDescription;

namespace {

constexpr double shortestInterval = 0.01;
constexpr double longestInterval = 3600;

LinkDescription readLink(const CheckedObject& object) {
    object.allowOnly({"delay", "error", "supervisionTimeout", "responseDelay", "serviceDiscoveryError",
                      "signalReadError"});
    LinkDescription link;
    if (object.has("delay")) link.connectionDelay = object.number("delay", 0, longestInterval);
    if (object.has("error")) link.connectionError = readError(object, "error");
    if (object.has("supervisionTimeout")) {
        link.supervisionTimeout = object.number("supervisionTimeout", shortestInterval, longestInterval);
    }
    if (object.has("responseDelay")) {
        link.responseDelay = object.number("responseDelay", 0, longestInterval);
    }
    if (object.has("serviceDiscoveryError")) {
        link.serviceDiscoveryError = readError(object, "serviceDiscoveryError");
    }
    if (object.has("signalReadError")) link.signalReadError = readError(object, "signalReadError");
    return link;
}

CharacteristicProperties readProperties(const CheckedObject& object) {
    struct Property {
        std::string_view name;
        bool CharacteristicProperties::*field;
    };
    constexpr auto known = std::to_array<Property>({
        {"read", &CharacteristicProperties::read},
        {"write", &CharacteristicProperties::write},
        {"writeWithoutResponse", &CharacteristicProperties::writeWithoutResponse},
        {"notify", &CharacteristicProperties::notify},
    });
    CharacteristicProperties properties;
    std::size_t index = 0;
    for (const json& name : object.list("properties")) {
        const auto* const found = std::ranges::find_if(
            known, [&](const Property& property) { return name == std::string(property.name); });
        if (found == known.end()) {
            throw Mistake(elementPath(object.path("properties"), index),
                          mismatchText(name, "read, write, writeWithoutResponse or notify"));
        }
        properties.*found->field = true;
        ++index;
    }
    return properties;
}

GeneratedValue readGenerated(const CheckedObject& object) {
    constexpr auto kinds = std::to_array<std::string_view>({"drift", "swing", "pick"});
    if (!object.has("kind")) {
        object.allowOnly({"kind", "interval", "smallest", "largest", "step", "period", "values"});
    }
    const std::string_view kind = kinds[object.oneOf("kind", kinds)];
    std::vector<std::string> keys{"kind", "interval", "smallest", "largest"};
    if (kind == "pick") keys = {"kind", "interval", "values"};
    if (kind == "drift") keys.emplace_back("step");
    if (kind == "swing") keys.emplace_back("period");
    object.allowOnly(keys);
    const double interval = object.number("interval", shortestInterval, longestInterval);
    if (kind == "pick") {
        std::vector<std::vector<std::uint8_t>> values;
        for (const json& value : object.list("values")) {
            values.push_back(valueFrom(value, elementPath(object.path("values"), values.size())));
        }
        if (values.empty()) object.fail("values", "must not be empty");
        return platform::simulation::pickedValue(interval, std::move(values));
    }
    const auto smallest = object.integer<std::uint16_t>("smallest");
    const auto largest = object.integer<std::uint16_t>("largest", smallest);
    if (kind == "drift") {
        const auto step = object.integer<std::uint16_t>("step");
        return platform::simulation::driftingValue(interval, smallest, largest, step);
    }
    const double period = object.number("period", shortestInterval, longestInterval);
    return platform::simulation::swingingValue(interval, smallest, largest, period);
}

CharacteristicDescription readCharacteristic(const CheckedObject& object) {
    object.allowOnly(
        {"uuid", "properties", "value", "width", "generate", "readError", "writeError", "notifyError"});
    CharacteristicDescription characteristic{.uuid = readUUID(object, "uuid")};
    if (object.has("properties")) characteristic.properties = readProperties(object);
    if (object.has("value")) {
        characteristic.value = valueFrom(object.get("value"), object.path("value"));
    }
    if (object.has("width")) {
        constexpr double largest = platform::simulation::maximumValueSize;
        characteristic.width = object.integer<std::size_t>("width", 0, largest);
    }
    if (object.has("generate")) characteristic.generated = object.object("generate", readGenerated);
    if (object.has("readError")) characteristic.readError = readError(object, "readError");
    if (object.has("writeError")) characteristic.writeError = readError(object, "writeError");
    if (object.has("notifyError")) characteristic.notifyError = readError(object, "notifyError");
    return characteristic;
}

ServiceDescription readService(const CheckedObject& object) {
    object.allowOnly({"uuid", "characteristics", "discoveryError"});
    ServiceDescription service{.uuid = readUUID(object, "uuid")};
    if (object.has("characteristics")) {
        object.forEach("characteristics", [&](const CheckedObject& characteristic) {
            service.characteristics.push_back(readCharacteristic(characteristic));
        });
    }
    if (object.has("discoveryError")) service.discoveryError = readError(object, "discoveryError");
    return service;
}

/// The service that beacons have under a UUID.
ServiceDescription usualService(const json& uuid, const std::string& path) {
    const auto usual = beaconServices();
    const auto found = std::ranges::find(usual, uuidFrom(uuid, path), &ServiceDescription::uuid);
    if (found == usual.end()) {
        throw Mistake(path, uuid.dump() + " is no usual service of beacons: describe it in an object");
    }
    return *found;
}

std::vector<ServiceDescription> readServices(const CheckedObject& object) {
    std::vector<ServiceDescription> services;
    for (const json& value : object.list("services")) {
        const std::string path = elementPath(object.path("services"), services.size());
        if (value.is_string()) {
            services.push_back(usualService(value, path));
            continue;
        }
        services.push_back(readService(CheckedObject(value, path)));
    }
    return services;
}

BeaconDescription readDescription(const CheckedObject& object) {
    BeaconDescription beacon;
    const auto mac = readHex(object, "mac");
    if (mac.size() != beacon.macAddress.size())
        object.fail("mac", mismatchText(object.get("mac"), "12 hexadecimal digits"));
    std::ranges::copy(mac, beacon.macAddress.begin());
    beacon.major = object.integer<std::uint16_t>("major");
    beacon.minor = object.integer<std::uint16_t>("minor");
    if (object.has("layoutVersion")) beacon.layoutVersion = object.integer<std::int8_t>("layoutVersion");
    if (object.has("battery")) beacon.batteryLevel = readBattery(object);
    if (object.has("temperature")) beacon.temperature = readTemperature(object);
    if (object.has("localName")) beacon.localName = readLocalName(object);
    if (object.has("advertisedServices")) {
        beacon.advertisedServices.clear();
        for (const json& value : object.list("advertisedServices")) {
            const auto path =
                elementPath(object.path("advertisedServices"), beacon.advertisedServices.size());
            beacon.advertisedServices.push_back(uuidFrom(value, path));
        }
    }
    if (object.has("interval")) {
        beacon.advertisingInterval = object.number("interval", shortestInterval, longestInterval);
    }
    if (object.has("jitter")) beacon.advertisingJitter = object.number("jitter", 0, longestInterval);
    if (object.has("signalStrength")) beacon.signalStrength = readSignalStrength(object);
    if (object.has("signalStrengthSpread")) {
        beacon.signalStrengthSpread = object.integer<int>("signalStrengthSpread", 0, 100);
    }
    if (object.has("link")) beacon.link = object.object("link", readLink);
    if (object.has("services")) beacon.services = readServices(object);
    return beacon;
}

}  // namespace

void readBeacon(const CheckedObject& object, BeaconIndices& indices, Scenario& scenario) {
    object.allowOnly({"name", "mac", "major", "minor", "layoutVersion", "battery", "temperature", "localName",
                      "advertisedServices", "interval", "jitter", "signalStrength", "signalStrengthSpread",
                      "link", "services"});
    const std::string name = object.text("name");
    if (!indices.emplace(name, scenario.beacons.size()).second) {
        object.fail("name", "another beacon is named \"" + name + "\" already");
    }
    scenario.beacons.push_back(readDescription(object));
}

}  // namespace zobi::tool
