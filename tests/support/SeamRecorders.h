#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"

// Stand at the seam where a test wants to see the very calls that the library makes. They answer nothing.

/// A characteristic that was discovered, with its value.
std::shared_ptr<zobi::platform::CBCharacteristic> foundCharacteristic(
    std::string_view uuid, std::optional<std::vector<std::uint8_t>> value = {});

/// A service that was discovered, without its characteristics or with them.
std::shared_ptr<zobi::platform::CBService> foundService(std::string_view uuid);
std::shared_ptr<zobi::platform::CBService> foundService(std::string_view uuid,
                                                        const std::vector<std::string_view>& characteristics);

/// Writes down what is asked of it.
class RecordingPeripheral : public zobi::platform::CBPeripheral {
public:
    static std::shared_ptr<RecordingPeripheral> make();

    std::vector<std::string> calls;
    zobi::platform::CBPeripheralState theState = zobi::platform::CBPeripheralState::disconnected;
    std::optional<std::vector<std::shared_ptr<zobi::platform::CBService>>> found;
    std::weak_ptr<zobi::platform::CBPeripheralDelegate> theDelegate;

    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

protected:
    RecordingPeripheral() = default;
};

/// Writes down which connections it is to make and to cancel.
class RecordingCentral : public zobi::platform::CBCentralManager {
public:
    static std::shared_ptr<RecordingCentral> make();

    std::vector<std::pair<std::string, std::shared_ptr<zobi::platform::CBPeripheral>>> calls;
    /// Called at each call, before it is written down.
    std::function<void(const std::string& call)> onCall = [](const auto& /*call*/) {};
    zobi::platform::CBManagerState theState = zobi::platform::CBManagerState::poweredOn;

protected:
    RecordingCentral() = default;
};
