// What listening finds on the air, by what the service signals and what is seen of the controller.

#include <gtest/gtest.h>

#include "ScriptedPlatform.h"
#include "platform/bluez/diagnosis/Listening.h"

namespace zobi::platform::bluez {
namespace {

using Verdict = Hearing::Verdict;

class ListeningDoctor : public ::testing::Test {
protected:
    /// Listens for so long. The controller begins and ends a scan every 10.3 s, unless it is deaf.
    const Hearing& listen(double seconds) {
        int ends = 0;
        auto listening = std::make_shared<Listening>(machine.context(), seconds, [&] { ++ends; });
        listening->start();
        runLoop.runFor(seconds + 11);
        EXPECT_EQ(ends, 1);
        last = listening->hearing();
        listening.reset();
        // Its connections to the bus end.
        runLoop.runFor(1);
        return last;
    }
    Verdict verdict(double seconds) { return listen(seconds).verdict; }
    Finding::Severity severity() const { return last.findings.front().severity; }
    void SetUp() override {
        machine.channel->countScanSwitches = [this] { return switches; };
        runLoop.every(10.3, [this] {
            if (!isDeaf) *switches += 2;
        });
    }

    ScriptedPlatform machine;
    RunLoop& runLoop = machine.runLoop();
    ScriptedService& service = machine.service;
    ScriptedDevice& beacon = service.add({});
    bool isDeaf = false;
    /// Nothing where they cannot be seen.
    std::optional<unsigned> switches = 1;
    Hearing last;
};

TEST_F(ListeningDoctor, TellsFineFromThrottled) {
    beacon.isInRange = true;
    EXPECT_EQ(verdict(20), Verdict::fine);
    ASSERT_EQ(last.devices.size(), 1);
    EXPECT_EQ(last.devices[0].address, "00:00:5E:00:53:02");
    EXPECT_EQ(last.devices[0].name, "morvane");
    EXPECT_EQ(last.devices[0].rssi, -60);
    EXPECT_NEAR(static_cast<double>(last.advertisements), 20, 1);
    EXPECT_NEAR(last.devices[0].meanGap, 1, 0.01);
    EXPECT_NEAR(last.seconds, 20, 0.01);
    EXPECT_EQ(severity(), Finding::Severity::good);
    beacon.isInRange = false;
    const std::string other = firstAdapter + "/dev_00_00_5E_00_53_0B";
    service.addObject(other, {{deviceInterface, {}}});
    runLoop.every(10.3, [&] { service.change(other, deviceInterface, {{"RSSI", std::int16_t{127}}}); });
    EXPECT_EQ(verdict(30), Verdict::throttled);
    EXPECT_EQ(last.devices.at(0).rssi, std::nullopt);
    EXPECT_NEAR(last.devices.at(0).longestGap, 10.3, 0.01);
    EXPECT_EQ(verdict(11), Verdict::unclear) << "it is heard once";
    // One that is heard at its own rate proves the contrary.
    beacon.isInRange = true;
    EXPECT_EQ(verdict(30), Verdict::fine);
    EXPECT_EQ(last.devices.at(0).name, "morvane") << "the one that is heard most";
}

TEST_F(ListeningDoctor, TellsDeafFromEmpty) {
    EXPECT_EQ(verdict(20), Verdict::empty);
    EXPECT_EQ(severity(), Finding::Severity::limitation);
    isDeaf = true;
    EXPECT_EQ(verdict(11), Verdict::unclear) << "a scan takes longer";
    EXPECT_EQ(verdict(20), Verdict::deaf);
    EXPECT_EQ(severity(), Finding::Severity::obstacle);
    EXPECT_NE(last.findings[0].advice.find("systemctl restart bluetooth"), std::string::npos);
    // It falls deaf meanwhile.
    beacon.isInRange = true;
    runLoop.after(5, [&] { beacon.isInRange = false; });
    EXPECT_EQ(verdict(20), Verdict::deaf);
    EXPECT_NEAR(last.silence, 15, 1.01);
    switches.reset();
    EXPECT_EQ(verdict(20), Verdict::unclear) << "the controller cannot be seen";
}

TEST_F(ListeningDoctor, NamesLinksThatKeepDevicesSilentAndARadioThatGoesAway) {
    beacon.isInRange = true;
    EXPECT_EQ(verdict(5), Verdict::fine);
    service.connectByOther(beacon);
    EXPECT_EQ(verdict(20), Verdict::empty);
    ASSERT_EQ(last.findings.size(), 2);
    EXPECT_TRUE(last.findings[1].advice.ends_with("bluetoothctl disconnect 00:00:5E:00:53:02"));
    runLoop.after(5, [&] {
        service.endLink(beacon, 0x13);
        service.setPowered(false);
    });
    EXPECT_EQ(verdict(20), Verdict::unusable);
    EXPECT_NEAR(last.seconds, 5, 0.1);
    ASSERT_EQ(last.findings.size(), 1);
    EXPECT_EQ(last.findings[0].advice, "Turn it on: bluetoothctl power on");
    service.hasBus = false;
    EXPECT_EQ(verdict(20), Verdict::unusable);
    EXPECT_EQ(last.seconds, 0);
}

}  // namespace
}  // namespace zobi::platform::bluez
