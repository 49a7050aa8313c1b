// The run loop's queue, timers and ways of waiting.

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>

#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardRunLoop.h"

namespace zobi::platform {
namespace {

using std::chrono::duration;
using std::chrono::nanoseconds;
using ::testing::ElementsAre;

class RunLoopTest : public ::testing::Test {
protected:
    /// A timer that notes its name and the time whenever it fires.
    std::shared_ptr<NSTimer> addTimer(double seconds, bool repeats, const std::string& name = "") {
        const auto fire = [this, name] { note(name); };
        return repeats ? loop.every(seconds, fire) : loop.after(seconds, fire);
    }

    void note(const std::string& name) {
        names.push_back(name);
        times.push_back(now());
    }

    double now() const { return duration<double>(time.monotonicTime()).count(); }

    VirtualTime time;
    StandardRunLoop loop{time, std::make_unique<ConditionVariableWaiting>()};
    std::vector<std::string> names;
    std::vector<double> times;
};

TEST_F(RunLoopTest, RepeatingTimersKeepTheirPhaseUpToTheVeryEndAndOverTicksThatAreMissed) {
    addTimer(0.3, true);
    loop.runFor(0.9);
    EXPECT_THAT(times, ElementsAre(0.3, 0.6, 0.9));
    EXPECT_EQ(now(), 0.9);
    time.jumpTo(std::chrono::milliseconds(1900));
    loop.runFor(0.3);
    EXPECT_THAT(times, ElementsAre(0.3, 0.6, 0.9, 1.9, 2.1));
    time.jumpTo(std::chrono::milliseconds(100));
    EXPECT_EQ(now(), 2.2) << "time does not go back";
    time.setTimeIntervalSince1970(5);
    EXPECT_DOUBLE_EQ(time.timeIntervalSince1970(), 5);
}

TEST_F(RunLoopTest, TimersDueTogetherFireInTheOrderTheyWereScheduledAlsoWhenRepeated) {
    addTimer(5, true, "check");
    addTimer(10, false, "once");
    addTimer(1, true, "report");
    loop.runFor(10);
    ASSERT_EQ(names.size(), 13U);
    EXPECT_THAT(std::vector(names.end() - 3, names.end()), ElementsAre("check", "once", "report"));
}

TEST_F(RunLoopTest, AnIntervalThatIsNoneIsATenthOfAMillisecond) {
    for (const double seconds : {0.0, -1.0, std::nan("")}) {
        const auto timer = addTimer(seconds, true);
        EXPECT_EQ(timer->timeInterval(), 0.0001);
        times.clear();
        loop.runFor(0.001);
        EXPECT_EQ(times.size(), 10U) << seconds;
        timer->invalidate();
    }
    addTimer(std::numeric_limits<double>::infinity(), true);
    times.clear();
    loop.runFor(1e9);
    EXPECT_TRUE(times.empty());
}

TEST_F(RunLoopTest, ATimerMayInvalidateItselfOrAnotherFromItsAction) {
    const auto held = std::make_shared<int>(0);
    std::shared_ptr<NSTimer> other = addTimer(1, true, "other");
    int firings = 0;
    const auto timer = loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        0.5,
        [&, held](const std::shared_ptr<NSTimer>& fired) {
            ++firings;
            EXPECT_EQ(fired->userInfo(), held);
            other->invalidate();
            fired->invalidate();
            // The action, and what it captured, must still stand.
            EXPECT_EQ(*held, 0);
        },
        held, true);
    loop.runFor(5);
    EXPECT_EQ(firings, 1);
    EXPECT_TRUE(names.empty());
    EXPECT_FALSE(timer->isValid());
    EXPECT_EQ(timer->userInfo(), nullptr);
    EXPECT_EQ(held.use_count(), 1) << "an invalid timer still holds its action or user info";
    EXPECT_EQ(loop.timerCount(), 0U);
}

TEST_F(RunLoopTest, WhatATimerOrATaskHeldMayUseTheLoopWhenItDies) {
    const auto held = [this](const std::string& name) {
        return std::shared_ptr<int>(new int(0), [this, name](const int* number) {
            delete number;
            addTimer(1, false, name);
            loop.dispatchAsync([this, name] { note(name); });
        });
    };
    loop.dispatchAsync([last = held("task")] {});
    std::weak_ptr<NSTimer> weak;
    {
        const auto timer = loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
            1, [last = held("action")](const auto&) {}, held("user info"), true);
        weak = timer;
        timer->invalidate();
    }
    EXPECT_TRUE(weak.expired());
    loop.runFor(1);
    EXPECT_THAT(
        names, ::testing::UnorderedElementsAre("task", "task", "action", "action", "user info", "user info"));
}

