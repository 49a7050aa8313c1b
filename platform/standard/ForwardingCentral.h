#pragma once

#include <latch>
#include <memory>
#include <span>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Stands between a central manager and its delegate: the delegate sees it as the central manager, and the
/// central manager as its delegate. It forwards every call and every event unchanged. A derived class
/// overrides those that it is interested in, and calls the function of this class to forward them.
///
/// Peripherals pass through as they are. `WrappingCentral` puts a wrapper in the place of each.
class ZOBI_EXPORT ForwardingCentral : public CBCentralManager, public CBCentralManagerDelegate {
public:
    /// @param delegate receives the events. It is not owned.
    explicit ForwardingCentral(std::weak_ptr<CBCentralManagerDelegate> delegate);
    ~ForwardingCentral() override;
    ForwardingCentral(const ForwardingCentral&) = delete;
    ForwardingCentral& operator=(const ForwardingCentral&) = delete;

    /// Takes the central manager that receives the calls, and whose delegate is this object. Call it once,
    /// before any other function: those wait until another thread has called it. `ForwardingPlatform::insert`
    /// does so.
    void attach(std::shared_ptr<CBCentralManager> wrapped);

    CBManagerState state() const override;
    bool isScanning() const override;
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                               CBScanOptions options) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override;
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

    void centralManagerDidUpdateState(CBCentralManager& central) override;
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral,
        const CBAdvertisementData& advertisementData, NSNumber rssi) override;
    void centralManagerDidConnectPeripheral(CBCentralManager& central,
                                            const std::shared_ptr<CBPeripheral>& peripheral) override;
    void centralManagerDidFailToConnectPeripheralError(CBCentralManager& central,
                                                       const std::shared_ptr<CBPeripheral>& peripheral,
                                                       const NSError* error) override;
    void centralManagerDidDisconnectPeripheralError(CBCentralManager& central,
                                                    const std::shared_ptr<CBPeripheral>& peripheral,
                                                    const NSError* error) override;

private:
    CBCentralManager& wrapped() const;

    std::weak_ptr<CBCentralManagerDelegate> delegate_;
    std::shared_ptr<CBCentralManager> wrapped_;
    std::latch isAttached_{1};
};

}  // namespace zobi::platform
