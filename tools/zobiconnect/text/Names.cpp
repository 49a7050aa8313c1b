#include "tools/zobiconnect/text/Names.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ZobiConnectKit/ZobiConnectKit.h"

namespace zobi::tool {

using platform::CBUUID;

std::string_view gattName(const CBUUID& uuid) {
    using namespace ZOKGATTProfile;
    using Named = std::pair<CBUUID, std::string_view>;
    static constexpr auto ownNames = std::to_array<Named>({
        {buttonService, "button"},
        {buttonActionCharacteristic, "button action"},
        {accelerometerService, "accelerometer"},
        {accelerometerXCharacteristic, "X axis"},
        {accelerometerYCharacteristic, "Y axis"},
        {accelerometerZCharacteristic, "Z axis"},
        {configurationService, "configuration"},
        {buttonModeCharacteristic, "button mode"},
        {temperatureService, "temperature"},
        {temperatureCharacteristic, "temperature"},
    });
    if (const std::string_view standardName = uuid.description(); !standardName.empty()) return standardName;
    const auto* const found = std::ranges::find(ownNames, uuid, &Named::first);
    return found == ownNames.end() ? std::string_view() : found->second;
}

std::string gattText(const CBUUID& uuid) {
    return std::string(gattName(uuid)) + " (" + uuid.UUIDString() + ')';
}

}  // namespace zobi::tool
