// The run loop's queue, timers and ways of waiting.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>

#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardRunLoop.h"

namespace zobi::platform {
namespace {

using std::chrono::duration;
using ::testing::ElementsAre;

class RunLoopTest : public ::testing::Test {
protected:
    /// A timer that notes its name and the time whenever it fires.
    std::shared_ptr<NSTimer> addTimer(double seconds, bool repeats, const std::string& name = "") {
        return loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
            seconds, [this, name](const auto&) { note(name); }, nullptr, repeats);
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

TEST_F(RunLoopTest, RepeatingTimersFireInTheirPhaseUpToTheVeryEnd) {
    addTimer(0.3, true);
    loop.runFor(0.9);
    EXPECT_THAT(times, ElementsAre(0.3, 0.6, 0.9));
    EXPECT_EQ(now(), 0.9);
}

TEST_F(RunLoopTest, TimersDueTogetherFireInTheOrderTheyWereScheduledAlsoWhenRepeated) {
    addTimer(5, true, "check");
    addTimer(10, false, "once");
    addTimer(1, true, "report");
    loop.runFor(10);
    ASSERT_EQ(names.size(), 13U);
    EXPECT_THAT(std::vector(names.end() - 3, names.end()), ElementsAre("check", "once", "report"));
}

TEST_F(RunLoopTest, MissedTicksAreSkippedAndThePhaseIsKept) {
    addTimer(1, true);
    time.jumpTo(std::chrono::milliseconds(3500));
    loop.runFor(1);
    EXPECT_THAT(times, ElementsAre(3.5, 4.0));
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

TEST_F(RunLoopTest, WhatATimerHeldMayUseTheLoopWhenItDies) {
    std::shared_ptr<int> last(new int, [this](const int* number) {
        delete number;
        addTimer(1, false, "after");
    });
    std::weak_ptr<NSTimer> weak;
    {
        auto timer = loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
            1, [last](const auto&) {}, last, true);
        weak = timer;
        last.reset();
        timer->invalidate();
    }
    EXPECT_TRUE(weak.expired());
    loop.runFor(1);
    EXPECT_THAT(names, ElementsAre("after"));
}

TEST_F(RunLoopTest, TasksRunInOrderAfterTheWorkThatQueuedThemAndBeforeTheNextTimer) {
    addTimer(1, false, "first");
    loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        1,
        [this](const auto&) {
            loop.dispatchAsync([this] {
                note("task");
                loop.dispatchAsync([this] { note("task of task"); });
            });
            note("second");
        },
        nullptr, false);
    addTimer(1, false, "third");
    loop.runFor(1);
    EXPECT_THAT(names, ElementsAre("first", "second", "task", "third", "task of task"));
}

TEST_F(RunLoopTest, TasksThatQueueThemselvesKeepNeitherTimersFromFiringNorARunFromEnding) {
    std::function<void()> again = [&] { loop.dispatchAsync(again); };
    again();
    addTimer(1, false, "timer");
    time.jumpTo(std::chrono::seconds(2));
    loop.runFor(0);
    EXPECT_THAT(names, ElementsAre("timer"));
}

TEST_F(RunLoopTest, TimeStandsStillWhileTasksAreQueued) {
    int left = 100;
    std::function<void()> again = [&] {
        note("task");
        if (--left > 0) loop.dispatchAsync(again);
    };
    again();
    addTimer(0.0001, false, "timer");
    loop.runFor(1);
    ASSERT_EQ(names.size(), 101U);
    EXPECT_EQ(names.back(), "timer");
    EXPECT_EQ(times[99], 0);
}

TEST_F(RunLoopTest, WhatFallsDueWhileTheLastCallbackWorksStillFires) {
    addTimer(0.05, false, "timer");
    loop.dispatchAsync([this] { time.jumpTo(std::chrono::milliseconds(200)); });
    loop.runFor(0.1);
    EXPECT_THAT(names, ElementsAre("timer"));
}

TEST_F(RunLoopTest, WhatATaskHeldMayUseTheLoopWhenItDies) {
    std::shared_ptr<int> held(new int, [this](const int* number) {
        delete number;
        loop.dispatchAsync([this] { note("after"); });
    });
    loop.dispatchAsync([last = std::move(held)] {});
    loop.runFor(1);
    EXPECT_THAT(names, ElementsAre("after"));
}

TEST_F(RunLoopTest, AStopDoesNotOutliveTheRunThatAnExceptionEnded) {
    loop.dispatchAsync([this] {
        loop.stop();
        throw std::runtime_error("after the stop");
    });
    EXPECT_THROW(loop.run(), std::runtime_error);
    loop.runFor(1);
    EXPECT_EQ(now(), 1);
}

TEST_F(RunLoopTest, AnExceptionLeavesTheRunAndTheLoopGoesOnWhereItWas) {
    const auto timer = loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        1,
        [this](const auto&) {
            note("throws");
            throw std::runtime_error("from an action");
        },
        nullptr, true);
    loop.dispatchAsync([] { throw std::logic_error("from a task"); });
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
    loop.dispatchAsync([this] { loop.stop(); });
    loop.dispatchAsync([this] { note("left over"); });
    loop.runFor(10);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(now(), 0);
    loop.runFor(10);
    EXPECT_THAT(names, ElementsAre("left over", "timer"));

