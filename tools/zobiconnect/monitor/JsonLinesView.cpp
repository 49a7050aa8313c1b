#include "tools/zobiconnect/monitor/JsonLinesView.h"

#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/Names.h"

namespace zobi::tool {

void JsonLinesView::bluetoothStateChanged(const Moment& moment) {
    print("state", moment,
          {{"state", moment.bluetoothState}, {"description", radioStateName(moment.bluetoothState)}});
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
    OrderedJson list = OrderedJson::array();
    for (const auto& beacon : beacons) {
        list.push_back(beaconJson(*beacon));
        list.back()["latest"] = latestJson(sightings.of(*beacon));
    }
    print("report", moment, {{"beacons", std::move(list)}});
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
