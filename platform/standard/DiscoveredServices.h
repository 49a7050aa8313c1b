#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "platform/CBPeripheral.h"
#include "platform/CBUUID.h"
#include "platform/Export.h"

namespace platform {

/// Where a characteristic stands in the table of a peripheral: its service's place, and its own within it.
struct GATTPlace {
    std::size_t service;
    std::size_t characteristic;

    friend bool operator==(const GATTPlace&, const GATTPlace&) = default;
};

/// A characteristic that was discovered. Main thread only.
class ZOK_EXPORT DiscoveredCharacteristic final : public CBCharacteristic {
public:
    DiscoveredCharacteristic(const CBUUID& uuid, GATTPlace place) : uuid_(uuid), place_(place) {}

    CBUUID UUID() const override { return uuid_; }
    std::optional<std::span<const std::uint8_t>> value() const override { return value_; }
    bool isNotifying() const override { return isNotifying_; }

    GATTPlace place() const { return place_; }
    void setValue(std::vector<std::uint8_t> value) { value_ = std::move(value); }
    void setNotifying(bool isNotifying) { isNotifying_ = isNotifying; }

private:
    CBUUID uuid_;
    GATTPlace place_;
    std::optional<std::vector<std::uint8_t>> value_;
    bool isNotifying_ = false;
};

/// A service that was discovered, and what was discovered of it. Main thread only.
class ZOK_EXPORT DiscoveredService final : public CBService {
public:
    DiscoveredService(const CBUUID& uuid, std::size_t place) : uuid_(uuid), place_(place) {}

    CBUUID UUID() const override { return uuid_; }
    const std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>& characteristics() const override {
        return characteristics_;
    }

    std::size_t place() const { return place_; }

    /// Adds those of `table`, the service's whole list, that are wanted to those that were discovered before.
    void discover(std::span<const CBUUID> table, std::span<const CBUUID> wanted);

    /// The one at this place of the table; null if it was not discovered.
    std::shared_ptr<DiscoveredCharacteristic> characteristic(std::size_t place) const;

private:
    CBUUID uuid_;
    std::size_t place_;
    std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics_;
};

/// What a client has discovered of a peripheral over one link: a part of its table, in the table's order.
/// Main thread only.
class ZOK_EXPORT DiscoveredServices {
public:
    /// Absent before the first discovery.
    const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const { return services_; }

    /// Forgets everything: a new link is up.
    void clear() { services_.reset(); }

    /// Adds those of `table`, the peripheral's whole list, that are wanted to those that were discovered
    /// before.
    void discover(std::span<const CBUUID> table, std::span<const CBUUID> wanted);

    /// Null for what was not discovered here.
    std::shared_ptr<DiscoveredService> own(const std::shared_ptr<CBService>& service) const;
    std::shared_ptr<DiscoveredCharacteristic> own(
        const std::shared_ptr<CBCharacteristic>& characteristic) const;

    /// The one at this place of the table; null if it was not discovered.
    std::shared_ptr<DiscoveredService> service(std::size_t place) const;
    std::shared_ptr<DiscoveredCharacteristic> characteristic(GATTPlace place) const;

    /// Those that notify.
    std::vector<std::shared_ptr<DiscoveredCharacteristic>> notifying() const;

private:
    std::optional<std::vector<std::shared_ptr<CBService>>> services_;
};

}  // namespace platform
