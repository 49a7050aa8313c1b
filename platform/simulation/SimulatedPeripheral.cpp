#include "platform/simulation/SimulatedPeripheral.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/simulation/ExceptionKeeper.h"
#include "platform/simulation/SimulatedCentral.h"

namespace platform::simulation {

namespace {

NSError foreignAttribute() {
    return {CBError::invalidHandle, "It was not discovered over this link."};
}

const std::optional<NSError> success;

bool contains(const std::vector<CBUUID>& uuids, const CBUUID& uuid) {
    return std::ranges::find(uuids, uuid) != uuids.end();
}

}  // namespace

class SimulatedPeripheral::Characteristic final : public CBCharacteristic {
public:
    Characteristic(const CBUUID& uuid, GATTServer::Place place) : uuid_(uuid), place_(place) {}

    CBUUID UUID() const override { return uuid_; }
    std::optional<std::span<const std::uint8_t>> value() const override { return value_; }
    bool isNotifying() const override { return isNotifying_; }

    GATTServer::Place place() const { return place_; }
    void setValue(std::vector<std::uint8_t> value) { value_ = std::move(value); }
    void setNotifying(bool isNotifying) { isNotifying_ = isNotifying; }

private:
    CBUUID uuid_;
    GATTServer::Place place_;
    std::optional<std::vector<std::uint8_t>> value_;
    bool isNotifying_ = false;
};

class SimulatedPeripheral::Service final : public CBService {
public:
    Service(const CBUUID& uuid, std::size_t place) : uuid_(uuid), place_(place) {}

    CBUUID UUID() const override { return uuid_; }
    const std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>& characteristics() const override {
        return characteristics_;
    }

    std::size_t place() const { return place_; }

    /// Adds those of `description` that have one of `uuids` to those that were discovered before.
    void discover(const ServiceDescription& description, const std::vector<CBUUID>& uuids) {
        std::vector<std::shared_ptr<CBCharacteristic>> found;
        for (std::size_t i = 0; i < description.characteristics.size(); ++i) {
            const CBUUID& uuid = description.characteristics[i].uuid;
            if (auto known = characteristic(i)) {
                found.push_back(std::move(known));
            } else if (contains(uuids, uuid)) {
                found.push_back(std::make_shared<Characteristic>(uuid, GATTServer::Place{place_, i}));
            }
        }
        characteristics_ = std::move(found);
    }

    void endNotifying() {
        if (!characteristics_) return;
        for (const auto& known : *characteristics_) {
            std::static_pointer_cast<Characteristic>(known)->setNotifying(false);
        }
    }

    /// The one that stands at this place of the description; null if it was not discovered.
    std::shared_ptr<Characteristic> characteristic(std::size_t place) const {
        if (!characteristics_) return nullptr;
        for (const auto& known : *characteristics_) {
            auto candidate = std::static_pointer_cast<Characteristic>(known);
            if (candidate->place().characteristic == place) return candidate;
        }
        return nullptr;
    }

private:
    CBUUID uuid_;
    std::size_t place_;
    std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics_;
};

SimulatedPeripheral::SimulatedPeripheral(RunLoop& runLoop, std::weak_ptr<SimulatedCentral> central,
                                         std::weak_ptr<SimulatedBeacon> beacon)
    : runLoop_(runLoop), central_(std::move(central)), beacon_(std::move(beacon)) {}

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

void SimulatedPeripheral::discoverServices(std::span<const CBUUID> serviceUUIDs) {
    send({[this, uuids = std::vector(serviceUUIDs.begin(), serviceUUIDs.end())](SimulatedBeacon& beacon) {
              if (const auto& error = beacon.description().link.serviceDiscoveryError) return error;
              std::vector<std::shared_ptr<CBService>> found;
              const auto& described = beacon.gatt().services();
              for (std::size_t i = 0; i < described.size(); ++i) {
                  if (auto known = service(i)) {
                      found.push_back(std::move(known));
                  } else if (contains(uuids, described[i].uuid)) {
                      found.push_back(std::make_shared<Service>(described[i].uuid, i));
                  }
              }
              services_ = std::move(found);
              return success;
          },
          [this](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidDiscoverServices(shared_from_this(), error);
          }});
}

void SimulatedPeripheral::discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                            const std::shared_ptr<CBService>& service) {
    if (!service) return;
    send({[this, service, uuids = std::vector(characteristicUUIDs.begin(), characteristicUUIDs.end())](
              SimulatedBeacon& beacon) -> Outcome {
              const auto discovered = own(service);
              if (!discovered) return foreignAttribute();
              const ServiceDescription& described = beacon.gatt().services()[discovered->place()];
              if (!described.discoveryError) discovered->discover(described, uuids);
              return described.discoveryError;
          },
          [this, service](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidDiscoverCharacteristicsForServiceError(shared_from_this(), service,
                                                                           error);
          }});
}

void SimulatedPeripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
    if (!characteristic) return;
    send({[this, characteristic](SimulatedBeacon& beacon) -> Outcome {
              const auto read = own(characteristic);
              if (!read) return foreignAttribute();
              const CharacteristicDescription& described = beacon.gatt().at(read->place());
              if (!described.properties.read) {
                  return NSError(CBATTError::readNotPermitted, "Reading is not permitted.");
              }
              if (!described.readError) read->setValue(*described.value);
              return described.readError;
          },
          [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic,
                                                                      error);
          }});
}

void SimulatedPeripheral::writeValueForCharacteristicType(
    std::span<const std::uint8_t> value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
    if (!characteristic) return;
    const bool isAnswered = type == CBCharacteristicWriteType::withResponse;
    Request request{
        [this, characteristic, isAnswered,
         bytes = std::vector(value.begin(), value.end())](SimulatedBeacon& beacon) -> Outcome {
            const auto written = own(characteristic);
            if (!written) return foreignAttribute();
            const CharacteristicDescription& described = beacon.gatt().at(written->place());
            const auto& [canRead, canWrite, canWriteWithoutResponse, canNotify] = described.properties;
            if (isAnswered ? !canWrite : !canWriteWithoutResponse) {
                return NSError(CBATTError::writeNotPermitted, "Writing is not permitted.");
            }
            if (bytes.size() > largestValueSize) {
                return NSError(CBATTError::invalidAttributeValueLength, "The value is too long.");
            }
            if (described.writeError && isAnswered) return described.writeError;
            beacon.gatt().write(written->place(), bytes);
            return success;
        },
        [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
            delegate.peripheralDidWriteValueForCharacteristicError(shared_from_this(), characteristic, error);
        }};
    if (!isAnswered) request.tell = nullptr;
    send(std::move(request));
}

void SimulatedPeripheral::setNotifyValueForCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
    if (!characteristic) return;
    send({[this, characteristic, enabled](SimulatedBeacon& beacon) -> Outcome {
              const auto switched = own(characteristic);
              if (!switched) return foreignAttribute();
              const CharacteristicDescription& described = beacon.gatt().at(switched->place());
              if (!described.properties.notify) {
                  return NSError(CBATTError::requestNotSupported, "Notifications are not supported.");
              }
              if (!described.notifyError) switched->setNotifying(enabled);
              return described.notifyError;
          },
          [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidUpdateNotificationStateForCharacteristicError(shared_from_this(),
                                                                                  characteristic, error);
          }});
}

void SimulatedPeripheral::readRSSI() {
    const auto reading = std::make_shared<NSNumber>();
    send({[reading](SimulatedBeacon& beacon) {
              const auto& error = beacon.description().link.signalReadError;
              if (!error) *reading = NSNumber::numberWithInt(beacon.nextSignalReading());
              return error;
          },
          [this, reading](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidReadRSSIError(shared_from_this(), *reading, error);
          }});
}

void SimulatedPeripheral::send(Request request) {
    if (phase_ != Phase::linked) return;
    outstanding_.push_back(std::move(request));
    if (outstanding_.size() == 1) serveNextSoon();
}

void SimulatedPeripheral::serveNextSoon() {
    const auto beacon = beacon_.lock();
    if (outstanding_.empty() || !beacon || !beacon->isInRange()) return;
    answerTimer_ = after(beacon->description().link.responseDelay, &SimulatedPeripheral::serveNext);
}

void SimulatedPeripheral::serveNext() {
    const auto beacon = beacon_.lock();
    if (!beacon) return;
    const Request request = std::move(outstanding_.front());
    outstanding_.pop_front();
    // First, so that the others are served though a delegate throws.
    serveNextSoon();
    answer(request, request.carryOut(*beacon));
}

void SimulatedPeripheral::answer(const Request& request, const Outcome& outcome) {
    const auto delegate = delegate_.lock();
    if (delegate && request.tell) request.tell(*delegate, outcome ? &*outcome : nullptr);
}

void SimulatedPeripheral::valueChanged(GATTServer::Place place, std::span<const std::uint8_t> value) {
    const auto holder = service(place.service);
    const auto changed = holder ? holder->characteristic(place.characteristic) : nullptr;
    const auto beacon = beacon_.lock();
    if (!changed || !changed->isNotifying() || !beacon || !beacon->isInRange()) return;
    runLoop_.dispatchAsync(
        [weakSelf = weak_from_this(), changed, bytes = std::vector(value.begin(), value.end())] {
            const auto self = weakSelf.lock();
            // The subscription may have ended meanwhile, by itself or with the link.
            if (!self || !changed->isNotifying()) return;
            changed->setValue(bytes);
            if (const auto delegate = self->delegate_.lock()) {
                delegate->peripheralDidUpdateValueForCharacteristicError(self, changed, nullptr);
            }
        });
}

std::shared_ptr<SimulatedPeripheral::Service> SimulatedPeripheral::service(std::size_t place) const {
    if (!services_) return nullptr;
    for (const auto& known : *services_) {
        auto candidate = std::static_pointer_cast<Service>(known);
        if (candidate->place() == place) return candidate;
    }
    return nullptr;
}

std::shared_ptr<SimulatedPeripheral::Service> SimulatedPeripheral::own(
    const std::shared_ptr<CBService>& service) const {
    const bool isOwn = services_ && std::ranges::find(*services_, service) != services_->end();
    return isOwn ? std::static_pointer_cast<Service>(service) : nullptr;
}

