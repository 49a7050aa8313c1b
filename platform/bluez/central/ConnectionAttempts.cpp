#include "platform/bluez/central/ConnectionAttempts.h"

#include <algorithm>
#include <utility>

namespace zobi::platform::bluez {

using std::chrono::nanoseconds;

namespace {

// Both together are the pause of discovery. A device in range is connected within a few of its advertising
// intervals. Applications may take a device that is not heard for much longer than this for one that is gone.
constexpr nanoseconds turnTime = std::chrono::milliseconds(3500);
constexpr double givingUpSeconds = 0.5;

// If another client keeps discovery running we cannot pause it. A controller with duplicate filtering then
// sees our device only when BlueZ restarts its scan, every 10 s.
constexpr nanoseconds longTurn = std::chrono::milliseconds(11500);

// A device that was heard so long ago is still there. Longer than the quiet time after a turn, in which a
// controller with duplicate filtering reports it once.
constexpr nanoseconds justNow = std::chrono::seconds(5);

}  // namespace

void ConnectionAttempts::add(const std::shared_ptr<WantedDevice>& device) {
    waiting_.push_back(device);
    onChange_();
    beginNext();
}

void ConnectionAttempts::deviceWasHeard() {
    if (!waiting_.empty()) beginNext();
}

bool ConnectionAttempts::wasJustHeard(const WantedDevice& device) const {
    const auto lastHeard = device.heard().lastHeard();
    return lastHeard && *lastHeard > turnBegan_ && now() - *lastHeard <= justNow;
}

void ConnectionAttempts::beginNext() {
    if (current_ || now() < quietUntil_) return;
    const auto next =
        std::ranges::find_if(waiting_, [this](const auto& device) { return wasJustHeard(*device); });
    if (next == waiting_.end()) return;
    current_ = *next;
    waiting_.erase(next);
    turnBegan_ = now();
    isGivingUp_ = false;
    checkTurnIn(turnTime);
    pauseDiscovery_([weakSelf = weak_from_this(), turn = turnBegan_] {
        const auto self = weakSelf.lock();
        if (self && self->current_ && self->turnBegan_ == turn) self->current_->turnDidBegin();
    });
}

void ConnectionAttempts::checkTurnIn(nanoseconds delay) {
    deadline_ = context_->after(std::chrono::duration<double>(delay).count(), shared_from_this(),
                                &ConnectionAttempts::endTurnInTime);
}

void ConnectionAttempts::endTurnInTime() {
    const nanoseconds left = turnBegan_ + longTurn - now();
    if (isDiscovering_() && left > nanoseconds::zero()) return checkTurnIn(std::min(turnTime, left));
    waitForEnd();
    // It may end the turn at once.
    const auto device = current_;
    device->turnEnds();
}

void ConnectionAttempts::waitForEnd() {
    isGivingUp_ = true;
    deadline_->invalidate();
    deadline_ = context_->after(givingUpSeconds, shared_from_this(), &ConnectionAttempts::endTurn);
}

void ConnectionAttempts::giveUp(const WantedDevice& device) {
    if (current_.get() != &device) return remove(device);
    if (!isGivingUp_) waitForEnd();
}

void ConnectionAttempts::attemptWasGivenUp(const WantedDevice& device) {
    if (isGivingUp_ && current_.get() == &device) endTurn();
}

void ConnectionAttempts::remove(const WantedDevice& device) {
    const auto erased = std::erase_if(waiting_, [&](const auto& it) { return it.get() == &device; });
    if (current_.get() == &device) {
        if (!isGivingUp_) endTurn();
        return;
    }
    if (erased > 0) onChange_();
}

void ConnectionAttempts::endTurn() {
    deadline_->invalidate();
    current_ = nullptr;
    const nanoseconds turn = now() - turnBegan_;
    quietUntil_ = now() + turn;
    quietTimer_ = context_->after(std::chrono::duration<double>(turn).count(), shared_from_this(),
                                  &ConnectionAttempts::beginNext);
    onChange_();
}

void ConnectionAttempts::clear() {
    for (const auto& timer : {deadline_, quietTimer_}) {
        if (timer) timer->invalidate();
    }
    waiting_.clear();
    current_ = nullptr;
    quietUntil_ = {};
}

}  // namespace zobi::platform::bluez
