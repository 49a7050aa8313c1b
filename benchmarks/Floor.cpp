#include "Floor.h"

#include <chrono>
#include <utility>

using platform::NSNumber;

namespace floor_work {

std::unique_ptr<Record> decode(std::span<const std::uint8_t> payload) {
    if (payload.size() < 16 || payload[11] != 3) return nullptr;
    // The values become what they are declared to be; the filling stays as it is.
    auto record = std::make_unique_for_overwrite<Record>();
    constexpr std::size_t addressSize = 6;
    record->macAddress.resize(2 * addressSize);
    for (std::size_t i = 0; i < addressSize; ++i) {
        const std::uint8_t byte = payload[addressSize - 1 - i];
        record->macAddress[2 * i] = "0123456789ABCDEF"[byte >> 4];
        record->macAddress[2 * i + 1] = "0123456789ABCDEF"[byte & 0xF];
    }
    record->major = NSNumber::numberWithInt(payload[7] << 8 | payload[8]);
    record->minor = NSNumber::numberWithInt(payload[9] << 8 | payload[10]);
    record->scanRspVersion = NSNumber::numberWithInt(3);
    record->advertBatteryLevel = NSNumber::numberWithUnsignedChar(payload[12]);
    record->temperature = NSNumber::numberWithInt((payload[13] << 8 | payload[14]) - 4);
    record->advertAction = NSNumber::numberWithInt(static_cast<std::int8_t>(payload[15]));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    record->timestamp = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return record;
}

void takeIn(std::span<const std::uint8_t> payload, platform::CBPeripheral* peripheral, Records& live) {
    auto sighted = decode(payload);
    if (!sighted) return;
    sighted->peripheral = peripheral;
    const auto major = sighted->major.integerValue();
    const auto minor = sighted->minor.integerValue();
    const auto timestamp = sighted->timestamp;
    bool isLive = false;
    for (const auto& record : live) {
        if (record->major.integerValue() != major || record->minor.integerValue() != minor) continue;
        record->timestamp = timestamp;
        isLive = true;
    }
    if (!isLive) live.push_back(std::move(sighted));
}

}  // namespace floor_work
