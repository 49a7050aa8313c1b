#include "zobi/platform/CBUUID.h"

#include <stdexcept>
#include <utility>

namespace zobi::platform {

namespace {

constexpr std::array<std::pair<std::uint64_t, std::string_view>, 6> standardNames{{
    {0x1802, "Immediate Alert"},
    {0x180A, "Device Information"},
    {0x180F, "Battery Service"},
    {0x2A06, "Alert Level"},
    {0x2A19, "Battery Level"},
    {0x2A26, "Firmware Revision String"},
}};

void appendHex(std::string& text, std::uint64_t value, unsigned digits) {
    while (digits-- > 0) text += "0123456789ABCDEF"[(value >> (digits * 4)) & 0xF];
}

}  // namespace

void CBUUID::refuse(std::string_view text) {
    throw std::invalid_argument("not a UUID: \"" + std::string(text) + "\"");
}

bool CBUUID::isShort() const {
    return low_ == baseLow && (high_ & 0xFFFF'FFFF) == baseHigh;
}

std::string CBUUID::UUIDString() const {
    std::string text;
    const std::uint64_t shortValue = high_ >> shortShift;
    if (isShort()) {
        appendHex(text, shortValue, shortValue <= 0xFFFF ? 4 : 8);
        return text;
    }
    appendHex(text, shortValue, 8);
    text += '-';
    appendHex(text, high_ >> 16, 4);
    text += '-';
    appendHex(text, high_, 4);
    text += '-';
    appendHex(text, low_ >> 48, 4);
    text += '-';
    appendHex(text, low_, 12);
    return text;
}

std::string_view CBUUID::description() const noexcept {
    if (!isShort()) return {};
    for (const auto& [shortValue, name] : standardNames) {
        if (shortValue == high_ >> shortShift) return name;
    }
    return {};
}

}  // namespace zobi::platform
