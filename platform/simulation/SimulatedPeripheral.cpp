#include "platform/simulation/SimulatedPeripheral.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

namespace {

const std::optional<NSError> success;

}  // namespace

std::string SimulatedPeripheral::addressText() const {
    std::string text;
    for (const std::uint8_t byte : device().description().address) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 0xF];
    }
    return text;
}

// Requests

StandardPeripheral::Outcome SimulatedPeripheral::listServices(UUIDs& table) {
    std::ranges::transform(device().gatt().services(), std::back_inserter(table), &ServiceDescription::uuid);
    return device().description().link.serviceDiscoveryError;
}

StandardPeripheral::Outcome SimulatedPeripheral::listCharacteristics(std::size_t service, UUIDs& table) {
    const ServiceDescription& described = device().gatt().services()[service];
    std::ranges::transform(described.characteristics, std::back_inserter(table),
                           &CharacteristicDescription::uuid);
    return described.discoveryError;
}

void SimulatedPeripheral::read(GATTPlace place, ReadCompletion completion) {
    const CharacteristicDescription& described = device().gatt().at(place);
    if (!described.properties.read) {
        return completion(NSError(CBATTError::readNotPermitted, "Reading is not permitted."), {});
    }
    completion(described.readError, *described.value);
}

void SimulatedPeripheral::write(GATTPlace place, std::vector<std::uint8_t> value,
                                CBCharacteristicWriteType type, Completion completion) {
    const bool isAnswered = type == CBCharacteristicWriteType::withResponse;
    const CharacteristicDescription& described = device().gatt().at(place);
    const auto& [canRead, canWrite, canWriteWithoutResponse, canNotify] = described.properties;
    if (isAnswered ? !canWrite : !canWriteWithoutResponse) {
        return completion(NSError(CBATTError::writeNotPermitted, "Writing is not permitted."));
    }
    if (value.size() > maximumValueSize) {
        return completion(NSError(CBATTError::invalidAttributeValueLength, "The value is too long."));
    }
    if (described.writeError && isAnswered) return completion(described.writeError);
    device().gatt().write(place, std::move(value));
    completion(success);
}

void SimulatedPeripheral::setNotify(GATTPlace place, bool /*enabled*/, Completion completion) {
    const CharacteristicDescription& described = device().gatt().at(place);
    if (!described.properties.notify) {
        return completion(NSError(CBATTError::requestNotSupported, "Notifications are not supported."));
    }
    completion(described.notifyError);
}

void SimulatedPeripheral::readSignalStrength(RSSICompletion completion) {
    if (const auto& error = device().description().link.signalReadError) return completion(error, {});
    completion(success, NSNumber::numberWithInt(device().nextSignalReading()));
}

void SimulatedPeripheral::scheduleNextRequest() {
    const auto device = device_.lock();
    if (!device || !device->isInRange()) return;
    answerTimer_ = after(device->description().link.responseDelay, &SimulatedPeripheral::serveNext);
}

void SimulatedPeripheral::serveNext() {
    if (!device_.expired()) sendNextRequest();
}

void SimulatedPeripheral::valueChanged(GATTPlace place, std::span<const std::uint8_t> value) {
    const auto changed = discovered().characteristic(place);
    const auto device = device_.lock();
    if (!changed || !changed->isNotifying() || !device || !device->isInRange()) return;
    runLoop_.dispatchAsync(
        [weakSelf = weak_from_this(), place, bytes = std::vector(value.begin(), value.end())] {
            // The subscription may have ended meanwhile, by itself or with the link.
            if (const auto self = weakSelf.lock()) {
                std::static_pointer_cast<SimulatedPeripheral>(self)->deliverNotification(place, bytes);
            }
        });
}

// The attempt and the link

void SimulatedPeripheral::beginAttempt() {
    const auto device = device_.lock();
    if (!device) return abandon();
    device->addAttempt(*this);
}

void SimulatedPeripheral::deviceBecameFree() {
    const auto device = device_.lock();
    attemptTimer_ = after(device->description().link.connectionDelay, &SimulatedPeripheral::finishAttempt);
}

void SimulatedPeripheral::deviceCeasedToBeFree() {
    attemptTimer_->invalidate();
}

void SimulatedPeripheral::finishAttempt() {
    const auto device = device_.lock();
    if (!device) return;
    device->removeAttempt(*this);
    if (const auto error = device->description().link.connectionError) return attemptFailed(*error);
    hasLink_ = true;
    ExceptionKeeper exceptions;
    exceptions.run([&] { device->beginLink(*this); });
    exceptions.run([&] { linkCameUp(); });
    exceptions.rethrow();
}

void SimulatedPeripheral::dropConnection() {
    for (const auto& timer : {attemptTimer_, supervisionTimer_, answerTimer_}) {
        if (timer) timer->invalidate();
    }
    const bool hadLink = std::exchange(hasLink_, false);
    const auto device = device_.lock();
    if (!device) return;
    device->removeAttempt(*this);
    if (hadLink) device->leaveLink();
}

void SimulatedPeripheral::deviceFellSilent() {
    if (answerTimer_) answerTimer_->invalidate();
    const auto device = device_.lock();
    supervisionTimer_ = after(device->description().link.supervisionTimeout, &SimulatedPeripheral::loseLink);
}

void SimulatedPeripheral::deviceIsHeardAgain() {
    supervisionTimer_->invalidate();
    if (hasRequests()) scheduleNextRequest();
}

void SimulatedPeripheral::loseLink() {
    deviceEndedLink(NSError(CBError::connectionTimeout, "The connection has timed out."));
}

void SimulatedPeripheral::deviceEndedLink(const std::optional<NSError>& error) {
    dropConnection();
    linkEnded(error);
}

std::shared_ptr<NSTimer> SimulatedPeripheral::after(double seconds, void (SimulatedPeripheral::*action)()) {
    return runLoop_.after(seconds, [weakSelf = weak_from_this(), action] {
        if (const auto self = weakSelf.lock()) (static_cast<SimulatedPeripheral&>(*self).*action)();
    });
}

}  // namespace zobi::platform::simulation
