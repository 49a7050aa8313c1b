#include "zobi/platform/standard/StandardRunLoop.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/ThreadCheck.h"

namespace zobi::platform {

namespace {

using std::chrono::nanoseconds;

constexpr double shortestInterval = 0.0001;
// A century: longer intervals would overflow sums of deadlines, and are as good as never.
constexpr double longestInterval = 100.0 * 365 * 24 * 3600;

/// Zero for what is below it or not a number.
nanoseconds durationOf(double seconds) {
    if (!(seconds > 0)) return nanoseconds::zero();
    return std::chrono::round<nanoseconds>(std::chrono::duration<double>(std::min(seconds, longestInterval)));
}

}  // namespace

class StandardRunLoop::Timer final : public NSTimer {
public:
    Timer(std::weak_ptr<Timers> timers, TimerKey key, double interval, Action action,
          std::shared_ptr<void> userInfo, bool repeats)
        : timers_(std::move(timers)),
          key_(key),
          interval_(interval),
          action_(std::move(action)),
          userInfo_(std::move(userInfo)),
          repeats_(repeats) {}
    ~Timer() override;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void invalidate() override {
        if (!isValid_) return;
        isValid_ = false;
        // Held to the end, for the loop's reference may be the last.
        Timers::node_type scheduled;
        if (const auto timers = timers_.lock()) scheduled = timers->extract(key_);
        if (!isFiring_) release();
    }

    bool isValid() const override { return isValid_; }
    double timeInterval() const override { return interval_; }
    std::shared_ptr<void> userInfo() const override { return isValid_ ? userInfo_ : nullptr; }

    bool repeats() const { return repeats_; }
    void setKey(TimerKey key) { key_ = key; }

    /// The first tick after `now` in the timer's phase.
    nanoseconds tickAfter(nanoseconds now) const {
        const nanoseconds interval = durationOf(interval_);
        const nanoseconds deadline = key_.deadline;
        return deadline + ((now - deadline) / interval + 1) * interval;
    }

    void fire(const std::shared_ptr<Timer>& self) {
        isFiring_ = true;
        struct Afterwards {
            Timer& timer;
            ~Afterwards() { timer.endFiring(); }
        } const afterwards{*this};
        action_(self);
    }

private:
    void endFiring() {
        isFiring_ = false;
        if (!repeats_) isValid_ = false;
        if (!isValid_) release();
    }

    /// The destructor of what the timer owned may call anything, so it runs when the timer is finished.
    void release() {
        const std::shared_ptr<void> userInfo = std::move(userInfo_);
        const Action action = std::exchange(action_, nullptr);
    }

    std::weak_ptr<Timers> timers_;
    TimerKey key_;
    double interval_;
    Action action_;
    std::shared_ptr<void> userInfo_;
    bool repeats_;
    bool isValid_ = true;
    bool isFiring_ = false;
};

StandardRunLoop::Timer::~Timer() = default;

/// How the loop waits.
struct StandardRunLoop::Watch {
    explicit Watch(std::unique_ptr<Waiting> way) : waiting(std::move(way)) {}

    std::unique_ptr<Waiting> waiting;
    bool isProcessing = false;
#ifndef NDEBUG
    /// The main thread, once it has run the loop.
    std::atomic<std::thread::id> mainThread{};
#endif

    /// What is watched has changed. A foreign loop asks for it after `processPending` alone, which it calls
    /// when it is woken.
    void tellChange() const {
        if (!isProcessing) waiting->wake();
    }
};

class StandardRunLoop::Source final : public RunLoopSource {
public:
    Source(std::weak_ptr<Watch> watch, RunLoopDescriptor descriptor, std::function<void()> ready)
        : watch_(std::move(watch)), descriptor_(descriptor), ready_(std::move(ready)) {}
    ~Source() override;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    void setEvents(short events) override {
        if (std::exchange(descriptor_.events, events) != events) tellChange();
    }
    void restUntil(std::optional<nanoseconds> moment) override {
        if (std::exchange(restsUntil_, moment) != moment) tellChange();
    }

    RunLoopDescriptor descriptor() const { return descriptor_; }
    std::optional<nanoseconds> restsUntil() const { return restsUntil_; }

    /// Whether a rest has ended by now.
    bool endRest(nanoseconds now) {
        if (!restsUntil_ || *restsUntil_ > now) return false;
        restsUntil_.reset();
        return true;
    }

    bool isPolled() const { return !restsUntil_ && !isQueued_; }
    void setQueued(bool isQueued) { isQueued_ = isQueued; }

