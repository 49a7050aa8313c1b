#include "SeamRecorders.h"

#include <algorithm>
#include <iterator>

#include "zobi/platform/standard/DiscoveredServices.h"

using namespace zobi::platform;

namespace {

using Characteristic = std::shared_ptr<CBCharacteristic>;
using Service = std::shared_ptr<CBService>;

std::string texts(std::span<const CBUUID> uuids) {
    std::string text;
    for (const auto& uuid : uuids) text += ' ' + uuid.UUIDString();
    return text;
}

class NotingPeripheral final : public RecordingPeripheral {
    std::shared_ptr<CBPeripheralDelegate> delegate() const override { return theDelegate.lock(); }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        theDelegate = std::move(delegate);
    }
    CBPeripheralState state() const override { return theState; }
    const std::optional<std::vector<Service>>& services() const override { return found; }
    void discoverServices(std::span<const CBUUID> uuids) override {
        calls.push_back("discover" + texts(uuids));
    }
    void discoverCharacteristicsForService(std::span<const CBUUID> uuids, const Service& service) override {
        calls.push_back(service->UUID().UUIDString() + ":" + texts(uuids));
    }
    void readValueForCharacteristic(const Characteristic& it) override {
        calls.push_back("read " + it->UUID().UUIDString());
    }
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value, const Characteristic& it,
                                         CBCharacteristicWriteType type) override {
        std::string call = "write " + it->UUID().UUIDString();
        for (const int byte : value) call += ' ' + std::to_string(byte);
        calls.push_back(call + " type " + std::to_string(static_cast<int>(type)));
    }
    void setNotifyValueForCharacteristic(bool enabled, const Characteristic& it) override {
        calls.push_back((enabled ? "subscribe " : "unsubscribe ") + it->UUID().UUIDString());
    }
    void readRSSI() override { calls.emplace_back("readRSSI"); }
};

class NotingCentral final : public RecordingCentral {
    CBManagerState state() const override { return theState; }
    bool isScanning() const override { return false; }
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID>, CBScanOptions) override {}
    void stopScan() override {}
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override {
        onCall("connect");
        calls.emplace_back("connect", peripheral);
    }
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override {
        onCall("cancel");
        calls.emplace_back("cancel", peripheral);
    }
};

}  // namespace

Characteristic foundCharacteristic(std::string_view uuid, std::optional<std::vector<std::uint8_t>> value) {
    auto found = std::make_shared<DiscoveredCharacteristic>(CBUUID::UUIDWithString(uuid), GATTPlace{});
    if (value) found->setValue(*std::move(value));
    return found;
}

Service foundService(std::string_view uuid) {
    return std::make_shared<DiscoveredService>(CBUUID::UUIDWithString(uuid), 0);
}

Service foundService(std::string_view uuid, const std::vector<std::string_view>& characteristics) {
    std::vector<CBUUID> uuids;
    std::ranges::transform(characteristics, std::back_inserter(uuids), &CBUUID::UUIDWithString);
    auto found = std::make_shared<DiscoveredService>(CBUUID::UUIDWithString(uuid), 0);
    found->discover(uuids, uuids);
    return found;
}

std::shared_ptr<RecordingPeripheral> RecordingPeripheral::make() {
    return std::make_shared<NotingPeripheral>();
}

std::shared_ptr<RecordingCentral> RecordingCentral::make() {
    return std::make_shared<NotingCentral>();
}
