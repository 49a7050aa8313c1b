#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// The bytes between a host and its controller. All numbers are little-endian.
namespace air {

using Bytes = std::vector<std::uint8_t>;
/// Least significant byte first, as it travels.
using Address = std::array<std::uint8_t, 6>;

/// Reads the parameters of a command. What is missing reads as zero.
class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint8_t u8() {
        if (bytes_.empty()) return 0;
        const std::uint8_t value = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return value;
    }
    std::uint16_t u16() {
        const unsigned low = u8();
        return static_cast<std::uint16_t>(low | unsigned{u8()} << 8U);
    }
    Address address() {
        Address address{};
        for (std::uint8_t& byte : address) byte = u8();
        return address;
    }
    Bytes bytes(std::size_t count) {
        const auto taken = bytes_.first(std::min(count, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    void skip(std::size_t count) { bytes(count); }

private:
    std::span<const std::uint8_t> bytes_;
};

/// Writes the parameters of an event.
class Writer {
public:
    Writer& u8(unsigned value) {
        bytes_.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    Writer& u16(unsigned value) { return u8(value & 0xFFU).u8(value >> 8U & 0xFFU); }
    Writer& append(std::span<const std::uint8_t> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    Bytes take() { return std::move(bytes_); }

private:
    Bytes bytes_;
};

inline std::string hex(unsigned value) {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    do text.insert(text.begin(), digits[value & 0xFU]);
    while ((value >>= 4U) != 0);
    return "0x" + (text.size() < 2 ? "0" + text : text);
}

}  // namespace air
