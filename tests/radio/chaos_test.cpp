// A program that keeps one beacon connected and lists two, through faults of all kinds in a random order.

#include <malloc.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <future>
#include <random>

#include "LibraryOverRadio.h"
#include "RadioRecorder.h"
#include "StackBench.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

namespace {

using namespace zobi::platform;
using Lines = std::vector<std::pair<std::string, std::string>>;

constexpr double faultInterval = 5;
constexpr double healingTime = 30;

/// What is asked of the parts of the test bed, at the beginning of a fault and at its end.
struct Fault {
    Lines begin;
    Lines end;
};

const std::vector<Fault> faults{
    {{{"stack", "power 0 off"}}, {{"stack", "power 0 on"}}},
    {{{"stack", "block 0 on"}}, {{"stack", "block 0 off"}}},
    {{{"stack", "service restart"}}, {}},
    {{{"stack", "service kill"}}, {{"stack", "service start"}}},
    {{{"stack", "service stop"}}, {{"stack", "service start"}}},
    {{{"stack", "service freeze"}}, {{"stack", "service thaw"}}},
    {{{"stack", "bus restart"}}, {}},
    {{{"air", "plugged 0 off"}}, {{"air", "plugged 0 on"}}},
    {{{"stack", "undiscover 0"}}, {}},
    {{{"stack", "client scan"}}, {{"stack", "client off"}}},
    {{{"stack", "client scan nobody"}}, {{"stack", "client off"}}},
    {{{"stack", "settle"}, {"air", "silent 1 on"}}, {{"air", "silent 1 off"}}},
    {{{"stack", "settle"}, {"air", "silent 0 on"}}, {{"air", "silent 0 off"}}},
    {{{"stack", "settle"}, {"air", "lose 08 08"}}, {}},
    {{{"air", "estfail 0 1"}, {"stack", "settle"}, {"air", "lose 08 08"}}, {{"air", "estfail 0 0"}}},
    {{{"beacon", "drop"}}, {}},
    {{{"stack", "clock 3600"}}, {{"stack", "clock -3600"}}},
};

/// An application that keeps a link up, and always has a request under way. It makes sure that each attempt
/// and each request has one outcome.
class Keeper {
public:
    Keeper(Platform& platform, std::shared_ptr<RadioRecorder> listener)
        : listener_(std::move(listener)), central_(platform.makeCentralManager(listener_)) {
        listener_->onEvent = [this](const std::string& event) { handle(event); };
        listener_->onSighting = [this](const CBAdvertisementData& data) {
            const auto& payload = data.serviceData[0].data;
            if (!beacon_ && payload.data()[10] == 7) beacon_ = listener_->sightings.back();
        };
    }

    bool isLinked() const { return link_ == CBPeripheralState::connected; }
    bool isIdle() const { return requests_ == 0; }
    int links() const { return links_; }
    int answers() const { return answers_; }

    /// Does what is to be done next.
    void advance() {
        listener_->events.clear();
        if (central_->state() != CBManagerState::poweredOn) return;
        if (!beacon_) return scan();
        if (link_ == CBPeripheralState::disconnected && wantsLink_) {
            central_->stopScan();
            beacon_->setDelegate(listener_);
            link_ = CBPeripheralState::connecting;
            central_->connectPeripheral(beacon_);
        } else if (link_ == CBPeripheralState::connected && requests_ == 0 && wantsLink_) {
            request();
        }
    }
    void end() {
        wantsLink_ = false;
        central_->cancelPeripheralConnection(beacon_);
    }

private:
    void scan() {
        if (!central_->isScanning()) {
            central_->scanForPeripheralsWithServicesOptions(std::array{CBUUID::UUIDWithString("1320")}, {});
        }
    }
    void request() {
        ++requests_;
        const auto firmware =
            discoveredCharacteristic(*beacon_, ZOKGATTProfile::firmwareRevisionCharacteristic);
        if (firmware) {
            beacon_->readValueForCharacteristic(firmware);
        } else if (beacon_->services() && !beacon_->services()->empty()) {
            beacon_->discoverCharacteristicsForService({}, beacon_->services()->front());
        } else {
            beacon_->discoverServices(std::array{ZOKGATTProfile::deviceInformationService});
        }
    }
    void handle(const std::string& event) {
        using enum CBPeripheralState;
        if (event.starts_with("state")) return;
        const bool isUp = event == "connected";
        const bool isEnd = event.starts_with("disconnected");
        if (isUp || isEnd || event.starts_with("failed")) {
            EXPECT_EQ(link_, isEnd ? connected : connecting) << event;
            EXPECT_EQ(requests_, 0) << event;
            link_ = isUp ? connected : disconnected;
            if (isUp) ++links_;
        } else {
            EXPECT_EQ(requests_, 1) << event;
            --requests_;
            ++answers_;
        }
    }

