#include "zobi/platform/standard/ForwardingPeripheral.h"

#include <utility>

namespace zobi::platform {

ForwardingPeripheral::ForwardingPeripheral(std::shared_ptr<CBPeripheral> wrapped)
    : wrapped_(std::move(wrapped)) {}

ForwardingPeripheral::~ForwardingPeripheral() = default;

std::shared_ptr<CBPeripheralDelegate> ForwardingPeripheral::delegate() const {
    return delegate_.lock();
}

void ForwardingPeripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
    delegate_ = std::move(delegate);
}

CBPeripheralState ForwardingPeripheral::state() const {
    return wrapped_->state();
}

const std::optional<std::vector<std::shared_ptr<CBService>>>& ForwardingPeripheral::services() const {
    return wrapped_->services();
}

void ForwardingPeripheral::discoverServices(std::span<const CBUUID> serviceUUIDs) {
    wrapped_->discoverServices(serviceUUIDs);
}

void ForwardingPeripheral::discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                             const std::shared_ptr<CBService>& service) {
    wrapped_->discoverCharacteristicsForService(characteristicUUIDs, service);
}

void ForwardingPeripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
    wrapped_->readValueForCharacteristic(characteristic);
}

void ForwardingPeripheral::writeValueForCharacteristicType(
    std::span<const std::uint8_t> value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
    wrapped_->writeValueForCharacteristicType(value, characteristic, type);
}

void ForwardingPeripheral::setNotifyValueForCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
    wrapped_->setNotifyValueForCharacteristic(enabled, characteristic);
}

void ForwardingPeripheral::readRSSI() {
    wrapped_->readRSSI();
}

void ForwardingPeripheral::peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                                         const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidDiscoverServices(shared_from_this(), error);
    }
}

void ForwardingPeripheral::peripheralDidDiscoverCharacteristicsForServiceError(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/, const std::shared_ptr<CBService>& service,
    const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidDiscoverCharacteristicsForServiceError(shared_from_this(), service, error);
    }
}

void ForwardingPeripheral::peripheralDidUpdateValueForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic, const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic, error);
    }
}

void ForwardingPeripheral::peripheralDidWriteValueForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic, const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidWriteValueForCharacteristicError(shared_from_this(), characteristic, error);
    }
}

void ForwardingPeripheral::peripheralDidUpdateNotificationStateForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic, const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidUpdateNotificationStateForCharacteristicError(shared_from_this(),
                                                                             characteristic, error);
    }
}

void ForwardingPeripheral::peripheralDidReadRSSIError(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                                      NSNumber rssi, const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidReadRSSIError(shared_from_this(), rssi, error);
    }
}

}  // namespace zobi::platform
