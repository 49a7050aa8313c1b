#include <memory>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/beacon/BeaconVisit.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/BeaconJson.h"

namespace zobi::tool {

namespace {

int runPing(const BeaconOptions& options) {
    BeaconVisit visit(options);
    BeaconClient& client = visit.client();
    visit.carryOut([&] {
        visit.connect();
        visit.require(ZOKGATTProfile::alertLevelCharacteristic, ZOKGATTProfile::immediateAlertService);
        const auto& manager = ZOKManager::shared();
        manager->pingBeacon(client.beacon());
        // A ping has no answer. What is asked for after it is answered after it, if it is answered at all.
        constexpr double patience = 2;
        const Deadline limit(visit.platform().runLoop(), patience);
        manager->firmwareVersionForBeaconWithCompletion(client.beacon(), nullptr);
        manager->RSSIForBeaconWithCompletion(client.beacon(), nullptr);
        visit.awaitInTime("pinging " + client.name(), [&] {
            return client.latest(Quantity::firmwareVersion) || client.latest(Quantity::signalStrength) ||
                   limit.hasPassed();
        });
    });
    const auto& [major, minor] = options.identity;
    printOut(options.format == "json" ? jsonLine({{"major", major}, {"minor", minor}, {"pinged", true}})
                                      : "pinged " + client.name() + '\n');
    flushOut();
    return success;
}

}  // namespace

Command addPingCommand(CLI::App& tool) {
    const auto options = std::make_shared<BeaconOptions>();
    CLI::App* const app = tool.add_subcommand("ping", "Have a beacon sound an alert");
    app->group("Commands");
    addFormatOption(*app, options->format, "text");
    addBeaconOptions(*app, *options, "Give up after so much time in all");
    app->footer(
        "Waits until the beacon is heard, connects to it, pings it and disconnects. A beacon does not\n"
        "confirm a ping: the exit status is 0 when it was sent, and the link still stood after it.\n"
        "\n"
        "Example: zobiconnect ping 1.7");
    return {app, [options] { return runPing(*options); }};
}

}  // namespace zobi::tool
