// Making and ending connections, and connecting again after a lost link.

#include <utility>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/ThreadCheck.h"

using zobi::platform::CBError;
using zobi::platform::CBPeripheral;
using zobi::platform::NSError;

void ZOKManager::connectBeacon(const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    if (beacon) connect(beacon, std::nullopt);
}

void ZOKManager::connectBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                             ZOKBeaconCompletion completion) {
    zobi::platform::checkThread(platform_.runLoop());
    if (beacon) connect(beacon, std::move(completion));
}

/// A record without a peripheral is treated as one whose peripheral has no delegate.
/// @param beacon by value: the caller's own reference may go with what the log's sink does, or with the
///     completion that is replaced.
/// @param completion what the record is to keep in place of what it has, if anything.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void ZOKManager::connect(std::shared_ptr<ZOKBeacon> beacon, std::optional<ZOKBeaconCompletion> completion) {
    const auto peripheral = beacon->peripheral();
    if (!peripheral || !peripheral->delegate()) {
        platform_.log().log("peripheral delegate is nil, setting to self");
        if (peripheral) peripheral->setDelegate(weak_from_this());
    }
    beacon->setTimestamp(0);
    addLiveBeacon(beacon);
    if (completion) beacon->setConnectionCompletionBlock(*std::move(completion));
    platform_.log().log("---->ConnectPeripheral started");
    if (centralManager_) centralManager_->connectPeripheral(beacon->peripheral());
}

void ZOKManager::disconnectBeacon(const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    if (centralManager_) centralManager_->cancelPeripheralConnection(beacon ? beacon->peripheral() : nullptr);
}

void ZOKManager::disconnectBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                ZOKBeaconCompletion completion) {
    zobi::platform::checkThread(platform_.runLoop());
    // The caller's reference may go with the completion that is replaced.
    const auto held = beacon;  // NOLINT(performance-unnecessary-copy-initialization)
    if (held) held->setDisconnectionCompletionBlock(std::move(completion));
    disconnectBeacon(held);
}

void ZOKManager::centralManagerDidConnectPeripheral(zobi::platform::CBCentralManager& /*central*/,
                                                    const std::shared_ptr<CBPeripheral>& peripheral) {
    if (const auto beacon = beaconFromPeripheral(peripheral)) {
        beacon->setTimestamp(platform_.clock().secondsSince1970());
    }
    nbChars_ = 0;
    if (peripheral) peripheral->discoverServices(ZOKGATTProfile::requestedServices);
}

void ZOKManager::centralManagerDidFailToConnectPeripheralError(
    zobi::platform::CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral,
    const NSError* error) {
    const auto beacon = beaconFromPeripheral(peripheral);
    if (beacon) callCompletion(beacon->connectionCompletionBlock(), beacon, error);
}

void ZOKManager::centralManagerDidDisconnectPeripheralError(zobi::platform::CBCentralManager& /*central*/,
                                                            const std::shared_ptr<CBPeripheral>& peripheral,
                                                            const NSError* error) {
    const auto beacon = beaconFromPeripheral(peripheral);
    // Of whatever domain.
    if (error && error->code() == static_cast<int>(CBError::connectionTimeout)) {
        platform_.log().log("%@, reconnecting...", error->localizedDescription());
        connectBeacon(beacon);
    }
    if (const auto delegate = delegate_.lock()) {
        delegate->zobiConnectManagerDidBeaconDisconnectedWithError(shared_from_this(), beacon, error);
    }
    post(ZOKBeaconDidDisconnectNotification, beacon);
    if (beacon) callCompletion(beacon->disconnectionCompletionBlock(), beacon, error);
}

/// The record keeps its completion.
void ZOKManager::callCompletion(const ZOKBeaconCompletion& completion,
                                const std::shared_ptr<ZOKBeacon>& beacon, const NSError* error) {
    // A copy, for a completion may put another in its own place.
    const ZOKBeaconCompletion called = completion;
    if (called) called(shared_from_this(), beacon, error);
}
