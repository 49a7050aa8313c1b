#include "platform/bluez/central/ConnectionAttempts.h"

#include <algorithm>
#include <utility>

namespace zobi::platform::bluez {

using std::chrono::nanoseconds;

namespace {

// From the pause of discovery to its end. A device in range is connected within a few of its advertising
// intervals. Applications may take a device that is not heard for much longer than this for one that is gone.
constexpr double turnSeconds = 4;

// If another client keeps discovery running we cannot pause it. A controller with duplicate filtering then
// sees our device only when BlueZ restarts its scan, every 10 s.
constexpr nanoseconds longTurn = std::chrono::seconds(12);

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
    timeTurn();
    pauseDiscovery_([weakSelf = weak_from_this(), turn = turnBegan_] {
        const auto self = weakSelf.lock();
        if (self && self->current_ && self->turnBegan_ == turn) self->current_->turnDidBegin();
    });
}

void ConnectionAttempts::timeTurn() {
    deadline_ = context_->after(turnSeconds, shared_from_this(), &ConnectionAttempts::endTurnInTime);
}

void ConnectionAttempts::endTurnInTime() {
    if (isDiscovering_() && now() - turnBegan_ < longTurn) return timeTurn();
    const auto device = current_;
    endTurn();
    device->turnDidEnd();
}

void ConnectionAttempts::remove(const WantedDevice& device) {
    const auto erased = std::erase_if(waiting_, [&](const auto& it) { return it.get() == &device; });
    if (current_.get() == &device) return endTurn();
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
