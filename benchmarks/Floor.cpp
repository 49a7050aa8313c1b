#include "Floor.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/UTF8.h"

using zobi::platform::NSNumber;

namespace zobi::floor_work {

namespace {

std::uint16_t bigEndian(std::span<const std::uint8_t> value) {
    return static_cast<std::uint16_t>(value[0] << 8 | value[1]);
}

}  // namespace

std::unique_ptr<Record> decode(std::span<const std::uint8_t> payload) {
    if (payload.size() < 16 || payload[11] != 3) return nullptr;
    // The values become what they are declared to be; the filling stays as it is.
    auto record = std::make_unique_for_overwrite<Record>();
    constexpr std::size_t addressSize = 6;
    record->macAddress.resize(2 * addressSize);
    for (std::size_t i = 0; i < addressSize; ++i) {
        const std::uint8_t byte = payload[addressSize - 1 - i];
        record->macAddress[2 * i] = "0123456789ABCDEF"[byte >> 4];
        record->macAddress[2 * i + 1] = "0123456789ABCDEF"[byte & 0xF];
    }
    record->major = NSNumber::numberWithInt(payload[7] << 8 | payload[8]);
    record->minor = NSNumber::numberWithInt(payload[9] << 8 | payload[10]);
    record->scanRspVersion = NSNumber::numberWithInt(3);
    record->advertBatteryLevel = NSNumber::numberWithUnsignedChar(payload[12]);
    record->temperature = NSNumber::numberWithInt((payload[13] << 8 | payload[14]) - 4);
    record->advertAction = NSNumber::numberWithInt(static_cast<std::int8_t>(payload[15]));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    record->timestamp = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return record;
}

void takeIn(std::span<const std::uint8_t> payload, zobi::platform::CBPeripheral* peripheral, Records& live) {
    auto sighted = decode(payload);
    if (!sighted) return;
    sighted->peripheral = peripheral;
    const auto major = sighted->major.integerValue();
    const auto minor = sighted->minor.integerValue();
    const auto timestamp = sighted->timestamp;
    bool isLive = false;
    for (const auto& record : live) {
        if (record->major.integerValue() != major || record->minor.integerValue() != minor) continue;
        record->timestamp = timestamp;
        isLive = true;
    }
    if (!isLive) live.push_back(std::move(sighted));
}

void takeValue(const zobi::platform::CBPeripheral& peripheral,
               const zobi::platform::CBCharacteristic& characteristic, const Audience& audience) {
    using namespace ZOKGATTProfile;
    const auto& live = audience.live;
    const auto found =
        std::ranges::find(live, &peripheral, [](const auto& record) { return record->peripheral().get(); });
    const auto value = characteristic.value();
    if (found == live.end() || !value || value->empty()) return;
    const std::shared_ptr<ZOKBeacon>& beacon = *found;
    const zobi::platform::CBUUID uuid = characteristic.UUID();
    if (uuid == batteryLevelCharacteristic) {
        const auto level = static_cast<std::int8_t>(value->front());
        if (const auto delegate = audience.delegate.lock()) {
            delegate->zobiConnectManagerDidBatteryValueChangedForBeacon(audience.manager, level,
                                                                        std::shared_ptr(beacon));
        }
        return;
    }
    if (uuid == buttonActionCharacteristic) {
        const unsigned action = std::min(value->front() - 1U, 3U);
        if (const auto delegate = audience.delegate.lock()) {
            delegate->zobiConnectManagerDidButtonActionChangedForBeacon(
                audience.manager, static_cast<int>(action), std::shared_ptr(beacon));
        }
        return;
    }
    const auto post = [&](std::string_view name, auto&& object, auto&& payload) {
        audience.center.postNotificationNameObjectUserInfo(
            name, std::forward<decltype(object)>(object),
            {"value", std::forward<decltype(payload)>(payload)});
    };
    if (uuid == firmwareRevisionCharacteristic) {
        std::string version(value->begin(), std::ranges::find(*value, 0));
        if (!zobi::platform::isValidUTF8(version)) return beacon->setFirmwareVersion(std::nullopt);
        beacon->setFirmwareVersion(version);
        return post(ZOKBeaconFirmwareVersionNotification, beacon, std::move(version));
    }
    if (value->size() != 2) return;
    const std::uint16_t number = bigEndian(*value);
    const NSNumber boxed = NSNumber::numberWithUnsignedShort(number);
    if (uuid == temperatureCharacteristic) {
        auto held = beacon;
        if (const auto delegate = audience.delegate.lock()) {
            delegate->zobiConnectManagerDidTemperatureValueChangedForBeacon(audience.manager, number, held);
        }
        return post(ZOKBeaconDidTemperatureChangeNotification, std::move(held), boxed);
    }
    if (uuid == buttonModeCharacteristic) return post(ZOKBeaconButtonModeNotification, beacon, boxed);
    ZOKAccelerometerAxes axes = beacon->accelerometer();
    const auto postAxis = [&](std::int64_t& axis, std::string_view name) {
        axis = number;
        beacon->setAccelerometer(axes);
        post(name, beacon, boxed);
    };
    if (uuid == accelerometerXCharacteristic) {
        postAxis(axes.axisX, ZOKBeaconDidAccelerometerAxisXChangeNotification);
    } else if (uuid == accelerometerYCharacteristic) {
        postAxis(axes.axisY, ZOKBeaconDidAccelerometerAxisYChangeNotification);
    } else if (uuid == accelerometerZCharacteristic) {
        postAxis(axes.axisZ, ZOKBeaconDidAccelerometerAxisZChangeNotification);
    }
}

}  // namespace zobi::floor_work
