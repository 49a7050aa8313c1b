#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/beacon/BeaconVisit.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/BeaconJson.h"
#include "tools/zobiconnect/text/Names.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

using platform::CBUUID;
using platform::NSNumber;

namespace {

/// A value that is read, and how.
struct ReadValue {
    Quantity quantity;
    const char* title;
    CBUUID service;
    CBUUID characteristic;
    void (ZOKManager::*read)(const std::shared_ptr<ZOKBeacon>&, const ZOKBeaconCompletion&);
};

const auto& readValues() {
    using namespace ZOKGATTProfile;
    static constexpr auto values = std::to_array<ReadValue>({
        {Quantity::firmwareVersion, "firmware version", deviceInformationService,
         firmwareRevisionCharacteristic, &ZOKManager::firmwareVersionForBeaconWithCompletion},
        {Quantity::temperature, "temperature", temperatureService, temperatureCharacteristic,
         &ZOKManager::temperatureForBeaconWithCompletion},
        {Quantity::buttonMode, "button mode", configurationService, buttonModeCharacteristic,
         &ZOKManager::buttonModeForBeaconWithCompletion},
    });
    return values;
}

/// The battery level that is advertised; nothing in layout version 1, which has none.
NSNumber advertisedBattery(const ZOKBeacon& beacon) {
    return beacon.scanRspVersion().integerValue() == 1 ? NSNumber() : beacon.advertBatteryLevel();
}

std::string batteryText(const BeaconClient& client) {
    if (const auto& level = client.latest(Quantity::batteryLevel)) return valueText(*level) + '%';
    const NSNumber advertised = advertisedBattery(*client.beacon());
    return advertised.hasValue() ? advertised.description() + "% (as advertised)" : "-";
}

void printAsText(const BeaconClient& client) {
    constexpr std::size_t titleWidth = 18;
    const auto printValue = [](std::string title, const std::string& value) {
        title.resize(titleWidth, ' ');
        printOut("  " + title + printable(value) + '\n');
    };
    printOut(client.name() + '\n');
    printValue("MAC address", client.beacon()->macAddress().value_or("-"));
    for (const ReadValue& value : readValues()) {
        const auto& latest = client.latest(value.quantity);
        printValue(value.title, latest ? valueText(*latest) : "-");
    }
    printValue("battery level", batteryText(client));
    printOut("  services\n");
    const auto printUUID = [](const std::string& indent, const CBUUID& uuid) {
        printOut(indent + uuid.UUIDString() + "  " + std::string(gattName(uuid)) + '\n');
    };
    for (const auto& service : *client.beacon()->peripheral()->services()) {
        printUUID("    ", service->UUID());
        if (!service->characteristics()) continue;
        for (const auto& characteristic : *service->characteristics()) {
            printUUID("      ", characteristic->UUID());
        }
    }
}

OrderedJson uuidJson(const CBUUID& uuid) {
    return {{"uuid", uuid.UUIDString()}, {"name", gattName(uuid)}};
}

void printAsJson(const BeaconClient& client) {
    const ZOKBeacon& beacon = *client.beacon();
    OrderedJson object{{"major", beacon.major().integerValue()},
                       {"minor", beacon.minor().integerValue()},
                       {"macAddress", textJson(beacon.macAddress())}};
    for (const ReadValue& value : readValues()) {
        object[std::string(nameOf(value.quantity))] = valueJson(client.latest(value.quantity));
    }
    object["batteryLevel"] = valueJson(client.latest(Quantity::batteryLevel));
    object["advertBatteryLevel"] = numberJson(advertisedBattery(beacon));
    OrderedJson services = OrderedJson::array();
    for (const auto& service : *beacon.peripheral()->services()) {
        services.push_back(uuidJson(service->UUID()));
        OrderedJson& characteristics = services.back()["characteristics"] = OrderedJson::array();
        if (!service->characteristics()) continue;
        for (const auto& characteristic : *service->characteristics()) {
            characteristics.push_back(uuidJson(characteristic->UUID()));
        }
    }
    object["services"] = std::move(services);
    printOut(jsonLine(object));
}

/// Reads what can be read, and waits for the answers. @returns what did not come, and why.
std::vector<std::string> readAll(BeaconVisit& visit) {
    // Nothing reads the battery level. A beacon may notify it while it is listened to.
    constexpr double batteryPatience = 2;
    const BeaconClient& client = visit.client();
    const auto& manager = ZOKManager::shared();
    manager->setBatteryNotificationsForBeacon(true, client.beacon());
    const Deadline batteryDeadline(visit.platform().runLoop(), batteryPatience);
    std::vector<ReadValue> asked;
    std::vector<std::string> failed;
    for (const ReadValue& value : readValues()) {
        if (client.has(value.characteristic, value.service)) {
            (*manager.*value.read)(client.beacon(), nullptr);
            asked.push_back(value);
        } else {
            failed.push_back(std::string(value.title) + " (no such characteristic)");
        }
    }
    const auto isAnswered = [&](const ReadValue& value) { return client.latest(value.quantity).has_value(); };
    visit.awaitInTime("reading what " + client.name() + " has to tell", [&] {
        const bool isBatteryDone = client.latest(Quantity::batteryLevel) || batteryDeadline.hasPassed();
        return isBatteryDone && std::ranges::all_of(asked, isAnswered);
    });
    for (const ReadValue& value : asked) {
        if (!isAnswered(value)) failed.push_back(std::string(value.title) + " (no answer)");
    }
    return failed;
}

int runInspect(const BeaconOptions& options) {
    BeaconVisit visit(options);
    BeaconClient& client = visit.client();
    visit.carryOut([&] {
        visit.connect();
        const std::vector<std::string> failed = readAll(visit);
        if (options.format == "json") {
            printAsJson(client);
        } else {
            printAsText(client);
        }
        flushOut();
        if (!failed.empty()) throw Failure(client.name() + " did not tell its " + listed(failed));
    });
    return success;
}

}  // namespace

Command addInspectCommand(CLI::App& tool) {
    const auto options = std::make_shared<BeaconOptions>();
    CLI::App* const app = tool.add_subcommand("inspect", "Connect to a beacon and print what it is");
    app->group("Commands");
    addFormatOption(*app, options->format, "text");
    addBeaconOptions(*app, *options, "Give up after so much time in all");
    app->footer(
        "Waits until the beacon is heard, connects to it, reads its values, prints them and the services\n"
        "and characteristics that were found, and disconnects. What does not come is printed as '-', and\n"
        "costs one line on stderr and the exit status 1.\n"
        "\n"
        "The battery level can only be listened to: if none comes in 2 s, the advertised one is printed.\n"
        "\n"
        "Example: zobiconnect inspect 1.7");
    return {app, [options] { return runInspect(*options); }};
}

}  // namespace zobi::tool
