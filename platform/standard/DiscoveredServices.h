#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"

namespace zobi::platform {

/// The place of a characteristic in the GATT table of a peripheral: two indexes, as UUIDs may repeat.
struct GATTPlace {
    /// The index of the service among all services of the peripheral, from 0.
    std::size_t service;
    /// The index of the characteristic among all characteristics of the service, from 0.
    std::size_t characteristic;

    /// Equal when both indexes are.
    friend bool operator==(const GATTPlace&, const GATTPlace&) = default;
};

/// A characteristic that was discovered. Main thread only.
class ZOBI_EXPORT DiscoveredCharacteristic final : public CBCharacteristic {
public:
    /// A characteristic without a value, not subscribed to.
    DiscoveredCharacteristic(const CBUUID& uuid, GATTPlace place) : uuid_(uuid), place_(place) {}
    ~DiscoveredCharacteristic() override;
    DiscoveredCharacteristic(const DiscoveredCharacteristic&) = delete;
    DiscoveredCharacteristic& operator=(const DiscoveredCharacteristic&) = delete;

    CBUUID UUID() const override { return uuid_; }
    std::optional<std::span<const std::uint8_t>> value() const override { return value_; }
    bool isNotifying() const override { return isNotifying_; }

    /// Its place in the table of the peripheral.
    GATTPlace place() const { return place_; }
    /// Sets the value that was read or notified.
    void setValue(std::vector<std::uint8_t> value) { value_ = std::move(value); }
    /// Sets whether the client is subscribed.
    void setNotifying(bool isNotifying) { isNotifying_ = isNotifying; }

private:
    CBUUID uuid_;
    GATTPlace place_;
    std::optional<std::vector<std::uint8_t>> value_;
    bool isNotifying_ = false;
};

/// A service that was discovered, and the characteristics that were discovered in it. Main thread only.
class ZOBI_EXPORT DiscoveredService final : public CBService {
public:
    /// The service at index `place`, without characteristics.
    DiscoveredService(const CBUUID& uuid, std::size_t place) : uuid_(uuid), place_(place) {}
    ~DiscoveredService() override;
    DiscoveredService(const DiscoveredService&) = delete;
    DiscoveredService& operator=(const DiscoveredService&) = delete;

    CBUUID UUID() const override { return uuid_; }
    const std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>& characteristics() const override {
        return characteristics_;
    }

    /// Its index among all services of the peripheral.
    std::size_t place() const { return place_; }

    /// Adds characteristics to those that were discovered before: those of `table`, which lists all of the
    /// service, whose UUID is in `wanted`.
    void discover(std::span<const CBUUID> table, std::span<const CBUUID> wanted);

    /// The characteristic at this index; null if it was not discovered.
    std::shared_ptr<DiscoveredCharacteristic> characteristic(std::size_t place) const;

private:
    CBUUID uuid_;
    std::size_t place_;
    std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics_;
};

/// The services and characteristics that a client has discovered over one link, in the order of the
/// peripheral. Main thread only.
class ZOBI_EXPORT DiscoveredServices {
public:
    /// The discovered services; absent before the first discovery.
    const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const { return services_; }

    /// Removes everything: a new link is up.
    void clear() { services_.reset(); }

    /// Adds services to those that were discovered before: those of `table`, which lists all of the
    /// peripheral, whose UUID is in `wanted`.
    void discover(std::span<const CBUUID> table, std::span<const CBUUID> wanted);

    /// `service` itself if it is one of these services; null if it was not discovered over this link.
    std::shared_ptr<DiscoveredService> find(const std::shared_ptr<CBService>& service) const;
    /// `characteristic` itself if it is in one of these services; null if it was not discovered over this
    /// link.
    std::shared_ptr<DiscoveredCharacteristic> find(
        const std::shared_ptr<CBCharacteristic>& characteristic) const;

    /// The service at this index; null if it was not discovered.
    std::shared_ptr<DiscoveredService> service(std::size_t place) const;
    /// The characteristic at this place; null if it was not discovered.
    std::shared_ptr<DiscoveredCharacteristic> characteristic(GATTPlace place) const;

    /// The characteristics that the client is subscribed to.
    std::vector<std::shared_ptr<DiscoveredCharacteristic>> notifyingCharacteristics() const;

private:
    std::optional<std::vector<std::shared_ptr<CBService>>> services_;
};

}  // namespace zobi::platform
