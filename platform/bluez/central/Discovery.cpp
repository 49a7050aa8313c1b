#include "platform/bluez/central/Discovery.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>

namespace zobi::platform::bluez {

namespace {

// Both wait for the controller. What waits for a stop waits no longer, as its time runs.
constexpr double startDeadline = 5;
constexpr double stopDeadline = 1;
// The service refuses while another attempt or another client keeps the controller busy. Each refusal for the
// same reason doubles the pause.
constexpr double shortestRetryDelay = 0.5;
constexpr double longestRetryDelay = 4;

// From the youngest: `Pattern` came with version 5.54, `DuplicateData` with 5.47.
constexpr std::ptrdiff_t keysNotNeeded = 3;

// Thresholds below what any receiver hears. BlueZ after 5.87 reports an unchanged signal strength only if the
// filter of a client has a threshold. The price: the kernel then drops advertisements of unknown strength.
constexpr int lowestThreshold = -127;
constexpr unsigned thresholds = 16;

/// A threshold unlike that of the last filter: if the last scan was stopped, or its program ended, while
/// BlueZ restarted it, BlueZ believes that it still runs, and does not start one with an equal filter. Random
/// at first, as the last filter may have been one of another program.
std::int16_t nextThreshold() {
    static std::atomic<unsigned> count = std::random_device{}();
    return static_cast<std::int16_t>(lowestThreshold + static_cast<int>(++count % thresholds));
}

/// The form in which the service compares UUIDs.
std::string fullText(const CBUUID& uuid) {
    std::string text = uuid.UUIDString();
    if (text.size() <= 8) {
        text = std::string(8 - text.size(), '0') + text + "-0000-1000-8000-00805F9B34FB";
    }
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace

void Discovery::start(const std::vector<CBUUID>& services) {
    isStale_ = isOn_;
    resume(services);
}

void Discovery::resume(const std::vector<CBUUID>& services) {
    if (services != services_) {
        services_ = services;
        isFilterSet_ = false;
    }
    isWanted_ = true;
    watchdog_.watch();
    advance();
}

void Discovery::restart() {
    // One that is being started was asked for before whatever this is for.
    isStale_ = isOn_ || answered_ == &Discovery::started;
    if (isWanted_) advance();
}

void Discovery::stop() {
    isWanted_ = false;
    watchdog_.rest();
    advance();
}

void Discovery::stopThen(std::function<void()> then) {
    whenStopped_ = std::move(then);
    stop();
}

void Discovery::forget(bool hasServiceLeft) {
    // Version 5.87 crashes at the first device with a list of services, which may come late.
    if (hasServiceLeft && isOn_ && hasServicesInFilter_ && !hasHeardServices_) {
        context_->faults->endsAtServices = true;
        context_->log.message(
            "Bluetooth: the service ended while it looked for services, as version 5.87 does at the first "
            "device. From now on it reports all devices.");
    }
    watchdog_.forget();
    isWanted_ = false;
    isOn_ = false;
    isStale_ = false;
    isFilterSet_ = false;
    hasHeardServices_ = false;
    unknownKeys_ = 0;
    whenStopped_ = nullptr;
    cancelCall();
    if (retry_) retry_->invalidate();
}

void Discovery::deviceWasHeard(const Device& device) {
    hasHeardServices_ =
        hasHeardServices_ || (device.advertisedServices && !device.advertisedServices->empty());
    watchdog_.deviceWasHeard();
}

bool Discovery::restartPastService() {
    return context_->startKernelDiscovery(service_->adapterName());
}

void Discovery::advance() {
    if (answered_) return;
    if (retry_) retry_->invalidate();
    if (isOn_ && (!isWanted_ || isStale_ || !isFilterSet_)) return stopDiscovery();
    if (!isWanted_) return tellStopped();
    if (isOn_) return;
    if (isFilterSet_) {
        startDiscovery();
    } else {
        setFilter();
    }
}

void Discovery::setFilter() {
    Properties filter{{"Transport", "le"}};
    // The youngest last. An empty pattern lets every device through, as otherwise the pattern of another
    // client would count for all.
    const Properties more{{"RSSI", nextThreshold()}, {"DuplicateData", true}, {"Pattern", ""}};
    filter.insert(filter.end(), more.begin(), more.end() - unknownKeys_);
    hasServicesInFilter_ = !services_.empty() && !context_->faults->endsAtServices;
    if (hasServicesInFilter_) {
        std::vector<std::string> texts;
        for (const CBUUID& service : services_) texts.push_back(fullText(service));
        filter.emplace_back("UUIDs", std::move(texts));
    }
    // Before the call is made, so that a filter that is asked for meanwhile is set after it.
    isFilterSet_ = true;
    call(
        "SetDiscoveryFilter", [&](Message& message) { message.properties(filter); }, startDeadline,
        &Discovery::filterWasSet);
}

void Discovery::filterWasSet(const BusError* error) {
    if (!error) return advance();
    isFilterSet_ = false;
    if (error->name != "org.bluez.Error.InvalidArguments" || unknownKeys_ == keysNotNeeded) {
        return tryAgainLater(*error);
    }
    ++unknownKeys_;
    advance();
}

void Discovery::startDiscovery() {
    call("StartDiscovery", nullptr, startDeadline, &Discovery::started);
}

void Discovery::started(const BusError* error) {
    // Without an answer, discovery may be on.
    if (error && error->name.empty()) isStale_ = isOn_ = true;
    if (error) return tryAgainLater(*error);
    isOn_ = true;
    lastTrouble_.clear();
    advance();
}

void Discovery::stopDiscovery() {
    call("StopDiscovery", nullptr, stopDeadline, &Discovery::stopped);
}

void Discovery::stopped(const BusError* error) {
    if (error && error->message != "No discovery started") {
        // What waits for the stop must not wait for the next try.
        tellStopped();
        return tryAgainLater(*error);
    }
    isOn_ = false;
    isStale_ = false;
    isFilterSet_ = false;
    advance();
}

void Discovery::tellStopped() {
    if (const auto then = std::exchange(whenStopped_, nullptr)) then();
}

void Discovery::tellTrouble(const BusError& error) {
    std::string trouble = error.name + ' ' + error.message;
    const bool isSame = trouble == lastTrouble_;
    lastTrouble_ = std::move(trouble);
    retryDelay_ = isSame ? std::min(2 * retryDelay_, longestRetryDelay) : shortestRetryDelay;
    if (isSame) return;
    context_->log.message("Bluetooth: scanning does not start or stop: %@", lastTrouble_);
}

void Discovery::tryAgainLater(const BusError& error) {
    tellTrouble(error);
    // Discovery of this connection is on already, perhaps with another filter.
    if (error.name == "org.bluez.Error.InProgress" && isFilterSet_) isStale_ = isOn_ = true;
    if (!isWanted_ && !isOn_) return tellStopped();
    retry_ = context_->after(retryDelay_, shared_from_this(), &Discovery::advance);
}

void Discovery::call(const char* member, const std::function<void(Message&)>& append, double seconds,
                     Answered answered) {
    answered_ = answered;
    member_ = member;
    deadline_ = context_->after(seconds, shared_from_this(), &Discovery::answerIsLate);
    call_ = service_->callAdapter(
        member, append, [weakSelf = weak_from_this()](MessageReader& /*reply*/, const BusError* error) {
            if (const auto self = weakSelf.lock()) self->finishCall(error);
        });
}

void Discovery::answerIsLate() {
    tellTrouble(lateness());
    tellStopped();
    // Any answer will do.
    isProbing_ = true;
    probe_ =
        service_->callAdapter("GetDiscoveryFilters", nullptr, [weakSelf = weak_from_this()](auto&, auto*) {
            const auto self = weakSelf.lock();
            if (!self) return;
            self->isProbing_ = false;
            self->deadline_ = self->context_->after(startDeadline, self, &Discovery::callIsLost);
        });
}

void Discovery::callIsLost() {
    const BusError error = lateness();
    finishCall(&error);
}

void Discovery::finishCall(const BusError* error) {
    const Answered answered = answered_;
    cancelCall();
    (this->*answered)(error);
}

void Discovery::cancelCall() {
    answered_ = nullptr;
    call_.reset();
    probe_.reset();
    isProbing_ = false;
    if (deadline_) deadline_->invalidate();
}

}  // namespace zobi::platform::bluez
