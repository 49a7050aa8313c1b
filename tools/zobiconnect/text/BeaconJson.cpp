#include "tools/zobiconnect/text/BeaconJson.h"

#include <cmath>

namespace zobi::tool {

OrderedJson numberJson(platform::NSNumber number) {
    return number.hasValue() ? OrderedJson(number.integerValue()) : OrderedJson();
}

OrderedJson textJson(const std::optional<std::string>& text) {
    return text ? OrderedJson(*text) : OrderedJson();
}

OrderedJson valueJson(const std::optional<Value>& value) {
    if (!value) return nullptr;
    if (const auto* const text = std::get_if<std::string>(&*value)) return *text;
    return numberJson(std::get<platform::NSNumber>(*value));
}

OrderedJson beaconJson(const ZOKBeacon& beacon) {
    return {{"major", numberJson(beacon.major())},
            {"minor", numberJson(beacon.minor())},
            {"macAddress", textJson(beacon.macAddress())},
            {"scanRspVersion", numberJson(beacon.scanRspVersion())},
            {"advertBatteryLevel", numberJson(beacon.advertBatteryLevel())},
            {"temperature", numberJson(beacon.temperature())},
            {"advertAction", numberJson(beacon.advertAction())},
            {"firmwareVersion", textJson(beacon.firmwareVersion())},
            {"timestamp", beacon.timestamp()}};
}

OrderedJson latestJson(const Sighting& sighting) {
    if (!sighting.latest) return nullptr;
    return {{"rssi", numberJson(sighting.latest->rssi)},
            {"scanRspVersion", numberJson(sighting.latest->scanRspVersion)},
            {"advertBatteryLevel", numberJson(sighting.latest->advertBatteryLevel)},
            {"temperature", numberJson(sighting.latest->temperature)},
            {"advertAction", numberJson(sighting.latest->advertAction)}};
}

OrderedJson receptionJson(const Reception& reception, Reception::Time now) {
    const auto json = [](std::optional<double> number) {
        return number ? OrderedJson(rounded(*number)) : OrderedJson();
    };
    return {{"rate", json(reception.rate(now))}, {"longestGap", json(reception.longestGap(now))}};
}

std::string jsonText(const OrderedJson& object) {
    // A text that came off the air need not be UTF-8.
    return object.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

std::string jsonLine(const OrderedJson& object) {
    return jsonText(object) + '\n';
}

double rounded(double seconds) {
    return std::round(seconds * 1000) / 1000;
}

std::string eventLine(std::string_view event, double time, const OrderedJson& values) {
    OrderedJson object{{"event", event}, {"time", rounded(time)}};
    object.update(values);
    return jsonLine(object);
}

}  // namespace zobi::tool
