// The process's one platform and one manager. A program of its own, for there is but one of each; its tests
// run in their order, in one process.

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "Layers.h"
#include "ManagerRecorder.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using namespace zobi::platform;
using simulation::SimulatedPlatform;

SimulatedPlatform* installed = nullptr;

TEST(SharedManagerTest, APlatformIsInstalledOnceAndBeforeItsFirstUse) {
    EXPECT_THROW(Platform::install(nullptr), std::invalid_argument);
    auto platform = std::make_unique<SimulatedPlatform>(StandardPlatform::Time::real);
    platform->log().setSink(nullptr);
    installed = platform.get();
    auto layers = inLayers(std::move(platform));
    const Platform* const outermost = layers.get();
    Platform::install(std::move(layers));
    EXPECT_EQ(&Platform::current(), outermost);
    EXPECT_THROW(Platform::install(std::make_unique<SimulatedPlatform>(StandardPlatform::Time::real)),
                 std::logic_error);
}

TEST(SharedManagerTest, FirstCallsFromManyThreadsWhileTheLoopRunsGiveOneManager) {
    std::atomic<int> ready = 0;
    std::vector<std::shared_ptr<ZOKManager>> seen(8);
    std::vector<std::thread> threads;
    auto& loop = installed->runLoop();
    const auto posting = loop.every(0.0001, [] {
        installed->application().setApplicationState(UIApplicationState::background);
        installed->application().setApplicationState(UIApplicationState::active);
    });
    // From inside the loop, so that it is running when they make the manager.
    loop.dispatchAsync([&] {
        for (auto& manager : seen) {
            threads.emplace_back([&] {
                manager = ZOKManager::shared();
                if (++ready == static_cast<int>(seen.size())) loop.dispatchAsync([&] { loop.stop(); });
            });
        }
    });
    loop.run();
    for (auto& thread : threads) thread.join();
    posting->invalidate();
    for (const auto& manager : seen) EXPECT_EQ(manager, ZOKManager::shared());
}

TEST(SharedManagerTest, WorksOnTheInstalledPlatform) {
    const auto application = ManagerRecorder::of(ZOKManager::shared());
    zobi::addBeacon(installed->world(), {.minor = 1, .buttonAction = 1, .advertisingInterval = 0.001})
        .comeIntoRange();
    ZOKManager::shared()->startMonitoring();
    application->onEvent = [](const auto& /*button*/) { installed->runLoop().stop(); };
    installed->runLoop().run();
    EXPECT_EQ(application->buttons.size(), 1U);
    std::string logged;
    installed->log().setSink([&](std::string_view line) { logged = line; });
    const auto record = ZOKProtocolUtils::beaconFromData(std::vector<std::uint8_t>(11));
    installed->log().setSink(nullptr);
    EXPECT_EQ(logged, record->description());
}

}  // namespace
