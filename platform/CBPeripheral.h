#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/CBUUID.h"
#include "platform/Export.h"
#include "platform/NSError.h"
#include "platform/NSNumber.h"

namespace platform {

class CBPeripheral;

/// A characteristic that was discovered on a peripheral. Main thread only.
class ZOK_EXPORT CBCharacteristic {
public:
    virtual ~CBCharacteristic() = default;

    virtual CBUUID UUID() const = 0;

    /// The value last read or notified, as it travelled; absent before the first. Valid until the next one.
    virtual std::optional<std::span<const std::uint8_t>> value() const = 0;

    /// True while the peripheral notifies changes of the value.
    virtual bool isNotifying() const = 0;
};

/// A service that was discovered on a peripheral. Main thread only.
class ZOK_EXPORT CBService {
public:
    virtual ~CBService() = default;

    virtual CBUUID UUID() const = 0;

    /// The characteristics that were asked for and found, in the peripheral's order; absent before the first
    /// answer. One UUID may stand there more than once.
    virtual const std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>& characteristics() const = 0;
};

/// Receives the GATT events of a peripheral. Every callback is optional and made on the main thread, through
/// the run loop; the error is null for success.
///
/// Every request has exactly one answer. Those outstanding when the link ends are answered with
/// `CBError::notConnected` before the central reports the disconnection.
class ZOK_EXPORT CBPeripheralDelegate {
public:
    virtual ~CBPeripheralDelegate() = default;

    /// The answer to `discoverServices`.
    virtual void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                               const NSError* /*error*/) {}
    /// The answer to `discoverCharacteristicsForService`.
    virtual void peripheralDidDiscoverCharacteristicsForServiceError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/, const std::shared_ptr<CBService>& /*service*/,
        const NSError* /*error*/) {}
    /// The answer to `readValueForCharacteristic`, or a notified value.
    virtual void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const std::shared_ptr<CBCharacteristic>& /*characteristic*/, const NSError* /*error*/) {}
    /// The answer to a write with response.
    virtual void peripheralDidWriteValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const std::shared_ptr<CBCharacteristic>& /*characteristic*/, const NSError* /*error*/) {}
    /// The answer to `setNotifyValueForCharacteristic`.
    virtual void peripheralDidUpdateNotificationStateForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const std::shared_ptr<CBCharacteristic>& /*characteristic*/, const NSError* /*error*/) {}
    /// The answer to `readRSSI`: the signal strength of the link in dBm.
    virtual void peripheralDidReadRSSIError(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                            NSNumber /*rssi*/, const NSError* /*error*/) {}
};

enum class CBPeripheralState : int { disconnected = 0, connecting = 1, connected = 2, disconnecting = 3 };

enum class CBCharacteristicWriteType : int { withResponse = 0, withoutResponse = 1 };

/// A device on the air, as one central sees it: the same object over all its sightings and links, so that
/// peripherals are equal when they are the same object. Main thread only.
///
/// Requests are asynchronous: the answer reaches the delegate through the run loop, never from inside the
/// call. A request to a peripheral that is not connected, or about a null service or characteristic, is
/// harmless: it sends nothing and has no answer. So is one that is made from inside an answer by which the
/// end of the link is told. One about a service or characteristic that was not discovered over this link is
/// answered with `CBError::invalidHandle`; what the peripheral refuses, with a code of `CBATTError`.
class ZOK_EXPORT CBPeripheral {
public:
    virtual ~CBPeripheral() = default;

    /// Who receives the GATT events, or null. Not owned.
    virtual std::shared_ptr<CBPeripheralDelegate> delegate() const = 0;
    virtual void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) = 0;

    /// Connected from the central's report of the link to its report of the disconnection, in which it no
    /// longer is. Otherwise connecting from a request to connect until its outcome, in which it no longer is
    /// unless another has been made meanwhile.
    virtual CBPeripheralState state() const = 0;

    /// The services that were asked for and found since the last link-up, in the peripheral's order; absent
    /// before the first answer. They stay after the link has ended and go at the next link-up. One UUID may
    /// stand there more than once.
    virtual const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const = 0;

    /// Asks for the services with the given UUIDs; for none when there are none.
    virtual void discoverServices(std::span<const CBUUID> serviceUUIDs) = 0;

    /// Asks for the characteristics of `service` with the given UUIDs; for none when there are none.
    virtual void discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                   const std::shared_ptr<CBService>& service) = 0;

    virtual void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) = 0;

    /// A write without response has no answer.
    virtual void writeValueForCharacteristicType(std::span<const std::uint8_t> value,
                                                 const std::shared_ptr<CBCharacteristic>& characteristic,
                                                 CBCharacteristicWriteType type) = 0;

    /// Switches the notification of changes on or off. A subscription ends with the link.
    virtual void setNotifyValueForCharacteristic(bool enabled,
                                                 const std::shared_ptr<CBCharacteristic>& characteristic) = 0;

    /// Asks for the signal strength of the link.
    virtual void readRSSI() = 0;
};

}  // namespace platform
