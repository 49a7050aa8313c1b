#include "platform/bluez/central/HeardDevice.h"

namespace zobi::platform::bluez {

void HeardDevice::rememberName(std::string_view name) {
    if (!name_ && !name.empty()) name_ = name;
}

bool HeardDevice::hearName(std::string_view name) {
    const bool wasMisnamed = !std::exchange(isNameHeard_, true) && name_ != name;
    name_ = name;
    return wasMisnamed;
}

void HeardDevice::keepUntilNamed(std::span<const CBServiceData> serviceData, NSNumber rssi) {
    unnamed_ = Unnamed{rssi, {}};
    for (const auto& [service, data] : serviceData) {
        unnamed_->serviceData.emplace_back(service, std::vector(data.begin(), data.end()));
    }
}

}  // namespace zobi::platform::bluez
