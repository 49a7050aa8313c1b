#include "RunTool.h"

#include <csignal>
#include <cstdlib>
#include <memory>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/beacon/BeaconVisit.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace zobi::tool {
namespace {

using platform::Platform;
using platform::simulation::SimulatedPlatform;
using ::testing::EndsWith;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

// In it, 1.1 is whole, and 1.2 cannot be pinged.
const std::string connectable = "/tests/tool/scenarios/connectable.json";

/// Pings a beacon in this process, and ends it: with success if all beacons are then as they should be.
[[noreturn]] void pingAndLook(const std::string& minor) {
    CLI::App tool;
    const Command ping = addPingCommand(tool);
    tool.parse("ping 1 " + minor + " --virtual-time --scenario " ZOBI_SOURCES + connectable);
    try {
        ping.run();
    } catch (const Failure&) {
        EXPECT_EQ(minor, "2");
    }
    const auto& devices = dynamic_cast<SimulatedPlatform&>(Platform::current()).world().devices();
    for (const auto& device : devices) EXPECT_FALSE(device->isConnected());
    EXPECT_EQ(devices[0]->gatt().value(ZOKGATTProfile::alertLevelCharacteristic)->empty(), minor == "2");
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST(ToolBeacon, IsPingedAndLeftWhateverComesOfIt) {
    for (const auto* const minor : {"1", "2"}) EXPECT_EXIT(pingAndLook(minor), ExitedWithCode(0), "");
}

[[noreturn]] void loseAnother() {
    BeaconOptions options;
    options.identity = {1, 1};
    options.radio.virtualTime = true;
    options.radio.scenario = ZOBI_SOURCES + connectable;
    BeaconVisit visit(options);
    visit.connect();
    visit.client().zobiConnectManagerDidBeaconDisconnectedWithError(ZOKManager::shared(),
                                                                    std::make_shared<ZOKBeacon>(), nullptr);
    std::exit(visit.client().link() == BeaconClient::Link::connected ? 0 : 1);
}

TEST(ToolBeacon, IsNotTakenForAnother) {
    EXPECT_EXIT(loseAnother(), ExitedWithCode(0), "");
}

TEST(ToolBeacon, IsLeftWhenInterrupted) {
    Tool ping({"ping", "9", "9", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(ping.signalAfter("looking for beacon 9.9 ...", SIGINT));
    EXPECT_EQ(ping.end(), 1);
    EXPECT_THAT(ping.written, EndsWith("zobiconnect: interrupted\r\n"));

    Tool watch({"watch", "1", "1", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(watch.signalAfter("s  connected", SIGINT));
    EXPECT_EQ(watch.end(), 0);
    EXPECT_THAT(watch.written, HasSubstr("the link to beacon 1.1 has ended"));
    EXPECT_THAT(watch.written, Not(HasSubstr("disconnecting"))) << "the table shows it";
    EXPECT_THAT(watch.written, HasSubstr("\x1b[?1049lbeacon 1.1 | "));
    EXPECT_THAT(watch.written, HasSubstr("s: 1 connection, "));
}

}  // namespace
}  // namespace zobi::tool
