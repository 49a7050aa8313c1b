#include "zobi/platform/simulation/SimulatedDevice.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "platform/simulation/UniformInteger.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

namespace {

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

SimulatedDeviceObserver::~SimulatedDeviceObserver() = default;

SimulatedDevice::SimulatedDevice(Context context, DeviceDescription description)
    : context_(std::move(context)),
      description_(std::move(description)),
      random_(seededGenerator(context_.seed, context_.index)),
      gatt_(context_.runLoop, description_.services, [this] { changed(); }) {
    if (!(description_.advertisingInterval > 0) || !(description_.advertisingJitter >= 0)) {
        throw std::invalid_argument("a device's advertising interval is above 0 s, and its jitter not below");
    }
    if (description_.signalStrengthSpread < 0) {
        throw std::invalid_argument("the spread of a device's signal strength is not below 0 dB");
    }
    checkLink(description_.link);
    refreshAdvertisement();
}

SimulatedDevice::~SimulatedDevice() {
    if (linked_) linked_->deviceIsGone();
    for (CentralEnd* const end : attempts_) end->deviceIsGone();
    if (advertisingTimer_) advertisingTimer_->invalidate();
}

void SimulatedDevice::addObserver(std::weak_ptr<SimulatedDeviceObserver> observer) {
    std::erase_if(observers_, [](const auto& other) { return other.expired(); });
    observers_.push_back(std::move(observer));
}

void SimulatedDevice::comeIntoRange() {
    if (std::exchange(isInRange_, true)) return;
    changed();
    if (linked_) return linked_->deviceIsHeardAgain();
    becomeFree();
}

void SimulatedDevice::goOutOfRange() {
    if (!std::exchange(isInRange_, false)) return;
    changed();
    if (linked_) return linked_->deviceFellSilent();
    ceaseToBeFree();
}

void SimulatedDevice::setLocalName(std::optional<std::string> name) {
    description_.localName = std::move(name);
    refreshAdvertisement();
}

void SimulatedDevice::setSignalStrength(int dBm) {
    description_.signalStrength = dBm;
    changed();
}

void SimulatedDevice::setServiceData(std::vector<ServiceData> serviceData) {
    description_.serviceData = std::move(serviceData);
    refreshAdvertisement();
}

void SimulatedDevice::sendOnce(std::vector<ServiceData> serviceData) {
    context_.runLoop.dispatchAsync([weakSelf = weak_from_this(), sent = std::move(serviceData)] {
        const auto self = weakSelf.lock();
        if (!self || !self->isFree()) return;
        self->context_.transmit(*self, Advertisement(self->description_.localName, sent));
    });
}

int SimulatedDevice::nextSignalReading() {
    const int spread = description_.signalStrengthSpread;
    return description_.signalStrength + uniformInteger(random_, -spread, spread);
}

void SimulatedDevice::endLink(std::optional<NSError> error) {
    context_.runLoop.dispatchAsync([weakSelf = weak_from_this(), error = std::move(error)] {
        const auto self = weakSelf.lock();
        if (self && self->linked_) self->linked_->deviceEndedLink(error);
    });
}

void SimulatedDevice::setConnectionError(std::optional<NSError> error) {
    description_.link.connectionError = std::move(error);
}

void SimulatedDevice::setServiceDiscoveryError(std::optional<NSError> error) {
    description_.link.serviceDiscoveryError = std::move(error);
}

void SimulatedDevice::setSignalReadError(std::optional<NSError> error) {
    description_.link.signalReadError = std::move(error);
}

void SimulatedDevice::addAttempt(CentralEnd& end) {
    attempts_.push_back(&end);
    if (isFree()) end.deviceBecameFree();
}

void SimulatedDevice::removeAttempt(CentralEnd& end) {
    std::erase(attempts_, &end);
}

void SimulatedDevice::beginLink(CentralEnd& end) {
    linked_ = &end;
    ceaseToBeFree();
    gatt_.beginLink([&end](auto place, auto value) { end.valueChanged(place, value); }, random_);
}

void SimulatedDevice::leaveLink() {
    gatt_.endLink();
    linked_ = nullptr;
    if (isInRange_) becomeFree();
}

void SimulatedDevice::becomeFree() {
    scheduleAdvertisement(0);
    for (CentralEnd* const end : attempts_) end->deviceBecameFree();
}

void SimulatedDevice::ceaseToBeFree() {
    advertisingTimer_->invalidate();
    for (CentralEnd* const end : attempts_) end->deviceCeasedToBeFree();
}

void SimulatedDevice::scheduleAdvertisement(double seconds) {
    advertisingTimer_ = context_.runLoop.after(seconds, [this] {
        // First, so that the device goes on when whoever hears it throws.
        scheduleAdvertisement(nextInterval());
        const auto sent = advertisement_;
        context_.transmit(*this, *sent);
    });
}

double SimulatedDevice::nextInterval() {
    std::uniform_real_distribution<double> delay(0, description_.advertisingJitter);
    return description_.advertisingInterval + delay(random_);
}

void SimulatedDevice::refreshAdvertisement() {
    advertisement_ = std::make_shared<Advertisement>(description_.localName, description_.serviceData);
    changed();
}

void SimulatedDevice::changed() {
    if (observers_.empty() || std::exchange(isChangeQueued_, true)) return;
    context_.runLoop.dispatchAsync([weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->tellObservers();
    });
}

void SimulatedDevice::tellObservers() {
    isChangeQueued_ = false;
    ExceptionKeeper exceptions;
    // An observer may add another.
    const auto told = observers_;
    for (const auto& weakObserver : told) {
        const auto observer = weakObserver.lock();
        if (observer) exceptions.run([&] { observer->simulatedDeviceDidChange(*this); });
    }
    exceptions.rethrow();
}

}  // namespace zobi::platform::simulation
