#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSData.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::platform {

class CBCentralManager;

/// States of the radio. A radio may report another value; it is passed on unchanged.
enum class CBManagerState : int {
    unknown = 0,       ///< Not reported yet.
    resetting = 1,     ///< The radio is gone or does not answer; it may come back.
    unsupported = 2,   ///< There is no radio, or no Bluetooth service.
    unauthorized = 3,  ///< The program may not use the radio.
    poweredOff = 4,    ///< The radio is off.
    poweredOn = 5,     ///< The radio can be used.
};

/// One service data element of an advertisement.
struct CBServiceData {
    /// The UUID in front of the data.
    CBUUID service;
    /// The bytes after the UUID. Valid for the length of the event. They have an address even if there are
    /// none of them, by which a `DataRangeError` about them is known.
    std::span<const std::uint8_t> data;
};

/// The contents of an advertisement, together with its scan response. Everything in it is a view, valid for
/// the length of the event.
struct CBAdvertisementData {
    /// The complete or shortened local name, as it came over the air: it need not be UTF-8. Absent when none
    /// was advertised.
    std::optional<std::string_view> localName;
    /// The service data elements, in the order in which they were advertised.
    std::span<const CBServiceData> serviceData;

    /// Whether the error is about the bytes of one of these elements: then, and only then, the radio drops
    /// this advertisement.
    bool isMalformedBy(const DataRangeError& error) const {
        return std::ranges::any_of(serviceData,
                                   [&](const CBServiceData& element) { return error.isAbout(element.data); });
    }
};

/// Options of a scan.
struct CBScanOptions {
    /// True: every advertisement is reported. False: each peripheral is reported once per scan; when a scan
    /// has found more than 100,000 that nobody holds, the first of them may be reported again.
    bool allowDuplicates = false;
};

/// Receives the events of a central manager, on the main thread, from inside the run loop.
class ZOBI_EXPORT CBCentralManagerDelegate {
public:
    virtual ~CBCentralManagerDelegate();

    /// The state of the radio has changed, or is reported for the first time: see `CBCentralManager::state`.
    virtual void centralManagerDidUpdateState(CBCentralManager& central) = 0;

    /// An advertisement was received. `rssi` is its signal strength in dBm, without a value when the radio
    /// does not know it.
    /// @throws DataRangeError for a payload that is too short: the radio drops this advertisement and goes
    ///     on. An error about other bytes is none of the advertisement, and leaves the run loop.
    virtual void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const CBAdvertisementData& /*advertisementData*/, NSNumber /*rssi*/) {}

    /// A link is up: the attempt to connect has succeeded.
    virtual void centralManagerDidConnectPeripheral(CBCentralManager& /*central*/,
                                                    const std::shared_ptr<CBPeripheral>& /*peripheral*/) {}

    /// An attempt to connect has failed. `error` says why, with a code of `CBError`; it is never null.
    virtual void centralManagerDidFailToConnectPeripheralError(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const NSError* /*error*/) {}

    /// A link, or a pending attempt that was cancelled, has ended. `error` is null when this central manager
    /// ended it; otherwise it says why, with a code of `CBError`.
    virtual void centralManagerDidDisconnectPeripheralError(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const NSError* /*error*/) {}
};

/// The central role of Bluetooth LE: scans and connects for one client. Main thread only.
///
/// `Platform::makeCentralManager` makes one for a delegate, which it does not own. The state is unknown until
/// it is first reported, soon after, through the run loop. No event comes from inside a call.
///
/// When the radio leaves the state powered on, the scan, the attempts and the links end. The delegate
/// receives the state first; then, in the order of the requests to connect, each attempt fails and each link
/// ends, with `CBError::operationCancelled`. When the radio is powered on again, the client must start the
/// scan again. Every call ignores a peripheral that is null or of another central manager.
class ZOBI_EXPORT CBCentralManager {
public:
    virtual ~CBCentralManager();

    /// The state that was last reported.
    virtual CBManagerState state() const = 0;

    /// True from `scanForPeripheralsWithServicesOptions` until the scan ends.
    virtual bool isScanning() const = 0;

    /// Starts a scan, which replaces one that is running. Ignored unless the radio is powered on.
    /// @param services only peripherals that advertise one of these are reported; empty for all peripherals.
    /// @param options whether each peripheral is reported more than once.
    virtual void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                       CBScanOptions options) = 0;

    /// Ends the scan, if one is running.
    virtual void stopScan() = 0;

    /// Starts an attempt to connect. It stays pending, without a limit, until it succeeds, fails or is
    /// cancelled, so that a peripheral out of range is connected when it comes back. Each attempt is reported
    /// exactly once: as a link, a failure or a disconnection. A request while an attempt is pending has no
    /// report of its own. If the link is up already, that is reported once more and nothing else happens.
    /// Unless the radio is powered on, the attempt fails with `CBError::operationCancelled`.
    virtual void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) = 0;

    /// Ends a link or a pending attempt, if there is one. The end is reported as a disconnection without an
    /// error.
    virtual void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) = 0;
};

}  // namespace zobi::platform
