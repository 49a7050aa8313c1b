#pragma once

/// The library's one header to include.

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "ZobiConnectKit/ZOKManager.h"
#include "ZobiConnectKit/ZOKProtocolUtils.h"
#include "platform/Export.h"
#include "platform/NSError.h"

extern "C" {

/// The version of the library: 1.0.
ZOK_EXPORT extern const double ZobiConnectKitVersionNumber;

/// The version as a text that ends with a line feed, to be found in a binary.
ZOK_EXPORT extern const char ZobiConnectKitVersionString[];

}  // extern "C"

/// Receives what the manager has to tell. Every callback is optional, and made on the main thread, from
/// inside the run loop.
///
/// The manager holds its delegate weakly, and strongly for the length of a call: a delegate may let go of
/// itself in a callback. It may call any operation of the manager from there, and may throw: the exception
/// leaves the call that runs the loop, and the loop can be run again.
class ZOK_EXPORT ZOKManagerDelegate {
public:
    virtual ~ZOKManagerDelegate() = default;

    /// Once a second, from `startMonitoring` to `stopMonitoring`: the live beacons in the order in which they
    /// were first seen.
    /// @param beacons a snapshot of the list, valid for the length of the call: copy it to keep it. Its
    ///     elements are the live records themselves.
    virtual void zobiConnectManagerDidRangeBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/,
        const std::vector<std::shared_ptr<ZOKBeacon>>& /*beacons*/) {}

    /// The state of Bluetooth was reported, or has changed.
    /// @param state a value of `platform::CBManagerState`: 0 unknown, 1 resetting, 2 unsupported,
    ///     3 unauthorized, 4 powered off, 5 powered on; or what else the radio reported.
    virtual void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                            int /*state*/) {}

    /// The connection that was asked for is complete: the seven requests for characteristics were answered.
    /// An answer may be an error, so a command may still find nothing to act on.
    virtual void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                      const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}

    /// A connection has ended.
    /// @param beacon null when no live beacon is concerned.
    /// @param error null when the end was asked for; code 6 when the link was lost, in which case the library
    ///     is connecting again already, unless the record is null.
    virtual void zobiConnectManagerDidBeaconDisconnectedWithError(
        const std::shared_ptr<ZOKManager>& /*manager*/, const std::shared_ptr<ZOKBeacon>& /*beacon*/,
        const platform::NSError* /*error*/) {}

    /// A battery level arrived over a connection (Battery Service 180F, Battery Level 2A19, one byte).
    /// @param level the byte read as a signed number: -128 to 127.
    /// @param beacon null when no live beacon is concerned.
    virtual void zobiConnectManagerDidBatteryValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int /*level*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}

    /// A temperature arrived over a connection (service FFF0, characteristic FFF2, two bytes, big-endian).
    /// @param temperature as it travelled, 0 to 65535.
    /// @param beacon null when no live beacon is concerned.
    virtual void zobiConnectManagerDidTemperatureValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, std::uint16_t /*temperature*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}

    /// The button of a beacon was used: heard in an advertisement, once for each that tells of it, or over a
    /// connection (service FFE0, characteristic FFE1, one byte).
    /// @param action the code on the air less 1, for the codes 1 to 3; over a connection, 3 for any other.
    /// @param beacon from an advertisement, the record just decoded from it, with its values; it is not the
    ///     live record of that beacon unless the beacon is new. Over a connection, the live record, or null
    ///     when no live beacon is concerned.
    virtual void zobiConnectManagerDidButtonActionChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int /*action*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) {}
};

// Broadcasts, posted in the notification centre of the manager's platform. The object is the beacon's record
// (`std::static_pointer_cast<ZOKBeacon>(notification.object)`), null when no live beacon is concerned. The
// payload, where there is one, stands under the key "value".

/// A connection is complete. No payload.
inline constexpr std::string_view ZOKBeaconDidConnectNotification = "ZOKBeaconDidConnectNotification";
/// A connection has ended. No payload.
inline constexpr std::string_view ZOKBeaconDidDisconnectNotification = "ZOKBeaconDidDisconnectNotification";
/// A temperature arrived. Number, unsigned 16-bit.
inline constexpr std::string_view ZOKBeaconDidTemperatureChangeNotification =
    "ZOKBeaconDidTemperatureChangeNotification";
/// A value of an accelerometer axis arrived; the record's `accelerometer` has it afterwards. Number, unsigned
/// 16-bit.
inline constexpr std::string_view ZOKBeaconDidAccelerometerAxisXChangeNotification =
    "ZOKBeaconDidAccelerometerAxisXChangeNotification";
inline constexpr std::string_view ZOKBeaconDidAccelerometerAxisYChangeNotification =
    "ZOKBeaconDidAccelerometerAxisYChangeNotification";
inline constexpr std::string_view ZOKBeaconDidAccelerometerAxisZChangeNotification =
    "ZOKBeaconDidAccelerometerAxisZChangeNotification";
/// The button mode arrived. Number, unsigned 16-bit.
inline constexpr std::string_view ZOKBeaconButtonModeNotification = "ZOKBeaconButtonModeNotification";
/// The firmware version arrived. Text.
inline constexpr std::string_view ZOKBeaconFirmwareVersionNotification =
    "ZOKBeaconFirmwareVersionNotification";
/// The signal strength of a connection arrived. Number, in dBm, as the radio delivered it.
inline constexpr std::string_view ZOKBeaconDidRSSIChangeNotification = "ZOKBeaconDidRSSIChangeNotification";
