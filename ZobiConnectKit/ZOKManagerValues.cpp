// What a connected beacon sends: values that were read or notified, and signal strengths.

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/UTF8.h"

using zobi::platform::CBPeripheral;
using zobi::platform::NSError;
using zobi::platform::NSNumber;
using zobi::platform::NSUserInfo;
using ZOKGATTProfile::Value;

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view valueKey = "value";

struct Axis {
    std::string_view notification;
    std::string_view logLine;
    std::int64_t ZOKAccelerometerAxes::*field;
};

constexpr std::array<Axis, 3> axes{{
    {ZOKBeaconDidAccelerometerAxisXChangeNotification, "AxisX: %d", &ZOKAccelerometerAxes::axisX},
    {ZOKBeaconDidAccelerometerAxisYChangeNotification, "AxisY: %d", &ZOKAccelerometerAxes::axisY},
    {ZOKBeaconDidAccelerometerAxisZChangeNotification, "AxisZ: %d", &ZOKAccelerometerAxes::axisZ},
}};

/// 0 for an empty value.
std::uint8_t firstByte(Bytes value) {
    return value.empty() ? 0 : value[0];
}

/// The last two bytes as they travelled, the more significant one first. As a value is reversed before it is
/// filled up, a single byte is the less significant one.
std::uint16_t bigEndian(Bytes value) {
    const std::size_t size = value.size();
    const int low = size > 0 ? value[size - 1] : 0;
    const int high = size > 1 ? value[size - 2] : 0;
    return static_cast<std::uint16_t>(high << 8 | low);
}

NSUserInfo userInfoWithNumber(std::uint16_t number) {
    return {valueKey, NSNumber::numberWithUnsignedShort(number)};
}

}  // namespace

void ZOKManager::peripheralDidUpdateValueForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<zobi::platform::CBCharacteristic>& characteristic, const NSError* error) {
    if (error) return;
    const auto beacon = beaconFromPeripheral(peripheral);
    if (!characteristic) return;
    const auto* const recognised = std::ranges::find(ZOKGATTProfile::recognisedValues, characteristic->UUID(),
                                                     &ZOKGATTProfile::RecognisedValue::characteristic);
    if (recognised == ZOKGATTProfile::recognisedValues.end()) return;
    const Bytes value = characteristic->value().value_or(Bytes{});
    switch (recognised->value) {
        case Value::battery:
            return reportBattery(static_cast<std::int8_t>(firstByte(value)), beacon);
        case Value::button:
            return reportButton(firstByte(value), beacon);
        case Value::temperature:
            return reportTemperature(bigEndian(value), beacon);
        case Value::axisX:
            return reportAxis(0, bigEndian(value), beacon);
        case Value::axisY:
            return reportAxis(1, bigEndian(value), beacon);
        case Value::axisZ:
            return reportAxis(2, bigEndian(value), beacon);
        case Value::mode:
            return reportButtonMode(bigEndian(value), beacon);
        case Value::firmware:
            return reportFirmware(value, beacon);
    }
}

void ZOKManager::reportBattery(int level, const std::shared_ptr<ZOKBeacon>& beacon) {
    if (const auto delegate = delegate_.lock()) {
        delegate->zobiConnectManagerDidBatteryValueChangedForBeacon(shared_from_this(), level, beacon);
    }
}

void ZOKManager::reportButton(std::uint8_t code, const std::shared_ptr<ZOKBeacon>& beacon) {
    constexpr int lastAction = 3;
    constexpr int unknownAction = 3;
    const int action = code >= 1 && code <= lastAction ? code - 1 : unknownAction;
    if (const auto delegate = delegate_.lock()) {
        delegate->zobiConnectManagerDidButtonActionChangedForBeacon(shared_from_this(), action, beacon);
    }
}

void ZOKManager::reportTemperature(std::uint16_t temperature, const std::shared_ptr<ZOKBeacon>& beacon) {
    if (const auto delegate = delegate_.lock()) {
        delegate->zobiConnectManagerDidTemperatureValueChangedForBeacon(shared_from_this(), temperature,
                                                                        beacon);
    }
    post(ZOKBeaconDidTemperatureChangeNotification, beacon, userInfoWithNumber(temperature));
}

void ZOKManager::reportAxis(std::size_t axis, std::uint16_t value, const std::shared_ptr<ZOKBeacon>& beacon) {
    const auto& [notification, logLine, field] = axes[axis];
    post(notification, beacon, userInfoWithNumber(value));
    platform_.log().log(logLine, value);
    if (!beacon) return;
    ZOKAccelerometerAxes accelerometer = beacon->accelerometer();
    accelerometer.*field = value;
    beacon->setAccelerometer(accelerometer);
}

void ZOKManager::reportButtonMode(std::uint16_t mode, const std::shared_ptr<ZOKBeacon>& beacon) {
    post(ZOKBeaconButtonModeNotification, beacon, userInfoWithNumber(mode));
    platform_.log().log("ButtonMode: %d", mode);
}

void ZOKManager::reportFirmware(Bytes value, const std::shared_ptr<ZOKBeacon>& beacon) {
    if (!beacon) return;
    const std::string text(value.begin(), std::ranges::find(value, 0));
    beacon->setFirmwareVersion(zobi::platform::isValidUTF8(text) ? std::optional(text) : std::nullopt);
    // A dictionary cannot hold an absent text.
    if (const auto& version = beacon->firmwareVersion()) {
        post(ZOKBeaconFirmwareVersionNotification, beacon, {valueKey, *version});
    }
}

void ZOKManager::peripheralDidReadRSSIError(const std::shared_ptr<CBPeripheral>& peripheral, NSNumber rssi,
                                            const NSError* error) {
    if (error) return;
    post(ZOKBeaconDidRSSIChangeNotification, beaconFromPeripheral(peripheral), {valueKey, rssi});
}

void ZOKManager::post(std::string_view notification, const std::shared_ptr<ZOKBeacon>& beacon,
                      NSUserInfo userInfo) {
    platform_.notificationCenter().postNotificationNameObjectUserInfo(notification, beacon,
                                                                      std::move(userInfo));
}
