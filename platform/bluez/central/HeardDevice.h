#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::platform::bluez {

/// What was heard of a device. It outlives what BlueZ knows of the device. Main thread only.
class HeardDevice {
public:
    /// @param foundWith the service filter of the scan that found it first: with it, it is found again.
    explicit HeardDevice(std::vector<CBUUID> foundWith) : foundWith_(std::move(foundWith)) {}

    const std::vector<CBUUID>& foundWith() const { return foundWith_; }

    /// On the monotonic clock.
    std::optional<std::chrono::nanoseconds> lastHeard() const { return lastHeard_; }
    void noteHeard(std::chrono::nanoseconds moment) { lastHeard_ = moment; }

    /// The name that the device advertises; absent while it is not known.
    const std::optional<std::string>& name() const { return name_; }
    /// BlueZ shows a name that it has not signalled: it was advertised earlier, or was read over a link.
    void rememberName(std::string_view name);
    /// The device has advertised its name.
    /// @returns whether it was reported under another one, which BlueZ remembered.
    bool hearName(std::string_view name);

    /// Service data and signal strength that were heard before the name.
    struct Unnamed {
        NSNumber rssi;
        std::vector<std::pair<CBUUID, std::vector<std::uint8_t>>> serviceData;
    };
    void keepUntilNamed(std::span<const CBServiceData> serviceData, NSNumber rssi);
    bool isNameAwaited() const { return unnamed_.has_value(); }
    std::optional<Unnamed> takeUnnamed() { return std::exchange(unnamed_, std::nullopt); }

private:
    std::vector<CBUUID> foundWith_;
    std::optional<std::chrono::nanoseconds> lastHeard_;
    std::optional<std::string> name_;
    bool isNameHeard_ = false;
    std::optional<Unnamed> unnamed_;
};

}  // namespace zobi::platform::bluez
