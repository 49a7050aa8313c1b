#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "platform/Export.h"
#include "platform/NSData.h"
#include "platform/Platform.h"

/// Decodes the payload of a beacon's advertisement. Stateless; safe from any thread.
///
/// The payload is the service data that a beacon advertises under Device Information (180A). Numbers of two
/// bytes are big-endian; the MAC address comes least significant byte first.
///
///     bytes    all layouts
///     0-5      MAC address
///     6        not used
///     7-8      major
///     9-10     minor
///     11       layout version, signed
///     12       battery level
///     bytes    version 3                   version 2
///     13       temperature + 4 (13-14)     button action code, signed
///     15       button action code, signed
///
/// A payload shorter than 12 bytes has the short layout, which is version 1 and ends with the minor number.
/// Other versions end with the battery level. Bytes beyond a layout's end are ignored.
class ZOK_EXPORT ZOKProtocolUtils {
public:
    ZOKProtocolUtils() = delete;

    /// The bytes in reverse order.
    static std::vector<std::uint8_t> reverseBytes(std::span<const std::uint8_t> data);

    /// A new record with what the payload tells, stamped with the current second of the current platform's
    /// clock. The record's description is logged there.
    /// @throws platform::DataRangeError for a payload that ends before its layout does: one shorter than 11
    ///     bytes, than 13 when it has 12 or more, than 14 in version 2, or than 16 in version 3.
    static std::shared_ptr<ZOKBeacon> beaconFromData(std::span<const std::uint8_t> data);

    /// The same with the clock and the log of a platform that need not be the current one.
    static std::shared_ptr<ZOKBeacon> beaconFromDataOnPlatform(std::span<const std::uint8_t> data,
                                                               platform::Platform& platform);
};
