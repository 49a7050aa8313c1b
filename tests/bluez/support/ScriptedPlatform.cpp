#include "ScriptedPlatform.h"

#include <utility>

#include "platform/bluez/central/BlueZCentral.h"
#include "zobi/platform/standard/PollWaiting.h"

namespace zobi::platform::bluez {

// The controller

std::optional<LinkEnd> ScriptedChannel::takeLinkEnd(const DeviceAddress& device) {
    const auto node = ends_.extract(device);
    return node.empty() ? std::nullopt : std::optional(node.mapped());
}

std::optional<bool> ScriptedChannel::isIncomingLink(const DeviceAddress& device) const {
    const auto known = incomingLinks.find(textOf(device));
    return known == incomingLinks.end() ? std::nullopt : std::optional(known->second);
}

void ScriptedChannel::readRSSI(const DeviceAddress& device, std::function<void(std::optional<int>)> answer) {
    measured = textOf(device);
    answerRSSI = [this, answer = std::move(answer)] { answer(rssi); };
    if (answersRSSI) runLoop_.dispatchAsync(answerRSSI);
}

void ScriptedChannel::tellLinkEnd(const std::string& address, std::uint8_t reason, bool isRandom) {
    ends_.insert_or_assign(*deviceAddressFromText(address, isRandom), linkEndFromHCIReason(reason));
    tellEvent();
}

void ScriptedMonitors::add(const std::vector<AdvertisementPattern>& patterns, Placed placed) {
    events_.push_back("added " + std::to_string(patterns.size()));
    tell = std::move(placed);
}

// The machine

ScriptedPlatform::ScriptedPlatform() : StandardPlatform(Time::virtualTime, std::make_unique<PollWaiting>()) {
    log().setSink([this](std::string_view line) { lines.emplace_back(line); });
    service.onLinkEnd = [this](const ScriptedDevice& device, std::uint8_t reason) {
        if (!channel) return;
        const auto tell = [known = channel, address = device.address, reason] {
            known->tellLinkEnd(address, reason);
        };
        if (reasonDelay == 0) return tell();
        runLoop().after(reasonDelay, tell);
    };
}

RadioContext ScriptedPlatform::context(const std::string& adapter) {
    // Each opening ends with its user, whatever comes after it.
    const auto openChannel = [this](const auto& /*adapter*/) -> std::shared_ptr<ControllerChannel> {
        if (!channel) return nullptr;
        return {channel.get(), [kept = channel](const auto* /*channel*/) {}};
    };
    const auto openBus = [this](const auto& busContext) { return service.openBus(busContext); };
    const auto setCondition = [this](const RadioCondition& condition) { setRadioCondition(condition); };
    const auto openMonitors = [this](const auto& /*adapter*/, const auto& /*service*/) -> OpenedPlace {
        if (!mayPlaceMonitors) return {};
        const auto place = std::make_shared<ScriptedMonitors>(monitorEvents, monitorUse);
        monitors = place;
        return {place, ""};
    };
    const auto startKernelDiscovery = [this](const auto& /*adapter*/) {
        if (mayAdminister) ++kernelDiscoveries;
        // The service is told of its end.
        if (mayAdminister) service.believesThatItScans = false;
        return mayAdminister;
    };
    return {runLoop(),    clock(),      log(),
            openBus,      openChannel,  adapter,
            setCondition, foreignLinks, startKernelDiscovery,
            faults_,      openMonitors};
}

std::shared_ptr<StandardCentral> ScriptedPlatform::makeCentral(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<BlueZCentral>(context(chosenAdapter), std::move(delegate));
    runLoop().dispatchAsync([central] { central->start(); });
    return central;
}

}  // namespace zobi::platform::bluez
