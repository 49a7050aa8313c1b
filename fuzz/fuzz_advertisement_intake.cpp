// Plays a Bluetooth service that tells what it likes of two devices, and checks what a manager that monitors
// makes of it. The first device is an ordinary beacon but for its payloads.

#include <set>

#include "AnyService.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/bluez/central/BlueZCentral.h"
#include "zobi/platform/NSData.h"
#include "zobi/platform/standard/ForwardingCentral.h"

namespace {

using namespace zobi::platform;
using namespace zobi::platform::bluez;

const CBUUID payloadService = CBUUID::UUIDWithString("180A");
const CBUUID beaconService = CBUUID::UUIDWithString("1320");

/// Stands between the radio and the manager, and keeps account of what passes.
struct Witness final : ForwardingCentral {
    using ForwardingCentral::ForwardingCentral;

    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral,
        const CBAdvertisementData& data, NSNumber rssi) override {
        sightings += dynamic_cast<BlueZPeripheral&>(*peripheral).addressText().ends_with("01");
        bool isRefused = false;
        for (const auto& [service, payload] : data.serviceData) {
            if (isRefused || data.localName != "morvane" || service != payloadService) continue;
            isRefused = !isComplete(payload);
            if (!isRefused) accepted.insert({payload[7], payload[8], payload[9], payload[10]});
        }
        refusals += isRefused;
        try {
            ForwardingCentral::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(central, peripheral,
                                                                                        data, rssi);
            require(!isRefused);
        } catch (const DataRangeError&) {
            require(isRefused);
            throw;
        }
    }

    /// Of the first device.
    int sightings = 0;
    int refusals = 0;
    /// The numbers of beacons.
    std::set<std::array<std::uint8_t, 4>> accepted;
};

struct WatchedMachine final : Machine {
    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        witness = std::make_shared<Witness>(std::move(delegate));
        const auto central = std::make_shared<BlueZCentral>(context, witness);
        witness->attach(central);
        runLoop().dispatchAsync([central] { central->start(); });
        return witness;
    }

    std::shared_ptr<Witness> witness;
};

Properties anySighting(Input& input) {
    Properties payloads;
    for (int left = input.byte() % 3; left > 0; --left) {
        const auto payload = input.bytes(input.byte() % 32);
        payloads.emplace_back(longForm(input.byte() < 200 ? payloadService : beaconService),
                              Bytes(payload.begin(), payload.end()));
    }
    return {{"RSSI", static_cast<std::int16_t>(input.byte() - 128)}, {"ServiceData", payloads}};
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    WatchedMachine machine;
    int refusalsLogged = 0;
    machine.log().setSink(
        [&](std::string_view line) { refusalsLogged += line.find(" dropped: ") != std::string_view::npos; });
    const auto manager = ZOKManager::managerOnPlatform(machine);
    machine.runLoop().runFor(0.1);
    manager->startMonitoring();
    machine.runLoop().runFor(0.1);

    bool isKnown = false;
    int signals = 0;
    // In less time than beacons take to fall silent.
    for (int steps = 0; steps < 32 && !input.isAtEnd(); ++steps) {
        const std::uint8_t step = input.byte();
        const bool isFirst = step % 2 == 0;
        const std::string path = firstAdapter + "/dev_00_00_5E_00_53_0" + (isFirst ? '1' : '2');
        const auto tellObject = [&](const std::string& member, const auto& append) {
            machine.service.emit("/", objectManagerInterface, member,
                                 [&](Message& body) { append(body.objectPath(path)); });
        };
        if (step < 100) {
            machine.service.emit(path, propertiesInterface, "PropertiesChanged", [&](Message& body) {
                body.string(deviceInterface);
                isFirst ? void(body.properties(anySighting(input))) : appendAny(body.get(), input, "a{sv}");
            });
            signals += isFirst && isKnown;
        } else if (step < 180) {
            tellObject("InterfacesAdded", [&](Message& body) {
                if (!isFirst) return appendAny(body.get(), input, "a{sa{sv}}");
                Properties device = anySighting(input);
                device.emplace_back("Name", "morvane");
                device.emplace_back("UUIDs", std::vector{longForm(beaconService)});
                body.interfaces({{deviceInterface, device}});
            });
            isKnown = isKnown || isFirst;
            signals += isFirst;
        } else if (step < 220) {
            tellObject("InterfacesRemoved", [](Message& body) { body.strings({deviceInterface}); });
            isKnown = isKnown && !isFirst;
        } else {
            machine.runLoop().runFor(0.5);
        }
        for (int i = 0; i < 2; ++i) machine.runLoop().processPending();
    }
    require(machine.witness->sightings == signals);
    require(machine.witness->refusals == refusalsLogged);
    require(manager->liveBeacons().size() == machine.witness->accepted.size());
    machine.runLoop().runFor(40);
    require(manager->liveBeacons().empty());
    return 0;
}
