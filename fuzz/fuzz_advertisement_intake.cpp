// Plays a Bluetooth service that tells what it likes of an ordinary beacon's payloads, and checks what a
// manager that monitors makes of them.

#include <array>
#include <set>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "support.h"
#include "tests/bluez/support/ScriptedPlatform.h"

namespace {

using namespace zobi::platform;
using namespace zobi::platform::bluez;

const std::string payloadService = longForm(CBUUID::UUIDWithString("180A"));
const std::string beaconService = longForm(CBUUID::UUIDWithString("1320"));

/// What the manager is to make of the sightings.
struct Expected {
    int refusals = 0;
    /// The numbers of beacons.
    std::set<std::array<std::uint8_t, 4>> accepted = {};
};

/// @param expected null if nobody is to take notice.
Properties anySighting(Input& input, Expected* expected) {
    Properties payloads;
    for (int left = input.byte() % 3; left > 0; --left) {
        const auto payload = input.bytes(input.byte() % 32);
        const bool isPayload = input.byte() < 200;
        payloads.emplace_back(isPayload ? payloadService : beaconService,
                              Bytes(payload.begin(), payload.end()));
        if (!expected || !isPayload) continue;
        if (isComplete(payload)) {
            expected->accepted.insert({payload[7], payload[8], payload[9], payload[10]});
        } else {
            ++expected->refusals;
            // The rest of the advertisement is dropped with it.
            expected = nullptr;
        }
    }
    return {{"RSSI", static_cast<std::int16_t>(input.byte() - 128)}, {"ServiceData", payloads}};
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    ScriptedPlatform machine;
    int refusals = 0;
    machine.log().setSink(
        [&](std::string_view line) { refusals += line.find(" dropped: ") != std::string_view::npos; });
    const auto manager = ZOKManager::managerOnPlatform(machine);
    machine.runLoop().runFor(0.1);
    manager->startMonitoring();
    machine.runLoop().runFor(0.1);

    const std::string path = firstAdapter + "/dev_00_00_5E_00_53_01";
    bool isKnown = false;
    Expected expected;
    // In less time than beacons take to fall silent.
    for (int steps = 0; steps < 32 && !input.isAtEnd(); ++steps) {
        const std::uint8_t step = input.byte();
        if (step < 100) {
            const Properties changed = anySighting(input, isKnown ? &expected : nullptr);
            machine.service.emit(path, propertiesInterface, "PropertiesChanged",
                                 [&](Message& body) { body.string(deviceInterface).properties(changed); });
        } else if (step < 180) {
            isKnown = true;
            Properties device = anySighting(input, &expected);
            device.insert(device.end(), {{"Name", "morvane"}, {"UUIDs", std::vector{beaconService}}});
            machine.service.addObject(path, {{deviceInterface, device}});
        } else if (step < 220) {
            isKnown = false;
            machine.service.removeObjects(path);
        } else {
            machine.runLoop().runFor(0.5);
        }
        for (int i = 0; i < 2; ++i) machine.runLoop().processPending();
    }
    require(refusals == expected.refusals);
    require(manager->liveBeacons().size() == expected.accepted.size());
    machine.runLoop().runFor(40);
    require(manager->liveBeacons().empty());
    return 0;
}
