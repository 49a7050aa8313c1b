#pragma once

#include "ZobiConnectKit/ZOKManager.h"
#include "zobi/platform/CBCentralManager.h"

namespace zobi {

/// Starts monitoring if `bluetoothState` is powered on (5, `zobi::platform::CBManagerState::poweredOn`). Call
/// it from the delegate's callback for the state of Bluetooth, with every state:
///
///     void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
///                                                     int state) override {
///         zobi::monitorIfPoweredOn(*manager, state);
///     }
///
/// When Bluetooth is turned off the scan ends, but `ZOKManager::isMonitoring` stays true, and
/// `ZOKManager::startMonitoring` alone then starts no new scan. So this function stops monitoring first.
///
/// In every other state it does nothing. While Bluetooth is off the reports and the expiry check go on, so
/// silent beacons are dropped as usual.
///
/// An application that has stopped monitoring on purpose must not call it until it wants to monitor again. A
/// delegate that is set when the state has been reported already is not told of it; the application then
/// begins with:
///
///     zobi::monitorIfPoweredOn(*manager, static_cast<int>(manager->centralManager()->state()));
inline void monitorIfPoweredOn(ZOKManager& manager, int bluetoothState) {
    if (bluetoothState != static_cast<int>(platform::CBManagerState::poweredOn)) return;
    if (manager.isMonitoring()) manager.stopMonitoring();
    manager.startMonitoring();
}

}  // namespace zobi
