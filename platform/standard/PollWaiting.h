#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "platform/Export.h"
#include "platform/standard/PollSource.h"
#include "platform/standard/Waiting.h"

namespace platform {

/// Waits in `poll`, on a descriptor of its own that `wake` makes readable and on those of its sources: for
/// POSIX systems, for radios that are driven from the loop, and for driving the loop from a foreign one.
class ZOK_EXPORT PollWaiting final : public Waiting {
public:
    /// @throws std::system_error when the process has no descriptor left.
    PollWaiting();
    ~PollWaiting() override;
    PollWaiting(const PollWaiting&) = delete;
    PollWaiting& operator=(const PollWaiting&) = delete;

    /// Waits for `source` too, as long as it lives. Sources that are ready at once are told in the order in
    /// which they were added. Main thread only, not from inside a wait.
    void add(std::weak_ptr<PollSource> source);

    void wait(std::optional<std::chrono::nanoseconds> timeout) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::vector<RunLoopDescriptor> descriptors() const override;

private:
    void emptyPipe() const;

    std::vector<std::weak_ptr<PollSource>> sources_;
    // What a wait polls: the pipe, then each source. Kept, so that a wait allocates nothing.
    std::vector<pollfd> polled_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

}  // namespace platform
