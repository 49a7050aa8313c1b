#include "tools/zobiconnect/watch/WatchTable.h"

#include <cmath>
#include <utility>
#include <vector>

#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/TextTable.h"
#include "tools/zobiconnect/text/Names.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

namespace {

constexpr std::size_t longestHistory = 8;

std::string cellText(Quantity quantity, const std::optional<Value>& value) {
    if (!value) return "-";
    if (quantity == Quantity::signalStrength) return signalText(std::get<platform::NSNumber>(*value));
    return printableASCII(valueText(*value)) + (quantity == Quantity::batteryLevel ? "%" : "");
}

std::string linkText(BeaconClient::Link link) {
    switch (link) {
        case BeaconClient::Link::none:
            return "listening";
        case BeaconClient::Link::connecting:
            return "connecting";
        case BeaconClient::Link::connected:
            return "connected";
    }
    return "";
}

}  // namespace

WatchTable::WatchTable(const BeaconClient& client, platform::Clock& clock, Display display, std::string note)
    : client_(client),
      clock_(clock),
      start_(clock.monotonicTime()),
      screen_(display),
      note_(std::move(note)) {}

void WatchTable::show(const BeaconEvent& event) {
    if (event.quantity) {
        Arrivals& arrivals = arrivals_[static_cast<std::size_t>(*event.quantity)];
        ++arrivals.count;
        arrivals.time = clock_.timeIntervalSince1970();
        // Printed tables would be too many.
        if (!screen_.isLive()) return;
    }
    noteLink(event);
    draw();
}

void WatchTable::noteLink(const BeaconEvent& event) {
    using Kind = BeaconEvent::Kind;
    std::string text;
    switch (event.kind) {
        case Kind::bluetooth:
            text = "Bluetooth " + std::string(radioStateName(client_.bluetoothState()));
            break;
        case Kind::connecting:
            text = "connecting";
            break;
        case Kind::connected: {
            const auto missing = client_.missingCharacteristics();
            text = missing.empty() ? "connected" : "connected; not found: " + listed(missing);
            break;
        }
        case Kind::failed:
        case Kind::lost:
        case Kind::ended:
            text = *client_.ending();
            break;
        case Kind::value:
        case Kind::second:
            return;
    }
    history_.push_back(secondsText(elapsedSeconds()) + "  " + printableASCII(text));
    if (history_.size() > longestHistory) history_.pop_front();
}

void WatchTable::end(const Totals& totals) {
    screen_.end();
    printOut("Ended after " + secondsText(elapsedSeconds()) + ": " +
             counted(totals.connections, "connection") + ", " + counted(totals.values, "value") + '\n');
    flushOut();
}

void WatchTable::draw() {
    constexpr auto right = Column::Alignment::right;
    std::vector<std::vector<std::string>> rows;
    for (std::size_t i = 0; i < arrivals_.size(); ++i) {
        const auto& [count, time] = arrivals_[i];
        const auto quantity = static_cast<Quantity>(i);
        rows.push_back({std::string(nameOf(quantity)), cellText(quantity, client_.latest(quantity)),
                        count > 0 ? secondsText(age(clock_.timeIntervalSince1970(), time)) : "-",
                        std::to_string(count)});
    }
    std::vector<Screen::Line> lines{{statusLine()}, {""}};
    auto style = Screen::Style::heading;
    for (std::string& line : formatTable(
             {{"", "VALUE"}, {"", "LATEST", right}, {"", "AGE", right}, {"", "RECEIVED", right}}, rows)) {
        lines.push_back({std::move(line), std::exchange(style, Screen::Style::plain)});
    }
    lines.push_back({""});
    for (const std::string& line : history_) lines.push_back({line, Screen::Style::faint});
    screen_.show(std::move(lines));
}

std::string WatchTable::statusLine() const {
    return client_.name() + " | " + linkText(client_.link()) + " | Bluetooth " +
           std::string(radioStateName(client_.bluetoothState())) + " | " + secondsText(elapsedSeconds()) +
           " | " + note_;
}

std::int64_t WatchTable::elapsedSeconds() const {
    const std::chrono::duration<double> elapsed = clock_.monotonicTime() - start_;
    return std::llround(elapsed.count());
}

}  // namespace zobi::tool
