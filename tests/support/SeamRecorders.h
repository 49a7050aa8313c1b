#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"

// Stand at the seam where a test wants to see the very calls that the library makes. They answer nothing.

using Calls = std::vector<std::string>;

struct FoundCharacteristic final : zobi::platform::CBCharacteristic {
    explicit FoundCharacteristic(std::string_view text, std::optional<std::vector<std::uint8_t>> value = {})
        : uuid(zobi::platform::CBUUID::UUIDWithString(text)), bytes(std::move(value)) {}

    zobi::platform::CBUUID UUID() const override { return uuid; }
    std::optional<std::span<const std::uint8_t>> value() const override { return bytes; }
    bool isNotifying() const override { return false; }

    zobi::platform::CBUUID uuid;
    std::optional<std::vector<std::uint8_t>> bytes;
};

struct FoundService final : zobi::platform::CBService {
    explicit FoundService(std::string_view text,
                          const std::vector<std::string_view>& characteristicUUIDs = {})
        : uuid(zobi::platform::CBUUID::UUIDWithString(text)), found(std::in_place) {
        for (const auto characteristic : characteristicUUIDs) {
            found->push_back(std::make_shared<FoundCharacteristic>(characteristic));
        }
    }

    zobi::platform::CBUUID UUID() const override { return uuid; }
    const std::optional<std::vector<std::shared_ptr<zobi::platform::CBCharacteristic>>>& characteristics()
        const override {
        return found;
    }

    zobi::platform::CBUUID uuid;
    std::optional<std::vector<std::shared_ptr<zobi::platform::CBCharacteristic>>> found;
};

struct RecordingPeripheral final : zobi::platform::CBPeripheral {
    std::shared_ptr<zobi::platform::CBPeripheralDelegate> delegate() const override {
        return theDelegate.lock();
    }
    void setDelegate(std::weak_ptr<zobi::platform::CBPeripheralDelegate> delegate) override {
        theDelegate = std::move(delegate);
    }
    zobi::platform::CBPeripheralState state() const override { return theState; }
    const std::optional<std::vector<std::shared_ptr<zobi::platform::CBService>>>& services() const override {
        return found;
    }
    void discoverServices(std::span<const zobi::platform::CBUUID> uuids) override {
        onDiscover();
        calls.push_back("discover" + texts(uuids));
    }
    void discoverCharacteristicsForService(
        std::span<const zobi::platform::CBUUID> uuids,
        const std::shared_ptr<zobi::platform::CBService>& service) override {
        calls.push_back(service->UUID().UUIDString() + ":" + texts(uuids));
    }
    void readValueForCharacteristic(const std::shared_ptr<zobi::platform::CBCharacteristic>& it) override {
        calls.push_back("read " + it->UUID().UUIDString());
    }
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value,
                                         const std::shared_ptr<zobi::platform::CBCharacteristic>& it,
                                         zobi::platform::CBCharacteristicWriteType type) override {
        std::string call = "write " + it->UUID().UUIDString();
        for (const int byte : value) call += ' ' + std::to_string(byte);
        calls.push_back(call + " type " + std::to_string(static_cast<int>(type)));
    }
    void setNotifyValueForCharacteristic(
        bool enabled, const std::shared_ptr<zobi::platform::CBCharacteristic>& it) override {
        calls.push_back((enabled ? "subscribe " : "unsubscribe ") + it->UUID().UUIDString());
    }
    void readRSSI() override { calls.emplace_back("readRSSI"); }

    std::function<void()> onDiscover = [] {};

    Calls takeCalls() { return std::exchange(calls, {}); }

    static std::string texts(std::span<const zobi::platform::CBUUID> uuids) {
        std::string text;
        for (const auto& uuid : uuids) text += ' ' + uuid.UUIDString();
        return text;
    }

    Calls calls;
    zobi::platform::CBPeripheralState theState = zobi::platform::CBPeripheralState::disconnected;
    std::optional<std::vector<std::shared_ptr<zobi::platform::CBService>>> found;
    std::weak_ptr<zobi::platform::CBPeripheralDelegate> theDelegate;
};

struct RecordingCentral final : zobi::platform::CBCentralManager {
    zobi::platform::CBManagerState state() const override {
        return zobi::platform::CBManagerState::poweredOn;
    }
    bool isScanning() const override { return false; }
    void scanForPeripheralsWithServicesOptions(std::span<const zobi::platform::CBUUID>,
                                               zobi::platform::CBScanOptions) override {}
    void stopScan() override {}
    void connectPeripheral(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral) override {
        onCall("connect");
        calls.emplace_back("connect", peripheral);
    }
    void cancelPeripheralConnection(
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral) override {
        onCall("cancel");
        calls.emplace_back("cancel", peripheral);
    }

    std::function<void(const std::string& call)> onCall = [](const auto& /*call*/) {};
    std::vector<std::pair<std::string, std::shared_ptr<zobi::platform::CBPeripheral>>> calls;
};
