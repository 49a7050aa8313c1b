// The discovery of services and characteristics, at whose end a beacon is connected.

#include <algorithm>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "ZobiConnectKit/ZobiConnectKit.h"

using zobi::platform::CBPeripheral;
using zobi::platform::NSError;

void ZOKManager::peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                               const NSError* error) {
    zobi::platform::Log& log = platform_.log();
    log.log("didDiscoverServices");
    if (error) {
        log.log("Error in didDiscoverServices: %@", error->localizedDescription());
        return;
    }
    if (!peripheral || !peripheral->services()) {
        log.log("No services detected");
        return;
    }
    log.log("Nb services found: %lu", peripheral->services()->size());
    for (const auto& service : *peripheral->services()) {
        const auto* const request = std::ranges::find(ZOKGATTProfile::characteristicRequests, service->UUID(),
                                                      &ZOKGATTProfile::CharacteristicRequest::service);
        if (request == ZOKGATTProfile::characteristicRequests.end()) continue;
        peripheral->discoverCharacteristicsForService(request->characteristics, service);
    }
}

void ZOKManager::peripheralDidDiscoverCharacteristicsForServiceError(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<zobi::platform::CBService>& /*service*/, const NSError* /*error*/) {
    if (++nbChars_ != ZOKGATTProfile::answersUntilConnected) return;
    if (const auto beacon = beaconFromPeripheral(peripheral)) reportConnected(beacon);
}

void ZOKManager::reportConnected(const std::shared_ptr<ZOKBeacon>& beacon) {
    if (const auto delegate = delegate_.lock()) {
        delegate->zobiConnectManagerDidBeaconConnected(shared_from_this(), beacon);
    }
    post(ZOKBeaconDidConnectNotification, beacon);
    callCompletion(beacon->connectionCompletionBlock(), beacon, nullptr);
}
