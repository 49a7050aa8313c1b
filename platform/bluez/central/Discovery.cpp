#include "platform/bluez/central/Discovery.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdint>
#include <random>
#include <utility>

namespace zobi::platform::bluez {

namespace {

// Both wait for the controller. A stop that takes longer keeps an attempt to connect from its time.
constexpr double startDeadline = 5;
constexpr double stopDeadline = 1;
// The service refuses while another attempt or another client keeps the controller busy.
constexpr double retryDelay = 0.5;

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
    advance();
}

void Discovery::restart() {
    isStale_ = isOn_;
    if (isWanted_) advance();
}

void Discovery::stop() {
    isWanted_ = false;
    advance();
}

void Discovery::stopThen(std::function<void()> then) {
    whenStopped_ = std::move(then);
    stop();
}

void Discovery::forget() {
    isWanted_ = false;
    isOn_ = false;
    isStale_ = false;
    isFilterSet_ = false;
    whenStopped_ = nullptr;
    call_.cancel();
    if (retry_) retry_->invalidate();
}

void Discovery::advance() {
    if (call_.isPending()) return;
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
    Properties filter{{"Transport", "le"}, {"DuplicateData", true}, {"RSSI", nextThreshold()}};
    if (!services_.empty()) {
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
    if (error) {
        isFilterSet_ = false;
        return tryAgainLater(*error);
    }
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

void Discovery::tryAgainLater(const BusError& error) {
    if (std::exchange(lastTrouble_, error.message) != error.message) {
        context_->log.message("Bluetooth: scanning does not start or stop: %@ %@", error.name, error.message);
    }
    // Discovery of this connection is on already, perhaps with another filter.
    if (error.name == "org.bluez.Error.InProgress" && isFilterSet_) isStale_ = isOn_ = true;
    if (!isWanted_ && !isOn_) return tellStopped();
    retry_ = context_->after(retryDelay, shared_from_this(), &Discovery::advance);
}

void Discovery::call(const char* member, const std::function<void(Message&)>& append, double seconds,
                     void (Discovery::*answered)(const BusError*)) {
    call_.start(
        shared_from_this(), context_->runLoop, seconds, std::string("the service does not answer ") + member,
        [this, answered](MessageReader& /*reply*/, const BusError* error) { (this->*answered)(error); },
        [&](Bus::Answer answer) { return service_->callAdapter(member, append, std::move(answer)); });
}

}  // namespace zobi::platform::bluez
