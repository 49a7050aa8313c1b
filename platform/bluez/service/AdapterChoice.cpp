#include "platform/bluez/service/AdapterChoice.h"

#include <algorithm>

#include "platform/bluez/controller/DeviceAddress.h"

namespace zobi::platform::bluez {

std::string_view chosenAdapter(const Adapters& adapters, std::string_view wanted) {
    const auto address = deviceAddressFromText(wanted, false);
    const auto isWanted = [&](const auto& entry) {
        return wanted.empty() || adapterName(entry.first) == wanted ||
               (address && deviceAddressFromText(entry.second.address, false) == address);
    };
    const auto isUsable = [&](const auto& entry) { return isWanted(entry) && entry.second.isPowered; };
    auto chosen = std::ranges::find_if(adapters, isUsable);
    if (chosen == adapters.end()) chosen = std::ranges::find_if(adapters, isWanted);
    return chosen == adapters.end() ? std::string_view() : chosen->first;
}

std::string_view adapterName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace zobi::platform::bluez
