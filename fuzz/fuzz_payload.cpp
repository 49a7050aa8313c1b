// Decodes arbitrary bytes as the payload of an advertisement, by itself and off the simulated air. A payload
// is refused exactly when its layout needs more bytes than it has; nothing else is ever thrown.

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "support.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using zobi::platform::simulation::SimulatedPlatform;

/// Whether a payload has all the bytes that its layout needs.
bool isComplete(std::span<const std::uint8_t> payload) {
    if (payload.size() < 12) return payload.size() == 11;
    const std::size_t needed = payload[11] == 3 ? 16 : payload[11] == 2 ? 14 : 13;
    return payload.size() >= needed;
}

bool decodes(std::span<const std::uint8_t> payload, SimulatedPlatform& platform) {
    try {
        const auto record = ZOKProtocolUtils::beaconFromDataOnPlatform(payload, platform);
        require(record->macAddress()->size() == 12);
        require(!record->description().empty());
        return true;
    } catch (const zobi::platform::DataRangeError&) {
        return false;
    }
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::span payload(bytes, size);
    SimulatedPlatform platform(zobi::platform::StandardPlatform::Time::virtualTime);
    platform.log().setSink(nullptr);
    require(decodes(payload, platform) == isComplete(payload));

    const auto manager = ZOKManager::managerOnPlatform(platform);
    platform.runLoop().processPending();
    manager->startMonitoring();
    zobi::addBeacon(platform.world(), {.serviceData = {{{zobi::platform::CBUUID::UUIDWithString("180A"),
                                                         {payload.begin(), payload.end()}}}}})
        .comeIntoRange();
    platform.runLoop().runFor(1.5);
    require(manager->liveBeacons().size() == (isComplete(payload) ? 1 : 0));
    return 0;
}