TEST_F(RunLoopTest, TasksRunInOrderAfterTheWorkThatQueuedThemAndBeforeTheNextTimer) {
    addTimer(1, false, "first");
    loop.after(1, [this] {
        loop.dispatchAsync([this] {
            note("task");
            loop.dispatchAsync([this] { note("task of task"); });
        });
        note("second");
    });
    addTimer(1, false, "third");
    loop.runFor(1);
    EXPECT_THAT(names, ElementsAre("first", "second", "task", "third", "task of task"));
}

TEST_F(RunLoopTest, TasksThatQueueThemselvesHoldUpTheTimeButNeitherATimerThatIsDueNorTheEndOfARun) {
    int left = 100;
    std::function<void()> again = [&] {
        note("task");
        if (--left > 0) loop.dispatchAsync(again);
    };
    again();
    addTimer(1, false, "due");
    // The end of the run is over, too.
    loop.dispatchAsync([this] { time.jumpTo(std::chrono::seconds(2)); });
    loop.runFor(1.5);
    EXPECT_THAT(names, ::testing::Contains("due"));
    EXPECT_GT(left, 90);
    addTimer(0.0001, false, "later");
    loop.runFor(1);
    ASSERT_EQ(names.size(), 102U);
    EXPECT_EQ(names.back(), "later");
    EXPECT_EQ(times[100], 2);
}

TEST_F(RunLoopTest, AnExceptionLeavesTheRunWithItsStopAndTheLoopGoesOnWhereItWas) {
    const auto timer = loop.every(1, [this] {
        note("throws");
        throw std::runtime_error("from an action");
    });
    loop.dispatchAsync([this] {
        loop.stop();
        throw std::logic_error("from a task, with the stop");
    });
    loop.dispatchAsync([this] { note("task"); });
    EXPECT_THROW(loop.runFor(10), std::logic_error);
    EXPECT_THROW(loop.runFor(10), std::runtime_error);
    EXPECT_THROW(loop.runFor(10), std::runtime_error);
    EXPECT_THAT(names, ElementsAre("task", "throws", "throws"));
    EXPECT_THAT(times, ElementsAre(0, 1, 2));
    timer->invalidate();
    loop.runFor(1);
    EXPECT_EQ(now(), 3);
}

TEST_F(RunLoopTest, StopEndsTheRunAfterTheCurrentCallbackAndLosesNothing) {
    addTimer(1, false, "timer");
    // What a foreign loop goes by.
    EXPECT_EQ(loop.nextDeadline(), std::chrono::seconds(1));
    loop.dispatchAsync([this] { loop.stop(); });
    loop.dispatchAsync([this] { note("left over"); });
    loop.runFor(10);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(now(), 0);
    EXPECT_EQ(loop.nextDeadline(), std::chrono::seconds(0));
    loop.runFor(10);
    EXPECT_THAT(names, ElementsAre("left over", "timer"));
    EXPECT_EQ(loop.nextDeadline(), std::nullopt);

    loop.stop();
    loop.run();
    EXPECT_EQ(now(), 10) << "a stop made beforehand ends the next run at once";
}

TEST_F(RunLoopTest, RefusesToBeRunFromItsOwnCallbacks) {
    loop.dispatchAsync([this] {
        EXPECT_THROW(loop.processPending(), std::logic_error);
        loop.stop();
        EXPECT_THROW(loop.runFor(1), std::logic_error);
    });
    loop.runFor(1);
    EXPECT_EQ(now(), 0) << "the stop was for the run outside";
}

