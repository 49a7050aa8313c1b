// The suite over the radio of Linux, with the real Bluetooth service and kernel: in the virtual machine of
// testbed/, where scripts/test-radio runs it. What only this radio can do wrong is tested at the end.

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "LibraryOverRadio.h"
#include "RadioTest.h"
#include "StackBench.h"

namespace {

using namespace ::testing;
using namespace zobi::platform;

// A controller that reports a beacon once, until its scan is restarted.
const RadioUnderTest strictRadio{"Strict", [] { return std::make_unique<StackBench>("addr"); }};

INSTANTIATE_TEST_SUITE_P(Stack, RadioPromises, Values(stackRadio));
INSTANTIATE_TEST_SUITE_P(Stack, LibraryOverRadio, Values(stackRadio));
INSTANTIATE_TEST_SUITE_P(StrictStack, LibraryOverRadio, Values(strictRadio));

/// Whether a link is up on the air.
bool isLinked() {
    return ask("air", "state").find("linked") != std::string::npos;
}

/// Another program than the one under test, which runs after it or beside it.
struct OtherProgram {
    explicit OtherProgram(std::vector<CBUUID> endedServices = {})
        : platform({.adapter = "hci0", .endedServices = std::move(endedServices)}) {
        application->monitors = true;
    }

    bool hearsTheBeacon() {
        return RadioBench::runUntil(platform, [&] { return !manager->liveBeacons().empty(); });
    }

    bluez::BlueZPlatform platform;
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
    std::shared_ptr<ManagerRecorder> application = ManagerRecorder::of(manager);
};

/// The tool, which is killed.
class ToolToKill {
public:
    explicit ToolToKill(const std::string& arguments)
        : out_(::popen(("echo $$; exec zobiconnect " + arguments).c_str(), "r")) {
        tells("");
        pid_ = std::stoi(line_.data());
    }
    ~ToolToKill() { killIt(); }
    ToolToKill(const ToolToKill&) = delete;
    ToolToKill& operator=(const ToolToKill&) = delete;

