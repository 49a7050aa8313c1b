#include "tools/zobiconnect/monitor/TableView.h"

#include <cmath>
#include <utility>

#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/TextTable.h"
#include "tools/zobiconnect/text/Names.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

namespace {

using platform::NSNumber;

// A beacon not heard for longer is shown faint.
constexpr std::int64_t faintAge = 5;

std::string cellText(NSNumber number, const char* unit) {
    return number.hasValue() ? number.description() + unit : "-";
}

std::string cellText(std::optional<double> number, const char* unit) {
    return number ? tenthsText(*number) + unit : "-";
}

const std::vector<Column>& columns() {
    constexpr auto right = Column::Alignment::right;
    constexpr auto left = Column::Alignment::left;
    static const std::vector<Column> columns{
        {"", "BEACON", left},
        {"", "MAC", left},
        {"", "AGE", right},
        {"first seen", "BATT", right},
        {"first seen", "TEMP", right},
        {"latest", "SIGNAL dBm", right},
        {"latest", "BATT", right},
        {"latest", "TEMP", right},
        {"last minute", "RATE", right},
        {"last minute", "GAP", right},
        {"", "BUTTON", left},
        {"", "VER", right},
    };
    return columns;
}

std::vector<std::string> cells(const Moment& moment, const ZOKBeacon& beacon, const Sighting& sighting) {
    const double now = moment.time;
    const auto latest = sighting.latest.value_or(Sighting::Advertisement());
    const auto& button = sighting.lastButton;
    return {
        beacon.major().description() + '.' + beacon.minor().description(),
        beacon.macAddress().value_or("-"),
        secondsText(age(now, static_cast<double>(beacon.timestamp()))),
        cellText(beacon.advertBatteryLevel(), "%"),
        cellText(beacon.temperature(), "C"),
        signalText(latest.rssi),
        cellText(latest.advertBatteryLevel, "%"),
        cellText(latest.temperature, "C"),
        cellText(sighting.reception.rate(moment.monotonicTime), ""),
        cellText(sighting.reception.longestGap(moment.monotonicTime), "s"),
        button ? std::to_string(button->action) + " (" + secondsText(age(now, button->time)) + ")" : "-",
        cellText(beacon.scanRspVersion(), ""),
    };
}

}  // namespace

TableView::TableView(Display display, std::string note) : screen_(display), note_(std::move(note)) {}

void TableView::bluetoothStateChanged(const Moment& moment) {
    draw(moment);
}

void TableView::radioConditionChanged(const Moment& moment, const platform::RadioCondition& condition) {
    advice_ = printableASCII(condition.advice());
    draw(moment);
}

void TableView::applicationStateChanged(const Moment& moment) {
    draw(moment);
}

void TableView::beaconsRanged(const Moment& moment, const std::vector<std::shared_ptr<ZOKBeacon>>& beacons,
                              const Sightings& sightings) {
    std::vector<std::vector<std::string>> rows;
    rows.reserve(beacons.size());
    for (const auto& beacon : beacons) {
        rows.push_back(cells(moment, *beacon, sightings.of(*beacon)));
    }
    auto lines = formatTable(columns(), rows);
    headings_.clear();
    rows_.clear();
    const std::size_t headingCount = lines.size() - rows.size();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i < headingCount) {
            headings_.push_back({std::move(lines[i]), Screen::Style::heading});
            continue;
        }
        const auto lastSeen = static_cast<double>(beacons[i - headingCount]->timestamp());
        const bool isFaint = age(moment.time, lastSeen) >= faintAge;
        rows_.push_back({std::move(lines[i]), isFaint ? Screen::Style::faint : Screen::Style::plain});
    }
    beaconCount_ = beacons.size();
    draw(moment);
}

void TableView::ended(const Moment& moment, const Totals& totals) {
    screen_.end();
    printOut("Ended after " + secondsText(std::llround(moment.elapsed)) + ": " +
             counted(totals.beacons, "beacon") + " in " + counted(totals.reports, "report") + ", " +
             counted(totals.buttonActions, "button action") + ", " +
             counted(totals.advertisements, "advertisement") + " (" +
             std::to_string(totals.malformedAdvertisements) + " malformed)\n");
    flushOut();
}

void TableView::draw(const Moment& moment) {
    std::vector<Screen::Line> lines{{statusLine(moment)}};
    if (!advice_.empty()) lines.push_back({advice_});
    // None before the first report.
    if (!headings_.empty()) lines.push_back({""});
    lines.insert(lines.end(), headings_.begin(), headings_.end());
    lines.insert(lines.end(), rows_.begin(), rows_.end());
    screen_.show(std::move(lines));
}

std::string TableView::statusLine(const Moment& moment) const {
    const bool isActive = moment.applicationState == platform::UIApplicationState::active;
    return "Bluetooth " + std::string(radioStateName(moment.bluetoothState)) + " | " +
           (isActive ? "foreground" : "background") + " | " + secondsText(std::llround(moment.elapsed)) +
           " | " + counted(beaconCount_, "beacon") + " | " + note_;
}

}  // namespace zobi::tool
