#include "tools/zobiconnect/scenario/ScenarioValues.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "tools/zobiconnect/text/Hex.h"
#include "zobi/platform/simulation/GATTServer.h"

namespace zobi::tool {

using nlohmann::json;
using platform::CBError;
using platform::CBUUID;
using platform::NSError;

namespace {

std::vector<std::uint8_t> bytesFrom(const json& value, const std::string& path) {
    if (!value.is_string()) throw Mistake(path, mismatchText(value, "a text"));
    try {
        return bytesFromHex(value.get<std::string>());
    } catch (const std::invalid_argument& error) {
        throw Mistake(path, mismatchText(value, std::string("hexadecimal: ") + error.what()));
    }
}

/// What an error is called that has no text of its own.
std::string usualText(const std::string& domain, int code) {
    constexpr auto texts = std::to_array<std::pair<CBError, const char*>>({
        {CBError::operationCancelled, "Bluetooth is off."},
        {CBError::connectionTimeout, "The connection has timed out."},
        {CBError::peripheralDisconnected, "The beacon has ended the connection."},
        {CBError::connectionFailed, "The connection could not be made."},
    });
    for (const auto& [known, text] : texts) {
        if (domain == platform::CBErrorDomain && code == static_cast<int>(known)) return text;
    }
    return "An error was reported.";
}

}  // namespace

CBUUID uuidFrom(const json& value, const std::string& path) {
    if (!value.is_string()) throw Mistake(path, mismatchText(value, "a text"));
    try {
        return CBUUID::UUIDWithString(value.get<std::string>());
    } catch (const std::invalid_argument&) {
        throw Mistake(path, mismatchText(value, "a UUID of 4, 8 or 36 characters"));
    }
}

CBUUID readUUID(const CheckedObject& object, const std::string& key) {
    return uuidFrom(object.get(key), object.path(key));
}

std::vector<std::uint8_t> readHex(const CheckedObject& object, const std::string& key) {
    return bytesFrom(object.get(key), object.path(key));
}

std::vector<std::uint8_t> valueFrom(const json& value, const std::string& path) {
    constexpr std::size_t largest = platform::simulation::maximumValueSize;
    auto bytes = bytesFrom(value, path);
    if (bytes.size() > largest) {
        throw Mistake(path, std::to_string(bytes.size()) + " bytes are more than " + std::to_string(largest));
    }
    return bytes;
}

std::optional<NSError> readError(const CheckedObject& object, const std::string& key) {
    if (object.get(key).is_null()) return std::nullopt;
    return object.object(key, [](const CheckedObject& error) {
        error.allowOnly({"code", "domain", "text"});
        const int code = error.integer<int>("code");
        const std::string domain =
            error.has("domain") ? error.text("domain") : std::string(platform::CBErrorDomain);
        return NSError(domain, code, error.has("text") ? error.text("text") : usualText(domain, code));
    });
}

std::optional<std::string> readLocalName(const CheckedObject& object) {
    if (object.get("localName").is_null()) return std::nullopt;
    return object.text("localName");
}

std::vector<platform::simulation::ServiceData> readServiceData(const CheckedObject& object) {
    std::vector<platform::simulation::ServiceData> elements;
    object.forEach("serviceData", [&](const CheckedObject& element) {
        element.allowOnly({"service", "data"});
        const CBUUID service = readUUID(element, "service");
        elements.push_back({service, readHex(element, "data")});
    });
    return elements;
}

std::uint8_t readBattery(const CheckedObject& object) {
    return object.integer<std::uint8_t>("battery");
}

std::int32_t readTemperature(const CheckedObject& object) {
    return object.integer<std::int32_t>("temperature", -4, 65531);
}

int readSignalStrength(const CheckedObject& object) {
    return object.integer<int>("signalStrength", -127, 20);
}

}  // namespace zobi::tool
