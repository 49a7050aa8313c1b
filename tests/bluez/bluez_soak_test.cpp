// Many connections over the BlueZ radio, through every kind of end. Nothing of them is left: no file
// descriptor, no timer, no memory.

#include <malloc.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <vector>

#include "ScriptedPlatform.h"
#include "radio/LibraryOverRadio.h"

namespace {

using namespace platform;

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
    constexpr int rounds = 60;
    std::vector<double> heapInUse;
    std::vector<std::ptrdiff_t> descriptors;
    std::vector<std::size_t> timers;
    for (int round = 0; round < rounds; ++round) {
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
        heapInUse.push_back(static_cast<double>(mallinfo2().uordblks));
        descriptors.push_back(openDescriptors());
        timers.push_back(loop.timerCount());
        manager->startMonitoring();
    }
    EXPECT_EQ(descriptors.back(), descriptors.front());
    EXPECT_EQ(timers.back(), timers.front());
    // What both sides of the bus keep for a link: far less than the link itself takes.
    constexpr std::size_t settled = rounds / 10;
    const auto links = static_cast<double>(ends.size() * (rounds - 1 - settled));
    EXPECT_LT((heapInUse.back() - heapInUse[settled]) / links, 256);
}

INSTANTIATE_TEST_SUITE_P(Scripted, BlueZSoak,
                         ::testing::Values(RadioUnderTest{
                             "Scripted", [] { return std::make_unique<bluez::ScriptedBench>(); }}));

}  // namespace
