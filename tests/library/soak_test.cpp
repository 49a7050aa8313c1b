// A long time with many beacons, whose links are made and lost at random. Between manager and radio stand
// checkers of what each promises the other.

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <chrono>
#include <deque>
#include <functional>
#include <random>
#include <utility>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/ForwardingPlatform.h"
#include "zobi/platform/standard/WrappingCentral.h"

namespace {

using namespace zobi::platform;
using Characteristic = std::shared_ptr<CBCharacteristic>;
using Peripheral = std::shared_ptr<CBPeripheral>;
using Record = std::shared_ptr<ZOKBeacon>;
using Service = std::shared_ptr<CBService>;

constexpr double secondsOfADay = 86400;

struct Counts {
    int links, lost, failures, connectionsRequested, requests, cutOff, notifications;
};

bool hasCode(const NSError* error, CBError code) {
    return error && error->domain() == CBErrorDomain && error->code() == static_cast<int>(code);
}

/// Each request on a link has one answer, in the order of the requests and before the link's end is reported.
/// Nothing else comes but notifications, over the link.
class CheckedPeripheral final : public ForwardingPeripheral {
    using Base = ForwardingPeripheral;

public:
    CheckedPeripheral(const Peripheral& real, Counts& counted) : Base(real), counts(counted) {}

    Counts& counts;
    bool isPending = false;
    bool isLinked = false;
    /// The live record since the link was made. Not owned, for it owns the peripheral.
    std::weak_ptr<ZOKBeacon> record;
    /// What each request that has no answer yet is about.
    std::deque<std::shared_ptr<const void>> due;

    void discoverServices(std::span<const CBUUID> uuids) override {
        request(nullptr);
        Base::discoverServices(uuids);
    }
    void discoverCharacteristicsForService(std::span<const CBUUID> uuids, const Service& service) override {
        request(service);
        Base::discoverCharacteristicsForService(uuids, service);
    }
    void readValueForCharacteristic(const Characteristic& characteristic) override {
        request(characteristic);
        Base::readValueForCharacteristic(characteristic);
    }
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value, const Characteristic& written,
                                         CBCharacteristicWriteType type) override {
        if (type == CBCharacteristicWriteType::withResponse) request(written);
        Base::writeValueForCharacteristicType(value, written, type);
    }
    void setNotifyValueForCharacteristic(bool enabled, const Characteristic& characteristic) override {
        request(characteristic);
        Base::setNotifyValueForCharacteristic(enabled, characteristic);
    }
    void readRSSI() override {
        request(nullptr);
        Base::readRSSI();
    }

    void peripheralDidDiscoverServices(const Peripheral& real, const NSError* error) override {
        answer(nullptr, error, [&] { Base::peripheralDidDiscoverServices(real, error); });
    }
    void peripheralDidDiscoverCharacteristicsForServiceError(const Peripheral& real, const Service& service,
                                                             const NSError* error) override {
        answer(service, error,
               [&] { Base::peripheralDidDiscoverCharacteristicsForServiceError(real, service, error); });
    }
    void peripheralDidUpdateValueForCharacteristicError(const Peripheral& real, const Characteristic& updated,
                                                        const NSError* error) override {
        const auto tell = [&] { Base::peripheralDidUpdateValueForCharacteristicError(real, updated, error); };
        // Nothing here is both read and notified.
        if (!updated->isNotifying()) return answer(updated, error, tell);
        EXPECT_TRUE(isLinked && !error);
        ++counts.notifications;
        tell();
    }
    void peripheralDidWriteValueForCharacteristicError(const Peripheral&, const Characteristic& written,
                                                       const NSError* error) override {
        answer(written, error, [] {});
    }
    void peripheralDidUpdateNotificationStateForCharacteristicError(const Peripheral&,
                                                                    const Characteristic& switched,
                                                                    const NSError* error) override {
        answer(switched, error, [] {});
    }
    void peripheralDidReadRSSIError(const Peripheral& real, NSNumber rssi, const NSError* error) override {
        answer(nullptr, error, [&] { Base::peripheralDidReadRSSIError(real, rssi, error); });
    }

private:
    void request(const std::shared_ptr<const void>& about) {
        if (!isLinked || isEnding_) return;
        ++counts.requests;
        due.push_back(about);
    }

    template <typename Tell>
    void answer(const std::shared_ptr<const void>& about, const NSError* error, const Tell& tell) {
        ASSERT_TRUE(isLinked && !due.empty() && due.front() == about) << "an answer that is not due";
        due.pop_front();
        // A request from inside such an answer is not sent any more.
        isEnding_ = hasCode(error, CBError::notConnected);
        counts.cutOff += isEnding_;
        tell();
        isEnding_ = false;
    }

    bool isEnding_ = false;
};

/// Each attempt has one outcome, each link one end, and a live record meanwhile. A link that is up is
/// reported once more for each request to connect; one that was lost, and no other, is asked for again.
class CheckedCentral final : public WrappingCentral<CheckedPeripheral> {
public:
    CheckedCentral(MainQueue& mainQueue, std::weak_ptr<CBCentralManagerDelegate> client)
        : WrappingCentral(std::move(client)), queue(mainQueue) {}

