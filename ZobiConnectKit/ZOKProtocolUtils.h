#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSData.h"
#include "zobi/platform/Platform.h"

/// The decoder of what beacons advertise. It has no state and is safe from any thread.
///
/// The payload is the service data that a beacon advertises under the UUID of Device Information (180A).
/// Numbers of two bytes are big-endian; the MAC address has its least significant byte first.
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
/// A payload of less than 12 bytes has the short layout: it counts as version 1 and ends after the minor
/// number. Versions other than 2 and 3 end after the battery level. Bytes after the end of a layout are
/// ignored.
class ZOBI_EXPORT ZOKProtocolUtils {
public:
    ZOKProtocolUtils() = delete;

    /// A copy of `data` with its bytes in reverse order.
    static std::vector<std::uint8_t> reverseBytes(std::span<const std::uint8_t> data);

    /// Decodes `data` into a new record. Its `timestamp` is the current second of the current platform's
    /// clock, and its description is written to that platform's log.
    /// @throws zobi::platform::DataRangeError for a payload that ends before its layout does: of less than 11
    ///     bytes; of exactly 12; of less than 14 in version 2, or less than 16 in version 3.
    static std::shared_ptr<ZOKBeacon> beaconFromData(std::span<const std::uint8_t> data);

    /// The same with the clock and the log of `platform`.
    static std::shared_ptr<ZOKBeacon> beaconFromDataOnPlatform(std::span<const std::uint8_t> data,
                                                               zobi::platform::Platform& platform);
};