std::shared_ptr<SimulatedPeripheral::Characteristic> SimulatedPeripheral::own(
    const std::shared_ptr<CBCharacteristic>& characteristic) const {
    if (!services_) return nullptr;
    for (const auto& service : *services_) {
        const auto& known = service->characteristics();
        if (known && std::ranges::find(*known, characteristic) != known->end()) {
            return std::static_pointer_cast<Characteristic>(characteristic);
        }
    }
    return nullptr;
}

// The attempt and the link

void SimulatedPeripheral::connect(std::uint64_t order) {
    --announcedConnects_;
    const auto beacon = beacon_.lock();
    const auto central = central_.lock();
    if (!beacon || !central) return;
    if (phase_ == Phase::linked) return central->reportConnection(shared_from_this());
    if (phase_ == Phase::pending) return;
    order_ = order;
    phase_ = Phase::pending;
    beacon->addAttempt(*this);
}

void SimulatedPeripheral::refuseConnect(const NSError& error) {
    --announcedConnects_;
    if (const auto central = central_.lock()) central->reportFailure(shared_from_this(), error);
}

void SimulatedPeripheral::beaconBecameFree() {
    const auto beacon = beacon_.lock();
    attemptTimer_ = after(beacon->description().link.connectionDelay, &SimulatedPeripheral::finishAttempt);
}

void SimulatedPeripheral::beaconCeasedToBeFree() {
    attemptTimer_->invalidate();
}

void SimulatedPeripheral::finishAttempt() {
    const auto beacon = beacon_.lock();
    const auto central = central_.lock();
    if (!beacon || !central) return;
    leaveAttempt();
    if (const auto error = beacon->description().link.connectionError) {
        return central->reportFailure(shared_from_this(), *error);
    }
    phase_ = Phase::linked;
    services_.reset();
    beacon->beginLink(*this);
    central->reportConnection(shared_from_this());
}

void SimulatedPeripheral::cancel() {
    if (phase_ == Phase::linked) return endLink(nullptr);
    if (phase_ != Phase::pending) return;
    leaveAttempt();
    if (const auto central = central_.lock()) central->reportDisconnection(shared_from_this(), nullptr);
}

void SimulatedPeripheral::loseRadio(const NSError& error) {
    if (phase_ == Phase::linked) return endLink(&error);
    if (phase_ != Phase::pending) return;
    leaveAttempt();
    if (const auto central = central_.lock()) central->reportFailure(shared_from_this(), error);
}

void SimulatedPeripheral::beaconFellSilent() {
    if (answerTimer_) answerTimer_->invalidate();
    const auto beacon = beacon_.lock();
    supervisionTimer_ = after(beacon->description().link.supervisionTimeout, &SimulatedPeripheral::loseLink);
}

void SimulatedPeripheral::beaconIsHeardAgain() {
    supervisionTimer_->invalidate();
    serveNextSoon();
}

void SimulatedPeripheral::loseLink() {
    const NSError error(CBError::connectionTimeout, "The connection has timed out.");
    endLink(&error);
}

void SimulatedPeripheral::beaconEndedLink(const std::optional<NSError>& error) {
    endLink(error ? &*error : nullptr);
}

void SimulatedPeripheral::endLink(const NSError* error) {
    const auto self = shared_from_this();
    leaveLink(Phase::ending);
    ExceptionKeeper exceptions;
    const NSError linkEnd(CBError::notConnected, "The link has ended.");
    for (const Request& request : std::exchange(outstanding_, {})) {
        exceptions.run([&] { answer(request, linkEnd); });
    }
    phase_ = Phase::idle;
    if (const auto central = central_.lock()) {
        exceptions.run([&] { central->reportDisconnection(self, error); });
    }
    exceptions.rethrow();
}

void SimulatedPeripheral::leaveAttempt() {
    phase_ = Phase::idle;
    if (attemptTimer_) attemptTimer_->invalidate();
    if (const auto beacon = beacon_.lock()) beacon->removeAttempt(*this);
}

/// What was discovered stays, but no longer notifies.
void SimulatedPeripheral::leaveLink(Phase next) {
    phase_ = next;
    for (const auto& timer : {supervisionTimer_, answerTimer_}) {
        if (timer) timer->invalidate();
    }
    if (services_) {
        for (const auto& service : *services_) std::static_pointer_cast<Service>(service)->endNotifying();
    }
    if (const auto beacon = beacon_.lock()) beacon->leaveLink();
}

void SimulatedPeripheral::abandon() {
    if (phase_ == Phase::pending) leaveAttempt();
    if (phase_ == Phase::linked) leaveLink(Phase::idle);
    outstanding_.clear();
}

std::shared_ptr<NSTimer> SimulatedPeripheral::after(double seconds, void (SimulatedPeripheral::*action)()) {
    return runLoop_.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        seconds,
        [weakSelf = weak_from_this(), action](const auto& /*timer*/) {
            if (const auto self = weakSelf.lock()) (*self.*action)();
        },
        nullptr, false);
}

}  // namespace platform::simulation
