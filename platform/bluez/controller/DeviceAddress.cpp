#include "platform/bluez/controller/DeviceAddress.h"

#include <charconv>

namespace zobi::platform::bluez {

std::optional<DeviceAddress> deviceAddressFromText(std::string_view text, bool isRandom) {
    constexpr std::size_t digits = 2;
    DeviceAddress address{.isRandom = isRandom};
    if (text.size() != address.bytes.size() * (digits + 1) - 1) return std::nullopt;
    for (std::size_t i = 0; i < address.bytes.size(); ++i) {
        const std::string_view part = text.substr(i * (digits + 1));
        const char* const end = part.data() + digits;
        const auto [stop, failure] = std::from_chars(part.data(), end, address.bytes[i], 16);
        const bool isSeparated = part.size() == digits || part[digits] == ':';
        if (failure != std::errc() || stop != end || !isSeparated) return std::nullopt;
    }
    return address;
}

std::string textOf(const DeviceAddress& address) {
    std::string text;
    for (const std::uint8_t byte : address.bytes) {
        if (!text.empty()) text += ':';
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 0xF];
    }
    return text;
}

}  // namespace zobi::platform::bluez
