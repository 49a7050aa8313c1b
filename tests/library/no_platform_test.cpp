// A process that installs no platform: everything works but the radio. A program of its own, for the first
// use decides.

#include <stdexcept>

#include "support.h"

namespace {

TEST(NoPlatformTest, DecodingNeedsNoRadioAndTheManagerReportsThatThereIsNone) {
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(ZOKProtocolUtils::beaconFromData({}), zobi::platform::DataRangeError);
    const auto delegate = std::make_shared<RecordingDelegate>();
    const auto manager = ZOKManager::shared();
    delegate->expectedManager = manager;
    manager->setDelegate(delegate);
    auto& loop = zobi::platform::Platform::current().runLoop();
    manager->startMonitoring();
    delegate->onReport = [&] { loop.stop(); };
    manager->updateRangedBeaconsTimerFired(nullptr);
    loop.run();
    loop.processPending();
    EXPECT_THAT(delegate->states, ::testing::ElementsAre(2));
    EXPECT_FALSE(manager->isMonitoring());
    EXPECT_THROW(
        zobi::platform::Platform::install(std::make_unique<zobi::platform::simulation::SimulatedPlatform>(
            zobi::platform::StandardPlatform::Time::virtualTime)),
        std::logic_error);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("Z ----->State BLE unsupported (CBCentralManagerStateResetting)\n"));
}

}  // namespace
