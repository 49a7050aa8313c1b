#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "platform/CBPeripheral.h"
#include "platform/CBUUID.h"
#include "platform/Export.h"
#include "platform/NSError.h"
#include "platform/NSNumber.h"

namespace platform {

class CBCentralManager;

/// States of the radio. A radio may report a value outside the table; it is passed on as it is.
enum class CBManagerState : int {
    unknown = 0,
    resetting = 1,
    unsupported = 2,
    unauthorized = 3,
    poweredOff = 4,
    poweredOn = 5,
};

/// One service data element of an advertisement.
struct CBServiceData {
    CBUUID service;
    std::span<const std::uint8_t> data;
};

/// What an advertisement carried, scan response included. Views, valid for the length of the event.
struct CBAdvertisementData {
    /// The advertised (complete or shortened) local name. Off the air as it came: it need not be UTF-8.
    std::optional<std::string_view> localName;
    /// In the order in which the advertisement carried them.
    std::span<const CBServiceData> serviceData;
};

struct CBScanOptions {
    /// Report every sighting; otherwise each peripheral is reported once per scan.
    bool allowDuplicates = false;
};

/// Receives the events of a central manager, on the main thread and through the run loop.
class ZOK_EXPORT CBCentralManagerDelegate {
public:
    virtual ~CBCentralManagerDelegate() = default;

    /// The state of the radio changed, or is reported for the first time.
    virtual void centralManagerDidUpdateState(CBCentralManager& central) = 0;

    /// An advertisement was received.
    /// @param rssi the signal strength in dBm; nothing when the radio could not tell.
    /// @throws DataRangeError for a payload that is too short: the radio drops that advertisement.
    virtual void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const CBAdvertisementData& /*advertisementData*/, NSNumber /*rssi*/) {}

    /// A link is up: the outcome of an attempt that succeeded.
    virtual void centralManagerDidConnectPeripheral(CBCentralManager& /*central*/,
                                                    const std::shared_ptr<CBPeripheral>& /*peripheral*/) {}

    /// An attempt to connect failed.
    /// @param error why, with a code of `CBError`; never null.
    virtual void centralManagerDidFailToConnectPeripheralError(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const NSError* /*error*/) {}

    /// A link, or a pending attempt that was cancelled, has ended.
    /// @param error null when the end was asked for; otherwise why, with a code of `CBError`.
    virtual void centralManagerDidDisconnectPeripheralError(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& /*peripheral*/,
        const NSError* /*error*/) {}
};

/// The Bluetooth central service, as one client has it. Main thread only.
///
/// A platform makes it for a delegate that it does not own. The first state report follows through the run
/// loop, soon after; before it the state is unknown. Answers and events never come from inside a call.
///
/// Any state but powered on ends the scan, the attempts and the links. The delegate hears of the state first;
/// then, in the order in which the connections were asked for, each attempt fails and each link ends, with
/// `CBError::operationCancelled`. The scan is forgotten: when power comes back, scanning begins only when it
/// is asked for again. A null peripheral, or another central's, is harmless in every call.
class ZOK_EXPORT CBCentralManager {
public:
    virtual ~CBCentralManager() = default;

    virtual CBManagerState state() const = 0;

    virtual bool isScanning() const = 0;

    /// Starts a scan, in place of the one that is running. Ignored while the radio is not powered on.
    /// @param services report only peripherals that advertise one of these; empty for all peripherals.
    virtual void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                       CBScanOptions options) = 0;

    /// Ends the scan. Harmless when none is running.
    virtual void stopScan() = 0;

    /// Starts an attempt to connect, which stays pending until it succeeds, fails or is cancelled: a
    /// peripheral out of range is connected when it comes back, however long that takes. Each attempt has
    /// exactly one outcome. A request while one is pending joins it. A link that is up already is reported
    /// once more, and is otherwise left as it is. While the radio is not powered on, an attempt fails with
    /// `CBError::operationCancelled`.
    virtual void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) = 0;

    /// Ends a link or a pending attempt; the end is reported as a disconnection without an error. Harmless
    /// when there is neither.
    virtual void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) = 0;
};

}  // namespace platform