TEST(RunLoopClearTest, LetsGoOfEverythingEvenOfWhatIsAddedOnTheWay) {
    const auto held = std::make_shared<int>(0);
    VirtualTime time;
    std::shared_ptr<NSTimer> timer;
    {
        StandardRunLoop loop(time, std::make_unique<ConditionVariableWaiting>());
        timer = loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
            1, [held](const auto&) {}, held, true);
        std::shared_ptr<int> late(new int, [&loop, held](const int* number) {
            delete number;
            loop.dispatchAsync([held] {});
        });
        loop.dispatchAsync([late] {});
        late.reset();
    }
    EXPECT_FALSE(timer->isValid());
    EXPECT_EQ(held.use_count(), 1);
    timer->invalidate();
}

/// Both ways of waiting, in real time.
template <typename Way>
class WaitingTest : public ::testing::Test {
protected:
    SystemTime time;
    StandardRunLoop loop{time, std::make_unique<Way>()};
};

using WaysOfWaiting = ::testing::Types<ConditionVariableWaiting, PollWaiting>;
TYPED_TEST_SUITE(WaitingTest, WaysOfWaiting);

TYPED_TEST(WaitingTest, ATaskFromAnotherThreadWakesTheLoop) {
    std::atomic<int> tasks = 0;
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) this->loop.dispatchAsync([&] { ++tasks; });
        this->loop.dispatchAsync([&] { this->loop.stop(); });
    });
    this->loop.run();
    other.join();
    EXPECT_EQ(tasks, 100);
}

TYPED_TEST(WaitingTest, AWakeEndsOneWaitAndNoMore) {
    TypeParam way;
    const auto durationOfWait = [&](std::optional<nanoseconds> timeout) {
        const nanoseconds start = this->time.monotonicTime();
        way.wait(timeout, {});
        return this->time.monotonicTime() - start;
    };
    // Only a wait that misses its wake is always long, however slow the machine is.
    nanoseconds shortest = nanoseconds::max();
    for (int i = 0; i < 20; ++i) {
        way.wake();
        shortest = std::min(shortest, durationOfWait(std::nullopt));
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(20));
    EXPECT_GE(durationOfWait(std::chrono::milliseconds(20)), std::chrono::milliseconds(20));
}

/// Two sources of a loop in virtual time, which note when they are called.
class SourceTest : public ::testing::Test {
protected:
    struct Watched {
        void fill() { pipe.wake(); }
        void empty() { pipe.wait(nanoseconds::zero(), {}); }

        // Its descriptor is readable from `wake` on until a wait.
        PollWaiting pipe;
        std::function<void()> act = [this] { empty(); };
        std::shared_ptr<RunLoopSource> source;
    };

    /// Adds a source that is ready at once.
    void watch(Watched& watched, const std::string& name) {
        watched.fill();
        watched.source = loop.addSource(*watched.pipe.wakeDescriptor(), [&, name] {
            calls.push_back(name);
            watched.act();
        });
    }
    std::size_t descriptorCount() const { return loop.descriptors().size(); }

    VirtualTime time;
    StandardRunLoop loop{time, std::make_unique<PollWaiting>()};
    std::vector<std::string> calls;
    Watched first;
    Watched second;
};

TEST_F(SourceTest, IsCalledInTurnsOfItsOwnForAsLongAsItIsReadyAndWatchedAlsoAfterAnException) {
    watch(first, "first");
    watch(second, "second");
    int left = 3;
    first.act = [&] {
        if (--left == 0) first.empty();
        throw std::runtime_error("from a source");
    };
    loop.after(1, [&] { calls.emplace_back("timer"); });
    for (int i = 0; i < 3; ++i) EXPECT_THROW(loop.runFor(2), std::runtime_error);
    loop.runFor(2);
    EXPECT_THAT(calls, ElementsAre("first", "second", "first", "first", "timer"));

    second.source->setEvents(0);
    second.fill();
    loop.processPending();
    second.source->setEvents(POLLIN);
    loop.processPending();
    EXPECT_EQ(calls.size(), 6U);

    calls.clear();
    first.act = [&] { second.source->setEvents(0); };
    first.fill();
    second.fill();
    loop.runFor(0);
    EXPECT_THAT(calls, ElementsAre("first")) << "which told the other to rest, in a run of no time";
}

