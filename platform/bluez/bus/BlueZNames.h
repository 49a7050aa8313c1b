#pragma once

// The names of what the Bluetooth service and the bus offer, as they travel.

namespace zobi::platform::bluez {

inline constexpr const char* blueZName = "org.bluez";
inline constexpr const char* adapterInterface = "org.bluez.Adapter1";
inline constexpr const char* deviceInterface = "org.bluez.Device1";
inline constexpr const char* gattServiceInterface = "org.bluez.GattService1";
inline constexpr const char* gattCharacteristicInterface = "org.bluez.GattCharacteristic1";
inline constexpr const char* gattManagerInterface = "org.bluez.GattManager1";
inline constexpr const char* advertisementInterface = "org.bluez.LEAdvertisement1";
inline constexpr const char* advertisingManagerInterface = "org.bluez.LEAdvertisingManager1";
inline constexpr const char* monitorInterface = "org.bluez.AdvertisementMonitor1";
inline constexpr const char* monitorManagerInterface = "org.bluez.AdvertisementMonitorManager1";
/// The type of monitor that matches any of its patterns.
inline constexpr const char* monitorType = "or_patterns";

inline constexpr const char* busName = "org.freedesktop.DBus";
inline constexpr const char* busPath = "/org/freedesktop/DBus";
inline constexpr const char* busInterface = "org.freedesktop.DBus";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
inline constexpr const char* objectManagerInterface = "org.freedesktop.DBus.ObjectManager";

inline constexpr const char* accessDeniedError = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* unknownObjectError = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr const char* unknownMethodError = "org.freedesktop.DBus.Error.UnknownMethod";

}  // namespace zobi::platform::bluez
