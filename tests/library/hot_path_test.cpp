// What a repeated advertisement of a live beacon allocates, through forwarding layers. A program of its own,
// which counts.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "Layers.h"
#include "ManagerRecorder.h"
#include "SeamRecorders.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

std::size_t allocations = 0;

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these stand below whatever else manages memory
void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

TEST(HotPathTest, ARepeatedAdvertisementAllocatesTheFreshRecordAndNothingElse) {
    using namespace zobi::platform;
    auto simulated = std::make_unique<simulation::SimulatedPlatform>(StandardPlatform::Time::virtualTime);
    simulated->log().setSink(nullptr);
    const auto platform = inLayers(std::move(simulated));
    const auto manager = ZOKManager::managerOnPlatform(*platform);
    const auto application = ManagerRecorder::of(manager);
    platform->runLoop().processPending();
    const auto payload = zobi::encodePayload({.major = 1, .minor = 7});
    const std::vector<CBServiceData> serviceData{{CBUUID::UUIDWithString("180F"), {}},
                                                 {CBUUID::UUIDWithString("180A"), payload}};
    const CBAdvertisementData data{"morvane", serviceData};
    const auto central = manager->centralManager();
    const auto handle = std::make_shared<RecordingPeripheral>();
    const auto advertise = [&] {
        dynamic_cast<CBCentralManagerDelegate&>(*central)
            .centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(*central, handle, data,
                                                                      NSNumber::numberWithInt(-60));
    };
    advertise();
    ASSERT_EQ(manager->liveBeacons().size(), 1U);
    const std::size_t before = allocations;
    for (int i = 0; i < 100; ++i) advertise();
    EXPECT_EQ(allocations - before, 100U);
}

}  // namespace
