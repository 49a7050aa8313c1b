#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Stands between a peripheral and its delegate, as `ForwardingCentral` stands between a central manager and
/// its delegate. It forwards every request and every answer unchanged, but for the peripheral that an answer
/// names: this object. Services and characteristics pass through as they are.
///
/// A `WrappingCentral` makes it, and makes it the delegate of the wrapped peripheral. So a derived class
/// receives the answers even while this object has no delegate.
class ZOBI_EXPORT ForwardingPeripheral : public CBPeripheral,
                                         public CBPeripheralDelegate,
                                         public std::enable_shared_from_this<ForwardingPeripheral> {
public:
    /// @param wrapped receives the requests; not null.
    explicit ForwardingPeripheral(std::shared_ptr<CBPeripheral> wrapped);
    ~ForwardingPeripheral() override;
    ForwardingPeripheral(const ForwardingPeripheral&) = delete;
    ForwardingPeripheral& operator=(const ForwardingPeripheral&) = delete;

    std::shared_ptr<CBPeripheralDelegate> delegate() const override;
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
    CBPeripheralState state() const override;
    const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const override;
    void discoverServices(std::span<const CBUUID> serviceUUIDs) override;
    void discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                           const std::shared_ptr<CBService>& service) override;
    void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) override;
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value,
                                         const std::shared_ptr<CBCharacteristic>& characteristic,
                                         CBCharacteristicWriteType type) override;
    void setNotifyValueForCharacteristic(bool enabled,
                                         const std::shared_ptr<CBCharacteristic>& characteristic) override;
    void readRSSI() override;

    void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                       const NSError* error) override;
    void peripheralDidDiscoverCharacteristicsForServiceError(const std::shared_ptr<CBPeripheral>& peripheral,
                                                             const std::shared_ptr<CBService>& service,
                                                             const NSError* error) override;
    void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& peripheral,
        const std::shared_ptr<CBCharacteristic>& characteristic, const NSError* error) override;
    void peripheralDidWriteValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& peripheral,
        const std::shared_ptr<CBCharacteristic>& characteristic, const NSError* error) override;
    void peripheralDidUpdateNotificationStateForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& peripheral,
        const std::shared_ptr<CBCharacteristic>& characteristic, const NSError* error) override;
    void peripheralDidReadRSSIError(const std::shared_ptr<CBPeripheral>& peripheral, NSNumber rssi,
                                    const NSError* error) override;

private:
    std::shared_ptr<CBPeripheral> wrapped_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
};

}  // namespace zobi::platform