    /// Waits for a line with this text. False if the tool ends before.
    bool tells(const std::string& text) {
        while (std::fgets(line_.data(), static_cast<int>(line_.size()), out_)) {
            if (std::string(line_.data()).find(text) != std::string::npos) return true;
        }
        return false;
    }
    const char* lastLine() const { return line_.data(); }
    void killIt() {
        if (!out_) return;
        ::kill(pid_, SIGKILL);
        ::pclose(std::exchange(out_, nullptr));
    }

private:
    FILE* out_;
    std::array<char, 4096> line_{};
    pid_t pid_ = 0;
};

class LibraryOverStack : public LibraryOverRadio {
protected:
    /// Waits until the beacon is heard in a later second than before, doing something in each turn.
    bool isHeardAgain(
        const std::shared_ptr<ZOKBeacon>& beacon, const std::function<void()>& inEachTurn = [] {}) {
        return bench->runUntil([&, before = beacon->timestamp()] {
            inEachTurn();
            return beacon->timestamp() > before;
        });
    }
};
INSTANTIATE_TEST_SUITE_P(Stack, LibraryOverStack, Values(stackRadio));

// The service calls a device by its advertised name, until it has read another over a link.
TEST_P(LibraryOverStack, ABeaconIsKnownByTheNameItAdvertises) {
    ask("beacon", "gapname another");
    const auto beacon = connect();
    ask("beacon", "advertise off");
    bench->beaconEndsLink();
    ASSERT_TRUE(heard("disconnected error 7"));
    // Another client finds the device under the other name.
    OtherProgram other;
    other.platform.runLoop().runFor(RadioBench::aWhile);
    EXPECT_THAT(other.manager->liveBeacons(), IsEmpty());

    // A shortened name does not put right what the service remembers.
    EXPECT_TRUE(isHeardAgain(beacon, [] {
        ask("air",
            "advert 0 0 0 00:00:5E:00:53:02 -60 0201060303201313160A18563412EFCDAB07012C0007035A001A00");
        ask("air", "advert 0 4 0 00:00:5E:00:53:02 -60 08086D6F7276616E65");
    }));
    ask("beacon", "advertise on");
    EXPECT_TRUE(isHeardAgain(beacon));
    EXPECT_TRUE(other.hearsTheBeacon());
}

TEST_P(LibraryOverStack, EverythingGoesOnWhenTheServiceComesBack) {
    const auto beacon = range();
    for (const std::string end : {"stop", "kill"}) {
        SCOPED_TRACE(end);
        const auto serviceEndsAndComesBack = [&] {
            takeEvents();
            ask("stack", "service " + end);
            EXPECT_TRUE(heard("state 1"));
            bench->beaconComesIntoRange();
            ask("stack", "service start");
            return eventsUntil("state 5");
        };
        serviceEndsAndComesBack();
        EXPECT_TRUE(isHeardAgain(beacon));

        manager->connectBeaconWithCompletion(beacon, application->completion("connection complete"));
        eventsUntil("connection complete");
        // The service is the beacon's too, and would have the beacon end the link.
        bench->beaconFallsSilent();
        EXPECT_THAT(serviceEndsAndComesBack(), IsSupersetOf({"state 1", "disconnected error 5", "state 5"}));
        EXPECT_TRUE(isHeardAgain(beacon));
    }
}

// What a service that stands still is told meanwhile is more than its socket holds. Among what is lost is
// that the scan has ended: then it believes that it scans, and no program's scan makes it do so.
TEST_P(LibraryOverStack, AServiceThatStoodStillScansAgainOrTheRemedyIsTold) {
    std::string log;
    dynamic_cast<bluez::BlueZPlatform&>(platform).log().setSink([&](auto line) { (log += line) += '\n'; });
    range();
    const auto scans = [] {
        const std::string state = ask("air", "state");
        return state.find("scanning") < state.find("1:");
    };
    bool isDeaf = false;
    for (int tries = 0; !isDeaf && tries < 9; ++tries) {
        ask("stack", "service freeze");
        for (unsigned i = 0; scans(); ++i) {
            std::array<char, 99> line{};
            std::snprintf(line.data(), line.size(),
                          "advert 0 3 1 C0:00:00:00:%02X:%02X -70 0201060303201313160A18", i >> 8 & 0xFF,
                          i & 0xFF);
            for (int j = 0; j < 20; ++j) ask("air", line.data());
        }
        ask("stack", "service thaw");
        isDeaf = !bench->runUntil(scans, RadioBench::aWhile);
    }
    ASSERT_TRUE(isDeaf);
    constexpr double longest = 45;
    if (::geteuid() == 0) {
        EXPECT_TRUE(bench->runUntil(scans, longest)) << log;
    } else {
        EXPECT_TRUE(bench->runUntil(
            [&] { return log.find("systemctl restart bluetooth") != std::string::npos; }, longest));
        EXPECT_EQ(WEXITSTATUS(std::system("zobiconnect doctor --adapter hci0 --listen 13")), 5);
        ask("stack", "service restart");
    }
    // The record that was dropped meanwhile is another one now.
    EXPECT_TRUE(isHeardAgain(range())) << log;
}

TEST_P(LibraryOverStack, ThePatternOfAnotherClientIsItsOwn) {
    const auto beacon = range();
    ask("stack", "client scan nobody");
    // What was on its way is heard first.
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(isHeardAgain(beacon)) << i;
    ask("stack", "client off");
}

TEST_P(LibraryOverStack, OnlyALostLinkHasTheCodeOfOne) {
    const auto beacon = connect();
    for (const auto& [reason, code] : std::initializer_list<std::pair<std::string, std::string>>{
             {"08", "6"}, {"13", "7"}, {"14", "7"}, {"15", "7"}, {"22", "0"}, {"3D", "6"}}) {
        // The second is what the beacon's controller tells.
        ask("stack", "settle");
        ask("air", "lose " + reason + " 08");
        EXPECT_THAT(eventsUntil("ZOKBeaconDidDisconnectNotification"), Contains("disconnected error " + code))
            << reason;
        if (code != "6") manager->connectBeacon(beacon);
        eventsUntil("connection complete");
    }
}

// The service itself would renew it.
TEST_P(LibraryOverStack, ASubscriptionEndsWithItsLink) {
    const auto beacon = connect();
    manager->setButtonActionsNotificationsForBeacon(true, beacon);
    ASSERT_TRUE(bench->runUntil([] { return ask("beacon", "subscriptions FFE1") == "1 on"; }));
    bench->beaconFallsSilent();
    ASSERT_TRUE(heard("ZOKBeaconDidDisconnectNotification"));
    bench->beaconComesIntoRange();
    ASSERT_TRUE(heard("connection complete"));
    bench->runUntil([] { return false; }, RadioBench::aWhile);
    EXPECT_EQ(ask("beacon", "subscriptions FFE1"), "1 off");
    manager->setButtonActionsNotificationsForBeacon(true, beacon);
    EXPECT_TRUE(bench->runUntil([] { return ask("beacon", "subscriptions FFE1") == "2 on"; }));
}

TEST_P(LibraryOverStack, ALinkEndsWithItsProgramAndTheNextHearsTheBeacon) {
    const auto beacon = connect();
    EXPECT_TRUE(platform.shutDown());
    EXPECT_EQ(beacon->peripheral()->state(), CBPeripheralState::disconnected);
    OtherProgram next;
    EXPECT_TRUE(next.hearsTheBeacon());
    EXPECT_TRUE(next.platform.foreignLinks().empty());
}

TEST_P(LibraryOverStack, ALinkOfAProgramThatWasKilledIsToldAndEndedIfAskedFor) {
    const std::vector<CBUUID> services{CBUUID::UUIDWithString("1320"), ZOKGATTProfile::configurationService};
    bench->beaconComesIntoRange();
    for (const std::string phase : {"scanning", "connecting", "discovering", "linked"}) {
        SCOPED_TRACE(phase);
        if (phase == "connecting") bench->makeAttemptsFail(true);
        ToolToKill tool("watch 300 7 --rssi-interval 60 --format json --adapter hci0");
        ASSERT_TRUE(tool.tells(phase == "scanning" ? "\"state\""
                               : phase == "linked" ? "\"connected\""
                                                   : "\"connecting\""))
            << tool.lastLine();
        ASSERT_TRUE(phase != "discovering" || bench->runUntil([] { return isLinked(); }));
        tool.killIt();
        bench->makeAttemptsFail(false);
        if (phase == "linked") {
            OtherProgram idle;
            EXPECT_TRUE(
                RadioBench::runUntil(idle.platform, [&] { return !idle.platform.foreignLinks().empty(); }));
            EXPECT_TRUE(isLinked()) << "nobody has asked for its end";
        }
        OtherProgram next(services);
        EXPECT_TRUE(next.hearsTheBeacon());
        EXPECT_TRUE(next.platform.shutDown());
        EXPECT_FALSE(isLinked());
    }
}

// To what the tool offers, the service adds a Device Information of its own unless it is told not to.
TEST_P(LibraryOverStack, TheBeaconThatTheToolEmulatesIsLikeAnother) {
    ask("stack", "peer stop");
    for (const int informations : {1, 2}) {
        SCOPED_TRACE("Device Information services: " + std::to_string(informations));
        if (informations == 2) ask("stack", "service restart deviceid");
        ask("stack", "peer start zobiconnect emulate --adapter hci1 --minor " + std::to_string(informations));
        const auto beacon = range();
        EXPECT_EQ(beacon->minor().integerValue(), informations);

        // The last of the tool's services.
        const auto hasButtonMode = [&] {
            return ZOKManager::characteristicFromServiceAndPeripheral(
                       ZOKGATTProfile::buttonModeCharacteristic, ZOKGATTProfile::configurationService,
                       beacon->peripheral()) != nullptr;
        };
        bool isReportedWithAll = false;
        application->onEvent = [&](const std::string& event) {
            if (event == "connected") isReportedWithAll = hasButtonMode();
        };
        manager->connectBeaconWithCompletion(beacon, application->completion("connection complete"));
        ASSERT_TRUE(heard("connection complete"));
        EXPECT_EQ(std::ranges::count(*beacon->peripheral()->services(),
                                     ZOKGATTProfile::deviceInformationService, &CBService::UUID),
                  informations);
        // Seven answers make a connection, of which there are eight then.
        EXPECT_EQ(isReportedWithAll, informations == 1);
        EXPECT_TRUE(bench->runUntil(hasButtonMode));

        manager->firmwareVersionForBeaconWithCompletion(beacon, nullptr);
        EXPECT_TRUE(heard("ZOKBeaconFirmwareVersionNotification 1.0.0"));
        manager->setButtonActionsNotificationsForBeacon(true, beacon);
        EXPECT_TRUE(
            bench->runUntil([] { return ask("stack", "peer told subscribed: button action") == "yes"; }));
        ask("stack", "peer tell press 1");
        EXPECT_TRUE(heard("button 1"));

        EXPECT_EQ(ask("stack", "peer stop"), "0");
        EXPECT_TRUE(heard("disconnected error 7"));
        EXPECT_TRUE(bench->runUntil([&] { return manager->liveBeacons().empty(); }));
        EXPECT_THAT(ask("air", "state"), Not(HasSubstr("1: advertising")));
        takeEvents();
    }
}

}  // namespace
