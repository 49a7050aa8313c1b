#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/CBUUID.h"

/// The GATT profile of a beacon: all services and characteristics that the library knows of, and the three
/// orders in which it uses them.
///
///     Service                          Characteristic              Value on the air
///     1802     Immediate Alert         2A06     Alert Level        1 byte, written without response
///     180F     Battery Service         2A19     Battery Level      1 byte
///     FFE0     button                  FFE1     button action      1 byte
///     FFA0     accelerometer           FFA2     X axis             2 bytes, big-endian
///                                      FFA3     Y axis             2 bytes, big-endian
///                                      FFA4     Z axis             2 bytes, big-endian
///     F0002013 configuration           F000FF97 button mode        written as 1 byte, with response;
///                                                                  read as 2 bytes, big-endian
///     FFF0     temperature             FFF2     temperature        2 bytes, big-endian
///     180A     Device Information      2A26     Firmware Revision  UTF-8 text
///
/// No order follows from another, and each is kept: beacons see the first two, and logs of the field are read
/// by them.
namespace ZOKGATTProfile {

using platform::CBUUID;

inline constexpr CBUUID immediateAlertService = CBUUID::UUIDWithString("1802");
inline constexpr CBUUID batteryService = CBUUID::UUIDWithString("180F");
inline constexpr CBUUID buttonService = CBUUID::UUIDWithString("FFE0");
inline constexpr CBUUID accelerometerService = CBUUID::UUIDWithString("FFA0");
inline constexpr CBUUID configurationService = CBUUID::UUIDWithString("F0002013-0451-4000-B000-000000000000");
inline constexpr CBUUID temperatureService = CBUUID::UUIDWithString("FFF0");
inline constexpr CBUUID deviceInformationService = CBUUID::UUIDWithString("180A");

inline constexpr CBUUID alertLevelCharacteristic = CBUUID::UUIDWithString("2A06");
inline constexpr CBUUID batteryLevelCharacteristic = CBUUID::UUIDWithString("2A19");
inline constexpr CBUUID buttonActionCharacteristic = CBUUID::UUIDWithString("FFE1");
inline constexpr CBUUID accelerometerXCharacteristic = CBUUID::UUIDWithString("FFA2");
inline constexpr CBUUID accelerometerYCharacteristic = CBUUID::UUIDWithString("FFA3");
inline constexpr CBUUID accelerometerZCharacteristic = CBUUID::UUIDWithString("FFA4");
inline constexpr CBUUID buttonModeCharacteristic =
    CBUUID::UUIDWithString("F000ff97-0451-4000-B000-000000000000");
inline constexpr CBUUID temperatureCharacteristic = CBUUID::UUIDWithString("FFF2");
inline constexpr CBUUID firmwareRevisionCharacteristic = CBUUID::UUIDWithString("2A26");

/// What is asked for at link-up.
inline constexpr std::array requestedServices{
    buttonService,        batteryService,     configurationService,    immediateAlertService,
    accelerometerService, temperatureService, deviceInformationService};

struct CharacteristicRequest {
    CBUUID service;
    std::span<const CBUUID> characteristics;
};

inline constexpr std::array accelerometerAxes{accelerometerXCharacteristic, accelerometerYCharacteristic,
                                              accelerometerZCharacteristic};

/// What a discovered service is compared with, and what is then asked of it.
inline constexpr std::array<CharacteristicRequest, 7> characteristicRequests{{
    {immediateAlertService, {&alertLevelCharacteristic, 1}},
    {batteryService, {&batteryLevelCharacteristic, 1}},
    {buttonService, {&buttonActionCharacteristic, 1}},
    {accelerometerService, accelerometerAxes},
    {configurationService, {&buttonModeCharacteristic, 1}},
    {temperatureService, {&temperatureCharacteristic, 1}},
    {deviceInformationService, {&firmwareRevisionCharacteristic, 1}},
}};

/// The answers to characteristic requests after which a beacon is connected.
inline constexpr std::int64_t answersOfAConnection = 7;

/// What an arriving value is about, which decides how it is decoded and told.
enum class Value : std::uint8_t { battery, button, temperature, axisX, axisY, axisZ, mode, firmware };

struct RecognisedValue {
    CBUUID characteristic;
    Value value;
};

/// What an arriving value's characteristic is compared with; its service is not looked at.
inline constexpr std::array<RecognisedValue, 8> recognisedValues{{
    {batteryLevelCharacteristic, Value::battery},
    {buttonActionCharacteristic, Value::button},
    {temperatureCharacteristic, Value::temperature},
    {accelerometerXCharacteristic, Value::axisX},
    {accelerometerYCharacteristic, Value::axisY},
    {accelerometerZCharacteristic, Value::axisZ},
    {buttonModeCharacteristic, Value::mode},
    {firmwareRevisionCharacteristic, Value::firmware},
}};

static_assert(requestedServices.size() == answersOfAConnection);
static_assert(characteristicRequests.size() == requestedServices.size());

}  // namespace ZOKGATTProfile
