#include "zobi/platform/standard/StandardPeripheral.h"

#include <utility>

namespace zobi::platform {

namespace {

NSError foreignAttribute() {
    return {CBError::invalidHandle, "It was not discovered over this link."};
}

}  // namespace

void StandardPeripheral::discoverServices(std::span<const CBUUID> serviceUUIDs) {
    enqueue({[this, wanted = UUIDs(serviceUUIDs.begin(), serviceUUIDs.end())](const Completion& completion) {
                 UUIDs table;
                 const Outcome outcome = listServices(table);
                 if (!outcome) discovered_.discover(table, wanted);
                 completion(outcome);
             },
             [this](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidDiscoverServices(shared_from_this(), error);
             }});
}

void StandardPeripheral::discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                           const std::shared_ptr<CBService>& service) {
    if (!service) return;
    enqueue({[this, service, wanted = UUIDs(characteristicUUIDs.begin(), characteristicUUIDs.end())](
                 const Completion& completion) {
                 const auto known = discovered_.find(service);
                 if (!known) return completion(foreignAttribute());
                 UUIDs table;
                 const Outcome outcome = listCharacteristics(known->place(), table);
                 if (!outcome) known->discover(table, wanted);
                 completion(outcome);
             },
             [this, service](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidDiscoverCharacteristicsForServiceError(shared_from_this(), service,
                                                                              error);
             }});
}

void StandardPeripheral::readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) {
    if (!characteristic) return;
    enqueue({[this, characteristic](const Completion& completion) {
                 const auto known = discovered_.find(characteristic);
                 if (!known) return completion(foreignAttribute());
                 read(known->place(),
                      [known, completion](const Outcome& outcome, std::span<const std::uint8_t> value) {
                          if (!outcome) known->setValue({value.begin(), value.end()});
                          completion(outcome);
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
    Request request{[this, characteristic, type,
                     bytes = std::vector(value.begin(), value.end())](const Completion& completion) {
                        const auto known = discovered_.find(characteristic);
                        if (!known) return completion(foreignAttribute());
                        write(known->place(), bytes, type, completion);
                    },
                    [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
                        delegate.peripheralDidWriteValueForCharacteristicError(shared_from_this(),
                                                                               characteristic, error);
                    }};
    if (type == CBCharacteristicWriteType::withoutResponse) request.report = nullptr;
    enqueue(std::move(request));
}

void StandardPeripheral::setNotifyValueForCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
    if (!characteristic) return;
    enqueue({[this, characteristic, enabled](const Completion& completion) {
                 const auto known = discovered_.find(characteristic);
                 if (!known) return completion(foreignAttribute());
                 setNotify(known->place(), enabled, [known, enabled, completion](const Outcome& outcome) {
                     if (!outcome) known->setNotifying(enabled);
                     completion(outcome);
                 });
             },
             [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidUpdateNotificationStateForCharacteristicError(shared_from_this(),
                                                                                     characteristic, error);
             }});
}

void StandardPeripheral::readRSSI() {
    const auto reading = std::make_shared<NSNumber>();
    enqueue({[this, reading](const Completion& completion) {
                 readSignalStrength([reading, completion](const Outcome& outcome, NSNumber rssi) {
                     *reading = rssi;
                     completion(outcome);
                 });
             },
             [this, reading](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidReadRSSIError(shared_from_this(), *reading, error);
             }});
}

void StandardPeripheral::enqueue(Request request) {
    if (!isLinked_) return;
    request.number = ++requestsMade_;
    requests_.push_back(std::move(request));
    if (requests_.size() == 1) scheduleNextRequest();
}

void StandardPeripheral::sendNextRequest() {
    const Request& request = requests_.front();
    // A copy, as the request may end, and go, while it is carried out.
    const auto send = request.send;
    send([weakSelf = weak_from_this(), number = request.number](const Outcome& outcome) {
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
    if (!requests_.empty()) scheduleNextRequest();
    answer(request, outcome);
}

void StandardPeripheral::answer(const Request& request, const Outcome& outcome) {
    const auto delegate = delegate_.lock();
    if (delegate && request.report) request.report(*delegate, outcome ? &*outcome : nullptr);
}

void StandardPeripheral::linkCameUp() {
    discovered_.clear();
    isLinked_ = true;
}

void StandardPeripheral::linkEnded(ExceptionKeeper& exceptions) {
    const NSError linkEnd(CBError::notConnected, "The link has ended.");
    const std::deque<Request> unanswered = std::exchange(requests_, {});
    dropLink();
    for (const Request& request : unanswered) {
        exceptions.run([&] { answer(request, linkEnd); });
    }
}

void StandardPeripheral::dropLink() {
    isLinked_ = false;
    requests_.clear();
    // What was discovered stays, but no longer notifies.
    for (const auto& characteristic : discovered_.notifyingCharacteristics())
        characteristic->setNotifying(false);
}

void StandardPeripheral::deliverNotification(GATTPlace place, std::span<const std::uint8_t> value) {
    const auto characteristic = discovered_.characteristic(place);
    if (!characteristic || !characteristic->isNotifying()) return;
    characteristic->setValue({value.begin(), value.end()});
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic, nullptr);
    }
}

}  // namespace zobi::platform
