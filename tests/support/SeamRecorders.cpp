#include "SeamRecorders.h"

#include <algorithm>
#include <iterator>

#include "zobi/platform/standard/DiscoveredServices.h"

namespace zobi::platform {

std::shared_ptr<CBCharacteristic> foundCharacteristic(std::string_view uuid,
                                                      std::optional<std::vector<std::uint8_t>> value) {
    auto found = std::make_shared<DiscoveredCharacteristic>(CBUUID::UUIDWithString(uuid), GATTPlace{});
    if (value) found->setValue(*std::move(value));
    return found;
}

std::shared_ptr<CBService> foundService(std::string_view uuid,
                                        const std::vector<std::string_view>& characteristics) {
    std::vector<CBUUID> uuids;
    std::ranges::transform(characteristics, std::back_inserter(uuids), &CBUUID::UUIDWithString);
    auto found = std::make_shared<DiscoveredService>(CBUUID::UUIDWithString(uuid), 0);
    if (!uuids.empty()) found->discover(uuids, uuids);
    return found;
}

}  // namespace zobi::platform
