#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "platform/CBCentralManager.h"
#include "platform/CBUUID.h"
#include "platform/Export.h"
#include "platform/NSError.h"
#include "platform/standard/DiscoveredServices.h"

namespace platform::bluez {

class BlueZPlatform;
class PeripheralManager;

/// A characteristic that this machine offers, and what centrals may do with it. The service refuses all else
/// by itself.
// It cannot be made without its UUID.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct LocalCharacteristic {
    CBUUID uuid;
    bool canBeRead = false;
    bool canBeWritten = false;
    bool canBeWrittenWithoutResponse = false;
    bool canNotify = false;
};

/// A service that this machine offers.
struct LocalService {
    CBUUID uuid;
    std::vector<LocalCharacteristic> characteristics;
};

/// What this machine advertises, connectable and discoverable.
///
/// The name travels in the scan response, all else in the advertisement. Either has 31 bytes unless the
/// adapter can do extended advertising: flags take 3 of them, the list of services 2 and the UUIDs
/// themselves, each service's data 2, its UUID and the data. A name of more than 29 bytes is sent shortened.
struct LocalAdvertisement {
    struct ServiceData {
        CBUUID service;
        std::vector<std::uint8_t> data;

        friend bool operator==(const ServiceData&, const ServiceData&) = default;
    };

    /// UTF-8 without null characters and noncharacters, which the bus does not carry.
    std::optional<std::string> localName = std::nullopt;
    std::vector<CBUUID> services = {};
    std::vector<ServiceData> serviceData = {};
    /// Seconds from one packet to the next, from 0.02 to 10. No more than a wish: a service without its
    /// experimental features passes over it, and advertises each 1.28 s.
    std::optional<double> interval = std::nullopt;

    friend bool operator==(const LocalAdvertisement&, const LocalAdvertisement&) = default;
};

/// Receives what happens to a peripheral manager, on the main thread and through the run loop.
///
/// Centrals are named by their addresses ("00:00:5E:00:53:01"). What they ask for comes with the place of a
/// characteristic in the list of services that the manager was made with.
class ZOK_EXPORT PeripheralManagerDelegate {
public:
    /// The value that is answered, of up to 512 bytes, or the error: of `CBATTErrorDomain`, with its code.
    using ReadAnswer = std::variant<std::vector<std::uint8_t>, NSError>;

    virtual ~PeripheralManagerDelegate() = default;

    /// The state of the radio changed, or is known for the first time.
    virtual void peripheralManagerDidUpdateState(PeripheralManager& manager) = 0;

    /// Advertising has begun, because it was asked for, because the radio is back, or again, 5 s after the
    /// service has dropped the advertisement; what is changed while it goes on is told only if it fails.
    /// @param error why it has not; null for success. It is tried again when the radio comes back, or when
    ///     something else is to be advertised.
    virtual void peripheralManagerDidStartAdvertising(PeripheralManager& /*manager*/,
                                                      const NSError* /*error*/) {}

    /// A device has become a central of this machine: its link came up while this machine advertised, and it
    /// was the device that asked for it, over Bluetooth LE; or it has read or written. The controller tells
    /// who asked for a link. Where it cannot be asked, as in most containers, a central is told of by its
    /// first reading or writing alone.
    virtual void peripheralManagerDidConnectCentral(PeripheralManager& /*manager*/,
                                                    const std::string& /*central*/) {}
    virtual void peripheralManagerDidDisconnectCentral(PeripheralManager& /*manager*/,
                                                       const std::string& /*central*/) {}

    /// A central reads. A long value is read in parts, and asked for with each of them.
    virtual ReadAnswer peripheralManagerDidReceiveRead(PeripheralManager& manager, GATTPlace place,
                                                       const std::string& central) = 0;

    /// A central writes, with a response or without.
    /// @returns why the value is refused; nothing when it is taken.
    virtual std::optional<NSError> peripheralManagerDidReceiveWrite(PeripheralManager& manager,
                                                                    GATTPlace place,
                                                                    std::span<const std::uint8_t> value,
                                                                    const std::string& central) = 0;

    /// The first central has asked for notifications, or the last one wants them no more. The service does
    /// not tell which. What ends with a life of the service is told when the next one has begun.
    virtual void peripheralManagerDidChangeSubscription(PeripheralManager& /*manager*/, GATTPlace /*place*/,
                                                        bool /*isSubscribed*/) {}
};

/// The other end of Bluetooth LE: what this machine advertises, and what centrals that connect to it find.
/// Main thread only. It ends advertising and serving when it is destroyed, but not the links.
///
/// Events never come from inside a call. When the service was restarted, or the radio was off, all that was
/// asked for is carried out again by itself.
class ZOK_EXPORT PeripheralManager {
public:
    /// @param platform whose adapter it uses; must outlive the manager.
    /// @param services what is offered, in this order, from the first advertisement on. The service adds some
    ///     of its own.
    static std::shared_ptr<PeripheralManager> makeOnPlatform(
        BlueZPlatform& platform, std::vector<LocalService> services,
        std::weak_ptr<PeripheralManagerDelegate> delegate);

    virtual ~PeripheralManager() = default;

    virtual CBManagerState state() const = 0;

    /// What is in the way of the radio and what a user can do about it: whole sentences. Empty while it is
    /// powered on or not known.
    virtual std::string advice() const = 0;

    /// Advertises, in place of what is advertised now; once the radio is powered on.
    /// @throws std::invalid_argument for a name that is not what it should be, and for an interval outside of
    ///     its limits.
    virtual void startAdvertising(LocalAdvertisement advertisement) = 0;

    /// Links stay up.
    virtual void stopAdvertising() = 0;

    virtual bool isAdvertising() const = 0;

    /// Notifies the centrals that have asked for it of a value, even of one that they had already. Nothing
    /// happens when none has, or the bus is lost.
    virtual void notify(GATTPlace place, std::span<const std::uint8_t> value) = 0;

    /// Ends the links of the centrals. It takes 2 s. No link is ended that was there before this machine
    /// advertised, nor one that this machine itself has asked for, as far as the controller tells.
    virtual void disconnectCentrals() = 0;

    /// Stops advertising, disconnects the centrals, and calls `ended` when that is done, or after 5 s. A
    /// second call takes the place of the first.
    virtual void end(std::function<void()> ended) = 0;
};

}  // namespace platform::bluez
