#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/zobiconnect/scenario/ScenarioFile.h"
#include "tools/zobiconnect/terminal/Console.h"

namespace zobi::tool {
namespace {

std::string mistakeIn(const std::string& text) {
    try {
        scenarioFromText(text, "a.json");
    } catch (const UsageError& error) {
        return error.what();
    }
    return "none";
}

TEST(ToolScenario, IsRefusedWithThePlaceAndTheReason) {
    const auto withBeacon = [](const std::string& keys) {
        return R"({"beacons": [{"name": "a", "mac": "ABCDEF123456", "major": 1, "minor": 7)" + keys + "}]}";
    };
    const auto withEvent = [&](const std::string& keys, const std::string& more = "") {
        const std::string start = withBeacon("");
        return start.substr(0, start.size() - 1) + R"(, "timeline": [{"at": 1, )" + keys + "}]" + more + '}';
    };
    const auto withCharacteristic = [&](const std::string& keys) {
        return withBeacon(R"(, "services": [{"uuid": "180D", "characteristics": [{"uuid": "2A37", )" + keys +
                          "}]}]");
    };
    const std::vector<std::pair<std::string, std::string>> mistakes{
        {"[]", "top level: must be an object"},
        {R"({"beacons": [], "repeat": 3})",
         "repeat: unknown key; known here: beacons, repeatEvery, timeline"},
        {R"({"beacons": [], "repeatEvery": 0})", "repeatEvery: 0 is not from 1 to 1000000000"},
        {withBeacon(R"(, "minor": 8)"), "beacons[0].minor: the key is repeated"},
        {R"({"beacons": [7]})", "beacons[0]: must be an object"},
        {R"({"beacons": [{"name": "a", "mac": "ABCD"}]})", "beacons[0].mac: must be 12 hexadecimal digits"},
        {withBeacon(R"(, "battery": 18446744073709551615)"),
         "beacons[0].battery: 18446744073709551615 is not from 0 to 255"},
        {withEvent(R"("beacon": "a", "do": "pressButton", "action": 1, "seconds": 1e400)"),
         "timeline[0].seconds: the number is too large"},
        {withBeacon(R"(, "layoutVersion": 2.5)"), "beacons[0].layoutVersion: must be a whole number"},
        {withBeacon(R"(, "temperature": -5)"), "beacons[0].temperature: -5 is not from -4 to 65531"},
        {withBeacon(R"(, "interval": 0)"), "beacons[0].interval: 0 is not from 0.01 to 3600"},
        {withBeacon(R"(, "advertisedServices": ["1320", "x"])"),
         "beacons[0].advertisedServices[1]: must be a UUID of 4, 8 or 36 characters"},
        {withBeacon(R"(}, {"name": "a")"), "beacons[1].name: another beacon is named \"a\" already"},
        {withEvent(R"("beacon": "b", "do": "goOutOfRange")"), "timeline[0].beacon: there is no beacon \"b\""},
        {withEvent(R"("beacon": "a", "do": "goOutOfRange", "seconds": 2)"),
         "timeline[0].seconds: unknown key; known here: at, do, beacon"},
        {withEvent(R"("beacon": "a", "do": "setBattery", "level": 3)"),
         "timeline[0].level: unknown key; known here: at, do, beacon, battery"},
        {withEvent(R"("beacon": "a", "do": "pressButton", "action": 128)"),
         "timeline[0].action: 128 is not from -128 to 127"},
        {withEvent(R"("beacon": "a", "do": "sendOnce", "serviceData": [{"service": "180A", "data": "1"}])"),
         "timeline[0].serviceData[0].data: odd number of hexadecimal digits"},
        {withEvent(R"("do": "setRadio", "state": "on")"),
         "timeline[0].state: \"on\" is none of unknown, resetting, unsupported, unauthorized, poweredOff, "
         "poweredOn"},
        {withEvent(R"("do": "becomeActive")", R"(, "repeatEvery": 1)"),
         "timeline[0].at: must be less than repeatEvery"},
        {withBeacon(R"(, "link": {"supervisionTimeout": 0})"),
         "beacons[0].link.supervisionTimeout: 0 is not from 0.01 to 3600"},
        {withBeacon(R"(, "services": ["180A", "180D"])"),
         "beacons[0].services[1]: is no usual service of beacons: describe it in an object"},
        {withCharacteristic(R"("properties": ["read", "sign"])"),
         "beacons[0].services[0].characteristics[0].properties[1]: must be read, write, "
         "writeWithoutResponse or notify"},
        {withCharacteristic(R"("value": ")" + std::string(1026, '0') + '"'),
         "beacons[0].services[0].characteristics[0].value: must be up to 512 bytes"},
        {withCharacteristic(R"("generate": {"kind": "drift", "interval": 1, "smallest": 5, "largest": 4})"),
         "beacons[0].services[0].characteristics[0].generate.largest: 4 is not from 5 to 65535"},
        {withCharacteristic(R"("generate": {"kind": "pick", "interval": 1, "values": []})"),
         "beacons[0].services[0].characteristics[0].generate.values: must not be empty"},
        {withEvent(R"("beacon": "a", "do": "endLink")"), "timeline[0].error: missing"},
        {withEvent(R"("beacon": "a", "do": "setValue", "characteristic": "2A00", "value": "")"),
         "timeline[0].characteristic: the beacon has no characteristic 2A00"},
        {withEvent(R"("beacon": "a", "do": "setDiscoveryError", "service": "180D", "error": null)"),
         "timeline[0].service: the beacon has no service 180D"},
        {R"({"beacons": [], "timeline": [{"at": -1, "do": "becomeActive"}]})",
         "timeline[0].at: -1 is not from 0 to 1000000000"},
    };
    for (const auto& [text, message] : mistakes) EXPECT_EQ(mistakeIn(text), "a.json: " + message) << text;
    EXPECT_TRUE(mistakeIn("{\n  \"beacons\": [\n  }").starts_with("a.json: line 3, column 3: "));
    EXPECT_TRUE(
        mistakeIn(withEvent(R"("do": "dance")")).starts_with("a.json: timeline[0].do: \"dance\" is none"));
    EXPECT_EQ(mistakeIn(withEvent(R"("beacon": "a", "do": "setServiceData", "serviceData": null)")), "none");
}

}  // namespace
}  // namespace zobi::tool
