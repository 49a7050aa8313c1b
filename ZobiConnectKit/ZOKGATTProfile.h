#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zobi/platform/CBUUID.h"

/// The GATT profile of a beacon: all services and characteristics that the library uses, what it writes to
/// make the beacon sound, and the three orders in which it asks for them.
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
/// The three orders are independent, and all are fixed: the first two are visible on the air, and log tools
/// rely on them.
namespace ZOKGATTProfile {

using zobi::platform::CBUUID;

/// Immediate Alert.
inline constexpr CBUUID immediateAlertService = CBUUID::UUIDWithString("1802");
/// Battery Service.
inline constexpr CBUUID batteryService = CBUUID::UUIDWithString("180F");
/// The button.
inline constexpr CBUUID buttonService = CBUUID::UUIDWithString("FFE0");
/// The accelerometer.
inline constexpr CBUUID accelerometerService = CBUUID::UUIDWithString("FFA0");
/// The configuration of the beacon.
inline constexpr CBUUID configurationService = CBUUID::UUIDWithString("F0002013-0451-4000-B000-000000000000");
/// The temperature.
inline constexpr CBUUID temperatureService = CBUUID::UUIDWithString("FFF0");
/// Device Information; a beacon also advertises its payload as service data under this UUID.
inline constexpr CBUUID deviceInformationService = CBUUID::UUIDWithString("180A");

/// Alert Level, in Immediate Alert: 1 byte, written without response.
inline constexpr CBUUID alertLevelCharacteristic = CBUUID::UUIDWithString("2A06");
/// The value of Alert Level that makes the beacon sound: a mild alert.
inline constexpr std::uint8_t mildAlert = 0x01;
/// Battery Level, in Battery Service: 1 byte, decoded as signed.
inline constexpr CBUUID batteryLevelCharacteristic = CBUUID::UUIDWithString("2A19");
/// The code of the last button action, in the button service: 1 byte.
inline constexpr CBUUID buttonActionCharacteristic = CBUUID::UUIDWithString("FFE1");
/// The X axis, in the accelerometer service: 2 bytes, big-endian.
inline constexpr CBUUID accelerometerXCharacteristic = CBUUID::UUIDWithString("FFA2");
/// The Y axis, in the accelerometer service: 2 bytes, big-endian.
inline constexpr CBUUID accelerometerYCharacteristic = CBUUID::UUIDWithString("FFA3");
/// The Z axis, in the accelerometer service: 2 bytes, big-endian.
inline constexpr CBUUID accelerometerZCharacteristic = CBUUID::UUIDWithString("FFA4");
/// The button mode, in the configuration service: written as 1 byte, with response; read as 2 bytes,
/// big-endian.
inline constexpr CBUUID buttonModeCharacteristic =
    CBUUID::UUIDWithString("F000ff97-0451-4000-B000-000000000000");
/// The temperature, in the temperature service: 2 bytes, big-endian.
inline constexpr CBUUID temperatureCharacteristic = CBUUID::UUIDWithString("FFF2");
/// Firmware Revision, in Device Information: UTF-8 text.
inline constexpr CBUUID firmwareRevisionCharacteristic = CBUUID::UUIDWithString("2A26");

/// The services that are discovered at link-up, in the order of the request.
inline constexpr std::array requestedServices{
    buttonService,        batteryService,     configurationService,    immediateAlertService,
    accelerometerService, temperatureService, deviceInformationService};

/// The characteristics that are discovered in one service.
struct CharacteristicRequest {
    /// The service.
    CBUUID service;
    /// Its characteristics, in the order of the request.
    std::span<const CBUUID> characteristics;
};

/// The characteristics of the accelerometer service.
inline constexpr std::array accelerometerAxes{accelerometerXCharacteristic, accelerometerYCharacteristic,
                                              accelerometerZCharacteristic};

/// For each service of the profile, the characteristics that are discovered once the service was found.
inline constexpr std::array<CharacteristicRequest, 7> characteristicRequests{{
    {immediateAlertService, {&alertLevelCharacteristic, 1}},
    {batteryService, {&batteryLevelCharacteristic, 1}},
    {buttonService, {&buttonActionCharacteristic, 1}},
    {accelerometerService, accelerometerAxes},
    {configurationService, {&buttonModeCharacteristic, 1}},
    {temperatureService, {&temperatureCharacteristic, 1}},
    {deviceInformationService, {&firmwareRevisionCharacteristic, 1}},
}};

/// How many answers to characteristic discoveries have to come, counted from the link-up, before a beacon is
/// reported connected.
inline constexpr std::int64_t answersUntilConnected = 7;

/// The kind of a value that was read or notified: it decides how the value is decoded and reported.
enum class Value : std::uint8_t {
    battery,      ///< Battery level: the first byte, signed.
    button,       ///< Button action: the first byte, unsigned.
    temperature,  ///< Temperature: two bytes, big-endian, unsigned.
    axisX,        ///< X axis of the accelerometer: as the temperature.
    axisY,        ///< Y axis: likewise.
    axisZ,        ///< Z axis: likewise.
    mode,         ///< Button mode: as the temperature.
    firmware      ///< Firmware revision: text up to the first zero byte.
};

/// A characteristic and the kind of its values.
struct RecognisedValue {
    /// The characteristic.
    CBUUID characteristic;
    /// The kind of its values.
    Value value;
};

/// The kind of each characteristic's values. A value is recognised by its characteristic alone, whatever the
/// service.
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

static_assert(requestedServices.size() == answersUntilConnected);
static_assert(characteristicRequests.size() == requestedServices.size());

}  // namespace ZOKGATTProfile
