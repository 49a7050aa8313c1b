#include "platform/simulation/SimulatedPeripheral.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/simulation/SimulatedCentral.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

namespace {

const std::optional<NSError> success;

}  // namespace

SimulatedPeripheral::SimulatedPeripheral(RunLoop& runLoop, std::weak_ptr<SimulatedCentral> central,
                                         std::weak_ptr<SimulatedDevice> device)
    : runLoop_(runLoop), central_(std::move(central)), device_(std::move(device)) {}

SimulatedPeripheral::~SimulatedPeripheral() {
    abandon();
}

CBPeripheralState SimulatedPeripheral::state() const {
    switch (phase_) {
        case Phase::linked:
        case Phase::ending:
            return CBPeripheralState::connected;
        case Phase::pending:
            return CBPeripheralState::connecting;
        case Phase::idle:
            break;
    }
    return announcedConnects_ > 0 ? CBPeripheralState::connecting : CBPeripheralState::disconnected;
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

void SimulatedPeripheral::connect(std::uint64_t order) {
    --announcedConnects_;
    const auto device = device_.lock();
    const auto central = central_.lock();
    if (!device || !central) return;
    if (phase_ == Phase::linked) return central->reportConnection(self());
    if (phase_ == Phase::pending) return;
    order_ = order;
    phase_ = Phase::pending;
    device->addAttempt(*this);
}

void SimulatedPeripheral::refuseConnect(const NSError& error) {
    --announcedConnects_;
    if (const auto central = central_.lock()) central->reportFailure(self(), error);
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
    const auto central = central_.lock();
    if (!device || !central) return;
    leaveAttempt();
    if (const auto error = device->description().link.connectionError) {
        return central->reportFailure(self(), *error);
    }
    phase_ = Phase::linked;
    linkCameUp();
    ExceptionKeeper exceptions;
    exceptions.run([&] { device->beginLink(*this); });
    exceptions.run([&] { central->reportConnection(self()); });
    exceptions.rethrow();
}

void SimulatedPeripheral::cancel() {
    if (phase_ == Phase::linked) return endLink(nullptr);
    if (phase_ != Phase::pending) return;
    leaveAttempt();
    if (const auto central = central_.lock()) central->reportDisconnection(self(), nullptr);
}

void SimulatedPeripheral::loseRadio(const NSError& error) {
    if (phase_ == Phase::linked) return endLink(&error);
    if (phase_ != Phase::pending) return;
    leaveAttempt();
    if (const auto central = central_.lock()) central->reportFailure(self(), error);
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
    const NSError error(CBError::connectionTimeout, "The connection has timed out.");
    endLink(&error);
}

void SimulatedPeripheral::deviceEndedLink(const std::optional<NSError>& error) {
    endLink(error ? &*error : nullptr);
}

void SimulatedPeripheral::endLink(const NSError* error) {
    const auto thisOne = self();
    phase_ = Phase::ending;
    leaveLink();
    ExceptionKeeper exceptions;
    linkEnded(exceptions);
    phase_ = Phase::idle;
    if (const auto central = central_.lock()) {
        exceptions.run([&] { central->reportDisconnection(thisOne, error); });
    }
    exceptions.rethrow();
}

void SimulatedPeripheral::leaveAttempt() {
    phase_ = Phase::idle;
    if (attemptTimer_) attemptTimer_->invalidate();
    if (const auto device = device_.lock()) device->removeAttempt(*this);
}

void SimulatedPeripheral::leaveLink() {
    for (const auto& timer : {supervisionTimer_, answerTimer_}) {
        if (timer) timer->invalidate();
    }
    if (const auto device = device_.lock()) device->leaveLink();
}

void SimulatedPeripheral::abandon() {
    if (phase_ == Phase::pending) leaveAttempt();
    if (phase_ == Phase::linked) leaveLink();
    phase_ = Phase::idle;
    dropLink();
}

std::shared_ptr<NSTimer> SimulatedPeripheral::after(double seconds, void (SimulatedPeripheral::*action)()) {
    return runLoop_.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        seconds,
        [weakSelf = weak_from_this(), action](const auto& /*timer*/) {
            if (const auto self = weakSelf.lock()) (static_cast<SimulatedPeripheral&>(*self).*action)();
        },
        nullptr, false);
}

}  // namespace zobi::platform::simulation
