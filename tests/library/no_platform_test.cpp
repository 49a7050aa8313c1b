// A process that installs no platform: everything works but the radio. A program of its own, for the first
// use decides.

#include <gmock/gmock.h>

#include <stdexcept>

#include "ManagerRecorder.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using namespace zobi::platform;

TEST(NoPlatformTest, DecodingNeedsNoRadioAndTheManagerReportsThatThereIsNone) {
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(ZOKProtocolUtils::beaconFromData({}), DataRangeError);
    const auto manager = ZOKManager::shared();
    const auto application = ManagerRecorder::of(manager);
    auto& loop = Platform::current().runLoop();
    manager->startMonitoring();
    application->onReport = [&] { loop.stop(); };
    manager->updateRangedBeaconsTimerFired(nullptr);
    loop.run();
    loop.processPending();
    EXPECT_THAT(application->events, ::testing::ElementsAre("state 2"));
    EXPECT_FALSE(manager->isMonitoring());
    auto late = std::make_unique<simulation::SimulatedPlatform>(StandardPlatform::Time::virtualTime);
    EXPECT_THROW(Platform::install(std::move(late)), std::logic_error);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("Z ----->State BLE unsupported (CBCentralManagerStateResetting)\n"));
}

}  // namespace
