#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"

// Stand at the seam where a test wants to see the very calls that the library makes. They answer nothing.

namespace zobi::platform {

/// A characteristic that was discovered, with its value.
std::shared_ptr<CBCharacteristic> foundCharacteristic(std::string_view uuid,
                                                      std::optional<std::vector<std::uint8_t>> value = {});

/// A service that was discovered, with those of its characteristics that were.
std::shared_ptr<CBService> foundService(std::string_view uuid,
                                        const std::vector<std::string_view>& characteristics = {});

/// Writes down what is asked of it.
class RecordingPeripheral final : public CBPeripheral {
    using Characteristic = std::shared_ptr<CBCharacteristic>;
    using Service = std::shared_ptr<CBService>;
    using UUIDs = std::span<const CBUUID>;

public:
    std::vector<std::string> calls;
    CBPeripheralState theState = CBPeripheralState::disconnected;
    std::optional<std::vector<Service>> found;
    std::weak_ptr<CBPeripheralDelegate> theDelegate;

    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

    std::shared_ptr<CBPeripheralDelegate> delegate() const override { return theDelegate.lock(); }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> its) override { theDelegate = std::move(its); }
    CBPeripheralState state() const override { return theState; }
    const std::optional<std::vector<Service>>& services() const override { return found; }
    void discoverServices(UUIDs uuids) override { note("discover", uuids); }
    void discoverCharacteristicsForService(UUIDs uuids, const Service& service) override {
        note(service->UUID().UUIDString() + ':', uuids);
    }
    void readValueForCharacteristic(const Characteristic& it) override {
        note("read", std::array{it->UUID()});
    }
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value, const Characteristic& it,
                                         CBCharacteristicWriteType type) override {
        note("write", std::array{it->UUID()});
        for (const int byte : value) calls.back() += ' ' + std::to_string(byte);
        calls.back() += " type " + std::to_string(static_cast<int>(type));
    }
    void setNotifyValueForCharacteristic(bool enabled, const Characteristic& it) override {
        note(enabled ? "subscribe" : "unsubscribe", std::array{it->UUID()});
    }
    void readRSSI() override { note("readRSSI", {}); }

private:
    void note(std::string call, UUIDs about) {
        for (const auto& uuid : about) call += ' ' + uuid.UUIDString();
        calls.push_back(std::move(call));
    }
};

/// Writes down which connections it is to make and to cancel.
class RecordingCentral final : public CBCentralManager {
    using Peripheral = std::shared_ptr<CBPeripheral>;

public:
    std::vector<std::pair<std::string, Peripheral>> calls;
    /// Called at each call, before it is written down.
    std::function<void(const std::string& call)> onCall = [](const auto& /*call*/) {};
    CBManagerState theState = CBManagerState::poweredOn;

    CBManagerState state() const override { return theState; }
    bool isScanning() const override { return false; }
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID>, CBScanOptions) override {}
    void stopScan() override {}
    void connectPeripheral(const Peripheral& peripheral) override { note("connect", peripheral); }
    void cancelPeripheralConnection(const Peripheral& peripheral) override { note("cancel", peripheral); }

private:
    void note(const std::string& call, const Peripheral& peripheral) {
        onCall(call);
        calls.emplace_back(call, peripheral);
    }
};

}  // namespace zobi::platform
