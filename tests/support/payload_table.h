#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Payloads of every layout, with what they tell. The decoder is tested with them, and fuzzed from them.
struct PayloadCase {
    std::string what;
    std::vector<std::uint8_t> payload;
    std::string macAddress;
    int major = 0;
    int minor = 0;
    int version = 0;
    std::optional<int> battery;
    std::optional<int> temperature;
    std::optional<int> action;
};

std::vector<PayloadCase> payloadCases();

/// The bytes that are written in hexadecimal, with a space after each.
std::vector<std::uint8_t> bytesOfHex(const std::string& text);
