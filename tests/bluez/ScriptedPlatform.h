#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedService.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"
#include "platform/bluez/central/BlueZCentral.h"
#include "radio/RadioBench.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {

/// Knows of each link's end what a test tells it. It is opened again each time the radio is turned on.
class ScriptedChannel final : public ControllerChannel {
public:
    explicit ScriptedChannel(RunLoop& runLoop) : runLoop_(runLoop) {}

    bool isOpen() const override { return false; }
    void watchLink(const DeviceAddress& device) override { ends_.erase(device); }
    std::optional<LinkEnd> takeLinkEnd(const DeviceAddress& device) override {
        const auto node = ends_.extract(device);
        return node.empty() ? std::nullopt : std::optional(node.mapped());
    }
    void readRSSI(const DeviceAddress& /*device*/, std::function<void(std::optional<int>)> answer) override {
        if (answersRSSI) runLoop_.dispatchAsync([this, answer = std::move(answer)] { answer(rssi); });
    }
    void tell(const std::string& address, std::uint8_t reason) {
        ends_.insert_or_assign(*deviceAddressFromText(address, false), linkEndFromHCIReason(reason));
        tellEvent();
    }

    bool answersRSSI = true;
    std::optional<int> rssi = -61;

private:
    RunLoop& runLoop_;
    std::map<DeviceAddress, LinkEnd> ends_;
};

/// A machine without hardware: its Bluetooth service is scripted, its time virtual.
class ScriptedPlatform final : public StandardPlatform {
public:
    ScriptedPlatform() : StandardPlatform(Time::virtualTime, std::make_unique<PollWaiting>()) {
        log().setSink([this](std::string_view line) { lines.emplace_back(line); });
        service.onLinkEnd = [this](const ScriptedDevice& device, std::uint8_t reason) {
            if (!channel) return;
            const auto tell = [known = channel, address = device.address, reason] {
                known->tell(address, reason);
            };
            if (reasonDelay == 0) return tell();
            runLoop().after(reasonDelay, tell);
        };
    }
    ~ScriptedPlatform() override { shutDown(); }

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        return makeCentralManager(std::move(delegate), "");
    }
    /// @param adapter which adapter it is to use; empty for any.
    std::shared_ptr<CBCentralManager> makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate,
                                                         const std::string& adapter) {
        const RadioContext context{runLoop(),
                                   clock(),
                                   log(),
                                   [this](const auto& itsContext) { return service.openBus(itsContext); },
                                   [this](const auto& /*adapter*/) { return openChannel(); },
                                   adapter};
        auto central = std::make_shared<BlueZCentral>(context, std::move(delegate));
        runLoop().dispatchAsync([central] { central->start(); });
        return central;
    }

    /// The way to the controller; null for none.
    std::shared_ptr<ScriptedChannel> channel = std::make_shared<ScriptedChannel>(runLoop());
    /// When the controller tells why a link has ended, in seconds after the service has told that it has.
    double reasonDelay = 0;
    std::vector<std::string> lines;
    ScriptedService service{runLoop(), clock()};

private:
    /// Each opening ends with its user, whatever comes after it.
    std::shared_ptr<ControllerChannel> openChannel() const {
        if (!channel) return nullptr;
        return {channel.get(), [kept = channel](const auto* /*channel*/) {}};
    }
};

/// A beacon on the air of the scripted service.
class ScriptedBench final : public RadioBench {
public:
    ScriptedPlatform& platform() override { return platform_; }
    void beaconComesIntoRange() override { beacon.isInRange = true; }
    void beaconFallsSilent() override {
        constexpr double supervisionTimeout = 3;
        beacon.isInRange = false;
        platform_.runLoop().after(supervisionTimeout, [this, link = std::weak_ptr(beacon.link)] {
            if (!link.expired()) service.endLink(beacon, 0x08);
        });
    }
    void beaconEndsLink() override { service.endLink(beacon, 0x13); }
    bool makeAttemptsFail(bool fail) override {
        beacon.attempts = fail ? Attempts::breakOff : Attempts::succeed;
        return true;
    }
    void setValue(const CBUUID& characteristic, std::vector<std::uint8_t> value) override {
        service.setValue(beacon, characteristic, value);
    }
    std::vector<std::uint8_t> value(const CBUUID& characteristic) override {
        return beacon.characteristic(characteristic).first->value.value_or(Bytes());
    }
    void setRadioPower(bool isOn) override { service.setPowered(isOn); }

    /// What the beacon sends.
    static Properties payload(std::uint16_t minor) {
        return {
            {longForm(CBUUID::UUIDWithString("180A")), zobi::encodePayload({.major = 1, .minor = minor})}};
    }

private:
    ScriptedPlatform platform_;

public:
    ScriptedService& service = platform_.service;
    ScriptedDevice& beacon = service.add({.serviceData = payload(7)});
};

}  // namespace zobi::platform::bluez
