#include "tools/zobiconnect/beacon/BeaconVisit.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "tools/zobiconnect/Command.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace zobi::tool {
namespace {

using platform::Platform;
using platform::simulation::SimulatedPlatform;
using ::testing::ExitedWithCode;

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

}  // namespace
}  // namespace zobi::tool