TEST_F(SourceTest, HasOneTurnAtATimeWhichIsDroppedWithAllOthers) {
    for (Watched* const watched : {&first, &second}) {
        watch(*watched, "source");
        watched->act = [&, watched] {
            watched->empty();
            loop.stop();
        };
    }
    loop.run();
    loop.processPending();
    EXPECT_EQ(calls.size(), 2U);
    loop.runFor(0);  // Takes the stop that is left over.

    first.fill();
    second.fill();
    loop.run();
    loop.clear();
    loop.run();
    EXPECT_EQ(calls.size(), 4U);
}

TEST_F(SourceTest, MayReleaseItselfAndOthersThatAreReady) {
    const int closed = ::dup(first.pipe.wakeDescriptor()->fd);
    std::shared_ptr<RunLoopSource> ofClosed =
        loop.addSource({closed, POLLIN}, [&, held = std::make_shared<int>(1)] {
            ofClosed.reset();
            second.source.reset();
            // What the callback captured must still stand.
            calls.push_back("closed " + std::to_string(held.use_count()));
        });
    ::close(closed);
    watch(second, "second");
    EXPECT_EQ(descriptorCount(), 3U);
    loop.runFor(1);
    EXPECT_THAT(calls, ElementsAre("closed 1"));
    EXPECT_EQ(descriptorCount(), 1U);
}

TEST_F(SourceTest, LeavesItsDescriptorUnreadWhileItRests) {
    constexpr auto rest = std::chrono::milliseconds(10);
    watch(first, "first");
    first.source->restUntil(rest);
    // A foreign loop
    EXPECT_EQ(loop.nextDeadline(), rest);
    EXPECT_EQ(descriptorCount(), 1U);
    loop.processPending();
    EXPECT_TRUE(calls.empty());
    time.jumpTo(rest);
    EXPECT_EQ(descriptorCount(), 1U) << "until it comes at the deadline";
    loop.processPending();
    EXPECT_EQ(calls.size(), 1U);
    EXPECT_EQ(loop.nextDeadline(), std::nullopt);
    EXPECT_EQ(descriptorCount(), 2U);
    // Its own
    first.fill();
    first.source->restUntil(3 * rest);
    first.act = [&] {
        EXPECT_EQ(time.monotonicTime(), 3 * rest);
        loop.stop();
    };
    loop.run();
    first.act = [&] { loop.stop(); };
    first.source->restUntil(std::chrono::hours(1));
    first.source->restUntil(std::nullopt);
    loop.run();
    EXPECT_EQ(time.monotonicTime(), 3 * rest);
}

TEST_F(SourceTest, AForeignLoopIsWokenByATaskAndWhenWhatIsWatchedChanges) {
    const auto isWoken = [&] {
        pollfd woken{loop.descriptors().front().fd, POLLIN, 0};
        ::poll(&woken, 1, 0);
        loop.processPending();
        return woken.revents != 0;
    };
    watch(first, "first");
    EXPECT_TRUE(isWoken());
    EXPECT_FALSE(isWoken());
    first.source->restUntil(std::chrono::hours(1));
    EXPECT_TRUE(isWoken());
    first.source->restUntil(std::nullopt);
    EXPECT_TRUE(isWoken());
    first.source->setEvents(POLLIN);
    EXPECT_FALSE(isWoken()) << "nothing has changed";
    first.source->setEvents(0);
    EXPECT_TRUE(isWoken());
    std::thread([&] { loop.dispatchAsync([] {}); }).join();
    EXPECT_TRUE(isWoken());
}

TEST_F(SourceTest, MayOutliveItsLoopAndIsRefusedByOneWithoutDescriptors) {
    std::shared_ptr<RunLoopSource> source;
    {
        StandardRunLoop shortLived(time, std::make_unique<PollWaiting>());
        source = shortLived.addSource({0, POLLIN}, [] {});
    }
    source->setEvents(POLLOUT);
    StandardRunLoop other(time, std::make_unique<ConditionVariableWaiting>());
    EXPECT_THROW((void)other.addSource({0, POLLIN}, [] {}), std::logic_error);
}

}  // namespace
}  // namespace zobi::platform
