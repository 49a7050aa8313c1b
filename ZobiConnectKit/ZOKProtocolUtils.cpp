#include "ZobiConnectKit/ZOKProtocolUtils.h"

#include <cstddef>
#include <string>

using zobi::platform::NSNumber;
using zobi::platform::subdata;

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t shortLayoutLimit = 12;
constexpr int temperatureOffset = 4;

std::uint8_t byteAt(Bytes data, std::size_t offset) {
    return subdata(data, offset, 1)[0];
}

NSNumber signedByteAt(Bytes data, std::size_t offset) {
    return NSNumber::numberWithInt(static_cast<std::int8_t>(byteAt(data, offset)));
}

int bigEndianAt(Bytes data, std::size_t offset) {
    const Bytes bytes = subdata(data, offset, 2);
    return bytes[0] << 8 | bytes[1];
}

void writeMacAddress(Bytes leastSignificantFirst, std::string& text) {
    constexpr const char* digits = "0123456789ABCDEF";
    for (std::size_t i = 0; i < leastSignificantFirst.size(); ++i) {
        const std::uint8_t byte = leastSignificantFirst[leastSignificantFirst.size() - 1 - i];
        text[2 * i] = digits[byte >> 4];
        text[2 * i + 1] = digits[byte & 0xF];
    }
}

}  // namespace

std::vector<std::uint8_t> ZOKProtocolUtils::reverseBytes(Bytes data) {
    return {data.rbegin(), data.rend()};
}

std::shared_ptr<ZOKBeacon> ZOKProtocolUtils::beaconFromData(Bytes data) {
    return beaconFromDataOnPlatform(data, zobi::platform::Platform::current());
}

std::shared_ptr<ZOKBeacon> ZOKProtocolUtils::beaconFromDataOnPlatform(Bytes data,
                                                                      zobi::platform::Platform& platform) {
    auto beacon = std::make_shared<ZOKBeacon>();
    beacon->setTimestamp(platform.clock().secondsSince1970());
    const Bytes address = subdata(data, 0, 6);
    // In place, for a text just written character by character is slow to move.
    writeMacAddress(address, beacon->macAddress_.emplace(2 * address.size(), '0'));
    beacon->setMajor(NSNumber::numberWithInt(bigEndianAt(data, 7)));
    beacon->setMinor(NSNumber::numberWithInt(bigEndianAt(data, 9)));
    if (data.size() < shortLayoutLimit) {
        beacon->setAdvertBatteryLevel(NSNumber::numberWithUnsignedChar(0));
        beacon->setAdvertAction(NSNumber::numberWithInt(0));
        beacon->setScanRspVersion(NSNumber::numberWithInt(1));
    } else {
        beacon->setScanRspVersion(signedByteAt(data, 11));
        beacon->setAdvertBatteryLevel(NSNumber::numberWithUnsignedChar(byteAt(data, 12)));
        // Version 2 has its button action where version 3 has its temperature.
        if (beacon->scanRspVersion().integerValue() == 3) {
            beacon->setTemperature(NSNumber::numberWithInt(bigEndianAt(data, 13) - temperatureOffset));
            beacon->setAdvertAction(signedByteAt(data, 15));
        } else if (beacon->scanRspVersion().integerValue() == 2) {
            beacon->setAdvertAction(signedByteAt(data, 13));
        }
    }
    if (platform.log().isEnabled(zobi::platform::Log::Category::diagnostic))
        platform.log().log("%@", beacon->description());
    return beacon;
}
