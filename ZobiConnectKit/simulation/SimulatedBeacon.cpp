#include "ZobiConnectKit/simulation/SimulatedBeacon.h"

#include <stdexcept>
#include <utility>

#include "ZobiConnectKit/simulation/PayloadEncoder.h"

namespace zobi {

using platform::CBUUID;
using platform::simulation::DeviceDescription;
using platform::simulation::ServiceData;
using platform::simulation::World;

namespace {

constexpr CBUUID payloadService = CBUUID::UUIDWithString("180A");
// Where a central finds what the beacon advertises too.
constexpr CBUUID batteryLevelCharacteristic = CBUUID::UUIDWithString("2A19");
constexpr CBUUID temperatureCharacteristic = CBUUID::UUIDWithString("FFF2");
constexpr CBUUID buttonCharacteristic = CBUUID::UUIDWithString("FFE1");

std::vector<std::uint8_t> temperatureValue(std::int32_t degrees) {
    return {static_cast<std::uint8_t>(degrees >> 8), static_cast<std::uint8_t>(degrees & 0xFF)};
}

std::vector<ServiceData> payloadElement(const BeaconDescription& beacon) {
    return {{payloadService, encodePayload(beacon)}};
}

/// The device that such a beacon is, with the beacon's own values wherever a characteristic has none.
DeviceDescription deviceOf(const BeaconDescription& beacon) {
    // Encoded even when it is not sent, so that what cannot be sent is refused.
    auto payload = payloadElement(beacon);
    DeviceDescription device{.address = beacon.macAddress,
                             .localName = beacon.localName,
                             .advertisedServices = beacon.advertisedServices,
                             .serviceData = beacon.serviceData.value_or(std::move(payload)),
                             .advertisingInterval = beacon.advertisingInterval,
                             .advertisingJitter = beacon.advertisingJitter,
                             .signalStrength = beacon.signalStrength,
                             .signalStrengthSpread = beacon.signalStrengthSpread,
                             .services = beacon.services,
                             .link = beacon.link};
    for (auto& service : device.services) {
        for (auto& characteristic : service.characteristics) {
            if (characteristic.value) continue;
            if (characteristic.uuid == batteryLevelCharacteristic) {
                characteristic.value = {beacon.batteryLevel};
            } else if (characteristic.uuid == temperatureCharacteristic) {
                characteristic.value = temperatureValue(beacon.temperature);
            } else if (characteristic.uuid == buttonCharacteristic) {
                characteristic.value = {static_cast<std::uint8_t>(beacon.buttonAction)};
            }
        }
    }
    return device;
}

}  // namespace

SimulatedBeacon::SimulatedBeacon(Context context, BeaconDescription description)
    : SimulatedDevice(std::move(context), deviceOf(description)),
      payload_(std::move(description)),
      isPayloadAdvertised_(!payload_.serviceData) {}

SimulatedBeacon::~SimulatedBeacon() {
    if (buttonTimer_) buttonTimer_->invalidate();
}

void SimulatedBeacon::pressButton(std::int8_t action, double seconds) {
    if (buttonTimer_) buttonTimer_->invalidate();
    buttonTimer_ = runLoop().after(seconds, [this] {
        payload_.buttonAction = 0;
        refreshPayload();
    });
    payload_.buttonAction = action;
    refreshPayload();
    gatt().setValueIfPresent(buttonCharacteristic, {static_cast<std::uint8_t>(action)});
}

void SimulatedBeacon::setBatteryLevel(std::uint8_t level) {
    payload_.batteryLevel = level;
    refreshPayload();
    gatt().setValueIfPresent(batteryLevelCharacteristic, {level});
}

void SimulatedBeacon::setTemperature(std::int32_t degrees) {
    const std::int32_t previous = std::exchange(payload_.temperature, degrees);
    try {
        refreshPayload();
    } catch (const std::invalid_argument&) {
        payload_.temperature = previous;
        throw;
    }
    gatt().setValueIfPresent(temperatureCharacteristic, temperatureValue(degrees));
}

void SimulatedBeacon::setServiceData(std::vector<ServiceData> serviceData) {
    isPayloadAdvertised_ = false;
    SimulatedDevice::setServiceData(std::move(serviceData));
}

void SimulatedBeacon::setServiceData(std::nullopt_t /*payload*/) {
    isPayloadAdvertised_ = true;
    refreshPayload();
}

void SimulatedBeacon::refreshPayload() {
    // Encoded even when it is not sent, so that what cannot be sent is refused when it is set.
    auto payload = payloadElement(payload_);
    if (isPayloadAdvertised_) SimulatedDevice::setServiceData(std::move(payload));
}

SimulatedBeacon& addBeacon(World& world, BeaconDescription description) {
    return world.add<SimulatedBeacon>(std::move(description));
}

}  // namespace zobi
