// A simulated device that is not a beacon: a heart-rate strap. The library ranges the beacons and passes over
// the strap; the program reads the strap over GATT, through the same platform.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

using namespace zobi::platform;

namespace {

constexpr CBUUID heartRateService = CBUUID::UUIDWithString("180D");
constexpr CBUUID heartRateMeasurement = CBUUID::UUIDWithString("2A37");
constexpr CBUUID bodySensorLocation = CBUUID::UUIDWithString("2A38");

}  // namespace

/// The strap: it says where it is worn (1, the chest), and notifies a heart rate each second.
simulation::DeviceDescription heartRateStrap() {
    const auto heartRate = [](std::minstd_rand& random) -> std::vector<std::uint8_t> {
        constexpr std::uint8_t flags = 0;  // The rate has one byte, and nothing follows it.
        return {flags, static_cast<std::uint8_t>(60 + random() % 20)};
    };
    return {.localName = "strap",
            .advertisedServices = {heartRateService},
            .advertisingInterval = 0.5,
            .services = {{heartRateService,
                          {{.uuid = heartRateMeasurement,
                            .properties = {.notify = true},
                            .generated = simulation::GeneratedValue{1.0, heartRate}},
                           {.uuid = bodySensorLocation,
                            .properties = {.read = true},
                            .value = std::vector<std::uint8_t>{1}}}}}};
}

namespace {

class BeaconCounter final : public ZOKManagerDelegate {
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("beacons: %zu\n", beacons.size());
    }
};

/// Connects to the first strap that it hears, and again when the link has ended, until it has three rates.
class StrapReader final : public CBCentralManagerDelegate,
                          public CBPeripheralDelegate,
                          public std::enable_shared_from_this<StrapReader> {
public:
    void start(Platform& platform) {
        runLoop_ = &platform.runLoop();
        central_ = platform.makeCentralManager(weak_from_this());
    }

    bool isDone() const { return rates_ >= 3; }

private:
    void centralManagerDidUpdateState(CBCentralManager& central) override {
        central.scanForPeripheralsWithServicesOptions(std::array{heartRateService}, {});
    }

    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral,
        const CBAdvertisementData& /*advertisementData*/, NSNumber /*rssi*/) override {
        strap_ = peripheral;
        strap_->setDelegate(weak_from_this());
        central.stopScan();
        central.connectPeripheral(strap_);
    }

    void centralManagerDidConnectPeripheral(CBCentralManager& /*central*/,
                                            const std::shared_ptr<CBPeripheral>& strap) override {
        strap->discoverServices(std::array{heartRateService});
    }

    void centralManagerDidFailToConnectPeripheralError(CBCentralManager& central,
                                                       const std::shared_ptr<CBPeripheral>& strap,
                                                       const NSError* error) override {
        centralManagerDidDisconnectPeripheralError(central, strap, error);
    }

    void centralManagerDidDisconnectPeripheralError(CBCentralManager& central,
                                                    const std::shared_ptr<CBPeripheral>& strap,
                                                    const NSError* /*error*/) override {
        if (isDone()) return runLoop_->stop();
        // When Bluetooth was turned off, the scan that follows finds the strap again.
        if (central.state() == CBManagerState::poweredOn) central.connectPeripheral(strap);
    }

    void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& strap,
                                       const NSError* error) override {
        if (error) return;
        for (const auto& service : *strap->services()) {
            strap->discoverCharacteristicsForService(std::array{heartRateMeasurement, bodySensorLocation},
                                                     service);
        }
    }

    void peripheralDidDiscoverCharacteristicsForServiceError(const std::shared_ptr<CBPeripheral>& strap,
                                                             const std::shared_ptr<CBService>& service,
                                                             const NSError* error) override {
        if (error) return;
        for (const auto& characteristic : *service->characteristics()) {
            if (characteristic->UUID() == bodySensorLocation) {
                strap->readValueForCharacteristic(characteristic);
            } else {
                strap->setNotifyValueForCharacteristic(true, characteristic);
            }
        }
    }

    void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<CBPeripheral>& strap, const std::shared_ptr<CBCharacteristic>& characteristic,
        const NSError* error) override {
        if (error || isDone()) return;
        if (characteristic->UUID() == bodySensorLocation) {
            std::printf("worn on: %d\n", characteristic->value()->front());
        } else {
            std::printf("heart rate: %d\n", characteristic->value()->back());
            ++rates_;
            if (isDone()) central_->cancelPeripheralConnection(strap);
        }
    }

    RunLoop* runLoop_ = nullptr;
    std::shared_ptr<CBCentralManager> central_;
    std::shared_ptr<CBPeripheral> strap_;
    int rates_ = 0;
};

}  // namespace

int readHeartRates(Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto counter = std::make_shared<BeaconCounter>();
    manager->setDelegate(counter);
    const auto reader = std::make_shared<StrapReader>();
    reader->start(platform);
    platform.runLoop().runFor(60);
    platform.shutDown();
    return reader->isDone() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main() {
    simulation::SimulatedPlatform platform(StandardPlatform::Time::real);
    platform.log().setDiagnosticSink(nullptr);
    platform.world().addDevice(heartRateStrap()).comeIntoRange();
    zobi::addBeacon(platform.world(), {.major = 1, .minor = 7}).comeIntoRange();
    return readHeartRates(platform);
}
