#include "ZobiConnectKit/simulation/BeaconDescription.h"

#include <string_view>

namespace zobi {

using platform::CBUUID;
using platform::simulation::CharacteristicProperties;
using platform::simulation::ServiceDescription;

namespace {

constexpr CharacteristicProperties readable{.read = true};
constexpr CharacteristicProperties notified{.read = true, .notify = true};

}  // namespace

std::vector<ServiceDescription> beaconServices() {
    const auto uuid = [](std::string_view text) { return CBUUID::UUIDWithString(text); };
    const std::vector<std::uint8_t> twoZeroBytes(2);
    constexpr std::string_view firmware = "1.0.0";
    return {
        {uuid("180A"),
         {{.uuid = uuid("2A26"),
           .properties = readable,
           .value = std::vector<std::uint8_t>(firmware.begin(), firmware.end())}}},
        {uuid("180F"), {{.uuid = uuid("2A19"), .properties = notified}}},
        {uuid("1802"), {{.uuid = uuid("2A06"), .properties = {.writeWithoutResponse = true}}}},
        {uuid("FFE0"), {{.uuid = uuid("FFE1"), .properties = notified}}},
        {uuid("FFA0"),
         {{.uuid = uuid("FFA2"), .properties = notified, .value = twoZeroBytes},
          {.uuid = uuid("FFA3"), .properties = notified, .value = twoZeroBytes},
          {.uuid = uuid("FFA4"), .properties = notified, .value = twoZeroBytes}}},
        {uuid("FFF0"), {{.uuid = uuid("FFF2"), .properties = notified}}},
        {uuid("F0002013-0451-4000-B000-000000000000"),
         {{.uuid = uuid("F000FF97-0451-4000-B000-000000000000"),
           .properties = {.read = true, .write = true},
           .value = twoZeroBytes,
           .width = twoZeroBytes.size()}}},
    };
}

}  // namespace zobi
