#pragma once

#include <algorithm>
#include <concepts>
#include <memory>
#include <span>
#include <unordered_map>

#include "zobi/platform/standard/ForwardingCentral.h"
#include "zobi/platform/standard/ForwardingPeripheral.h"

namespace zobi::platform {

/// A `ForwardingCentral` that also wraps the peripherals: its delegate sees a `Peripheral` in the place of
/// each. A peripheral has one wrapper, in all events.
///
/// An event that a derived class overrides has the wrapped peripheral: see `wrapperOf`. A call has the
/// wrapper; a peripheral that is not one of these wrappers is passed on as null.
///
/// The wrapper is kept as radios keep their peripherals: until a scan starts while it is disconnected and no
/// one else holds it. A wrapper may outlive its central manager.
template <std::derived_from<ForwardingPeripheral> Peripheral>
class WrappingCentral : public ForwardingCentral {
public:
    using ForwardingCentral::ForwardingCentral;

    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                               CBScanOptions options) override {
        // First, so that the wrapped central manager can forget their peripherals in the same call.
        std::erase_if(wrappers_, [](const auto& entry) {
            return entry.second.use_count() == 1 && entry.second->state() == CBPeripheralState::disconnected;
        });
        ForwardingCentral::scanForPeripheralsWithServicesOptions(services, options);
    }
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override {
        ForwardingCentral::connectPeripheral(wrappedIn(peripheral));
    }
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override {
        ForwardingCentral::cancelPeripheralConnection(wrappedIn(peripheral));
    }

    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral,
        const CBAdvertisementData& advertisementData, NSNumber rssi) override {
        ForwardingCentral::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
            central, wrapperOf(peripheral), advertisementData, rssi);
    }
    void centralManagerDidConnectPeripheral(CBCentralManager& central,
                                            const std::shared_ptr<CBPeripheral>& peripheral) override {
        ForwardingCentral::centralManagerDidConnectPeripheral(central, wrapperOf(peripheral));
    }
    void centralManagerDidFailToConnectPeripheralError(CBCentralManager& central,
                                                       const std::shared_ptr<CBPeripheral>& peripheral,
                                                       const NSError* error) override {
        ForwardingCentral::centralManagerDidFailToConnectPeripheralError(central, wrapperOf(peripheral),
                                                                         error);
    }
    void centralManagerDidDisconnectPeripheralError(CBCentralManager& central,
                                                    const std::shared_ptr<CBPeripheral>& peripheral,
                                                    const NSError* error) override {
        ForwardingCentral::centralManagerDidDisconnectPeripheralError(central, wrapperOf(peripheral), error);
    }

protected:
    /// Makes the wrapper of a peripheral. Called once for each that is sighted, or is sighted again after its
    /// wrapper was forgotten.
    virtual std::shared_ptr<Peripheral> makeWrapper(const std::shared_ptr<CBPeripheral>& wrapped) = 0;

    /// The wrapper of `wrapped`, made if there is none. It is the delegate of `wrapped`.
    std::shared_ptr<Peripheral> wrapperOf(const std::shared_ptr<CBPeripheral>& wrapped) {
        const auto known = wrappers_.find(wrapped);
        if (known != wrappers_.end()) return known->second;
        auto wrapper = makeWrapper(wrapped);
        wrapped->setDelegate(wrapper);
        wrappers_.emplace(wrapped, wrapper);
        return wrapper;
    }

private:
    std::shared_ptr<CBPeripheral> wrappedIn(const std::shared_ptr<CBPeripheral>& wrapper) const {
        const auto known =
            std::ranges::find_if(wrappers_, [&](const auto& entry) { return entry.second == wrapper; });
        return known == wrappers_.end() ? nullptr : known->first;
    }

    std::unordered_map<std::shared_ptr<CBPeripheral>, std::shared_ptr<Peripheral>> wrappers_;
};

}  // namespace zobi::platform
