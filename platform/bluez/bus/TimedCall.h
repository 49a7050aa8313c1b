#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/bluez/bus/Bus.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

/// A call that ends with its answer or at its deadline, whichever comes first. There is one at a time: the
/// next one, `cancel` and the destructor drop the answer of the one before. Main thread only.
class TimedCall {
public:
    TimedCall() = default;
    ~TimedCall() { cancel(); }
    TimedCall(const TimedCall&) = delete;
    TimedCall& operator=(const TimedCall&) = delete;

    /// @param owner has this object; kept while the answer is passed on.
    /// @param late the text of the error at the deadline, which has no name.
    /// @param answer called once, never from inside this function.
    /// @param send sends the call and passes its answer to the function that it is given.
    void start(const std::shared_ptr<void>& owner, RunLoop& runLoop, double seconds, std::string late,
               Bus::Answer answer, const std::function<Slot(Bus::Answer)>& send);
    void cancel();
    /// Whether the answer is still to come.
    bool isPending() const { return answer_ != nullptr; }

private:
    void finish(MessageReader& reply, const BusError* error);

    std::weak_ptr<void> owner_;
    Bus::Answer answer_;
    Slot slot_;
    std::shared_ptr<NSTimer> deadline_;
};

}  // namespace zobi::platform::bluez
