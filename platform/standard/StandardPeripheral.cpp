#include "platform/standard/StandardPeripheral.h"

#include <utility>

namespace platform {

namespace {

NSError foreignAttribute() {
    return {CBError::invalidHandle, "It was not discovered over this link."};
}

}  // namespace

void StandardPeripheral::discoverServices(std::span<const CBUUID> serviceUUIDs) {
    send({[this, wanted = UUIDs(serviceUUIDs.begin(), serviceUUIDs.end())](const Done& done) {
              UUIDs table;
              const Outcome outcome = listServices(table);
              if (!outcome) discovered_.discover(table, wanted);
              done(outcome);
          },
          [this](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidDiscoverServices(shared_from_this(), error);
          }});
}

void StandardPeripheral::discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                           const std::shared_ptr<CBService>& service) {
    if (!service) return;
    send({[this, service,
           wanted = UUIDs(characteristicUUIDs.begin(), characteristicUUIDs.end())](const Done& done) {
              const auto own = discovered_.own(service);
              if (!own) return done(foreignAttribute());
              UUIDs table;
              const Outcome outcome = listCharacteristics(own->place(), table);
              if (!outcome) own->discover(table, wanted);
              done(outcome);
          },
          [this, service](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidDiscoverCharacteristicsForServiceError(shared_from_this(), service,
                                                                           error);
          }});
}

void StandardPeripheral::readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) {
    if (!characteristic) return;
    send({[this, characteristic](const Done& done) {
              const auto own = discovered_.own(characteristic);
              if (!own) return done(foreignAttribute());
              read(own->place(), [own, done](const Outcome& outcome, std::span<const std::uint8_t> value) {
                  if (!outcome) own->setValue({value.begin(), value.end()});
                  done(outcome);
              });
          },
          [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic,
                                                                      error);
          }});
}

void StandardPeripheral::writeValueForCharacteristicType(
    std::span<const std::uint8_t> value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
    if (!characteristic) return;
    Request request{
        [this, characteristic, type, bytes = std::vector(value.begin(), value.end())](const Done& done) {
            const auto own = discovered_.own(characteristic);
            if (!own) return done(foreignAttribute());
            write(own->place(), bytes, type, done);
        },
        [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
            delegate.peripheralDidWriteValueForCharacteristicError(shared_from_this(), characteristic, error);
        }};
    if (type == CBCharacteristicWriteType::withoutResponse) request.tell = nullptr;
    send(std::move(request));
}

void StandardPeripheral::setNotifyValueForCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
    if (!characteristic) return;
    send({[this, characteristic, enabled](const Done& done) {
              const auto own = discovered_.own(characteristic);
              if (!own) return done(foreignAttribute());
              setNotify(own->place(), enabled, [own, enabled, done](const Outcome& outcome) {
                  if (!outcome) own->setNotifying(enabled);
                  done(outcome);
              });
          },
          [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidUpdateNotificationStateForCharacteristicError(shared_from_this(),
                                                                                  characteristic, error);
          }});
}

void StandardPeripheral::readRSSI() {
    const auto reading = std::make_shared<NSNumber>();
    send({[this, reading](const Done& done) {
              readSignalStrength([reading, done](const Outcome& outcome, NSNumber rssi) {
                  *reading = rssi;
                  done(outcome);
              });
          },
          [this, reading](CBPeripheralDelegate& delegate, const NSError* error) {
              delegate.peripheralDidReadRSSIError(shared_from_this(), *reading, error);
          }});
}

void StandardPeripheral::send(Request request) {
    if (!isLinked_) return;
    request.number = ++requestsMade_;
    requests_.push_back(std::move(request));
    if (requests_.size() == 1) prepareNext();
}

void StandardPeripheral::carryOutNext() {
    const Request& request = requests_.front();
    // A copy, as the request may end, and go, while it is carried out.
    const auto carryOut = request.carryOut;
    carryOut([weakSelf = weak_from_this(), number = request.number](const Outcome& outcome) {
        if (const auto self = weakSelf.lock()) self->finish(number, outcome);
    });
}

// The outcome is a copy, as what it came from may change while it is told.
void StandardPeripheral::finish(std::uint64_t number,
                                Outcome outcome) {  // NOLINT(performance-unnecessary-value-param)
    if (requests_.empty() || requests_.front().number != number) return;
    const Request request = std::move(requests_.front());
    requests_.pop_front();
    // First, so that the others are served though a delegate throws.
    if (!requests_.empty()) prepareNext();
    answer(request, outcome);
}

void StandardPeripheral::answer(const Request& request, const Outcome& outcome) {
    const auto delegate = delegate_.lock();
    if (delegate && request.tell) request.tell(*delegate, outcome ? &*outcome : nullptr);
}

void StandardPeripheral::linkCameUp() {
    discovered_.clear();
    isLinked_ = true;
}

void StandardPeripheral::linkEnded(ExceptionKeeper& exceptions) {
    const NSError linkEnd(CBError::notConnected, "The link has ended.");
    const std::deque<Request> unanswered = std::exchange(requests_, {});
    linkVanished();
    for (const Request& request : unanswered) {
        exceptions.run([&] { answer(request, linkEnd); });
    }
}

void StandardPeripheral::linkVanished() {
    isLinked_ = false;
    requests_.clear();
    // What was discovered stays, but no longer notifies.
    for (const auto& characteristic : discovered_.notifying()) characteristic->setNotifying(false);
}

void StandardPeripheral::tellNotifiedValue(GATTPlace place, std::span<const std::uint8_t> value) {
    const auto characteristic = discovered_.characteristic(place);
    if (!characteristic || !characteristic->isNotifying()) return;
    characteristic->setValue({value.begin(), value.end()});
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic, nullptr);
    }
}

}  // namespace platform