    loop.stop();
    loop.run();
    EXPECT_EQ(now(), 10) << "a stop made beforehand ends the next run at once";
}

TEST_F(RunLoopTest, RefusesToBeRunFromItsOwnCallbacks) {
    loop.dispatchAsync([this] { EXPECT_THROW(loop.runFor(1), std::logic_error); });
    loop.dispatchAsync([this] { EXPECT_THROW(loop.processPending(), std::logic_error); });
    loop.runFor(1);
    EXPECT_EQ(now(), 1);
}

TEST_F(RunLoopTest, AForeignLoopIsToldWhenThereIsWork) {
    EXPECT_EQ(loop.nextDeadline(), std::nullopt);
    addTimer(2, false, "timer");
    EXPECT_EQ(loop.nextDeadline(), std::chrono::seconds(2));
    loop.dispatchAsync([this] { note("task"); });
    EXPECT_EQ(loop.nextDeadline(), std::chrono::seconds(0));
    loop.processPending();
    EXPECT_THAT(names, ElementsAre("task"));
    time.jumpTo(std::chrono::seconds(2));
    loop.processPending();
    EXPECT_THAT(names, ElementsAre("task", "timer"));
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

TYPED_TEST(WaitingTest, ASignalHandlerMayStopTheLoop) {
    static RunLoop* signalled = nullptr;
    signalled = &this->loop;
    const auto previous = std::signal(SIGUSR1, [](int) { signalled->stop(); });
    this->loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        0.001, [](const auto&) { std::raise(SIGUSR1); }, nullptr, false);
    this->loop.run();
    std::signal(SIGUSR1, previous);
}

TYPED_TEST(WaitingTest, AWakeEndsOneWaitAndNoMore) {
    TypeParam way;
    way.wake();
    way.wait(std::nullopt);
    const auto start = this->time.monotonicTime();
    way.wait(std::chrono::milliseconds(20));
    EXPECT_GE(this->time.monotonicTime() - start, std::chrono::milliseconds(20));
}

TYPED_TEST(WaitingTest, TimersWaitForTheirTime) {
    const auto start = this->time.monotonicTime();
    std::chrono::nanoseconds fired{};
    this->loop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        0.02,
        [&](const auto&) {
            fired = this->time.monotonicTime();
            this->loop.stop();
        },
        nullptr, false);
    this->loop.run();
    EXPECT_GE(fired - start, std::chrono::milliseconds(20));
}

TEST(PollWaitingTest, ATaskFromAnotherThreadMakesADescriptorReadableUntilItIsProcessed) {
    const SystemTime time;
    StandardRunLoop loop(time, std::make_unique<PollWaiting>());
    const auto descriptors = loop.descriptors();
    ASSERT_EQ(descriptors.size(), 1U);
    pollfd watched{descriptors[0].fd, descriptors[0].events, 0};
    EXPECT_EQ(::poll(&watched, 1, 0), 0);
    std::thread([&] { loop.dispatchAsync([] {}); }).join();
    EXPECT_EQ(::poll(&watched, 1, 0), 1);
    loop.processPending();
    EXPECT_EQ(::poll(&watched, 1, 0), 0);
}

TEST(PollWaitingTest, TellsItsSourcesAndGivesThemTheRestTheyAskFor) {
    struct Source : PollSource {
        RunLoopDescriptor descriptor() const override { return {pipe.descriptors()[0].fd, POLLIN}; }
        std::chrono::nanoseconds batchingDelay() const override { return resting; }
        void handleReady() override { ++timesReady; }

        // Its descriptor is readable from `wake` on.
        PollWaiting pipe;
        std::chrono::nanoseconds resting{};
        int timesReady = 0;
    };
    const SystemTime time;
    auto source = std::make_shared<Source>();
    PollWaiting waiting;
    waiting.add(source);
    ASSERT_EQ(waiting.descriptors().size(), 2U);
    EXPECT_EQ(waiting.descriptors()[1].fd, source->descriptor().fd);
    waiting.wait(std::chrono::milliseconds(1));
    EXPECT_EQ(source->timesReady, 0);
    source->pipe.wake();
    waiting.wait(std::nullopt);
    EXPECT_EQ(source->timesReady, 1);

    source->resting = std::chrono::milliseconds(10);
    const auto start = time.monotonicTime();
    waiting.wait(std::nullopt);
    EXPECT_GE(time.monotonicTime() - start, source->resting) << "the wait ends with the rest";
    EXPECT_EQ(source->timesReady, 1);
    waiting.wait(std::chrono::nanoseconds::zero());
    EXPECT_EQ(source->timesReady, 2) << "a look passes nothing over";

    source.reset();
    EXPECT_EQ(waiting.descriptors().size(), 1U);
}

}  // namespace
}  // namespace zobi::platform
