#include <cstdint>
#include <memory>
#include <string>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/beacon/BeaconVisit.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/BeaconJson.h"

namespace zobi::tool {

namespace {

int runButtonMode(const BeaconOptions& options) {
    BeaconVisit visit(options);
    BeaconClient& client = visit.client();
    std::int32_t mode = 0;
    visit.carryOut([&] {
        visit.connect();
        visit.require(ZOKGATTProfile::buttonModeCharacteristic, ZOKGATTProfile::configurationService);
        const auto& manager = ZOKManager::shared();
        if (options.value) manager->setButtonModeForBeacon(*options.value, client.beacon());
        // A write that fails is not reported. What is read after it tells whether it did.
        manager->buttonModeForBeaconWithCompletion(client.beacon(), nullptr);
        visit.await("reading the button mode of " + client.name(),
                    [&] { return client.latest(Quantity::buttonMode).has_value(); });
        mode = std::get<platform::NSNumber>(*client.latest(Quantity::buttonMode)).integerValue();
    });
    if (options.value && mode != *options.value) {
        throw Failure("the button mode of " + client.name() + " is " + std::to_string(mode) + ", though " +
                      std::to_string(*options.value) + " was written");
    }
    const auto& [major, minor] = options.identity;
    printOut(options.format == "json" ? jsonLine({{"major", major}, {"minor", minor}, {"buttonMode", mode}})
                                      : std::to_string(mode) + '\n');
    flushOut();
    return success;
}

}  // namespace

Command addButtonModeCommand(CLI::App& tool) {
    const auto options = std::make_shared<BeaconOptions>();
    CLI::App* const app = tool.add_subcommand("button-mode", "Read or set the button mode of a beacon");
    app->group("Commands");
    addFormatOption(*app, options->format, "text");
    addBeaconOptions(*app, *options, "Give up after so much time in all",
                     "The mode to set, 0 to 255; without it the mode is only read");
    app->footer(
        "Waits until the beacon is heard, connects to it, sets the mode if a value is given, reads it,\n"
        "disconnects, and prints what was read. The exit status is 0 only if that is the value.\n"
        "\n"
        "Example: zobiconnect button-mode 1.7 2");
    return {app, [options] { return runButtonMode(*options); }};
}

}  // namespace zobi::tool
