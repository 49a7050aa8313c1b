#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::platform {

class CBPeripheral;

/// A characteristic that was discovered on a peripheral. Main thread only.
class ZOBI_EXPORT CBCharacteristic {
public:
    virtual ~CBCharacteristic();

    /// Its type. A service may have several characteristics of one type.
    virtual CBUUID UUID() const = 0;

    /// The bytes last read or notified; absent before the first. The view is valid until the next value.
    virtual std::optional<std::span<const std::uint8_t>> value() const = 0;

    /// True while this client is subscribed to the value.
    virtual bool isNotifying() const = 0;
};

/// A service that was discovered on a peripheral. Main thread only.
class ZOBI_EXPORT CBService {
public:
    virtual ~CBService();

    /// Its type. A peripheral may have several services of one type.
    virtual CBUUID UUID() const = 0;

    /// The characteristics that were discovered, in the order of the peripheral; absent before the first
    /// discovery. Two may have the same UUID.
    virtual const std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>& characteristics() const = 0;
};

/// Receives the GATT events of a peripheral. Every callback is optional; each is made on the main thread,
/// from inside the run loop. `error` is null for success.
///
/// Every request has exactly one answer, in the order of the requests; only a write without response has
/// none. When the link ends, the outstanding requests are answered with `CBError::notConnected` before the
/// central manager reports the disconnection.
class ZOBI_EXPORT CBPeripheralDelegate {
public:
    virtual ~CBPeripheralDelegate();

    /// The answer to `discoverServices`.
    virtual void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                               const NSError* /*error*/) {}
    /// The answer to `discoverCharacteristicsForService`.
    virtual void peripheralDidDiscoverCharacteristicsForServiceError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/, const std::shared_ptr<CBService>& /*service*/,
        const NSError* /*error*/) {}
    /// The answer to `readValueForCharacteristic`, or a notified value: see `CBCharacteristic::value`.
    virtual void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const std::shared_ptr<CBCharacteristic>& /*characteristic*/, const NSError* /*error*/) {}
    /// The answer to `writeValueForCharacteristicType` with response.
    virtual void peripheralDidWriteValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const std::shared_ptr<CBCharacteristic>& /*characteristic*/, const NSError* /*error*/) {}
    /// The answer to `setNotifyValueForCharacteristic`; or a subscription has ended though nobody here has
    /// asked for it and the link is up: then with an error, and `CBCharacteristic::isNotifying` is false.
    virtual void peripheralDidUpdateNotificationStateForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const std::shared_ptr<CBCharacteristic>& /*characteristic*/, const NSError* /*error*/) {}
    /// The answer to `readRSSI`: `rssi` is the signal strength of the link in dBm.
    virtual void peripheralDidReadRSSIError(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                            NSNumber /*rssi*/, const NSError* /*error*/) {}
};

/// The state of a peripheral.
enum class CBPeripheralState : int {
    disconnected = 0,  ///< There is neither a link nor an attempt.
    connecting = 1,    ///< An attempt to connect is pending.
    connected = 2,     ///< A link is up.
    disconnecting = 3  ///< A link is being ended. No radio of this project reports it.
};

/// The two ways to write a value.
enum class CBCharacteristicWriteType : int {
    withResponse = 0,    ///< ATT Write Request: the peripheral answers.
    withoutResponse = 1  ///< ATT Write Command: there is no answer.
};

/// A Bluetooth device, as one central manager sees it: one object for all its advertisements and links, so
/// that the address of the object identifies the device. Main thread only.
///
/// Requests are asynchronous: the delegate receives the answer from the run loop, never from inside the call.
/// A request sends nothing and has no answer if the peripheral is not connected, if the service or
/// characteristic is null, or if it is made from an answer that reports the end of the link. A request for a
/// service or characteristic that was not discovered over this link is answered with
/// `CBError::invalidHandle`; one that the peripheral refuses, with the code of the Attribute Protocol (see
/// `CBATTError`).
class ZOBI_EXPORT CBPeripheral {
public:
    virtual ~CBPeripheral();

    /// The object that receives the GATT events; null if none is set or it was destroyed.
    virtual std::shared_ptr<CBPeripheralDelegate> delegate() const = 0;
    /// Sets the delegate. The peripheral does not own it.
    virtual void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) = 0;

    /// Connected from the moment when the central manager reports the link until it reports the
    /// disconnection: in the first callback it is connected, in the second it is not. Otherwise connecting
    /// from a request to connect until its outcome is reported; in that callback it is not, unless another
    /// request was made before.
    virtual CBPeripheralState state() const = 0;

    /// The services that were discovered over the last link, in the order of the peripheral; absent before
    /// the first discovery. They are kept after the link has ended, and cleared when the next is up. Two may
    /// have the same UUID.
    virtual const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const = 0;

    /// Discovers the services with the given UUIDs; none if the list is empty. They are added to `services`.
    virtual void discoverServices(std::span<const CBUUID> serviceUUIDs) = 0;

    /// Discovers the characteristics of `service` with the given UUIDs; none if the list is empty. They are
    /// added to `CBService::characteristics`.
    virtual void discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                   const std::shared_ptr<CBService>& service) = 0;

    /// Reads the value, whole, however long it is.
    virtual void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) = 0;

    /// Writes the value. A write without response has no answer.
    virtual void writeValueForCharacteristicType(std::span<const std::uint8_t> value,
                                                 const std::shared_ptr<CBCharacteristic>& characteristic,
                                                 CBCharacteristicWriteType type) = 0;

    /// Subscribes to the value, by notification or indication, or unsubscribes. The subscription ends with
    /// the link.
    virtual void setNotifyValueForCharacteristic(bool enabled,
                                                 const std::shared_ptr<CBCharacteristic>& characteristic) = 0;

    /// Reads the signal strength of the link.
    virtual void readRSSI() = 0;
};

}  // namespace zobi::platform
