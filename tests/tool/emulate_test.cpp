// What is done to an emulated beacon, and what comes of it on the air, in virtual time.

#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/zobiconnect/emulate/EmulateControls.h"
#include "tools/zobiconnect/emulate/EmulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/PollWaiting.h"

namespace zobi::tool {
namespace {

using namespace zobi::platform;
using ::testing::ElementsAre;
using ::testing::StartsWith;

class Emulate : public ::testing::Test {
protected:
    simulation::SimulatedPlatform platform{StandardPlatform::Time::virtualTime, 0,
                                           std::make_unique<PollWaiting>()};
    zobi::SimulatedBeacon& beacon = zobi::addBeacon(platform.world(), {});
    std::vector<std::string> told;
    Teller tell = [this](auto, const auto&, const auto& line) { told.push_back(line); };
};

TEST_F(Emulate, ObeysTheLinesOfAScriptThatAreCommands) {
    std::array<int, 2> script{};
    ASSERT_EQ(::pipe(script.data()), 0);
    ::dup2(script[0], STDIN_FILENO);
    ::close(script[0]);
    EmulateControls controls(platform.runLoop(), beacon,
                             {nullptr, [this] { told.emplace_back("quit"); }, tell});
    const auto enter = [&](const std::string& text) {
        ASSERT_EQ(::write(script[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        platform.runLoop().processPending();
    };
    enter("press 1\nbattery 256\npress 3\npress 1 2 3\ntemperature -5\nquit 1\n\ndance\nbatt");
    enter("ery 5");
    EXPECT_THAT(told, ElementsAre("button pressed: action 1"));
    EXPECT_EQ(beacon.buttonAction(), 2);
    enter("\nsilence");
    enter("\n");
    EXPECT_FALSE(beacon.isInRange());
    enter("press 2 7\nresume\naccelerometer 65535 1 258\npress 1" + std::string(9000, ' ') +
          "\nquit\npress 2");
    EXPECT_TRUE(beacon.isInRange());
    EXPECT_EQ(beacon.buttonAction(), 3);
    int left = 0;
    EXPECT_EQ(::ioctl(STDIN_FILENO, FIONREAD, &left), 0);
    EXPECT_GT(left, 0) << "a flood is read in parts";
    ::close(script[1]);
    for (int i = 0; i < 4; ++i) platform.runLoop().processPending();
    EXPECT_EQ(platform.runLoop().descriptors().size(), 1U) << "its end is watched no more";
    EXPECT_THAT(told, ElementsAre("button pressed: action 1", "battery: 5%", "button pressed: action 2",
                                  "accelerometer: 65535 1 258", "quit"));
}

/// A way to the radio that goes nowhere.
struct DeafManager final : bluez::PeripheralManager {
    CBManagerState state() const override { return current; }
    std::string advice() const override { return "advice " + std::to_string(static_cast<int>(current)); }
    void startAdvertising(bluez::LocalAdvertisement /*advertisement*/) override { ++begun; }
    void stopAdvertising() override {}
    bool isAdvertising() const override { return false; }
    void notify(GATTPlace /*place*/, std::span<const std::uint8_t> /*value*/) override {}
    void disconnectCentrals() override { ++disconnections; }
    void shutDown(std::function<void()> /*completion*/) override {}

    CBManagerState current = CBManagerState::poweredOn;
    int begun = 0;
    int disconnections = 0;
};

TEST_F(Emulate, EndsLinksInALongSilenceAndWaitsForAServiceThatRestarts) {
    auto manager = std::make_shared<DeafManager>();
    const auto emulated = std::make_shared<EmulatedBeacon>(platform.runLoop(), beacon, tell);
    emulated->start([&](const auto&, const auto&) { return manager; });
    const auto passTimeouts = [&](double count) {
        platform.runLoop().runFor(count * beacon.description().link.supervisionTimeout);
    };
    for (const double silence : {0.5, 0.9}) {
        beacon.comeIntoRange();
        passTimeouts(0.4);
        beacon.goOutOfRange();
        passTimeouts(silence);
    }
    EXPECT_EQ(manager->begun, 2) << "anew after the silence";
    EXPECT_EQ(manager->disconnections, 0);
    passTimeouts(0.2);
    EXPECT_EQ(manager->disconnections, 1);

    manager->current = CBManagerState::resetting;
    emulated->peripheralManagerDidUpdateState(*manager);
    EXPECT_THAT(told, ElementsAre("silent", "silent", "advice 1"));
    EXPECT_EQ(emulated->failure(), "");
    manager->current = CBManagerState::poweredOff;
    emulated->peripheralManagerDidUpdateState(*manager);
    EXPECT_EQ(emulated->failure(), "advice 4");
    emulated->end([] {});
    manager->current = CBManagerState::unsupported;
    emulated->peripheralManagerDidUpdateState(*manager);
    EXPECT_EQ(emulated->failure(), "advice 4") << "it ends, whatever the radio does";
    emulated->peripheralManagerDidStartAdvertising(*manager, nullptr);
    EXPECT_THAT(told.back(), StartsWith("on the air as beacon "));
}

}  // namespace
}  // namespace zobi::tool
