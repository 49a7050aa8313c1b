// Finding a characteristic among those that were discovered.

#include "ZobiConnectKit/ZobiConnectKit.h"

using zobi::platform::CBCharacteristic;
using zobi::platform::CBUUID;

std::shared_ptr<CBCharacteristic> ZOKManager::characteristicFromServiceAndPeripheral(
    const CBUUID& characteristicUUID, const CBUUID& serviceUUID,
    const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral) {
    if (!peripheral || !peripheral->services()) return nullptr;
    for (const auto& service : *peripheral->services()) {
        // A beacon may have the service twice, and the characteristic in the second.
        if (service->UUID() != serviceUUID || !service->characteristics()) continue;
        for (const auto& characteristic : *service->characteristics()) {
            if (characteristic->UUID() == characteristicUUID) return characteristic;
        }
    }
    return nullptr;
}
