#include "tools/zobiconnect/monitor/JsonLinesView.h"

#include <string>
#include <string_view>

#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/Names.h"

namespace zobi::tool {

void JsonLinesView::bluetoothStateChanged(const Moment& moment) {
    print("state", moment,
          {{"state", moment.bluetoothState}, {"description", radioStateName(moment.bluetoothState)}});
}

void JsonLinesView::radioConditionChanged(const Moment& moment, const platform::RadioCondition& condition) {
    const auto json = [](const std::string& text) {
        return text.empty() ? OrderedJson() : OrderedJson(text);
    };
    print("radio", moment, {{"text", json(condition.text)}, {"remedy", json(condition.remedy)}});
}

void JsonLinesView::applicationStateChanged(const Moment& moment) {
    const bool isActive = moment.applicationState == platform::UIApplicationState::active;
    print("application", moment,
          {{"state", static_cast<int>(moment.applicationState)},
           {"description", isActive ? "active" : "background"}});
}

void JsonLinesView::beaconsRanged(const Moment& moment,
                                  const std::vector<std::shared_ptr<ZOKBeacon>>& beacons,
                                  const Sightings& sightings) {
    // One after the other: as one object, a thousand of them take megabytes.
    std::string line = eventLine("report", moment.time, {{"beacons", OrderedJson::array()}});
    constexpr std::string_view end = "]}\n";
    line.resize(line.size() - end.size());
    printOut(line);
    for (const auto& beacon : beacons) {
        const Sighting& sighting = sightings.of(*beacon);
        OrderedJson object = beaconJson(*beacon);
        object["latest"] = latestJson(sighting);
        object["lastMinute"] = receptionJson(sighting.reception, moment.monotonicTime);
        if (beacon != beacons.front()) printOut(",");
        printOut(jsonText(object));
    }
    printOut(end);
    if (flushes_) flushOut();
}

void JsonLinesView::buttonUsed(const Moment& moment, int action, const ZOKBeacon& beacon) {
    print("button", moment, {{"action", action}, {"beacon", beaconJson(beacon)}});
}

void JsonLinesView::ended(const Moment& moment, const Totals& totals) {
    print("summary", moment,
          {{"seconds", rounded(moment.elapsed)},
           {"beacons", totals.beacons},
           {"reports", totals.reports},
           {"buttonActions", totals.buttonActions},
           {"advertisements", totals.advertisements},
           {"malformedAdvertisements", totals.malformedAdvertisements}});
}

void JsonLinesView::print(const char* event, const Moment& moment, const OrderedJson& values) const {
    printOut(eventLine(event, moment.time, values));
    if (flushes_) flushOut();
}

}  // namespace zobi::tool
