#include "tools/zobiconnect/monitor/ObservedPlatform.h"

#include <utility>

#include "tools/zobiconnect/QuietDecoder.h"
#include "zobi/platform/NSData.h"

namespace zobi::tool {

namespace {

class ObservedCentral final : public platform::ForwardingCentral {
public:
    ObservedCentral(const platform::Clock& clock, Sightings& sightings,
                    std::weak_ptr<platform::CBCentralManagerDelegate> delegate)
        : ForwardingCentral(std::move(delegate)), clock_(clock), sightings_(sightings) {}

    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        platform::CBCentralManager& central, const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const platform::CBAdvertisementData& advertisementData, platform::NSNumber rssi) override {
        sightings_.noteAdvertisement();
        try {
            ForwardingCentral::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
                central, peripheral, advertisementData, rssi);
        } catch (const platform::DataRangeError& error) {
            if (advertisementData.isMalformedBy(error)) sightings_.noteMalformedAdvertisement();
            throw;
        }
        // What the library takes for a beacon, and nothing else.
        if (advertisementData.localName != "morvane") return;
        for (const platform::CBServiceData& element : advertisementData.serviceData) {
            if (element.service.description() != "Device Information") continue;
            sightings_.noteBeacon(clock_.monotonicTime(), *decoder_.decode(element.data), rssi);
        }
    }

private:
    QuietDecoder decoder_;
    const platform::Clock& clock_;
    Sightings& sightings_;
};

}  // namespace

std::shared_ptr<platform::CBCentralManager> ObservedPlatform::makeCentralManager(
    std::weak_ptr<platform::CBCentralManagerDelegate> delegate) {
    return insert(std::make_shared<ObservedCentral>(clock(), sightings_, std::move(delegate)));
}

}  // namespace zobi::tool
