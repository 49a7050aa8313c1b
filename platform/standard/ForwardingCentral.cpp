#include "zobi/platform/standard/ForwardingCentral.h"

#include <utility>

namespace zobi::platform {

ForwardingCentral::ForwardingCentral(std::weak_ptr<CBCentralManagerDelegate> delegate)
    : delegate_(std::move(delegate)) {}

ForwardingCentral::~ForwardingCentral() = default;

void ForwardingCentral::attach(std::shared_ptr<CBCentralManager> wrapped) {
    wrapped_ = std::move(wrapped);
    isAttached_.count_down();
}

// A central manager may be made on any thread, and report its state on the main thread before `attach` is
// called.
CBCentralManager& ForwardingCentral::wrapped() const {
    isAttached_.wait();
    return *wrapped_;
}

CBManagerState ForwardingCentral::state() const {
    return wrapped().state();
}

bool ForwardingCentral::isScanning() const {
    return wrapped().isScanning();
}

void ForwardingCentral::scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                              CBScanOptions options) {
    wrapped().scanForPeripheralsWithServicesOptions(services, options);
}

void ForwardingCentral::stopScan() {
    wrapped().stopScan();
}

void ForwardingCentral::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) {
    wrapped().connectPeripheral(peripheral);
}

void ForwardingCentral::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
    wrapped().cancelPeripheralConnection(peripheral);
}

void ForwardingCentral::centralManagerDidUpdateState(CBCentralManager& /*central*/) {
    if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(*this);
}

void ForwardingCentral::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
    CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral,
    const CBAdvertisementData& advertisementData, NSNumber rssi) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(*this, peripheral,
                                                                           advertisementData, rssi);
    }
}

void ForwardingCentral::centralManagerDidConnectPeripheral(CBCentralManager& /*central*/,
                                                           const std::shared_ptr<CBPeripheral>& peripheral) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidConnectPeripheral(*this, peripheral);
    }
}

void ForwardingCentral::centralManagerDidFailToConnectPeripheralError(
    CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral, const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidFailToConnectPeripheralError(*this, peripheral, error);
    }
}

void ForwardingCentral::centralManagerDidDisconnectPeripheralError(
    CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral, const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidDisconnectPeripheralError(*this, peripheral, error);
    }
}

}  // namespace zobi::platform
