#include "platform/simulation/SimulatedCentral.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "platform/NSData.h"

namespace platform::simulation {

namespace {

/// A beacon that accepts no connections: it is never connected, so requests to it send nothing.
class SimulatedPeripheral final : public CBPeripheral {
public:
    std::shared_ptr<CBPeripheralDelegate> delegate() const override { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        delegate_ = std::move(delegate);
    }
    CBPeripheralState state() const override { return CBPeripheralState::disconnected; }
    const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const override {
        return services_;
    }
    void discoverServices(std::span<const CBUUID> /*serviceUUIDs*/) override {}
    void discoverCharacteristicsForService(std::span<const CBUUID> /*characteristicUUIDs*/,
                                           const std::shared_ptr<CBService>& /*service*/) override {}
    void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {}
    void writeValueForCharacteristicType(std::span<const std::uint8_t> /*value*/,
                                         const std::shared_ptr<CBCharacteristic>& /*characteristic*/,
                                         CBCharacteristicWriteType /*type*/) override {}
    void setNotifyValueForCharacteristic(
        bool /*enabled*/, const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {}
    void readRSSI() override {}

private:
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    std::optional<std::vector<std::shared_ptr<CBService>>> services_;
};

std::string macAddressText(const SimulatedBeacon& beacon) {
    std::string text;
    for (const std::uint8_t byte : beacon.description().macAddress) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 0xF];
    }
    return text;
}

}  // namespace

SimulatedCentral::SimulatedCentral(RunLoop& runLoop, Log& log,
                                   std::weak_ptr<CBCentralManagerDelegate> delegate)
    : runLoop_(runLoop), log_(log), delegate_(std::move(delegate)) {}

void SimulatedCentral::scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                             CBScanOptions options) {
    if (state_ != CBManagerState::poweredOn) return;
    serviceFilter_.assign(services.begin(), services.end());
    options_ = options;
    isScanning_ = true;
    ++scansStarted_;
}

void SimulatedCentral::stopScan() {
    isScanning_ = false;
}

void SimulatedCentral::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) {
    if (!peripheral) return;
    runLoop_.dispatchAsync([self = shared_from_this(), peripheral] {
        const NSError error(CBError::connectionFailed, "The beacon accepts no connections.");
        if (const auto delegate = self->delegate_.lock()) {
            delegate->centralManagerDidFailToConnectPeripheralError(*self, peripheral, &error);
        }
    });
}

void SimulatedCentral::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& /*peripheral*/) {}

void SimulatedCentral::enterState(CBManagerState state) {
    state_ = state;
    if (state != CBManagerState::poweredOn) stopScan();
    if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(*this);
}

void SimulatedCentral::hear(const SimulatedBeacon& beacon, const Advertisement& advertisement,
                            int signalStrength) {
    if (!isScanning_ || !passesServiceFilter(beacon)) return;
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    if (sighted_.size() <= beacon.index()) sighted_.resize(beacon.index() + 1);
    Sighted& sighted = sighted_[beacon.index()];
    if (!sighted.peripheral) sighted.peripheral = std::make_shared<SimulatedPeripheral>();
    const bool isRepeated = std::exchange(sighted.lastReportedInScan, scansStarted_) == scansStarted_;
    if (isRepeated && !options_.allowDuplicates) return;
    try {
        delegate->centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
            *this, sighted.peripheral, advertisement.data(), NSNumber::numberWithInt(signalStrength));
    } catch (const DataRangeError& error) {
        log_.log("Advertisement from %@ dropped: %@", macAddressText(beacon), error.what());
    }
}

bool SimulatedCentral::passesServiceFilter(const SimulatedBeacon& beacon) const {
    const auto& advertised = beacon.description().advertisedServices;
    return serviceFilter_.empty() ||
           std::ranges::find_first_of(advertised, serviceFilter_) != advertised.end();
}

}  // namespace platform::simulation