    std::shared_ptr<RadioRecorder> listener_;
    std::shared_ptr<CBCentralManager> central_;
    std::shared_ptr<CBPeripheral> beacon_;
    CBPeripheralState link_ = CBPeripheralState::disconnected;
    int requests_ = 0;
    int links_ = 0;
    int answers_ = 0;
    bool wantsLink_ = true;
};

class Chaos : public LibraryOverRadio {
protected:
    /// Runs the loop, and the application, until the condition holds.
    bool live(const std::function<bool()>& condition, double seconds) {
        return bench->runUntil(
            [&] {
                keeper.advance();
                // Kept, they would be more and more.
                application->takeEvents();
                return condition();
            },
            seconds);
    }
    void live(double seconds) {
        live([] { return false; }, seconds);
    }
    /// Asks without standing still meanwhile.
    void bringAbout(const Lines& lines) {
        using namespace std::chrono_literals;
        auto done = std::async(std::launch::async, [&] {
            for (const auto& [part, line] : lines) ask(part, line);
        });
        EXPECT_TRUE(live([&] { return done.wait_for(0s) == std::future_status::ready; }, 300));
        done.get();
    }
    std::vector<int> listed() const {
        std::vector<int> minors;
        for (const auto& beacon : manager->liveBeacons()) minors.push_back(beacon->minor().integerValue());
        std::ranges::sort(minors);
        return minors;
    }
    static std::ptrdiff_t descriptors() {
        using std::filesystem::directory_iterator;
        return std::distance(directory_iterator("/proc/self/fd"), directory_iterator());
    }

    Keeper keeper{platform, RadioRecorder::make()};
};
INSTANTIATE_TEST_SUITE_P(Stack, Chaos, testing::Values(stackRadio));

TEST_P(Chaos, OneOutcomeForEachAttemptAndTheListIsRightAgain) {
    const auto seed = static_cast<unsigned>(numberIn("CHAOS_SEED", 1));
    const auto faultCount = static_cast<int>(numberIn("CHAOS_SECONDS", 180) / faultInterval);
    std::mt19937 random(seed);
    // The library logs each advertisement.
    dynamic_cast<bluez::BlueZPlatform&>(platform).log().setDiagnosticSink(nullptr);
    const auto upTo = [&](std::size_t limit) { return random() % limit; };
    bench->beaconComesIntoRange();
    ask("air", "beacon 00:00:5E:00:53:08 200 morvane 563412EFCDAB07012C0008035A001A00");
    ASSERT_TRUE(live([&] { return keeper.isLinked(); }, healingTime));

    std::ptrdiff_t descriptorsBefore = 0;
    std::size_t heapBefore = 0;
    for (int number = 0; number < faultCount && !HasFailure(); ++number) {
        const Fault& fault = faults[upTo(faults.size())];
        SCOPED_TRACE("fault " + std::to_string(number) + ": " + fault.begin.back().second);
        bringAbout(fault.begin);
        live(static_cast<double>(upTo(40)) / 10);
        bringAbout(fault.end);
        live(faultInterval / 2);
        if (number != faultCount / 4) continue;
        ASSERT_TRUE(live([&] { return keeper.isLinked(); }, healingTime));
        descriptorsBefore = descriptors();
        heapBefore = ::mallinfo2().uordblks;
    }
    const auto end = platform.clock().monotonicTime();
    const auto timeLeft = [&] {
        return healingTime - std::chrono::duration<double>(platform.clock().monotonicTime() - end).count();
    };
    EXPECT_TRUE(live([&] { return keeper.isLinked(); }, timeLeft())) << "the link comes back";
    EXPECT_LE(descriptors(), descriptorsBefore);
    EXPECT_LT(::mallinfo2().uordblks, heapBefore + 100'000);
    std::printf("%d faults, %d links, %d answers, seed %u\n", faultCount, keeper.links(), keeper.answers(),
                seed);

    keeper.end();
    EXPECT_TRUE(live([&] { return !keeper.isLinked() && listed() == std::vector{7, 8}; }, timeLeft()));
    bench->beaconFallsSilent();
    EXPECT_TRUE(live([&] { return listed() == std::vector{8}; }, healingTime));
    EXPECT_TRUE(keeper.isIdle());
}

}  // namespace
