#pragma once

#include "ZobiConnectKit/ZobiConnectKit.h"

namespace zobiconnect {

/// Starts monitoring each time that Bluetooth comes on.
inline void monitorIfPoweredOn(ZOKManager& manager, int bluetoothState) {
    if (bluetoothState != static_cast<int>(platform::CBManagerState::poweredOn)) return;
    // The manager may think that it monitors still, though the scan ended with the power.
    if (manager.isMonitoring()) manager.stopMonitoring();
    manager.startMonitoring();
}

}  // namespace zobiconnect
