// How much a controller that filters duplicates strictly brings with an advertisement monitor.

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "LibraryOverRadio.h"
#include "StackBench.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"
#include "zobi/platform/standard/ForwardingPlatform.h"

namespace {

using namespace zobi::platform;

/// The radio of Linux, and how many advertisements it brings.
class CountedPlatform final : public ForwardingPlatform {
public:
    CountedPlatform() : ForwardingPlatform(quietRadio()) {}
    ~CountedPlatform() override { shutDown(); }

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        return insert(std::make_shared<Counter>(count, std::move(delegate)));
    }

    int count = 0;

private:
    static std::unique_ptr<bluez::BlueZPlatform> quietRadio() {
        auto radio = std::make_unique<bluez::BlueZPlatform>(bluez::BlueZOptions{.adapter = "hci0"});
        // The library logs each advertisement.
        radio->log().setSink(nullptr);
        return radio;
    }

    class Counter final : public ForwardingCentral {
    public:
        Counter(int& count, std::weak_ptr<CBCentralManagerDelegate> delegate)
            : ForwardingCentral(std::move(delegate)), count_(count) {}
        void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
            CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral,
            const CBAdvertisementData& data, NSNumber rssi) override {
            ++count_;
            ForwardingCentral::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(central, peripheral,
                                                                                        data, rssi);
        }

    private:
        int& count_;
    };
};

/// Five beacons on the air, each of which advertises each 250 ms.
class FiveBeacons : public ::testing::Test {
protected:
    FiveBeacons() {
        ask("stack", "fresh FiveBeacons");
        // A plain user has monitors at the service, root in the kernel.
        ask("stack", ::geteuid() == 0 ? "service restart" : "service restart experimental");
        for (std::size_t i = 0; i < 5; ++i) {
            ask("air", "beacon " + address(i) + " 250 morvane " + payload(i, 0));
        }
    }

    static std::string address(std::size_t beacon) { return "00:00:5E:00:53:1" + std::to_string(beacon); }
    static std::string payload(std::size_t beacon, int code) {
        std::string digits;
        for (const unsigned byte : zobi::encodePayload({.major = 300,
                                   .minor = static_cast<std::uint16_t>(beacon),
                                   .buttonAction = static_cast<std::int8_t>(code)})) {
            std::array<char, 3> pair{};
            std::snprintf(pair.data(), pair.size(), "%02X", byte);
            digits += pair.data();
        }
        return digits;
    }
    /// Advertisements in a second, of a controller that filters so.
    double rate(const std::string& duplicateFilter, double seconds) {
        manager->stopMonitoring();
        ask("air", "dedup 0 " + duplicateFilter);
        application->monitors = true;
        manager->startMonitoring();
        platform.count = 0;
        platform.runLoop().runFor(seconds);
        return platform.count / seconds;
    }

    CountedPlatform platform;
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
    std::shared_ptr<ManagerRecorder> application = ManagerRecorder::of(manager, &platform);
};

TEST_F(FiveBeacons, AreHeardByAStrictControllerAsByAnyOther) {
    const char* const wish = std::getenv("ADVERTISEMENT_SECONDS");
    const double seconds = wish ? std::stod(wish) : 60;
    constexpr double permissiveShare = 0.3;
    const double permissive = rate("none", seconds * permissiveShare);

    struct Press {
        double begin = 0;
        double delay = INFINITY;
    };
    const auto now = [&] { return std::chrono::duration<double>(platform.clock().monotonicTime()).count(); };
    // The last one of each beacon is at most 5 presses ago.
    std::vector<Press> presses;
    application->onEvent = [&](const std::string& event) {
        if (!event.starts_with("button ")) return;
        const auto minor =
            static_cast<std::size_t>(application->buttons.back().second->minor().integerValue());
        for (std::size_t i = presses.size(); i-- > 0;) {
            if (i % 5 != minor) continue;
            if (std::isinf(presses[i].delay)) presses[i].delay = now() - presses[i].begin;
            break;
        }
    };
    constexpr double pressInterval = 1.2;
    // None at the very end, nor while the first scan begins.
    const auto most =
        static_cast<std::size_t>((seconds * (1 - permissiveShare) - 2 * pressInterval) / pressInterval);
    const auto timer = platform.runLoop().every(pressInterval, [&] {
        if (presses.size() >= most) return;
        const std::size_t beacon = presses.size() % 5;
        const int code = 1 + static_cast<int>(presses.size() / 5 % 3);
        presses.push_back({now()});
        ask("air", "press " + address(beacon) + " 1000 " + payload(beacon, code));
    });
    const double strict = rate("addr", seconds * (1 - permissiveShare));
    timer->invalidate();

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
