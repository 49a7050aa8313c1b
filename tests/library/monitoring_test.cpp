// The state of Bluetooth; starting, stopping and restarting the scan; foreground and background.

#include <functional>
#include <map>
#include <thread>

#include "ManagerTest.h"
#include "SeamRecorders.h"

namespace {

using namespace zobi::platform;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MonitoringTest : public ManagerTest {
protected:
    bool isScanning() const { return manager->centralManager()->isScanning(); }
};

TEST_F(MonitoringTest, TheVersionStringStands) {
    EXPECT_STREQ(ZobiConnectKitVersionString, "@(#)PROGRAM:ZobiConnectKit  PROJECT:zobiconnectkit-1\n");
}

TEST_F(MonitoringTest, EveryStateIsLoggedAndPassedOnAndStartsNothing) {
    // The first is the one that the radio has from the start.
    const std::vector<std::pair<int, std::string>> states{
        {5, "----->State powered up and ready (CBCentralManagerStatePoweredOn)"},
        {0, "----->State unknown (CBCentralManagerStateUnknown)"},
        {1, "----->State resetting (CBCentralManagerStateUnknown)"},
        {2, "----->State BLE unsupported (CBCentralManagerStateResetting)"},
        {3, "----->State unauthorized (CBCentralManagerStateUnauthorized)"},
        {4, "----->State BLE powered off (CBCentralManagerStatePoweredOff)"},
        {7, "----->State unknown"},
    };
    for (const auto& [state, line] : states) {
        setRadio(static_cast<CBManagerState>(state));
        EXPECT_THAT(takeLog(),
                    ElementsAre("centralManagerDidUpdateState", "---->centralManagerDidUpdateState", line));
        EXPECT_THAT(takeEvents(), ElementsAre("state " + std::to_string(state)));
    }
    EXPECT_FALSE(manager->isMonitoring());
    EXPECT_EQ(loop.timerCount(), 0U);

    const auto other = std::make_shared<RecordingCentral>();
    platform.log().setSink([&](std::string_view line) {
        if (line.starts_with("----->")) other->theState = CBManagerState::resetting;
    });
    manager->centralManagerDidUpdateState(*other);
    EXPECT_THAT(takeEvents(), ElementsAre("state 1"))
        << "that of the central that reports it, at the moment of the report";
}

TEST_F(MonitoringTest, StartsTimersAtOnceAndTheScanInALaterTurn) {
    takeLog();
    manager->startMonitoring();
    EXPECT_THAT(takeLog(),
                ElementsAre("StartMonitoring with active: YES", "Restarting updateRestartMonitoringTimer"));
    EXPECT_TRUE(manager->isMonitoring());
    EXPECT_EQ(manager->updateRangedBeaconsTimer()->timeInterval(), 1.0);
    EXPECT_EQ(manager->checkRangedBeaconsTimer()->timeInterval(), 10.0);
    EXPECT_EQ(manager->updateRestartMonitoringTimer()->timeInterval(), 30.0);
    EXPECT_EQ(loop.timerCount(), 3U);
    EXPECT_FALSE(isScanning());
    loop.processPending();
    EXPECT_TRUE(isScanning());
    EXPECT_THAT(takeLog(), IsEmpty());

    manager->stopMonitoring();
    EXPECT_THAT(takeLog(), ElementsAre("StopMonitoring"));
    EXPECT_FALSE(isScanning());
    EXPECT_EQ(loop.timerCount(), 0U);
    for (const auto& timer : {manager->updateRangedBeaconsTimer(), manager->checkRangedBeaconsTimer(),
                              manager->updateRestartMonitoringTimer()}) {
        EXPECT_TRUE(timer && !timer->isValid()) << "the field keeps it";
    }
    manager->stopMonitoring();
    EXPECT_THAT(takeLog(), ElementsAre("StopMonitoring"));
}

TEST_F(MonitoringTest, ScansForTheBeaconServiceWithDuplicatesInTheForegroundOnly) {
    takeEvents();
    addBeacon({.minor = 1, .buttonAction = 1, .advertisingInterval = 0.5}).comeIntoRange();
    addBeacon({.minor = 2, .buttonAction = 1, .advertisedServices = {CBUUID::UUIDWithString("180A")}})
        .comeIntoRange();
    manager->startMonitoring();
    pass(2.4);
    EXPECT_EQ(takeEvents(), Events(5, "button 0"))
        << "every advertisement of the one beacon that has the service";
    platform.application().setApplicationState(UIApplicationState::background);
    pass(10);
    EXPECT_THAT(takeEvents(), ElementsAre("button 0")) << "each beacon once in a scan";
    EXPECT_EQ(manager->liveBeacons().size(), 1U);
}

TEST_F(MonitoringTest, AStartWhileMonitoringOnlyRestartsTheRangingTimers) {
    manager->startMonitoring();
    pass(0.75);
    takeLog();
    const auto restart = manager->updateRestartMonitoringTimer();
    const auto report = manager->updateRangedBeaconsTimer();
    manager->startMonitoring();
    EXPECT_THAT(takeLog(), ElementsAre("StartMonitoring with active: YES", "Already monitoring, returning"));
    EXPECT_EQ(manager->updateRestartMonitoringTimer(), restart);
    EXPECT_FALSE(report->isValid());
    pass(0.75);
    EXPECT_THAT(application->reports, IsEmpty()) << "the phase starts anew";
    pass(0.25);
    EXPECT_EQ(application->reports.size(), 1U);
    manager->setMonitoring(false);
    manager->startMonitoring();
    EXPECT_EQ(loop.timerCount(), 3U) << "a new timer takes the place of the old one";
}

TEST_F(MonitoringTest, AScanThatIsQueuedBeginsAsItWasAskedForEvenIfMonitoringStopsBefore) {
    manager->startMonitoring();
    manager->stopMonitoring();
    EXPECT_FALSE(manager->isMonitoring());
    takeLog();
    platform.application().setApplicationState(UIApplicationState::background);
    loop.processPending();
    EXPECT_TRUE(isScanning());
    platform.application().setApplicationState(UIApplicationState::active);
    EXPECT_THAT(takeLog(), IsEmpty()) << "it is the foreground's, and follows the application no more";
    EXPECT_EQ(loop.timerCount(), 0U);
}

TEST_F(MonitoringTest, TheScanRestartsEvery30SecondsInTheForegroundWithDuplicates) {
    manager->startMonitoringWithAllowDuplicate(false);
    addBeacon({.minor = 1, .buttonAction = 1}).comeIntoRange();
    pass(29);
    EXPECT_EQ(application->buttons.size(), 1U);
    takeLog();
    bool wasScanning = true;
    platform.log().setSink([&](std::string_view line) {
        log.emplace_back(line);
        if (line == "Restarting updateRestartMonitoringTimer") wasScanning = isScanning();
    });
    pass(1);
    EXPECT_THAT(takeLog(),
                ElementsAre("---->Restarting Monitoring timer", "Restarting updateRestartMonitoringTimer"));
    EXPECT_FALSE(wasScanning) << "the scan is stopped before it starts again";
    EXPECT_TRUE(manager->isMonitoring());
    pass(10);
    EXPECT_EQ(application->buttons.size(), 11U);
    pass(20);
    EXPECT_THAT(takeLog(), ::testing::Contains("---->Restarting Monitoring timer").Times(1));
    EXPECT_THAT(application->reports, IsEmpty()) << "the ranging timers are startMonitoring's alone";
}

TEST_F(MonitoringTest, TheRestartTimerIsSpentWhileTheApplicationIsNotActive) {
    for (const auto state : {UIApplicationState::background, UIApplicationState::inactive}) {
        for (const bool allowDuplicate : {false, true}) {
            platform.application().setApplicationState(state);
            takeLog();
            manager->startMonitoringWithAllowDuplicate(allowDuplicate);
            pass(100);
            EXPECT_THAT(
                takeLog(),
                ElementsAre("Restarting updateRestartMonitoringTimer",
                            "Starting background monitoring for community scanning with allowDuplicate: " +
                                std::string(allowDuplicate ? "YES" : "NO")));
            EXPECT_TRUE(isScanning());
            EXPECT_FALSE(manager->updateRestartMonitoringTimer()->isValid());
            EXPECT_EQ(loop.timerCount(), 0U);
            manager->stopMonitoring();
        }
    }
}

TEST_F(MonitoringTest, PowerOffEndsTheScanAtOnceAndMonitoringAtTheNextRestart) {
    manager->startMonitoring();
    pass(5);
    setRadio(CBManagerState::poweredOff);
    EXPECT_TRUE(manager->isMonitoring());
    EXPECT_FALSE(isScanning());
    setRadio(CBManagerState::poweredOn);
    EXPECT_FALSE(isScanning()) << "scanning never begins by itself";
    setRadio(CBManagerState::poweredOff);
    takeLog();
    pass(25);
    EXPECT_THAT(takeLog(),
                ElementsAre("---->Restarting Monitoring timer", "CentralManagerState is not ON, exiting"));
    manager->stopMonitoring();
    manager->startMonitoring();
    EXPECT_FALSE(manager->isMonitoring());
    EXPECT_EQ(loop.timerCount(), 2U) << "without Bluetooth only the ranging timers run";
    setRadio(CBManagerState::poweredOn);
    platform.application().setApplicationState(UIApplicationState::background);
    pass(60);
    EXPECT_FALSE(isScanning());
    EXPECT_EQ(application->reports.size(), 90U);
}

TEST_F(MonitoringTest, ARunningScanFollowsTheApplication) {
    manager->startMonitoring();
    pass(0.75);
    takeLog();
    platform.application().setApplicationState(UIApplicationState::background);
    loop.processPending();
    EXPECT_THAT(takeLog(),
                ElementsAre("StopMonitoring", "StartMonitoring with active: NO",
                            "Restarting updateRestartMonitoringTimer",
                            "Starting background monitoring for community scanning with allowDuplicate: NO"));
    pass(0.75);
    EXPECT_THAT(application->reports, IsEmpty()) << "the ranging timers start anew";
    takeLog();
    platform.application().setApplicationState(UIApplicationState::active);
    loop.processPending();
    EXPECT_THAT(takeLog(), ElementsAre("StopMonitoring", "StartMonitoring with active: YES",
                                       "Restarting updateRestartMonitoringTimer"));
}

TEST_F(MonitoringTest, ADelegateMayVanishStopOrStartInsideItsCallbacks) {
    manager->startMonitoring();
    application->onReport = [&] { manager->stopMonitoring(); };
    pass(3);
    EXPECT_EQ(application->reports.size(), 1U);
    EXPECT_EQ(loop.timerCount(), 0U);

    application->onReport = [&] { manager->startMonitoring(); };
    manager->startMonitoring();
    pass(3);
    EXPECT_EQ(application->reports.size(), 4U);
    EXPECT_EQ(loop.timerCount(), 3U);

    const std::weak_ptr<ManagerRecorder> weak = application;
    application->onReport = [this] { application.reset(); };
    pass(1);
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(manager->delegate(), nullptr);
    addBeacon({.minor = 1, .buttonAction = 1}).comeIntoRange();
    pass(5);
    EXPECT_EQ(manager->liveBeacons().size(), 1U) << "the library goes on without a delegate";
}

TEST_F(MonitoringTest, APlatformLetsGoOfItsManagersWhenItDies) {
    std::weak_ptr<ZOKManager> weak;
    std::shared_ptr<ZOKManager> outlives;
    {
        simulation::SimulatedPlatform own(StandardPlatform::Time::virtualTime);
        own.log().setSink(nullptr);
        zobi::addBeacon(own.world(), {}).comeIntoRange();
        outlives = ZOKManager::managerOnPlatform(own);
        weak = ZOKManager::managerOnPlatform(own);
        own.runLoop().processPending();
        ASSERT_FALSE(weak.expired()) << "the application needs no reference of its own";
        weak.lock()->startMonitoring();
        outlives->startMonitoring();
        own.runLoop().runFor(1.5);
        EXPECT_EQ(weak.lock()->liveBeacons().size(), 1U);
    }
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(outlives->liveBeacons().size(), 1U);
}

#ifndef NDEBUG
TEST_F(MonitoringTest, AnOperationOnAnotherThreadEndsADebugBuild) {
    const auto beacon = makeRecord(1, 1);
    const auto inAnotherThread = [](const std::function<void()>& call) { std::thread(call).join(); };
    simulation::SimulatedPlatform fresh(StandardPlatform::Time::virtualTime);
    const auto early = ZOKManager::managerOnPlatform(fresh);
    inAnotherThread([&] { early->addLiveBeacon(beacon); });
    manager->startMonitoring();
    addBeacon({.minor = 1}).comeIntoRange();
    pass(5);
    const auto peripheral = manager->liveBeacons().at(0)->peripheral();
    const std::map<std::string, std::function<void()>> operations{
        {"startMonitoring", [&] { manager->startMonitoring(); }},
        {"startMonitoringWithAllowDuplicate", [&] { manager->startMonitoringWithAllowDuplicate(true); }},
        {"stopMonitoring", [&] { manager->stopMonitoring(); }},
        {"connectBeacon", [&] { manager->connectBeacon(beacon); }},
        {"disconnectBeacon", [&] { manager->disconnectBeacon(beacon); }},
        {"pingBeacon", [&] { manager->pingBeacon(beacon); }},
        {"addLiveBeacon", [&] { manager->addLiveBeacon(beacon); }},
        {"stopScan", [&] { manager->centralManager()->stopScan(); }},
        {"readRSSI", [&] { peripheral->readRSSI(); }},
        {"discoverServices", [&] { peripheral->discoverServices({}); }},
        {"scheduledTimerWithTimeIntervalActionUserInfoRepeats", [&] { loop.after(1, [] {}); }},
        {"runFor", [&] { loop.runFor(0); }},
        {"shutDown", [&] { platform.shutDown(); }},
    };
    for (const auto& [name, call] : operations) {
        EXPECT_DEATH(inAnotherThread(call), name + " was called on a thread other than") << name;
    }
    inAnotherThread([&] {
        loop.dispatchAsync([] {});
        loop.stop();
        EXPECT_EQ(ZOKManager::keyFromBeacon(beacon), "1_1");
    });
}
#endif

}  // namespace
