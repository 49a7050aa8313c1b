// A process that installs no platform: everything works but the radio. A program of its own, for the first
// use decides.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "ManagerRecorder.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

TEST(NoPlatformTest, DecodingNeedsNoRadioAndTheManagerReportsThatThereIsNone) {
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(ZOKProtocolUtils::beaconFromData({}), zobi::platform::DataRangeError);
    const auto manager = ZOKManager::shared();
    const auto application = ManagerRecorder::of(manager);
    auto& loop = zobi::platform::Platform::current().runLoop();
    manager->startMonitoring();
    application->onReport = [&] { loop.stop(); };
    manager->updateRangedBeaconsTimerFired(nullptr);
    loop.run();
    loop.processPending();
    EXPECT_THAT(application->events, ::testing::ElementsAre("state 2"));
    EXPECT_FALSE(manager->isMonitoring());
    EXPECT_THROW(
        zobi::platform::Platform::install(std::make_unique<zobi::platform::simulation::SimulatedPlatform>(
            zobi::platform::StandardPlatform::Time::virtualTime)),
        std::logic_error);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("Z ----->State BLE unsupported (CBCentralManagerStateResetting)\n"));
}

}  // namespace
