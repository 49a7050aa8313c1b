// Many connections over the BlueZ radio, through every kind of end. Nothing of them is left: no file
// descriptor, no timer, no memory.

#include <malloc.h>

#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <vector>

#include "ScriptedPlatform.h"
#include "radio/LibraryOverRadio.h"

// A sanitizer has a heap of its own, of which `mallinfo2` knows nothing.
// NOLINTNEXTLINE(bugprone-reserved-identifier, readability-identifier-naming)
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

using namespace zobi::platform;

std::ptrdiff_t heapInUse() {
    const bool isSanitized = __sanitizer_get_current_allocated_bytes != nullptr;
    return static_cast<std::ptrdiff_t>(isSanitized ? __sanitizer_get_current_allocated_bytes()
                                                   : mallinfo2().uordblks);
}

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

using BlueZSoak = LibraryOverRadio;

TEST_P(BlueZSoak, ConnectionsLeaveNothingBehind) {
    auto& scripted = dynamic_cast<bluez::ScriptedBench&>(*bench);
    StandardRunLoop& loop = scripted.platform().runLoop();
    const auto powerCycle = [&] {
        bench->setRadioPower(false);
        ASSERT_TRUE(heard("state 4"));
        bench->setRadioPower(true);
    };
    const auto restart = [&](auto end) {
        (scripted.service.*end)();
        loop.runFor(1);
        scripted.service.start();
    };
    const std::vector<std::function<void()>> ends{
        [&] { manager->disconnectBeacon(manager->liveBeacons()[0]); },
        [&] { bench->beaconFallsSilent(); },
        [&] { bench->beaconEndsLink(); },
        [&] { scripted.service.forget(scripted.beacon); },
        [&] { scripted.service.dropBus(); },
        [&] { restart(&bluez::ScriptedService::stop); },
        [&] { restart(&bluez::ScriptedService::crash); },
        powerCycle,
    };
    const auto makeConnections = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            manager->startMonitoring();
            for (const auto& end : ends) {
                const auto beacon = range();
                manager->connectBeacon(beacon);
                ASSERT_TRUE(heard("connected")) << "round " << round << ", end " << &end - ends.data();
                manager->setAccelerometerNotificationsForBeacon(true, beacon);
                manager->RSSIForBeaconWithCompletion(beacon, nullptr);
                ASSERT_TRUE(heard("ZOKBeaconDidRSSIChangeNotification"));
                end();
                ASSERT_TRUE(heard("ZOKBeaconDidDisconnectNotification"));
                // A link that was lost comes back by itself.
                manager->disconnectBeacon(beacon);
                loop.runFor(60);
                takeEvents();
                scripted.platform().lines.clear();
                scripted.service.calls.clear();
            }
            manager->stopMonitoring();
            loop.runFor(10);
        }
    };
    struct Held {
        std::ptrdiff_t descriptors;
        std::size_t timers;
        std::ptrdiff_t heap;
    };
    const auto heldAfter = [&](int rounds) {
        // On a thread that ends: until then, what `malloc` keeps at hand for a thread counts as in use.
        std::async(std::launch::async, makeConnections, rounds).get();
        return Held{openDescriptors(), loop.timerCount(), heapInUse()};
    };
    const Held settled = heldAfter(6);
    const Held last = heldAfter(54);
    EXPECT_EQ(last.descriptors, settled.descriptors);
    EXPECT_EQ(last.timers, settled.timers);
    // Less than the smallest block for each round: what `malloc` gives for the same request differs a little.
    constexpr std::ptrdiff_t slack = 1024;
    EXPECT_LT(last.heap, settled.heap + slack);
}

INSTANTIATE_TEST_SUITE_P(Scripted, BlueZSoak,
                         ::testing::Values(RadioUnderTest{
                             "Scripted", [] { return std::make_unique<bluez::ScriptedBench>(); }}));

}  // namespace
