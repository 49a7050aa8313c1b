// Commands to a connected beacon. Each finds its characteristic and sends one request, or nothing at all.

#include <array>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/ThreadCheck.h"

using namespace ZOKGATTProfile;
using zobi::platform::CBCharacteristic;
using zobi::platform::CBCharacteristicWriteType;
using zobi::platform::CBPeripheral;
using zobi::platform::CBUUID;

namespace {

std::shared_ptr<CBPeripheral> peripheralOf(const std::shared_ptr<ZOKBeacon>& beacon) {
    return beacon ? beacon->peripheral() : nullptr;
}

void write(std::uint8_t byte, const CBUUID& characteristicUUID, const CBUUID& serviceUUID,
           const std::shared_ptr<ZOKBeacon>& beacon, CBCharacteristicWriteType type) {
    const auto peripheral = peripheralOf(beacon);
    const auto characteristic =
        ZOKManager::characteristicFromServiceAndPeripheral(characteristicUUID, serviceUUID, peripheral);
    if (!characteristic) return;
    peripheral->writeValueForCharacteristicType(std::array{byte}, characteristic, type);
}

void read(const CBUUID& characteristicUUID, const CBUUID& serviceUUID,
          const std::shared_ptr<ZOKBeacon>& beacon) {
    const auto peripheral = peripheralOf(beacon);
    const auto characteristic =
        ZOKManager::characteristicFromServiceAndPeripheral(characteristicUUID, serviceUUID, peripheral);
    if (characteristic) peripheral->readValueForCharacteristic(characteristic);
}

void setNotify(bool enabled, const CBUUID& characteristicUUID, const CBUUID& serviceUUID,
               const std::shared_ptr<ZOKBeacon>& beacon) {
    const auto peripheral = peripheralOf(beacon);
    const auto characteristic =
        ZOKManager::characteristicFromServiceAndPeripheral(characteristicUUID, serviceUUID, peripheral);
    if (characteristic) peripheral->setNotifyValueForCharacteristic(enabled, characteristic);
}

}  // namespace

std::shared_ptr<CBCharacteristic> ZOKManager::characteristicFromServiceAndPeripheral(
    const CBUUID& characteristicUUID, const CBUUID& serviceUUID,
    const std::shared_ptr<CBPeripheral>& peripheral) {
    if (!peripheral || !peripheral->services()) return nullptr;
    for (const auto& service : *peripheral->services()) {
        // A beacon may have the service twice, and the characteristic in the second.
        if (service->UUID() != serviceUUID || !service->characteristics()) continue;
        for (const auto& characteristic : *service->characteristics()) {
            if (characteristic->UUID() == characteristicUUID) return characteristic;
        }
    }
    return nullptr;
}

// They are the manager's, though none needs anything of it.
// NOLINTBEGIN(readability-convert-member-functions-to-static)

void ZOKManager::pingBeacon(const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    write(mildAlert, alertLevelCharacteristic, immediateAlertService, beacon,
          CBCharacteristicWriteType::withoutResponse);
}

void ZOKManager::setButtonModeForBeacon(std::int32_t mode, const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    write(static_cast<std::uint8_t>(mode & 0xFF), buttonModeCharacteristic, configurationService, beacon,
          CBCharacteristicWriteType::withResponse);
}

void ZOKManager::buttonModeForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                   const ZOKBeaconCompletion& /*completion*/) {
    zobi::platform::checkThread(platform_.runLoop());
    read(buttonModeCharacteristic, configurationService, beacon);
}

void ZOKManager::temperatureForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                    const ZOKBeaconCompletion& /*completion*/) {
    zobi::platform::checkThread(platform_.runLoop());
    read(temperatureCharacteristic, temperatureService, beacon);
}

void ZOKManager::firmwareVersionForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                        const ZOKBeaconCompletion& /*completion*/) {
    zobi::platform::checkThread(platform_.runLoop());
    read(firmwareRevisionCharacteristic, deviceInformationService, beacon);
}

void ZOKManager::setAccelerometerNotificationsForBeacon(bool enabled,
                                                        const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    const auto peripheral = peripheralOf(beacon);
    std::array<std::shared_ptr<CBCharacteristic>, accelerometerAxes.size()> found;
    for (std::size_t i = 0; i < found.size(); ++i) {
        found[i] =
            characteristicFromServiceAndPeripheral(accelerometerAxes[i], accelerometerService, peripheral);
    }
    for (const auto& characteristic : found) {
        if (characteristic) peripheral->setNotifyValueForCharacteristic(enabled, characteristic);
    }
}

void ZOKManager::setBatteryNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    setNotify(enabled, batteryLevelCharacteristic, batteryService, beacon);
}

void ZOKManager::setTemperatureNotificationsForBeacon(bool enabled,
                                                      const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    // Not in the temperature service. Where beacons have it today, this finds nothing, and it stays so: who
    // relies on it has discovered the characteristic there by themselves.
    setNotify(enabled, temperatureCharacteristic, configurationService, beacon);
}

void ZOKManager::setButtonActionsNotificationsForBeacon(bool enabled,
                                                        const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    setNotify(enabled, buttonActionCharacteristic, buttonService, beacon);
}

// NOLINTEND(readability-convert-member-functions-to-static)
