#include "zobi/platform/standard/DiscoveredServices.h"

#include <algorithm>

namespace zobi::platform {

DiscoveredCharacteristic::~DiscoveredCharacteristic() = default;
DiscoveredService::~DiscoveredService() = default;

namespace {

bool contains(std::span<const CBUUID> uuids, const CBUUID& uuid) {
    return std::ranges::find(uuids, uuid) != uuids.end();
}

}  // namespace

void DiscoveredService::discover(std::span<const CBUUID> table, std::span<const CBUUID> wanted) {
    std::vector<std::shared_ptr<CBCharacteristic>> found;
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (auto known = characteristic(i)) {
            found.push_back(std::move(known));
        } else if (contains(wanted, table[i])) {
            found.push_back(std::make_shared<DiscoveredCharacteristic>(table[i], GATTPlace{place_, i}));
        }
    }
    characteristics_ = std::move(found);
}

std::shared_ptr<DiscoveredCharacteristic> DiscoveredService::characteristic(std::size_t place) const {
    if (!characteristics_) return nullptr;
    for (const auto& known : *characteristics_) {
        auto candidate = std::static_pointer_cast<DiscoveredCharacteristic>(known);
        if (candidate->place().characteristic == place) return candidate;
    }
    return nullptr;
}

void DiscoveredServices::discover(std::span<const CBUUID> table, std::span<const CBUUID> wanted) {
    std::vector<std::shared_ptr<CBService>> found;
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (auto known = service(i)) {
            found.push_back(std::move(known));
        } else if (contains(wanted, table[i])) {
            found.push_back(std::make_shared<DiscoveredService>(table[i], i));
        }
    }
    services_ = std::move(found);
}

std::shared_ptr<DiscoveredService> DiscoveredServices::find(const std::shared_ptr<CBService>& service) const {
    const bool isOwn = services_ && std::ranges::find(*services_, service) != services_->end();
    return isOwn ? std::static_pointer_cast<DiscoveredService>(service) : nullptr;
}

std::shared_ptr<DiscoveredCharacteristic> DiscoveredServices::find(
    const std::shared_ptr<CBCharacteristic>& characteristic) const {
    if (!services_) return nullptr;
    for (const auto& service : *services_) {
        const auto& known = service->characteristics();
        if (known && std::ranges::find(*known, characteristic) != known->end()) {
            return std::static_pointer_cast<DiscoveredCharacteristic>(characteristic);
        }
    }
    return nullptr;
}

std::shared_ptr<DiscoveredService> DiscoveredServices::service(std::size_t place) const {
    if (!services_) return nullptr;
    for (const auto& known : *services_) {
        auto candidate = std::static_pointer_cast<DiscoveredService>(known);
        if (candidate->place() == place) return candidate;
    }
    return nullptr;
}

std::shared_ptr<DiscoveredCharacteristic> DiscoveredServices::characteristic(GATTPlace place) const {
    const auto holder = service(place.service);
    return holder ? holder->characteristic(place.characteristic) : nullptr;
}

std::vector<std::shared_ptr<DiscoveredCharacteristic>> DiscoveredServices::notifyingCharacteristics() const {
    std::vector<std::shared_ptr<DiscoveredCharacteristic>> found;
    if (!services_) return found;
    for (const auto& service : *services_) {
        if (!service->characteristics()) continue;
        for (const auto& known : *service->characteristics()) {
            if (known->isNotifying()) {
                found.push_back(std::static_pointer_cast<DiscoveredCharacteristic>(known));
            }
        }
    }
    return found;
}

}  // namespace zobi::platform
