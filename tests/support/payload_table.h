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
    int major;
    int minor;
    int version;
    std::optional<int> battery;
    std::optional<int> temperature;
    std::optional<int> action;
};

inline std::vector<PayloadCase> payloadCases() {
    return {
        {"version 3",
         {0x56, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x07, 0x01, 0x2C, 0x00, 0x07, 0x03, 0x5A, 0x00, 0x1A, 0x02},
         "ABCDEF123456",
         300,
         7,
         3,
         90,
         22,
         2},
        {"version 2",
         {0x56, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x07, 0x01, 0x2C, 0x00, 0x07, 0x02, 0x5A, 0x02},
         "ABCDEF123456",
         300,
         7,
         2,
         90,
         std::nullopt,
         2},
        {"short layout",
         {0x56, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x07, 0x01, 0x2C, 0x00, 0x07},
         "ABCDEF123456",
         300,
         7,
         1,
         0,
         std::nullopt,
         0},
        {"version 5 of 13 bytes",
         {0x01, 0x02, 0x03, 0x04, 0x05, 0x0A, 0xFF, 0xFF, 0xFF, 0x80, 0x00, 0x05, 0xFF},
         "0A0504030201",
         65535,
         32768,
         5,
         255,
         std::nullopt,
         std::nullopt},
        {"version 1 written out",
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0x01, 0x64},
         "000000000000",
         0,
         1,
         1,
         100,
         std::nullopt,
         std::nullopt},
        {"version byte FF",
         {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0xFF, 0x64, 0x01, 0x02, 0x03},
         "000000000000",
         1,
         2,
         -1,
         100,
         std::nullopt,
         std::nullopt},
        {"lowest temperature, lowest action",
         {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0x03, 0x00, 0x00, 0x00, 0x80},
         "000000000000",
         1,
         2,
         3,
         0,
         -4,
         -128},
        {"highest temperature, action FF, bytes to spare",
         {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0x03, 0x80, 0xFF, 0xFF, 0xFF, 0x11, 0x22},
         "000000000000",
         1,
         2,
         3,
         128,
         65531,
         -1},
        {"version 2 with bytes to spare",
         {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0x02, 0x01, 0x7F, 0xFF, 0x03},
         "000000000000",
         1,
         2,
         2,
         1,
         std::nullopt,
         127},
    };
}
