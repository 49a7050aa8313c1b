#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "zobi/platform/CBCentralManager.h"

using Events = std::vector<std::string>;

/// Writes down what a radio tells, in its order. It makes sure that nothing is told from inside a call, and
/// that a peripheral's state is what the event says.
class RadioRecorder : public zobi::platform::CBCentralManagerDelegate,
                      public zobi::platform::CBPeripheralDelegate {
public:
    using AdvertisementData = zobi::platform::CBAdvertisementData;

    static std::shared_ptr<RadioRecorder> make();

    Events events;
    /// The handle at each sighting of a beacon; with `describe`, of any device.
    std::vector<std::shared_ptr<zobi::platform::CBPeripheral>> sightings;
    std::vector<std::uint8_t> lastValue;
    /// The central managers and peripherals that events have named.
    std::set<const void*> named;
    /// If there is one, sightings are events too: this makes their text.
    std::function<std::string(const AdvertisementData&, zobi::platform::NSNumber rssi)> describe;
    /// Called at each sighting that is kept.
    std::function<void(const AdvertisementData&)> onSighting = [](const auto& /*data*/) {};
    /// Called at each event, before it is written down.
    std::function<void(const std::string& event)> onEvent = [](const auto& /*event*/) {};

    /// Calls, with nothing told meanwhile.
    void quietly(const std::function<void()>& call);

protected:
    RadioRecorder() = default;
    bool isInsideCall_ = false;
};

/// The characteristic with this UUID; null if it was not discovered.
std::shared_ptr<zobi::platform::CBCharacteristic> discoveredCharacteristic(
    const zobi::platform::CBPeripheral& peripheral, const zobi::platform::CBUUID& uuid);
