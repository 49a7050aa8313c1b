// Finding a characteristic among those that were discovered.

#include "ZobiConnectKit/ZobiConnectKit.h"

using platform::CBCharacteristic;
using platform::CBUUID;

std::shared_ptr<CBCharacteristic> ZOKManager::characteristicFromServiceAndPeripheral(
    const CBUUID& characteristicUUID, const CBUUID& serviceUUID,
    const std::shared_ptr<platform::CBPeripheral>& peripheral) {
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
