#include "platform/bluez/bus/TimedCall.h"

#include <utility>

namespace zobi::platform::bluez {

void TimedCall::start(const std::shared_ptr<void>& owner, RunLoop& runLoop, double seconds, std::string late,
                      Bus::Answer answer, const std::function<Slot(Bus::Answer)>& send) {
    cancel();
    owner_ = owner;
    answer_ = std::move(answer);
    // Neither calls this object after it has cancelled them.
    deadline_ = runLoop.after(seconds, [this, late = std::move(late)] {
        const BusError error{"", late};
        MessageReader nothing;
        finish(nothing, &error);
    });
    slot_ = send([this](MessageReader& reply, const BusError* error) { finish(reply, error); });
}

void TimedCall::cancel() {
    answer_ = nullptr;
    slot_.reset();
    if (const auto deadline = std::exchange(deadline_, nullptr)) deadline->invalidate();
}

void TimedCall::finish(MessageReader& reply, const BusError* error) {
    const auto owner = owner_.lock();
    const auto answer = std::exchange(answer_, nullptr);
    cancel();
    if (owner) answer(reply, error);
}

}  // namespace zobi::platform::bluez
