#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/standard/DiscoveredServices.h"

namespace zobi::platform::bluez {

class BlueZPlatform;
class PeripheralManager;

/// A characteristic of this machine, and what centrals may do with it. BlueZ refuses any other request.
// It cannot be made without its UUID.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct LocalCharacteristic {
    /// Its type.
    CBUUID uuid;
    /// Centrals may read it.
    bool canBeRead = false;
    /// Centrals may write it with response.
    bool canBeWritten = false;
    /// Centrals may write it without response.
    bool canBeWrittenWithoutResponse = false;
    /// Centrals may subscribe to it.
    bool canNotify = false;
};

/// A GATT service of this machine.
struct LocalService {
    /// Its type.
    CBUUID uuid;
    /// Its characteristics, in this order.
    std::vector<LocalCharacteristic> characteristics;
};

/// What this machine advertises, as a connectable and discoverable device.
///
/// The name is in the scan response, all else in the advertisement. Each has room for 31 bytes, unless the
/// adapter supports extended advertising. The flags take 3 bytes, the list of services 2 and the UUIDs, the
/// data of each service 2, its UUID and the data. A name of more than 29 bytes is shortened.
struct LocalAdvertisement {
    /// One service data element.
    struct ServiceData {
        /// The UUID in front of the data.
        CBUUID service;
        /// The bytes after the UUID.
        std::vector<std::uint8_t> data;

        /// Equal when all members are.
        friend bool operator==(const ServiceData&, const ServiceData&) = default;
    };

    /// The local name: UTF-8 without zero characters and Unicode noncharacters, which D-Bus does not accept.
    /// Absent to advertise none.
    std::optional<std::string> localName = std::nullopt;
    /// The UUIDs of the advertised services.
    std::vector<CBUUID> services = {};
    /// The service data elements.
    std::vector<ServiceData> serviceData = {};
    /// Seconds from one advertisement to the next, from 0.02 to 10; absent to let BlueZ choose. A BlueZ
    /// without its experimental features ignores it and advertises every 1.28 s.
    std::optional<double> interval = std::nullopt;

    /// Equal when all members are.
    friend bool operator==(const LocalAdvertisement&, const LocalAdvertisement&) = default;
};

/// Receives the events of a peripheral manager, on the main thread, from inside the run loop.
///
/// `central` is the address of a central ("00:00:5E:00:53:01"). `place` is the place of a characteristic in
/// the list of services with which the manager was made.
class ZOBI_EXPORT PeripheralManagerDelegate {
public:
    /// The answer to a read: the whole value, of up to 512 bytes, or an error of `CBATTErrorDomain`.
    using ReadAnswer = std::variant<std::vector<std::uint8_t>, NSError>;

    virtual ~PeripheralManagerDelegate();

    /// The state of the radio has changed, or is reported for the first time: see `PeripheralManager::state`.
    virtual void peripheralManagerDidUpdateState(PeripheralManager& manager) = 0;

    /// Advertising has started: after `startAdvertising`, when the radio is powered on again, or 5 s after
    /// BlueZ released the advertisement. A `startAdvertising` that only changes what is advertised is
    /// reported only if it fails.
    ///
    /// `error` is null for success. Otherwise nothing is advertised until the radio is powered on again or
    /// `startAdvertising` is called.
    virtual void peripheralManagerDidStartAdvertising(PeripheralManager& /*manager*/,
                                                      const NSError* /*error*/) {}

    /// A device is connected as a central of this machine. Its link came up over Bluetooth LE while this
    /// machine advertised, and the controller says that the other side initiated it; or the device has read
    /// or written. Where the controller cannot be asked, as in most containers, a central is reported only
    /// when it first reads or writes.
    virtual void peripheralManagerDidConnectCentral(PeripheralManager& /*manager*/,
                                                    const std::string& /*central*/) {}
    /// The link of a central that was reported connected has ended.
    virtual void peripheralManagerDidDisconnectCentral(PeripheralManager& /*manager*/,
                                                       const std::string& /*central*/) {}

    /// A central reads a value. A long value is read in parts, with a call for each.
    /// @returns the whole value or an error.
    virtual ReadAnswer peripheralManagerDidReceiveRead(PeripheralManager& manager, GATTPlace place,
                                                       const std::string& central) = 0;

    /// A central writes a value, with or without response.
    /// @returns an error of `CBATTErrorDomain` to refuse the value; absent to accept it.
    virtual std::optional<NSError> peripheralManagerDidReceiveWrite(PeripheralManager& manager,
                                                                    GATTPlace place,
                                                                    std::span<const std::uint8_t> value,
                                                                    const std::string& central) = 0;

    /// The first central has subscribed to a characteristic, or the last one has unsubscribed; BlueZ does not
    /// say which. Subscriptions that end because BlueZ ends are reported when it has started again.
    virtual void peripheralManagerDidChangeSubscription(PeripheralManager& /*manager*/, GATTPlace /*place*/,
                                                        bool /*isSubscribed*/) {}
};

/// The peripheral role of Bluetooth LE: advertises, and serves GATT to the centrals that connect. Main thread
/// only. When it is destroyed it stops advertising and serving, but the links stay up.
///
/// No event comes from inside a call. After BlueZ was restarted, or the radio was off, the manager registers
/// its services and advertises again by itself.
class ZOBI_EXPORT PeripheralManager {
public:
    /// Makes a peripheral manager.
    /// @param platform the platform whose adapter it uses; must outlive the manager.
    /// @param services the GATT services, in this order. They are registered before the first advertisement.
    ///     BlueZ adds some of its own.
    /// @param delegate receives the events. Not owned.
    static std::shared_ptr<PeripheralManager> makeOnPlatform(
        BlueZPlatform& platform, std::vector<LocalService> services,
        std::weak_ptr<PeripheralManagerDelegate> delegate);

    virtual ~PeripheralManager();

    /// The state of the radio; unknown until it is first reported.
    virtual CBManagerState state() const = 0;

    /// Why the radio cannot be used and what a user can do about it, in whole sentences. Empty while the
    /// state is powered on or unknown.
    virtual std::string advice() const = 0;

    /// Advertises `advertisement`, in place of the current one if there is one; as soon as the radio is
    /// powered on.
    /// @throws std::invalid_argument for a name that D-Bus does not accept, and for an interval below 0.02 s
    ///     or above 10 s.
    virtual void startAdvertising(LocalAdvertisement advertisement) = 0;

    /// Stops advertising. Links stay up.
    virtual void stopAdvertising() = 0;

    /// True from a successful `peripheralManagerDidStartAdvertising` until advertising ends.
    virtual bool isAdvertising() const = 0;

    /// Notifies a value to the centrals that are subscribed to the characteristic, even if it is the same as
    /// before. Does nothing if none is, or without a connection to the bus.
    virtual void notify(GATTPlace place, std::span<const std::uint8_t> value) = 0;

    /// Ends the links of the centrals, which takes 2 s. It does not end a link that was up before this
    /// machine advertised, nor one that this machine initiated, as far as the controller says.
    virtual void disconnectCentrals() = 0;

    /// Stops advertising, ends the links of the centrals, and then calls `completion`, or after 5 s at the
    /// latest. A second call replaces the completion of the first.
    virtual void shutDown(std::function<void()> completion) = 0;
};

}  // namespace zobi::platform::bluez
