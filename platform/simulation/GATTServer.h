#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/ServiceDescription.h"
#include "zobi/platform/standard/DiscoveredServices.h"

namespace zobi::platform::simulation {

/// The maximum length of the value of a characteristic, in bytes, as in the Attribute Protocol.
inline constexpr std::size_t maximumValueSize = 512;

/// The GATT server of a simulated device: its services, their values and their errors. Main thread only.
///
/// A value or error that is set for a UUID is set for each characteristic or service with that UUID. It holds
/// for every request that is answered afterwards.
class ZOBI_EXPORT GATTServer {
public:
    /// Called with each value that the link may have to notify.
    using Subscriber = std::function<void(GATTPlace, std::span<const std::uint8_t> value)>;

    /// @param runLoop runs the timers of generated values; must outlive the server.
    /// @param services the services, which the server changes: a characteristic without a value gets an empty
    ///     one. They must outlive the server, and nothing else may change them.
    /// @param valueChanged called after each change of a value.
    /// @throws std::invalid_argument for a value or width of more than `maximumValueSize` bytes, and for a
    ///     generated value without an interval above 0 or without a generator.
    GATTServer(RunLoop& runLoop, std::vector<ServiceDescription>& services,
               std::function<void()> valueChanged);
    ~GATTServer();
    GATTServer(const GATTServer&) = delete;
    GATTServer& operator=(const GATTServer&) = delete;

    /// The services, with their current values and errors.
    const std::vector<ServiceDescription>& services() const { return services_; }

    /// The characteristic at this place, which must exist.
    const CharacteristicDescription& at(GATTPlace place) const {
        return services_[place.service].characteristics[place.characteristic];
    }

    /// The value of the first characteristic with this UUID; absent if there is none. The view is valid until
    /// the value changes.
    std::optional<std::span<const std::uint8_t>> value(const CBUUID& characteristic) const;

    /// Sets a value, and notifies it to a subscribed central even if it is the same as before.
    /// @throws std::invalid_argument if there is no such characteristic, or for more than `maximumValueSize`
    ///     bytes.
    void setValue(const CBUUID& characteristic, const std::vector<std::uint8_t>& value);

    /// The same, but does nothing if there is no such characteristic.
    /// @throws std::invalid_argument for more than `maximumValueSize` bytes.
    void setValueIfPresent(const CBUUID& characteristic, const std::vector<std::uint8_t>& value);

    /// Sets the error with which reads are answered; absent to answer them with the value.
    /// @throws std::invalid_argument if there is no such characteristic.
    void setReadError(const CBUUID& characteristic, const std::optional<NSError>& error);
    /// Sets the error with which writes with response are answered; absent to accept them.
    /// @throws std::invalid_argument if there is no such characteristic.
    void setWriteError(const CBUUID& characteristic, const std::optional<NSError>& error);
    /// Sets the error with which requests to subscribe and unsubscribe are answered; absent to accept them.
    /// @throws std::invalid_argument if there is no such characteristic.
    void setNotifyError(const CBUUID& characteristic, const std::optional<NSError>& error);
    /// Sets the error with which discoveries of the characteristics of a service are answered; absent to
    /// answer them with the characteristics.
    /// @throws std::invalid_argument if there is no such service.
    void setDiscoveryError(const CBUUID& service, const std::optional<NSError>& error);

    /// A central writes a value: stores it, with zero bytes in front up to the width of the characteristic.
    /// Not notified.
    void write(GATTPlace place, std::vector<std::uint8_t> value);

    /// A link is up: generates values, and calls `subscriber` for each value that is generated or set, until
    /// `endLink`. `random` must outlive the link.
    /// @throws the first of what the generators throw, and `std::invalid_argument` for a generated value of
    ///     more than `maximumValueSize` bytes; the link is complete nevertheless. Later they throw out of
    ///     the run loop, and generate their next value when it is due.
    void beginLink(Subscriber subscriber, std::minstd_rand& random);
    /// The link has ended: stops generating values. Does nothing without a link.
    void endLink();

private:
    /// Calls `change` for the place of each characteristic with this UUID. @returns whether there is one.
    bool changeEach(const CBUUID& characteristic, const std::function<void(GATTPlace)>& change);
    void changeEachOrThrow(const CBUUID& characteristic, const std::function<void(GATTPlace)>& change);
    void setValueAt(GATTPlace place, std::vector<std::uint8_t> value);
    CharacteristicDescription& changeable(GATTPlace place);
    void generate(GATTPlace place, std::minstd_rand& random);

    RunLoop& runLoop_;
    std::vector<ServiceDescription>& services_;
    std::function<void()> valueChanged_;
    Subscriber subscriber_;
    std::vector<std::shared_ptr<NSTimer>> generators_;
};

}  // namespace zobi::platform::simulation
