#include "tools/zobiconnect/ObservedPlatform.h"

#include <utility>

#include "tools/zobiconnect/QuietDecoder.h"
#include "zobi/platform/NSData.h"

using zobi::platform::CBCentralManagerDelegate;
using zobi::platform::CBPeripheral;
using zobi::platform::NSError;

namespace zobi::tool {

namespace {

/// Stands between a central manager and its delegate, for each of which it passes as the other.
class ObservedCentral final : public platform::CBCentralManager, public CBCentralManagerDelegate {
public:
    ObservedCentral(Sightings& sightings, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : sightings_(sightings), delegate_(std::move(delegate)) {}

    void observe(std::shared_ptr<CBCentralManager> central) { central_ = std::move(central); }

    platform::CBManagerState state() const override { return central_->state(); }
    bool isScanning() const override { return central_->isScanning(); }
    void scanForPeripheralsWithServicesOptions(std::span<const platform::CBUUID> services,
                                               platform::CBScanOptions options) override {
        central_->scanForPeripheralsWithServicesOptions(services, options);
    }
    void stopScan() override { central_->stopScan(); }
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override {
        central_->connectPeripheral(peripheral);
    }
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override {
        central_->cancelPeripheralConnection(peripheral);
    }

    void centralManagerDidUpdateState(CBCentralManager& /*central*/) override {
        if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(*this);
    }
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral,
        const platform::CBAdvertisementData& advertisementData, platform::NSNumber rssi) override {
        const auto delegate = delegate_.lock();
        if (!delegate) return;
        sightings_.noteAdvertisement();
        try {
            delegate->centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(*this, peripheral,
                                                                               advertisementData, rssi);
        } catch (const platform::DataRangeError&) {
            sightings_.noteMalformedAdvertisement();
            throw;
        }
        // What the library takes for a beacon, and nothing else.
        if (advertisementData.localName != "morvane") return;
        for (const platform::CBServiceData& element : advertisementData.serviceData) {
            if (element.service.description() != "Device Information") continue;
            sightings_.noteBeacon(decoder_.decode(element.data), rssi);
        }
    }
    void centralManagerDidConnectPeripheral(CBCentralManager& /*central*/,
                                            const std::shared_ptr<CBPeripheral>& peripheral) override {
        if (const auto delegate = delegate_.lock()) {
            delegate->centralManagerDidConnectPeripheral(*this, peripheral);
        }
    }
    void centralManagerDidFailToConnectPeripheralError(CBCentralManager& /*central*/,
                                                       const std::shared_ptr<CBPeripheral>& peripheral,
                                                       const NSError* error) override {
        if (const auto delegate = delegate_.lock()) {
            delegate->centralManagerDidFailToConnectPeripheralError(*this, peripheral, error);
        }
    }
    void centralManagerDidDisconnectPeripheralError(CBCentralManager& /*central*/,
                                                    const std::shared_ptr<CBPeripheral>& peripheral,
                                                    const NSError* error) override {
        if (const auto delegate = delegate_.lock()) {
            delegate->centralManagerDidDisconnectPeripheralError(*this, peripheral, error);
        }
    }

private:
    QuietDecoder decoder_;
    Sightings& sightings_;
    std::weak_ptr<CBCentralManagerDelegate> delegate_;
    std::shared_ptr<CBCentralManager> central_;
};

}  // namespace

ObservedPlatform::ObservedPlatform(std::unique_ptr<platform::Platform> observed)
    : observed_(std::move(observed)) {}

std::shared_ptr<platform::CBCentralManager> ObservedPlatform::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    const auto central = std::make_shared<ObservedCentral>(sightings_, std::move(delegate));
    // The observed one refers to it weakly, so the two are no cycle.
    central->observe(observed_->makeCentralManager(central));
    return central;
}

}  // namespace zobi::tool
