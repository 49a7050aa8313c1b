#include "platform/bluez/central/DiscoveryWatchdog.h"

#include <algorithm>
#include <utility>

#include "platform/bluez/diagnosis/Conditions.h"

namespace zobi::platform::bluez {

using std::chrono::nanoseconds;
using std::chrono::seconds;

namespace {

// A controller with duplicate filtering reports a device about every 10 s. Both times and the restarts are
// over within 45 s of the last advertisement.
constexpr nanoseconds longSilence = seconds(20);
// What a scan has at least before it is found to be silent.
constexpr nanoseconds shortestDelay = seconds(5);
// An application that ends a scan and begins the next has not paused.
constexpr nanoseconds shortRest = seconds(1);
// BlueZ restarts its scan every 10.3 s, on a busy machine a little later.
constexpr nanoseconds scanTime = seconds(13);
// At most 144 restarts a day in an empty room.
constexpr nanoseconds lookInterval = std::chrono::minutes(10);
// Where a device is heard each minute, the scan may have ended after the first looks.
constexpr nanoseconds soonLook = seconds(65);
// Ending one scan and beginning the next; one of them alone tells nothing.
constexpr unsigned switchesOfARestart = 2;

// BlueZ itself restarts a scan that another program or the kernel ended.
constexpr nanoseconds ownMend = seconds(2);
constexpr nanoseconds nextMend = seconds(8);
// Whatever the service lacks then, it does not get by itself.
constexpr int manyMends = 3;

}  // namespace

void DiscoveryWatchdog::watch() {
    // What was signalled in the pause was not mended then.
    if (!isWatching_ && !discovery_.isToldToScan()) mendIn(nextMend);
    const bool goesOn = timer_ && timer_->isValid() && now() - restedAt_ < shortRest;
    if (std::exchange(isWatching_, true) || goesOn) return;
    // While nobody listens, silence tells nothing. Programs may scan for a short time again and again.
    silentSince_ = std::min(silentSince_ + (now() - restedAt_), now());
    nanoseconds delay = std::max(longSilence - (now() - silentSince_), shortestDelay);
    if (step_ != Step::none) {
        step_ = Step::waiting;
        delay = std::max(delay, restartedAt_ + lookInterval - now());
    }
    lookIn(delay);
}

void DiscoveryWatchdog::rest() {
    if (std::exchange(isWatching_, false)) restedAt_ = now();
}

void DiscoveryWatchdog::forget() {
    isWatching_ = false;
    for (const auto& timer : {timer_, offTimer_}) {
        if (timer) timer->invalidate();
    }
    step_ = Step::none;
    isAdministratorTold_ = isHintTold_ = hasHeard_ = false;
    mends_ = 0;
}

void DiscoveryWatchdog::deviceWasHeard() {
    silentSince_ = now();
    hasHeard_ = true;
    if (std::exchange(step_, Step::none) == Step::none) return;
    if (std::exchange(isAdministratorTold_, false)) {
        context_.setCondition(RadioCondition::ofState(CBManagerState::poweredOn));
    }
    if (isWatching_) lookIn(longSilence);
}

std::shared_ptr<NSTimer> DiscoveryWatchdog::after(nanoseconds delay, void (DiscoveryWatchdog::*action)()) {
    // Both timers are invalidated before this object goes.
    return context_.runLoop.after(std::chrono::duration<double>(delay).count(),
                                  [this, action] { (this->*action)(); });
}

// What silence tells

void DiscoveryWatchdog::lookIn(nanoseconds delay) {
    if (timer_) timer_->invalidate();
    timer_ = after(delay, &DiscoveryWatchdog::look);
}

void DiscoveryWatchdog::look() {
    if (!isWatching_) return;
    const nanoseconds silence = now() - silentSince_;
    if (silence < longSilence) return lookIn(longSilence - silence);
    if (discovery_.isServiceHanging()) {
        // The service may do what it was asked for when it goes on.
        switchesBefore_ = discovery_.scanSwitches();
        return lookIn(scanTime);
    }
    switch (step_) {
        case Step::none:
            return restart();
        case Step::restarted:
            if (hasScannedSinceRestart() != true) return restartPastService();
            break;
        case Step::restartedPastService:
            break;
        case Step::waiting:
            // Where nothing shows whether the controller scans, the stronger means at once.
            return discovery_.scanSwitches() ? restart() : restartPastService();
    }
    // An empty room is no fault; but here was something.
    if (hasHeard_ || hasScannedSinceRestart() == false) tellAdministrator();
    waitLong();
}

void DiscoveryWatchdog::restart() {
    step_ = Step::restarted;
    restartedAt_ = now();
    switchesBefore_ = discovery_.scanSwitches();
    discovery_.restart();
    lookIn(scanTime);
}

void DiscoveryWatchdog::restartPastService() {
    const bool mayHelp = discovery_.restartPastService();
    if (step_ == Step::waiting) {
        if (!mayHelp) discovery_.restart();
        return waitLong();
    }
    if (hasScannedSinceRestart() == false) {
        context_.log.message("Bluetooth: the service says that it scans, and the controller does not.");
    }
    if (!mayHelp) {
        tellAdministrator();
        return waitLong();
    }
    step_ = Step::restartedPastService;
    restartedAt_ = now();
    switchesBefore_ = discovery_.scanSwitches();
    lookIn(scanTime);
}

void DiscoveryWatchdog::waitLong() {
    step_ = Step::waiting;
    const nanoseconds silence = now() - silentSince_;
    lookIn(silence < soonLook ? soonLook - silence : lookInterval);
}

std::optional<bool> DiscoveryWatchdog::hasScannedSinceRestart() const {
    const auto switches = discovery_.scanSwitches();
    if (!switches || !switchesBefore_) return std::nullopt;
    // In a channel that was opened anew the number begins anew.
    return *switches < *switchesBefore_ || *switches - *switchesBefore_ >= switchesOfARestart;
}

void DiscoveryWatchdog::tellAdministrator() {
    const bool isSure = hasScannedSinceRestart() == false;
    if (isSure) context_.setCondition(controllerDoesNotScan());
    if (std::exchange(isSure ? isAdministratorTold_ : isHintTold_, true)) return;
    context_.log.message("Bluetooth: %@ systemctl restart bluetooth",
                         isSure ? "Only an administrator can make it scan again:"
                                : "Nothing is heard, though the scan was started again. If a device is near, "
                                  "restart the service:");
}

// What the service tells

void DiscoveryWatchdog::scanWasTold() {
    if (isWatching_ && !discovery_.isToldToScan()) mendIn(ownMend);
}

void DiscoveryWatchdog::mendIn(nanoseconds delay) {
    if (offTimer_) offTimer_->invalidate();
    offTimer_ = after(delay, &DiscoveryWatchdog::mend);
}

void DiscoveryWatchdog::mend() {
    if (!isWatching_ || discovery_.isToldToScan()) {
        mends_ = 0;
        return;
    }
    if (++mends_ != manyMends || !discovery_.restartPastService()) discovery_.restart();
    mendIn(mends_ < manyMends ? nextMend : lookInterval);
}

}  // namespace zobi::platform::bluez
