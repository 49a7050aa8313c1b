#include "platform/bluez/central/Discovery.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <utility>

namespace zobi::platform::bluez {

namespace {

// Both wait for the controller. A stop that takes longer keeps an attempt to connect from its time.
constexpr double startDeadline = 5;
constexpr double stopDeadline = 1;
// The service refuses while another attempt or another client keeps the controller busy.
constexpr double retryDelay = 0.5;

// Thresholds below what any controller reports. That there is one makes every version of the service report
// the signal strength of each advertisement, changed or not. It differs from one filter to the next: a
// service that was stopped while it began its own scan anew takes an equal filter for one that still runs,
// and does not scan.
constexpr int lowestThreshold = -127;
constexpr unsigned thresholds = 16;

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

void Discovery::begin(const std::vector<CBUUID>& services) {
    isStale_ = isOn_;
    goOn(services);
}

void Discovery::goOn(const std::vector<CBUUID>& services) {
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

void Discovery::end() {
    isWanted_ = false;
    advance();
}

void Discovery::endThen(std::function<void()> then) {
    whenEnded_ = std::move(then);
    end();
}

void Discovery::forget() {
    isWanted_ = false;
    isOn_ = false;
    isStale_ = false;
    isFilterSet_ = false;
    whenEnded_ = nullptr;
    call_.cancel();
    if (retry_) retry_->invalidate();
}

void Discovery::advance() {
    if (call_.isPending()) return;
    if (retry_) retry_->invalidate();
    if (isOn_ && (!isWanted_ || isStale_ || !isFilterSet_)) return stopDiscovery();
    if (!isWanted_) return tellEnded();
    if (isOn_) return;
    if (isFilterSet_) {
        startDiscovery();
    } else {
        setFilter();
    }
}

void Discovery::setFilter() {
    threshold_ = (threshold_ + 1) % thresholds;
    const auto anySignal = static_cast<std::int16_t>(lowestThreshold + static_cast<int>(threshold_));
    Properties filter{{"Transport", "le"}, {"DuplicateData", true}, {"RSSI", anySignal}};
    if (!services_.empty()) {
        std::vector<std::string> texts;
        for (const CBUUID& service : services_) texts.push_back(fullText(service));
        filter.emplace_back("UUIDs", std::move(texts));
    }
    // Set before it is on its way, so that another filter that is asked for meanwhile follows.
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
    // What was not answered may be on all the same.
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
        // Whoever awaits the end need not wait for the next try.
        tellEnded();
        return tryAgainLater(*error);
    }
    isOn_ = false;
    isStale_ = false;
    isFilterSet_ = false;
    advance();
}

void Discovery::tellEnded() {
    if (const auto then = std::exchange(whenEnded_, nullptr)) then();
}

void Discovery::tryAgainLater(const BusError& error) {
    if (std::exchange(lastTrouble_, error.message) != error.message) {
        context_->log.log("Bluetooth: scanning does not start or stop: %@ %@", error.name, error.message);
    }
    // What is on already, from this connection, is what is wanted, but for its filter.
    if (error.name == "org.bluez.Error.InProgress" && isFilterSet_) isStale_ = isOn_ = true;
    if (!isWanted_ && !isOn_) return tellEnded();
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
