#include "platform/bluez/central/ConnectionAttempts.h"

#include <algorithm>
#include <utility>

#include "platform/bluez/central/BlueZPeripheral.h"

namespace zobi::platform::bluez {

using std::chrono::nanoseconds;

namespace {

// From the pause of discovery to its end. A device that is there is connected in a few of its advertising
// intervals; without any advertisement for much longer, live beacons would be taken for silent.
constexpr double turnSeconds = 4;

// While another program discovers, the scan goes on, and a controller that reports a device once per scan
// comes to connect only when that begins anew, each ten seconds.
constexpr nanoseconds longTurn = std::chrono::seconds(12);

// A device that was heard so long ago is still there. Longer than the quiet time after a turn, in which a
// controller that reports a device once per scan reports it.
constexpr nanoseconds justNow = std::chrono::seconds(5);

}  // namespace

void ConnectionAttempts::add(const std::shared_ptr<BlueZPeripheral>& peripheral) {
    waiting_.push_back(peripheral);
    onChange_();
    beginNext();
}

void ConnectionAttempts::heard(BlueZPeripheral& peripheral) {
    peripheral.noteHeard(now());
    if (!waiting_.empty()) beginNext();
}

bool ConnectionAttempts::wasJustHeard(const BlueZPeripheral& peripheral) const {
    return peripheral.lastHeard() && *peripheral.lastHeard() > turnBegan_ &&
           now() - *peripheral.lastHeard() <= justNow;
}

void ConnectionAttempts::beginNext() {
    if (current_ || now() < quietUntil_) return;
    const auto next =
        std::ranges::find_if(waiting_, [this](const auto& peripheral) { return wasJustHeard(*peripheral); });
    if (next == waiting_.end()) return;
    current_ = *next;
    waiting_.erase(next);
    turnBegan_ = now();
    timeTurn();
    pauseDiscovery_([weakSelf = weak_from_this(), turn = turnBegan_] {
        const auto self = weakSelf.lock();
        if (self && self->current_ && self->turnBegan_ == turn) self->current_->takeTurn();
    });
}

void ConnectionAttempts::timeTurn() {
    deadline_ = context_->after(turnSeconds, shared_from_this(), &ConnectionAttempts::endTurnInTime);
}

void ConnectionAttempts::endTurnInTime() {
    if (isDiscovering_() && now() - turnBegan_ < longTurn) return timeTurn();
    const auto peripheral = current_;
    endTurn();
    peripheral->attemptWasGivenUp();
}

void ConnectionAttempts::remove(const BlueZPeripheral& peripheral) {
    const auto erased =
        std::erase_if(waiting_, [&](const auto& waiting) { return waiting.get() == &peripheral; });
    if (current_.get() == &peripheral) return endTurn();
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
