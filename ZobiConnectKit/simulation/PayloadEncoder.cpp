#include "ZobiConnectKit/simulation/PayloadEncoder.h"

#include <stdexcept>
#include <string>

namespace zobi {

namespace {

// On the air the temperature is an unsigned 16-bit number, 4 above the degrees.
constexpr std::int32_t temperatureOffset = 4;
constexpr std::uint8_t unusedByte = 0;

void appendBigEndian(std::vector<std::uint8_t>& payload, std::uint16_t value) {
    payload.push_back(static_cast<std::uint8_t>(value >> 8));
    payload.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

std::uint16_t encodedTemperature(std::int32_t degrees) {
    if (degrees < -temperatureOffset || degrees > UINT16_MAX - temperatureOffset) {
        throw std::invalid_argument("a beacon's temperature lies between -4 and 65531 degrees, not at " +
                                    std::to_string(degrees));
    }
    return static_cast<std::uint16_t>(degrees + temperatureOffset);
}

}  // namespace

std::vector<std::uint8_t> encodePayload(const BeaconDescription& beacon) {
    const std::uint16_t temperature = encodedTemperature(beacon.temperature);
    std::vector<std::uint8_t> payload(beacon.macAddress.rbegin(), beacon.macAddress.rend());
    payload.push_back(unusedByte);
    appendBigEndian(payload, beacon.major);
    appendBigEndian(payload, beacon.minor);
    if (beacon.layoutVersion == 1) return payload;
    payload.push_back(static_cast<std::uint8_t>(beacon.layoutVersion));
    payload.push_back(beacon.batteryLevel);
    if (beacon.layoutVersion == 3) appendBigEndian(payload, temperature);
    if (beacon.layoutVersion == 3 || beacon.layoutVersion == 2) {
        payload.push_back(static_cast<std::uint8_t>(beacon.buttonAction));
    }
    return payload;
}

}  // namespace zobi