    MainQueue& queue;
    ZOKManager* manager = nullptr;
    std::vector<std::shared_ptr<CheckedPeripheral>> peripherals;
    Counts counts{};

    void connectPeripheral(const Peripheral& peripheral) override {
        ++counts.connectionsRequested;
        const auto checked = std::static_pointer_cast<CheckedPeripheral>(peripheral);
        // Right before and after the radio's own turn.
        queue.dispatchAsync([this, checked] {
            isDueNow_ = checked->isLinked || state() != CBManagerState::poweredOn;
            if (!isDueNow_) checked->isPending = true;
        });
        WrappingCentral::connectPeripheral(peripheral);
        queue.dispatchAsync([this] { EXPECT_FALSE(isDueNow_); });
    }

    void centralManagerDidConnectPeripheral(CBCentralManager& radio, const Peripheral& real) override {
        const auto checked = wrapperOf(real);
        takeOutcome(*checked, checked->isLinked);
        counts.links += !std::exchange(checked->isLinked, true);
        checked->record = manager->beaconFromPeripheral(checked);
        WrappingCentral::centralManagerDidConnectPeripheral(radio, real);
    }
    void centralManagerDidFailToConnectPeripheralError(CBCentralManager& radio, const Peripheral& real,
                                                       const NSError* error) override {
        const auto checked = wrapperOf(real);
        takeOutcome(*checked, !checked->isLinked && state() != CBManagerState::poweredOn);
        ++counts.failures;
        WrappingCentral::centralManagerDidFailToConnectPeripheralError(radio, real, error);
    }
    void centralManagerDidDisconnectPeripheralError(CBCentralManager& radio, const Peripheral& real,
                                                    const NSError* error) override {
        const auto checked = wrapperOf(real);
        EXPECT_NE(checked->isLinked, checked->isPending);
        EXPECT_TRUE(checked->due.empty()) << "a request without an answer";
        if (checked->isLinked) expectRecord(checked);
        checked->isLinked = checked->isPending = false;
        const bool isLost = hasCode(error, CBError::connectionTimeout);
        counts.lost += isLost;
        const int expected = counts.connectionsRequested + (isLost ? 1 : 0);
        WrappingCentral::centralManagerDidDisconnectPeripheralError(radio, real, error);
        EXPECT_EQ(counts.connectionsRequested, expected);
    }

    void expectRecord(const std::shared_ptr<CheckedPeripheral>& linked) const {
        const auto record = linked->record.lock();
        EXPECT_TRUE(record && manager->beaconFromPeripheral(linked) == record);
    }

private:
    std::shared_ptr<CheckedPeripheral> makeWrapper(const Peripheral& real) override {
        return peripherals.emplace_back(std::make_shared<CheckedPeripheral>(real, counts));
    }

    void takeOutcome(CheckedPeripheral& checked, bool mayBeDueNow) {
        if (mayBeDueNow && std::exchange(isDueNow_, false)) return;
        EXPECT_TRUE(std::exchange(checked.isPending, false)) << "no attempt was pending";
    }

    bool isDueNow_ = false;
};

struct CheckedPlatform final : ForwardingPlatform {
    using ForwardingPlatform::ForwardingPlatform;

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        central = std::make_shared<CheckedCentral>(runLoop(), std::move(delegate));
        return insert(central);
    }

    std::shared_ptr<CheckedCentral> central;
};

/// Keeps the first record of each beacon, and asks more of one as soon as it is reported connected.
class Application final : public ZOKManagerDelegate {
public:
    std::vector<Record> records;

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }
    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>&,
                                          const std::vector<Record>& beacons) override {
        for (const auto& beacon : beacons) {
            Record& record = records.at(static_cast<std::size_t>(beacon->minor().integerValue()));
            if (!record) record = beacon;
        }
    }
    void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& manager,
                                              const Record& beacon) override {
        manager->firmwareVersionForBeaconWithCompletion(beacon, {});
        manager->setBatteryNotificationsForBeacon(true, beacon);
    }
};

class SoakTest : public ::testing::Test {
protected:
    SoakTest() {
        platform.log().setSink(nullptr);
        central->manager = manager.get();
        manager->setDelegate(application);
        constexpr std::uint16_t count = 200;
        application->records.resize(count);
        zobi::BeaconDescription beacon;
        beacon.advertisingInterval = 7;
        beacon.advertisingJitter = 1;
        for (beacon.minor = 0; beacon.minor < count; ++beacon.minor) {
            beacons.push_back(&zobi::addBeacon(platform.world(), beacon));
        }
    }

    /// From 0 to `end`, exclusive.
    std::size_t random(std::size_t end) { return generator() % end; }

    /// An error in one of `outOf` cases.
    std::optional<NSError> randomError(std::size_t outOf) {
        if (random(outOf) > 0) return std::nullopt;
        return NSError(std::string(CBErrorDomain), static_cast<int>(random(14)), "It was so at random.");
    }

