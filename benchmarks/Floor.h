#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/NSNotificationCenter.h"
#include "zobi/platform/NSNumber.h"

/// The least work that gives what the library gives for the same payload or value: what the library is
/// measured against. It knows no manager, no platform and no log. References it counts only where it calls a
/// delegate, which may let go of itself and of the record meanwhile.
namespace zobi::floor_work {

/// What a `ZOKBeacon` knows, in plain values.
struct Values {
    zobi::platform::CBPeripheral* peripheral = nullptr;
    const std::string* firmwareVersion = nullptr;
    zobi::platform::NSNumber major;
    zobi::platform::NSNumber minor;
    std::int64_t rssi = 0;
    zobi::platform::NSNumber batteryLevel;
    std::string macAddress;
    zobi::platform::NSNumber advertBatteryLevel;
    zobi::platform::NSNumber advertAction;
    zobi::platform::NSNumber scanRspVersion;
    zobi::platform::NSNumber temperature;
    std::int64_t timestamp = 0;
    ZOKAccelerometerAxes accelerometer;
    const ZOKBeaconCompletion* connectionCompletionBlock = nullptr;
    const ZOKBeaconCompletion* disconnectionCompletionBlock = nullptr;
};

/// A pointer and two counts stand before a record that `std::make_shared` made.
inline constexpr std::size_t controlBlockSize = sizeof(void*) + 2 * sizeof(int);

/// As large on the heap as a record of the library, so that the allocator and the caches have the same to
/// do. The filling is never written.
struct Record : Values {  // NOLINT(cppcoreguidelines-pro-type-member-init)
    std::array<std::byte, sizeof(ZOKBeacon) + controlBlockSize - sizeof(Values)> filling;
};
static_assert(sizeof(Record) == sizeof(ZOKBeacon) + controlBlockSize);

/// In the order in which they were first seen.
using Records = std::vector<std::unique_ptr<Record>>;

/// Decodes a payload of layout version 3; null for any other.
std::unique_ptr<Record> decode(std::span<const std::uint8_t> payload);

/// Decodes a payload and stamps each live record of equal major and minor; the new one joins them if there
/// is none.
void takeIn(std::span<const std::uint8_t> payload, zobi::platform::CBPeripheral* peripheral, Records& live);

/// Who hears of values, and of which beacons.
struct Audience {
    const std::weak_ptr<ZOKManagerDelegate>& delegate;
    zobi::platform::NSNotificationCenter& center;
    /// The one that the delegate is called with.
    const std::shared_ptr<ZOKManager>& manager;
    const std::vector<std::shared_ptr<ZOKBeacon>>& live;
};

/// Decodes a characteristic's value, keeps in the record what is kept there, and tells of it.
void takeValue(const zobi::platform::CBPeripheral& peripheral,
               const zobi::platform::CBCharacteristic& characteristic, const Audience& audience);

}  // namespace zobi::floor_work
