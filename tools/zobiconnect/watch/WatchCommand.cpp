#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/beacon/BeaconVisit.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/watch/WatchJsonLines.h"
#include "tools/zobiconnect/watch/WatchTable.h"

namespace zobi::tool {

namespace {

struct Options {
    BeaconOptions beacon;
    std::string format;
    std::optional<double> duration;
    double rssiInterval = 2;
};

std::unique_ptr<WatchView> makeView(const Options& options, BeaconVisit& visit) {
    const RadioOptions& radio = options.beacon.radio;
    platform::Clock& clock = visit.platform().clock();
    const Display display = chooseDisplay(options.format, radio.log);
    if (display == Display::jsonLines) {
        return std::make_unique<WatchJsonLines>(visit.client(), clock, !radio.virtualTime);
    }
    return std::make_unique<WatchTable>(visit.client(), clock, display, radio.caption());
}

/// Asks for all that a beacon tells: at each connection anew, for all of it ends with the link.
void askForValues(const std::shared_ptr<ZOKBeacon>& beacon, double rssiInterval) {
    const auto& manager = ZOKManager::shared();
    manager->setBatteryNotificationsForBeacon(true, beacon);
    manager->setButtonActionsNotificationsForBeacon(true, beacon);
    manager->setAccelerometerNotificationsForBeacon(true, beacon);
    manager->firmwareVersionForBeaconWithCompletion(beacon, nullptr);
    manager->buttonModeForBeaconWithCompletion(beacon, nullptr);
    manager->temperatureForBeaconWithCompletion(beacon, nullptr);
    // These readings go on over the end of a link, but for the record that was connected then.
    manager->stopRSSIMonitoringForBeacon(beacon);
    manager->startRSSIMonitoringForBeaconIntervalWithCompletion(beacon, rssiInterval, nullptr);
}

/// Beacons do not notify their temperature.
void readTemperatureAgainAndAgain(BeaconVisit& visit) {
    constexpr double interval = 5;
    visit.platform().runLoop().every(interval, [&client = visit.client()] {
        ZOKManager::shared()->temperatureForBeaconWithCompletion(client.beacon(), nullptr);
    });
}

int runWatch(const Options& options) {
    BeaconOptions beaconOptions = options.beacon;
    if (options.duration) beaconOptions.timeout = std::min(beaconOptions.timeout, *options.duration);
    BeaconVisit visit(beaconOptions);
    BeaconClient& client = visit.client();
    const auto view = makeView(options, visit);
    std::optional<Deadline> end;
    if (options.duration) end.emplace(visit.platform().runLoop(), *options.duration);
    WatchView::Totals totals;
    client.setObserver([&](const BeaconEvent& event) {
        if (event.kind == BeaconEvent::Kind::connected) {
            ++totals.connections;
            askForValues(client.beacon(), options.rssiInterval);
        }
        if (event.kind == BeaconEvent::Kind::value) ++totals.values;
        view->show(event);
    });
    readTemperatureAgainAndAgain(visit);
    const auto endView = [&] {
        view->end(totals);
        flushOut();
    };
    try {
        visit.carryOut([&] {
            const auto isConnected = [&] { return client.link() == BeaconClient::Link::connected; };
            if (!visit.runUntil(isConnected, &visit.deadline())) throw Failure(visit.whyNotConnected());
            visit.runUntil([] { return false; }, end ? &*end : nullptr);
        });
    } catch (const Failure&) {
        endView();
        throw;
    }
    endView();
    return success;
}

}  // namespace

Command addWatchCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app =
        tool.add_subcommand("watch", "Connect to a beacon and show what it tells, until Ctrl-C");
    app->group("Commands");
    addFormatOption(*app, options->format, "table");
    addDurationOption(*app, options->duration);
    app->add_option("--rssi-interval", options->rssiInterval, "How often to read the signal strength")
        ->check(isSeconds(0.1))
        ->option_text("SECONDS [2]");
    addBeaconOptions(*app, options->beacon, "Give up if there is no connection after so much time");
    app->footer(
        "A lost link is made again, as soon as the beacon is back. After any other end of the link, and\n"
        "after an attempt that failed, the beacon is connected again when it is heard again.\n"
        "\n"
        "Values: battery level, button action and the axes of the accelerometer as the beacon notifies\n"
        "them; the temperature, read every 5 s; the button mode and the firmware version, read once for\n"
        "each connection; and the signal strength.\n"
        "\n"
        "Events of json, each with its time in seconds since 1970:\n"
        "  state          of Bluetooth, as in monitor\n"
        "  connecting     the beacon was heard, or its link was lost: a connection is asked for\n"
        "  connected      and which characteristics were not found\n"
        "  failed         an attempt to connect has failed, with its error\n"
        "  lost           nothing was heard of the beacon for too long, with the error\n"
        "  ended          the link has ended otherwise, with the error if there is one\n"
        "  value          with its name\n"
        "  summary        at the end\n"
        "\n"
        "Examples:\n"
        "  zobiconnect watch 1.7\n"
        "  zobiconnect watch 1.4 --for 120 --virtual-time --format json | grep '\"event\":\"lost\"'");
    return {app, [options] { return runWatch(*options); }};
}

}  // namespace zobi::tool