    /// Something happens to one beacon, or is asked of it.
    void happenTo(zobi::SimulatedBeacon& beacon, const Record& record) {
        const auto onConnection = [this](const auto&, const Record& connected, const NSError* error) {
            if (!error) manager->setAccelerometerNotificationsForBeacon(true, connected);
        };
        const std::vector<std::function<void()>> events{
            [&] { manager->connectBeacon(record); },
            [&] { manager->connectBeaconWithCompletion(record, onConnection); },
            [&] { manager->connectBeaconWithCompletion(record, onConnection); },
            [&] { manager->disconnectBeacon(record); },
            [&] { manager->disconnectBeaconWithCompletion(record, [](auto&&...) {}); },
            [&] { beacon.comeIntoRange(); },
            [&] { beacon.comeIntoRange(); },
            [&] { beacon.goOutOfRange(); },
            [&] { beacon.endLink(randomError(1)); },
            [&] { beacon.setConnectionError(randomError(5)); },
            [&] { beacon.setBatteryLevel(static_cast<std::uint8_t>(random(101))); },
            [&] { beacon.pressButton(1, 3); },
            [&] { manager->pingBeacon(record); },
            [&] { manager->setButtonModeForBeacon(2, record); },
            [&] { manager->buttonModeForBeaconWithCompletion(record, {}); },
            [&] { manager->temperatureForBeaconWithCompletion(record, {}); },
            [&] { manager->setAccelerometerNotificationsForBeacon(random(2) == 0, record); },
            [&] { manager->setBatteryNotificationsForBeacon(random(2) == 0, record); },
            [&] { manager->setButtonActionsNotificationsForBeacon(random(2) == 0, record); },
            [&] { manager->RSSIForBeaconWithCompletion(record, {}); },
            [&] { manager->startRSSIMonitoringForBeaconIntervalWithCompletion(record, 5, {}); },
            [&] { manager->stopRSSIMonitoringForBeacon(record); },
        };
        events.at(random(events.size()))();
    }

    /// Much happens to one beacon, faster or slower than it answers, and now and then to the radio.
    void happen() {
        const std::size_t i = random(application->records.size());
        for (std::size_t left = 1 + random(8); left > 0; --left) {
            happenTo(*beacons[i], application->records[i]);
            constexpr std::array pauses{0.0, 0.0, 0.01, 0.1, 0.3, 1.0};
            loop.runFor(pauses.at(random(pauses.size())));
        }
        if (random(500) == 0) platform.world().setRadioState(CBManagerState::poweredOff);
        if (random(3) == 0) platform.world().setRadioState(CBManagerState::poweredOn);
        for (const auto& checked : central->peripherals) {
            EXPECT_EQ(checked->isLinked, checked->state() == CBPeripheralState::connected);
            if (checked->isLinked) central->expectRecord(checked);
        }
    }

    /// All beacons go and all links are cancelled, and nothing of them is left.
    void comeToRest() {
        platform.world().setRadioState(CBManagerState::poweredOn);
        for (const auto& beacon : platform.world().devices()) beacon->goOutOfRange();
        for (const auto& record : application->records) {
            manager->stopRSSIMonitoringForBeacon(record);
            manager->disconnectBeacon(record);
        }
        loop.runFor(40);
        manager->stopMonitoring();
        for (const auto& checked : central->peripherals) {
            EXPECT_FALSE(checked->isLinked || checked->isPending);
            EXPECT_EQ(checked->state(), CBPeripheralState::disconnected);
        }
        EXPECT_EQ(loop.timerCount(), 0U);
    }

    std::unique_ptr<simulation::SimulatedPlatform> simulated =
        std::make_unique<simulation::SimulatedPlatform>(StandardPlatform::Time::virtualTime);
    simulation::SimulatedPlatform& platform = *simulated;
    CheckedPlatform checkedPlatform{std::move(simulated)};
    StandardRunLoop& loop = platform.runLoop();
    std::vector<zobi::SimulatedBeacon*> beacons;
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(checkedPlatform);
    std::shared_ptr<CheckedCentral> central = checkedPlatform.central;
    std::shared_ptr<Application> application = std::make_shared<Application>();
    std::mt19937 generator{1};
};

TEST_F(SoakTest, LinksComeAndGoForALongTime) {
    std::vector<double> heapInUse;
    for (int tenth = 1; tenth <= 10; ++tenth) {
        manager->startMonitoring();
        for (const auto& beacon : platform.world().devices()) beacon->comeIntoRange();
        const std::chrono::duration<double> end(tenth * ZOBI_SOAK_SECONDS / 10);
        while (platform.clock().monotonicTime() < end && !HasFailure()) happen();
        comeToRest();
        ASSERT_FALSE(HasFailure());
        heapInUse.push_back(static_cast<double>(mallinfo2().uordblks));
    }
    const Counts& counts = central->counts;
    for (const int count :
         {counts.links, counts.lost, counts.failures, counts.requests, counts.cutOff, counts.notifications}) {
        EXPECT_GT(count, ZOBI_SOAK_SECONDS / 100);
    }
    // In less than half a day not every beacon has been through everything once.
    if (ZOBI_SOAK_SECONDS < secondsOfADay) return;
    EXPECT_NEAR(heapInUse.back(), heapInUse.at(4), 32 * 1024);
}

}  // namespace
