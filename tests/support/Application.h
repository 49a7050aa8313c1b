#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"

using Events = std::vector<std::string>;

/// Writes down what the library tells, in its order: delegate, broadcasts and completions. Ranging is not
/// written down. It monitors whenever Bluetooth is on.
class Application final : public ZOKManagerDelegate, public std::enable_shared_from_this<Application> {
    using Manager = std::shared_ptr<ZOKManager>;
    using Beacon = std::shared_ptr<ZOKBeacon>;
    using NSError = zobi::platform::NSError;

public:
    Events events;
    /// Called at each event, before it is written down.
    std::function<void(const std::string& event)> onEvent = [](const auto& /*event*/) {};

    /// Becomes the manager's delegate, and hears its platform's broadcasts.
    void start(ZOKManager& manager, zobi::platform::Platform& platform) {
        manager.setDelegate(weak_from_this());
        for (const std::string_view name :
             {ZOKBeaconDidConnectNotification, ZOKBeaconDidDisconnectNotification,
              ZOKBeaconDidTemperatureChangeNotification, ZOKBeaconDidAccelerometerAxisXChangeNotification,
              ZOKBeaconDidAccelerometerAxisYChangeNotification,
              ZOKBeaconDidAccelerometerAxisZChangeNotification, ZOKBeaconButtonModeNotification,
              ZOKBeaconFirmwareVersionNotification, ZOKBeaconDidRSSIChangeNotification}) {
            platform.notificationCenter().addObserverForNameObjectUsingBlock(
                name, nullptr, [weakSelf = weak_from_this()](const zobi::platform::NSNotification& it) {
                    // A strength is another each time.
                    const bool isSignal = it.name == ZOKBeaconDidRSSIChangeNotification;
                    if (const auto self = weakSelf.lock()) {
                        self->note(std::string(it.name) + (isSignal ? "" : valueText(it.userInfo)),
                                   std::static_pointer_cast<ZOKBeacon>(it.object));
                    }
                });
        }
    }

    /// A completion that writes down that it was called.
    ZOKBeaconCompletion completion(const std::string& name) {
        return [this, name](const auto& /*manager*/, const auto& beacon, const NSError* error) {
            note(name + errorText(error), beacon);
        };
    }

    void zobiConnectManagerDidBluetoothStateChanged(const Manager& manager, int state) override {
        // The scan ended with the power, whatever the manager thinks.
        if (manager->isMonitoring()) manager->stopMonitoring();
        manager->startMonitoring();
        events.push_back("state " + std::to_string(state));
    }
    void zobiConnectManagerDidBeaconConnected(const Manager&, const Beacon& beacon) override {
        note("connected", beacon);
    }
    void zobiConnectManagerDidBeaconDisconnectedWithError(const Manager&, const Beacon& beacon,
                                                          const NSError* error) override {
        note("disconnected" + errorText(error), beacon);
    }
    void zobiConnectManagerDidBatteryValueChangedForBeacon(const Manager&, int level,
                                                           const Beacon& beacon) override {
        note("battery " + std::to_string(level), beacon);
    }
    void zobiConnectManagerDidTemperatureValueChangedForBeacon(const Manager&, std::uint16_t temperature,
                                                               const Beacon& beacon) override {
        note("temperature " + std::to_string(temperature), beacon);
    }
    void zobiConnectManagerDidButtonActionChangedForBeacon(const Manager&, int action,
                                                           const Beacon& beacon) override {
        note("button " + std::to_string(action), beacon);
    }

private:
    static std::string errorText(const NSError* error) {
        return error ? " error " + std::to_string(error->code()) : "";
    }
    static std::string valueText(const zobi::platform::NSUserInfo& userInfo) {
        const auto* const value = userInfo.objectForKey("value");
        if (!value) return "";
        if (const auto* const text = std::get_if<std::string>(value)) return ' ' + *text;
        return ' ' + std::get<zobi::platform::NSNumber>(*value).description();
    }
    void note(const std::string& event, const Beacon& beacon) {
        onEvent(event);
        events.push_back(beacon ? event : event + " of nothing");
    }
};
