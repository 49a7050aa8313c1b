#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "ZobiConnectKit/ZOKManager.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSError.h"

/// Receives the manager's events. Every callback is optional; each is made on the main thread, from inside
/// the run loop.
///
/// The manager holds its delegate by `std::weak_ptr`, and owns it only during a callback: a delegate may
/// release the last reference to itself there. A callback may call any operation of the manager. It may
/// throw: the exception leaves `run`, `runFor` or `processPending`, and the loop can be run again.
///
/// Where `beacon` may be null, the event came from a peripheral of which no live beacon has the record.
class ZOBI_EXPORT ZOKManagerDelegate {
public:
    virtual ~ZOKManagerDelegate();

    /// Reports the live beacons, in the order in which they were first seen: every second, from
    /// `startMonitoring` to `stopMonitoring`, even when there are none. `beacons` is a copy of the list,
    /// valid until the callback returns; its elements are the live records themselves.
    virtual void zobiConnectManagerDidRangeBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/,
        const std::vector<std::shared_ptr<ZOKBeacon>>& /*beacons*/) {}

    /// The state of Bluetooth was reported, or has changed. `state` is a value of
    /// `zobi::platform::CBManagerState`: 0 unknown, 1 resetting, 2 unsupported, 3 unauthorized, 4 powered
    /// off, 5 powered on; or what else the radio reported.
    ///
    /// Call `zobi::monitorIfPoweredOn` ("ZobiConnectKit/Monitoring.h") here, with every state, for as long as
    /// the application wants to monitor. `startMonitoring` alone leaves the application deaf after Bluetooth
    /// was turned off and on. `stopMonitoring` when it is turned off keeps beacons from
    /// being reported to leave.
    virtual void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                            int /*state*/) {}

    /// The beacon is connected: its link is up, and the seven discoveries of characteristics were answered.
    /// An answer may have been an error; a command then finds no characteristic and sends nothing.
    virtual void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                      const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}

    /// A connection, or a cancelled attempt at one, has ended. `error` is null when this application asked
    /// for the end. It has code 6 (`CBError::connectionTimeout`) when the link was lost; the manager has then
    /// already started to connect again, unless `beacon` is null.
    virtual void zobiConnectManagerDidBeaconDisconnectedWithError(
        const std::shared_ptr<ZOKManager>& /*manager*/, const std::shared_ptr<ZOKBeacon>& /*beacon*/,
        const zobi::platform::NSError* /*error*/) {}

    /// A battery level arrived over a connection (Battery Service 180F, Battery Level 2A19, one byte).
    /// `level` is that byte as a signed number, -128 to 127. `beacon` may be null.
    virtual void zobiConnectManagerDidBatteryValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int /*level*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}

    /// A temperature arrived over a connection (service FFF0, characteristic FFF2, two bytes, big-endian).
    /// `temperature` is that number unchanged, 0 to 65535: nothing is subtracted, as it is from an advertised
    /// one. `beacon` may be null.
    virtual void zobiConnectManagerDidTemperatureValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, std::uint16_t /*temperature*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}

    /// The button of a beacon was used. Called for each advertisement that carries an action, so several
    /// times for one press, and for each value that arrives over a connection (service FFE0, characteristic
    /// FFE1, one byte).
    ///
    /// `action` is the code on the air minus 1: 0, 1 or 2 for the codes 1 to 3. For other codes nothing is
    /// reported from an advertisement, and 3 over a connection.
    ///
    /// From an advertisement, `beacon` is the record just decoded from it, with its values; it is the live
    /// record only if the beacon is new. Over a connection it is the live record, or null.
    virtual void zobiConnectManagerDidButtonActionChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int /*action*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}
};
