#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include "platform/Export.h"
#include "platform/NSTimer.h"
#include "platform/RunLoop.h"
#include "platform/simulation/ServiceDescription.h"
#include "platform/standard/DiscoveredServices.h"

namespace platform::simulation {

/// The longest that a characteristic's value may be, in bytes.
inline constexpr std::size_t largestValueSize = 512;

/// The services of a simulated beacon, their values and errors. Main thread only.
///
/// What is set for a characteristic or a service is set for each one with that UUID. What changes is read by
/// the requests that are answered from then on.
class ZOK_EXPORT GATTServer {
public:
    /// Told of each value that a subscriber is to be notified of.
    using Subscriber = std::function<void(GATTPlace, std::span<const std::uint8_t> value)>;

    /// @param services what is served, and kept up to date; each characteristic has a value from now on. It
    ///     must outlive the server, and nobody else changes it.
    /// @throws std::invalid_argument for services that no beacon can have.
    GATTServer(RunLoop& runLoop, std::vector<ServiceDescription>& services);
    ~GATTServer();
    GATTServer(const GATTServer&) = delete;
    GATTServer& operator=(const GATTServer&) = delete;

    const std::vector<ServiceDescription>& services() const { return services_; }

    const CharacteristicDescription& at(GATTPlace place) const {
        return services_[place.service].characteristics[place.characteristic];
    }

    /// The value of the first characteristic with this UUID; nothing when there is none.
    std::optional<std::span<const std::uint8_t>> value(const CBUUID& characteristic) const;

    /// Sets a value and notifies a subscriber, even of a value that it had already.
    /// @throws std::invalid_argument for a characteristic that is not there (so do all that follow), or a
    ///     value of more than 512 bytes.
    void setValue(const CBUUID& characteristic, const std::vector<std::uint8_t>& value);

    /// The same, but without such a characteristic nothing happens.
    void setValueIfThere(const CBUUID& characteristic, const std::vector<std::uint8_t>& value);

    void setReadError(const CBUUID& characteristic, const std::optional<NSError>& error);
    void setWriteError(const CBUUID& characteristic, const std::optional<NSError>& error);
    void setNotifyError(const CBUUID& characteristic, const std::optional<NSError>& error);
    void setDiscoveryError(const CBUUID& service, const std::optional<NSError>& error);

    /// A central writes a value, of whatever size.
    void write(GATTPlace place, std::vector<std::uint8_t> value);

    /// Serves a link: values are generated, and `subscriber` is told, until `endLink`.
    void beginLink(Subscriber subscriber, std::minstd_rand& random);
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
    Subscriber subscriber_;
    std::vector<std::shared_ptr<NSTimer>> generators_;
};

}  // namespace platform::simulation
