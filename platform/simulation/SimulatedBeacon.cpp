#include "platform/simulation/SimulatedBeacon.h"

#include <stdexcept>
#include <utility>

#include "platform/simulation/PayloadEncoder.h"

namespace platform::simulation {

namespace {

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
      description_(std::move(description)),
      random_(seededGenerator(seed, index)) {
    if (!(description_.advertisingInterval > 0) || !(description_.advertisingJitter >= 0)) {
        throw std::invalid_argument("a beacon's advertising interval is above 0 s, and its jitter not below");
    }
    if (description_.signalStrengthSpread < 0) {
        throw std::invalid_argument("the spread of a beacon's signal strength is not below 0 dB");
    }
    refreshAdvertisement();
}

SimulatedBeacon::~SimulatedBeacon() {
    for (const auto& timer : {advertisingTimer_, buttonTimer_}) {
        if (timer) timer->invalidate();
    }
}

void SimulatedBeacon::comeIntoRange() {
    if (!isInRange()) scheduleAdvertisement(0);
}

void SimulatedBeacon::goOutOfRange() {
    if (!isInRange()) return;
    advertisingTimer_->invalidate();
    advertisingTimer_ = nullptr;
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
}

void SimulatedBeacon::setBatteryLevel(std::uint8_t level) {
    description_.batteryLevel = level;
    refreshAdvertisement();
}

void SimulatedBeacon::setTemperature(std::int32_t degrees) {
    const std::int32_t previous = std::exchange(description_.temperature, degrees);
    try {
        refreshAdvertisement();
    } catch (const std::invalid_argument&) {
        description_.temperature = previous;
        throw;
    }
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
        if (!self || !self->isInRange()) return;
        self->transmitter_(*self, Advertisement(self->description_.localName, sent));
    });
}

int SimulatedBeacon::nextSignalReading() {
    std::uniform_int_distribution<int> deviation(-description_.signalStrengthSpread,
                                                 description_.signalStrengthSpread);
    return description_.signalStrength + deviation(random_);
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

}  // namespace platform::simulation