    void run() {
        isQueued_ = false;
        // It may have been asked for a rest, or for no events, since it was queued.
        if (!restsUntil_ && descriptor_.events != 0) ready_();
    }

private:
    void tellChange() const {
        if (const auto watch = watch_.lock()) watch->tellChange();
    }

    std::weak_ptr<Watch> watch_;
    RunLoopDescriptor descriptor_;
    std::function<void()> ready_;
    std::optional<nanoseconds> restsUntil_;
    bool isQueued_ = false;
};

StandardRunLoop::Source::~Source() = default;

StandardRunLoop::StandardRunLoop(const SystemTime& time, std::unique_ptr<Waiting> waiting)
    : clock_(time),
      watch_(std::make_shared<Watch>(std::move(waiting))),
      timers_(std::make_shared<Timers>()) {}

StandardRunLoop::StandardRunLoop(VirtualTime& time, std::unique_ptr<Waiting> waiting)
    : clock_(time),
      virtualTime_(&time),
      watch_(std::make_shared<Watch>(std::move(waiting))),
      timers_(std::make_shared<Timers>()) {}

StandardRunLoop::~StandardRunLoop() {
    clear();
}

void StandardRunLoop::dispatchAsync(std::function<void()> task) {
    const bool isFirst = [&] {
        const std::lock_guard lock(queueMutex_);
        queue_.push_back(std::move(task));
        return queue_.size() == 1;
    }();
    if (isFirst) watch_->waiting->wake();
}

void StandardRunLoop::requireMainThread([[maybe_unused]] const char* operation) const {
#ifndef NDEBUG
    const std::thread::id main = watch_->mainThread;
    if (main == std::thread::id() || main == std::this_thread::get_id()) return;
    std::fprintf(stderr, "%s was called on a thread other than the one that runs the loop\n", operation);
    std::abort();
#endif
}

std::shared_ptr<NSTimer> StandardRunLoop::scheduledTimerWithTimeIntervalActionUserInfoRepeats(
    double seconds, NSTimer::Action action, std::shared_ptr<void> userInfo, bool repeats) {
    checkThread(*this);
    // Written so that what is not a number takes the shortest interval too.
    const double interval = seconds > shortestInterval ? seconds : shortestInterval;
    const TimerKey key{clock_.monotonicTime() + durationOf(interval), timersScheduled_++};
    auto timer =
        std::make_shared<Timer>(timers_, key, interval, std::move(action), std::move(userInfo), repeats);
    timers_->emplace(key, timer);
    return timer;
}

std::shared_ptr<RunLoopSource> StandardRunLoop::addSource(RunLoopDescriptor descriptor,
                                                          std::function<void()> ready) {
    checkThread(*this);
    if (!watch_->waiting->wakeDescriptor()) {
        throw std::logic_error("a source was added to a run loop that waits without descriptors");
    }
    std::erase_if(sources_, [](const auto& known) { return known.expired(); });
    auto source = std::make_shared<Source>(watch_, descriptor, std::move(ready));
    sources_.push_back(source);
    watch_->tellChange();
    return source;
}

void StandardRunLoop::run() {
    checkThread(*this);
    runUntil(std::nullopt);
}

void StandardRunLoop::runFor(double seconds) {
    checkThread(*this);
    runUntil(clock_.monotonicTime() + durationOf(seconds));
}

void StandardRunLoop::stop() noexcept {
    isStopping_ = true;
    watch_->waiting->wakeFromSignal();
}

void StandardRunLoop::processPending() {
    checkThread(*this);
    requireOutsideCallbacks();
    wait(nanoseconds::zero());
    process(Stopping::ignored);
}

std::optional<nanoseconds> StandardRunLoop::nextDeadline() const {
    if (hasQueuedTasks()) return clock_.monotonicTime();
    std::optional<nanoseconds> deadline;
    if (!timers_->empty()) deadline = timers_->begin()->first.deadline;
    for (const auto& weakSource : sources_) {
        const auto source = weakSource.lock();
        if (!source || !source->restsUntil()) continue;
        deadline = deadline ? std::min(deadline, source->restsUntil()) : source->restsUntil();
    }
    return deadline;
}

std::vector<RunLoopDescriptor> StandardRunLoop::descriptors() const {
    std::vector<RunLoopDescriptor> all;
    if (const auto wakeDescriptor = watch_->waiting->wakeDescriptor()) all.push_back(*wakeDescriptor);
    for (const auto& weakSource : sources_) {
        const auto source = weakSource.lock();
        if (source && !source->restsUntil()) all.push_back(source->descriptor());
    }
    return all;
}

std::size_t StandardRunLoop::timerCount() const {
    return timers_->size();
}

void StandardRunLoop::clear() {
    while (!timers_->empty()) timers_->begin()->second->invalidate();
    while (hasQueuedTasks()) {
        std::deque<std::function<void()>> dropped;
        const std::lock_guard lock(queueMutex_);
        dropped.swap(queue_);
    }
    for (const auto& weakSource : sources_) {
        if (const auto source = weakSource.lock()) source->setQueued(false);
    }
}

void StandardRunLoop::wait(std::optional<nanoseconds> timeout) {
    const nanoseconds now = clock_.monotonicTime();
    waited_.clear();
    for (const auto& weakSource : sources_) {
        const auto source = weakSource.lock();
        if (source) source->endRest(now);
        waited_.push_back({source && source->isPolled() ? source->descriptor() : RunLoopDescriptor{-1, 0}});
    }
    watch_->waiting->wait(timeout, waited_);
    const nanoseconds awake = clock_.monotonicTime();
    for (std::size_t i = 0; i < waited_.size(); ++i) {
        const auto ready = sources_[i].lock();
        // Something has most likely arrived in a rest that was waited for: asking costs as much as reading.
        if (!ready || (!ready->endRest(awake) && !waited_[i].isReady)) continue;
        ready->setQueued(true);
        // Without a wake: the loop is awake.
        const std::lock_guard lock(queueMutex_);
        queue_.emplace_back([weakSource = sources_[i]] {
            // Held for the length of the call, in which it may be released.
            if (const auto source = weakSource.lock()) source->run();
        });
    }
}

void StandardRunLoop::runUntil(std::optional<nanoseconds> end) {
    const auto nextMoment = [&] {
        const std::optional<nanoseconds> deadline = nextDeadline();
        return deadline && end ? std::min(deadline, end) : deadline ? deadline : end;
    };
    requireOutsideCallbacks();
    wait(nanoseconds::zero());
    while (true) {
        const nanoseconds processed = processUnlessStopped();
        if (isStopping_.exchange(false)) return;
        if (end && processed >= *end) return;
        if (virtualTime_ == nullptr) {
            const auto moment = nextMoment();
            wait(moment ? std::optional(*moment - clock_.monotonicTime()) : std::nullopt);
            continue;
        }
        wait(nanoseconds::zero());
        if (isStopping_) continue;
        if (const auto moment = nextMoment()) {
            virtualTime_->jumpTo(*moment);
        } else {
            wait(std::nullopt);
        }
    }
}

void StandardRunLoop::requireOutsideCallbacks() const {
    if (watch_->isProcessing) {
        throw std::logic_error("the run loop was run from inside one of its callbacks");
    }
}

nanoseconds StandardRunLoop::processUnlessStopped() {
    try {
        return process(Stopping::obeyed);
    } catch (...) {
        // The run ends here, and with it a stop that was meant for it.
        isStopping_ = false;
        throw;
    }
}

nanoseconds StandardRunLoop::process(Stopping stopping) {
    watch_->isProcessing = true;
#ifndef NDEBUG
    watch_->mainThread = std::this_thread::get_id();
#endif
    struct Afterwards {
        bool& isProcessing;
        ~Afterwards() { isProcessing = false; }
    } const afterwards{watch_->isProcessing};
    const nanoseconds now = clock_.monotonicTime();
    do {
        runQueuedTasks(stopping);
    } while (!mustStop(stopping) && fireNextTimerDueBy(now));
    return now;
}

void StandardRunLoop::runQueuedTasks(Stopping stopping) {
    std::unique_lock lock(queueMutex_);
    // What these tasks queue in their turn waits, so that they cannot keep the loop from its timers.
    for (std::size_t count = queue_.size(); count > 0 && !queue_.empty() && !mustStop(stopping); --count) {
        std::function<void()> task = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
    }
}

bool StandardRunLoop::fireNextTimerDueBy(nanoseconds now) {
    if (timers_->empty() || timers_->begin()->first.deadline > now) return false;
    auto node = timers_->extract(timers_->begin());
    const std::shared_ptr<Timer> timer = node.mapped();
    // Armed again before it fires, so that an action that throws or invalidates its timer finds it in order.
    if (timer->repeats()) {
        node.key().deadline = timer->tickAfter(now);
        timer->setKey(node.key());
        timers_->insert(std::move(node));
    }
    timer->fire(timer);
    return true;
}

bool StandardRunLoop::hasQueuedTasks() const {
    const std::lock_guard lock(queueMutex_);
    return !queue_.empty();
}

bool StandardRunLoop::mustStop(Stopping stopping) const {
    return stopping == Stopping::obeyed && isStopping_;
}

}  // namespace zobi::platform
