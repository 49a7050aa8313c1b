#include "platform/bluez/controller/AdvertisementPattern.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

namespace zobi::platform::bluez {

namespace {

// What a legacy advertisement leaves for one structure, besides its length and type.
constexpr std::size_t structureSize = 29;

// The kernel takes more in a monitor. But BlueZ 5.82 refuses a monitor with 28, and crashes when it is
// unregistered: the size of its command to the kernel does not fit into a byte.
constexpr std::size_t patternsOfMonitor = 7;

constexpr std::uint8_t flagsType = 0x01;
// Each combination of the three flags that devices of Low Energy set, and those with both kinds of radio.
constexpr auto usualFlags = std::to_array<std::uint8_t>({0x06, 0x04, 0x05, 0x02, 0x1A, 0x18, 0x01, 0x00});

/// The types of the structures for UUIDs of one size.
struct UUIDTypes {
    std::uint8_t completeList;
    std::uint8_t incompleteList;
    std::uint8_t serviceData;
};

UUIDTypes typesFor(std::size_t uuidSize) {
    if (uuidSize == 2) return {0x03, 0x02, 0x16};
    if (uuidSize == 4) return {0x05, 0x04, 0x20};
    return {0x07, 0x06, 0x21};
}

/// The shortest form, as it travels: the last byte first.
std::vector<std::uint8_t> bytesOf(const CBUUID& uuid) {
    std::string digits = uuid.UUIDString();
    std::erase(digits, '-');
    std::vector<std::uint8_t> bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* const pair = digits.data() + 2 * i;
        std::from_chars(pair, pair + 2, bytes[bytes.size() - 1 - i], 16);
    }
    return bytes;
}

}  // namespace

std::vector<AdvertisementPattern> patternsOf(std::span<const CBUUID> services) {
    std::vector<AdvertisementPattern> patterns;
    if (services.empty()) {
        for (const std::uint8_t flags : usualFlags) patterns.push_back({0, flagsType, {flags}});
        return patterns;
    }
    for (std::size_t place = 0; place < structureSize; ++place) {
        for (const CBUUID& service : services) {
            const auto bytes = bytesOf(service);
            const std::size_t position = place * bytes.size();
            if (position + bytes.size() > structureSize) continue;
            const auto [complete, incomplete, data] = typesFor(bytes.size());
            const auto at = static_cast<std::uint8_t>(position);
            if (place == 0) patterns.push_back({at, data, bytes});
            patterns.push_back({at, complete, bytes});
            patterns.push_back({at, incomplete, bytes});
        }
    }
    return patterns;
}

std::vector<std::vector<AdvertisementPattern>> monitorsOf(std::span<const AdvertisementPattern> patterns,
                                                          std::size_t monitors) {
    std::vector<std::vector<AdvertisementPattern>> divided;
    while (!patterns.empty() && divided.size() < monitors) {
        const auto part = patterns.first(std::min(patterns.size(), patternsOfMonitor));
        divided.emplace_back(part.begin(), part.end());
        patterns = patterns.subspan(part.size());
    }
    return divided;
}

}  // namespace zobi::platform::bluez
