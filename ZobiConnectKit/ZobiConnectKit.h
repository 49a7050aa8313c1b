#pragma once

/// @file
/// The one header to include: the whole library, its version, and the names of its notifications.
///
/// The manager posts the notifications in the notification center of its platform, on the main thread. The
/// object of a notification is the record of the beacon, to be had by
/// `std::static_pointer_cast<ZOKBeacon>(notification.object)`; it is null when no live beacon has that
/// peripheral. The value, where there is one, is in the user info under the key "value".

#include <string_view>

#include "ZobiConnectKit/Monitoring.h"
#include "ZobiConnectKit/ZOKBeacon.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "ZobiConnectKit/ZOKManager.h"
#include "ZobiConnectKit/ZOKManagerDelegate.h"
#include "ZobiConnectKit/ZOKProtocolUtils.h"
#include "zobi/platform/Export.h"

extern "C" {

/// The major and minor version of the library as a number: 1.0.
ZOBI_EXPORT extern const double ZobiConnectKitVersionNumber;

/// The version of the library as text that ends with a line feed, so that it can be found in a binary file.
ZOBI_EXPORT extern const char ZobiConnectKitVersionString[];

}  // extern "C"

/// A beacon is connected: its link is up and the seven discoveries of characteristics were answered. No
/// value.
inline constexpr std::string_view ZOKBeaconDidConnectNotification = "ZOKBeaconDidConnectNotification";
/// A connection, or a cancelled attempt at one, has ended. No value.
inline constexpr std::string_view ZOKBeaconDidDisconnectNotification = "ZOKBeaconDidDisconnectNotification";
/// A temperature was read or notified over a connection. Value: `NSNumber`, unsigned 16-bit, as it came over
/// the air.
inline constexpr std::string_view ZOKBeaconDidTemperatureChangeNotification =
    "ZOKBeaconDidTemperatureChangeNotification";
/// A value of the accelerometer's X axis arrived. The record's `accelerometer` has it after the notification.
/// Value: `NSNumber`, unsigned 16-bit.
inline constexpr std::string_view ZOKBeaconDidAccelerometerAxisXChangeNotification =
    "ZOKBeaconDidAccelerometerAxisXChangeNotification";
/// The same for the Y axis.
inline constexpr std::string_view ZOKBeaconDidAccelerometerAxisYChangeNotification =
    "ZOKBeaconDidAccelerometerAxisYChangeNotification";
/// The same for the Z axis.
inline constexpr std::string_view ZOKBeaconDidAccelerometerAxisZChangeNotification =
    "ZOKBeaconDidAccelerometerAxisZChangeNotification";
/// A button mode was read. Value: `NSNumber`, unsigned 16-bit.
inline constexpr std::string_view ZOKBeaconButtonModeNotification = "ZOKBeaconButtonModeNotification";
/// A firmware version was read. Value: `std::string`; see the record's `firmwareVersion`.
inline constexpr std::string_view ZOKBeaconFirmwareVersionNotification =
    "ZOKBeaconFirmwareVersionNotification";
/// The signal strength of a connection was read. Value: `NSNumber`, in dBm, as the radio gave it.
inline constexpr std::string_view ZOKBeaconDidRSSIChangeNotification = "ZOKBeaconDidRSSIChangeNotification";
