// How much a controller that filters duplicates strictly brings with an advertisement monitor.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "RadioRecorder.h"
#include "StackBench.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"

namespace {

using namespace zobi::platform;

/// Five beacons on the air, each of which advertises each 250 ms.
class FiveBeacons : public ::testing::Test {
protected:
    FiveBeacons() {
        ask("stack", "fresh FiveBeacons");
        // A plain user has monitors at the service, root in the kernel.
        ask("stack", ::geteuid() == 0 ? "service restart" : "service restart experimental");
        for (std::size_t i = 0; i < 5; ++i) {
            ask("air", "beacon " + address(i) + " 250 morvane " + digitsOf(zobi::encodePayload({})));
        }
        while (central->state() != CBManagerState::poweredOn) platform.runLoop().runFor(0.1);
    }

    static std::string address(std::size_t beacon) { return "00:00:5E:00:53:1" + std::to_string(beacon); }
    /// Advertisements in a second, of a controller that filters so.
    double rate(const std::string& duplicateFilter, double seconds) {
        central->stopScan();
        ask("air", "dedup 0 " + duplicateFilter);
        central->scanForPeripheralsWithServicesOptions(std::array{CBUUID::UUIDWithString("1320")},
                                                       {.allowDuplicates = true});
        count = 0;
        platform.runLoop().runFor(seconds);
        return count / seconds;
    }

    bluez::BlueZPlatform platform{{.adapter = "hci0"}};
    std::shared_ptr<RadioRecorder> listener = RadioRecorder::make();
    std::shared_ptr<CBCentralManager> central = platform.makeCentralManager(listener);
    int count = 0;
};

TEST_F(FiveBeacons, AreHeardByAStrictControllerAsByAnyOther) {
    const double seconds = numberIn("ADVERTISEMENT_SECONDS", 60);
    constexpr double permissiveShare = 0.3;
    struct Press {
        std::vector<std::uint8_t> payload;
        double begin = 0;
        double delay = INFINITY;
    };
    const auto now = [&] { return std::chrono::duration<double>(platform.clock().monotonicTime()).count(); };
    std::vector<Press> presses;
    listener->onSighting = [&](const CBAdvertisementData& data) {
        ++count;
        listener->sightings.clear();
        if (data.serviceData.empty()) return;
        const auto press = std::ranges::find_if(
            presses, [&](auto& it) { return std::ranges::equal(it.payload, data.serviceData[0].data); });
        if (press != presses.end()) press->delay = std::min(press->delay, now() - press->begin);
    };
    const double permissive = rate("none", seconds * permissiveShare);
    constexpr double pressInterval = 1.2;
    // None at the very end, nor while the first scan begins.
    const auto most =
        static_cast<std::size_t>((seconds * (1 - permissiveShare) - 2 * pressInterval) / pressInterval);
    const auto timer = platform.runLoop().every(pressInterval, [&] {
        if (presses.size() >= most) return;
        // No two are alike.
        presses.push_back(
            {zobi::encodePayload(
                 {.major = static_cast<std::uint16_t>(presses.size()), .minor = 1, .buttonAction = 1}),
             now()});
        ask("air", "press " + address(presses.size() % 5) + " 1000 " + digitsOf(presses.back().payload));
    });
    const double strict = rate("addr", seconds * (1 - permissiveShare));
    timer->invalidate();

    ASSERT_EQ(presses.size(), most);
    std::ranges::sort(presses, {}, &Press::delay);
    const auto late = std::ranges::count_if(presses, [](const Press& press) { return press.delay > 1; });
    std::printf(
        "Advertisements a second: permissive %.2f, strict %.2f. Of %zu presses %td were told after more "
        "than 1 s; median %.2f s, the longest %.2f s.\n",
        permissive, strict, presses.size(), late, presses[presses.size() / 2].delay, presses.back().delay);
    EXPECT_GT(permissive, 10);
    EXPECT_GE(strict, 0.95 * permissive);
    EXPECT_TRUE(std::isfinite(presses.back().delay)) << "each was told";
    EXPECT_LE(late, std::max<std::ptrdiff_t>(1, std::ssize(presses) / 100));
}

}  // namespace
