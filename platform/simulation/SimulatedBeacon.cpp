#include "zobi/platform/simulation/SimulatedBeacon.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/simulation/PayloadEncoder.h"
#include "platform/simulation/SimulatedPeripheral.h"

namespace zobi::platform::simulation {

namespace {

// Where a central finds what the beacon advertises too.
constexpr CBUUID batteryLevelCharacteristic = CBUUID::UUIDWithString("2A19");
constexpr CBUUID temperatureCharacteristic = CBUUID::UUIDWithString("FFF2");
constexpr CBUUID buttonCharacteristic = CBUUID::UUIDWithString("FFE1");

std::vector<std::uint8_t> temperatureValue(std::int32_t degrees) {
    return {static_cast<std::uint8_t>(degrees >> 8), static_cast<std::uint8_t>(degrees & 0xFF)};
}

/// The description with the beacon's own values wherever a characteristic has none.
BeaconDescription completed(BeaconDescription beacon) {
    for (ServiceDescription& service : beacon.services) {
        for (CharacteristicDescription& characteristic : service.characteristics) {
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
    return beacon;
}

void checkLink(const LinkDescription& link) {
    if (!(link.connectionDelay >= 0) || !(link.responseDelay >= 0)) {
        throw std::invalid_argument("a link's connection and response delays are not below 0 s");
    }
    if (!(link.supervisionTimeout > 0)) {
        throw std::invalid_argument("a link's supervision timeout is above 0 s");
    }
}

std::minstd_rand seededGenerator(std::uint64_t seed, std::size_t index) {
    std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                           static_cast<std::uint32_t>(index)};
    return std::minstd_rand(sequence);
}

}  // namespace

SimulatedBeacon::SimulatedBeacon(RunLoop& runLoop, Transmitter transmitter, std::size_t index,
                                 std::uint64_t seed, BeaconDescription description)
    : runLoop_(runLoop),
      transmitter_(std::move(transmitter)),
      index_(index),
      description_(completed(std::move(description))),
      random_(seededGenerator(seed, index)),
      gatt_(runLoop, description_.services) {
    if (!(description_.advertisingInterval > 0) || !(description_.advertisingJitter >= 0)) {
        throw std::invalid_argument("a beacon's advertising interval is above 0 s, and its jitter not below");
    }
    if (description_.signalStrengthSpread < 0) {
        throw std::invalid_argument("the spread of a beacon's signal strength is not below 0 dB");
    }
    checkLink(description_.link);
    refreshAdvertisement();
}

SimulatedBeacon::~SimulatedBeacon() {
    if (linked_) linked_->abandon();
    for (SimulatedPeripheral* const peripheral : attempts_) peripheral->abandon();
    for (const auto& timer : {advertisingTimer_, buttonTimer_}) {
        if (timer) timer->invalidate();
    }
}

void SimulatedBeacon::comeIntoRange() {
    if (std::exchange(isInRange_, true)) return;
    if (linked_) return linked_->beaconIsHeardAgain();
    becomeFree();
}

void SimulatedBeacon::goOutOfRange() {
    if (!std::exchange(isInRange_, false)) return;
    if (linked_) return linked_->beaconFellSilent();
    ceaseToBeFree();
}

void SimulatedBeacon::pressButton(std::int8_t action, double seconds) {
    if (buttonTimer_) buttonTimer_->invalidate();
    buttonTimer_ = runLoop_.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        seconds,
        [this](const auto& /*timer*/) {
            description_.buttonAction = 0;
            refreshAdvertisement();
        },
        nullptr, false);
    description_.buttonAction = action;
    refreshAdvertisement();
    gatt_.setValueIfPresent(buttonCharacteristic, {static_cast<std::uint8_t>(action)});
}

void SimulatedBeacon::setBatteryLevel(std::uint8_t level) {
    description_.batteryLevel = level;
    refreshAdvertisement();
    gatt_.setValueIfPresent(batteryLevelCharacteristic, {level});
}

void SimulatedBeacon::setTemperature(std::int32_t degrees) {
    const std::int32_t previous = std::exchange(description_.temperature, degrees);
    try {
        refreshAdvertisement();
    } catch (const std::invalid_argument&) {
        description_.temperature = previous;
        throw;
    }
    gatt_.setValueIfPresent(temperatureCharacteristic, temperatureValue(degrees));
}

void SimulatedBeacon::setLocalName(std::optional<std::string> name) {
    description_.localName = std::move(name);
    refreshAdvertisement();
}

void SimulatedBeacon::setSignalStrength(int dBm) {
    description_.signalStrength = dBm;
}

void SimulatedBeacon::setServiceData(std::optional<std::vector<ServiceData>> serviceData) {
    description_.serviceData = std::move(serviceData);
    refreshAdvertisement();
}

void SimulatedBeacon::sendOnce(std::vector<ServiceData> serviceData) {
    runLoop_.dispatchAsync([weakSelf = weak_from_this(), sent = std::move(serviceData)] {
        const auto self = weakSelf.lock();
        if (!self || !self->isFree()) return;
        self->transmitter_(*self, Advertisement(self->description_.localName, sent));
    });
}

int SimulatedBeacon::nextSignalReading() {
    std::uniform_int_distribution<int> deviation(-description_.signalStrengthSpread,
                                                 description_.signalStrengthSpread);
    return description_.signalStrength + deviation(random_);
}

void SimulatedBeacon::endLink(std::optional<NSError> error) {
    runLoop_.dispatchAsync([weakSelf = weak_from_this(), error = std::move(error)] {
        const auto self = weakSelf.lock();
        if (self && self->linked_) self->linked_->beaconEndedLink(error);
    });
}

void SimulatedBeacon::setConnectionError(std::optional<NSError> error) {
    description_.link.connectionError = std::move(error);
}

void SimulatedBeacon::setServiceDiscoveryError(std::optional<NSError> error) {
    description_.link.serviceDiscoveryError = std::move(error);
}

void SimulatedBeacon::setSignalReadError(std::optional<NSError> error) {
    description_.link.signalReadError = std::move(error);
}

void SimulatedBeacon::addAttempt(SimulatedPeripheral& peripheral) {
    attempts_.push_back(&peripheral);
    if (isFree()) peripheral.beaconBecameFree();
}

void SimulatedBeacon::removeAttempt(SimulatedPeripheral& peripheral) {
    std::erase(attempts_, &peripheral);
}

void SimulatedBeacon::beginLink(SimulatedPeripheral& peripheral) {
    linked_ = &peripheral;
    ceaseToBeFree();
    gatt_.beginLink([&peripheral](auto place, auto value) { peripheral.valueChanged(place, value); },
                    random_);
}

void SimulatedBeacon::leaveLink() {
    gatt_.endLink();
    linked_ = nullptr;
    if (isInRange_) becomeFree();
}

void SimulatedBeacon::becomeFree() {
    scheduleAdvertisement(0);
    for (SimulatedPeripheral* const peripheral : attempts_) peripheral->beaconBecameFree();
}

void SimulatedBeacon::ceaseToBeFree() {
    advertisingTimer_->invalidate();
    for (SimulatedPeripheral* const peripheral : attempts_) peripheral->beaconCeasedToBeFree();
}

void SimulatedBeacon::scheduleAdvertisement(double seconds) {
    advertisingTimer_ = runLoop_.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        seconds,
        [this](const auto& /*timer*/) {
            // First, so that the beacon goes on when whoever hears it throws.
            scheduleAdvertisement(nextInterval());
            const auto sent = advertisement_;
            transmitter_(*this, *sent);
        },
        nullptr, false);
}

double SimulatedBeacon::nextInterval() {
    std::uniform_real_distribution<double> delay(0, description_.advertisingJitter);
    return description_.advertisingInterval + delay(random_);
}

void SimulatedBeacon::refreshAdvertisement() {
    // Encoded even when it is not sent, so that what cannot be sent is refused when it is set.
    std::vector<ServiceData> own{{CBUUID::UUIDWithString("180A"), encodePayload(description_)}};
    advertisement_ = std::make_shared<Advertisement>(description_.localName,
                                                     description_.serviceData.value_or(std::move(own)));
}

}  // namespace zobi::platform::simulation
