#pragma once

#include "ScriptedPlatform.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"
#include "radio/RadioTest.h"
#include "zobi/platform/bluez/Diagnosis.h"

namespace zobi::platform::bluez {

/// A beacon on the air of the scripted service.
class ScriptedBench final : public RadioBench {
public:
    ScriptedPlatform& platform() override { return machine; }
    void beaconComesIntoRange() override { beacon.isInRange = true; }
    void beaconFallsSilent() override {
        constexpr double supervisionTimeout = 3;
        beacon.isInRange = false;
        machine.runLoop().after(supervisionTimeout, [this, link = std::weak_ptr(beacon.link)] {
            if (!link.expired()) service.endLink(beacon, 0x08);
        });
    }
    void beaconEndsLink() override { service.endLink(beacon, 0x13); }
    void makeAttemptsFail(bool fail) override {
        beacon.attempts = fail ? Attempts::breakOff : Attempts::succeed;
    }
    void setValue(const CBUUID& characteristic, std::vector<std::uint8_t> value) override {
        service.setValue(beacon, characteristic, value);
    }
    std::vector<std::uint8_t> value(const CBUUID& characteristic) override {
        return beacon.characteristic(characteristic).it.value.value_or(Bytes());
    }
    void setRadioPower(bool isOn) override { service.setPowered(isOn); }

    /// What the beacon sends.
    static Properties payload(std::uint16_t minor) {
        return {
            {longForm(CBUUID::UUIDWithString("180A")), zobi::encodePayload({.major = 1, .minor = minor})}};
    }

    ScriptedPlatform machine;
    ScriptedService& service = machine.service;
    ScriptedDevice& beacon = service.add({.serviceData = payload(7)});
};

inline const RadioUnderTest scriptedRadio{"Scripted", [] { return std::make_unique<ScriptedBench>(); }};

/// In bytes.
std::ptrdiff_t heapInUse();

/// What an examination finds.
std::vector<Finding> findingsOf(ScriptedPlatform& machine, const std::string& adapter = {});

/// Where an attempt or a link stands.
enum Phase { waiting, connecting, resolving, linked, ending, phases };

/// What the BlueZ radio makes of a Bluetooth service and its failures: a central manager over a scripted
/// service, in virtual time.
class BlueZRadio : public RadioTest {
protected:
    void pass(double seconds) { machine.runLoop().runFor(seconds); }
    bool within(double seconds, const std::string& event) { return heard(event, 1, seconds); }
    /// What was told in so many seconds.
    Events eventsIn(double seconds);
    /// How often an operation was called.
    std::ptrdiff_t callsOf(const std::string& operation) const;
    /// Brings the beacon, which is not linked, into a phase.
    std::shared_ptr<CBPeripheral> reach(int phase);
    /// The service, or another sender, tells properties of the beacon.
    void signal(const Properties& changed, const std::string& sender = {});
    void cyclePower();
    /// A link to the beacon comes up and goes, of another program.
    void linkByOther();

    /// Another central manager. Its events tell sightings too: the name, the service data and the strength.
    struct Watched {
        std::shared_ptr<RadioRecorder> listener = RadioRecorder::make();
        std::shared_ptr<CBCentralManager> central;

        Events takeEvents() const { return std::exchange(listener->events, {}); }
    };
    static Watched watch(ScriptedPlatform& platform, const std::string& adapter = {});

    ScriptedBench& scripted = static_cast<ScriptedBench&>(*bench);
    ScriptedPlatform& machine = scripted.machine;
    ScriptedService& service = scripted.service;
    ScriptedDevice& beacon = scripted.beacon;
};

}  // namespace zobi::platform::bluez
