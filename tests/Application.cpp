#include "Application.h"

#include <array>
#include <string_view>
#include <utility>

using namespace platform;

namespace {

constexpr auto broadcasts = std::to_array<std::string_view>({
    ZOKBeaconDidConnectNotification,
    ZOKBeaconDidDisconnectNotification,
    ZOKBeaconDidTemperatureChangeNotification,
    ZOKBeaconDidAccelerometerAxisXChangeNotification,
    ZOKBeaconDidAccelerometerAxisYChangeNotification,
    ZOKBeaconDidAccelerometerAxisZChangeNotification,
    ZOKBeaconButtonModeNotification,
    ZOKBeaconFirmwareVersionNotification,
    ZOKBeaconDidRSSIChangeNotification,
});

std::string valueText(const NSUserInfo& userInfo) {
    const auto* const value = userInfo.objectForKey("value");
    if (!value) return "";
    if (const auto* const text = std::get_if<std::string>(value)) return ' ' + *text;
    return ' ' + std::get<NSNumber>(*value).description();
}

}  // namespace

void Application::start(ZOKManager& manager, Platform& platform) {
    manager.setDelegate(weak_from_this());
    for (const std::string_view name : broadcasts) {
        platform.notificationCenter().addObserverForNameObjectUsingBlock(
            name, nullptr, [weakSelf = weak_from_this()](const NSNotification& notification) {
                if (const auto self = weakSelf.lock()) {
                    const bool isSignal = notification.name == ZOKBeaconDidRSSIChangeNotification;
                    self->note(
                        std::string(notification.name) + (isSignal ? "" : valueText(notification.userInfo)),
                        std::static_pointer_cast<ZOKBeacon>(notification.object));
                }
            });
    }
}

ZOKBeaconCompletion Application::completion(const std::string& name) {
    return [this, name](const auto& /*manager*/, const auto& beacon, const NSError* error) {
        note(name + (error ? " error " + std::to_string(error->code()) : ""), beacon);
    };
}

void Application::zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                             int state) {
    // The scan ended with the power, whatever the manager thinks.
    if (manager->isMonitoring()) manager->stopMonitoring();
    manager->startMonitoring();
    events.push_back("state " + std::to_string(state));
}

void Application::zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                       const std::shared_ptr<ZOKBeacon>& beacon) {
    note("connected", beacon);
}

void Application::zobiConnectManagerDidBeaconDisconnectedWithError(
    const std::shared_ptr<ZOKManager>& /*manager*/, const std::shared_ptr<ZOKBeacon>& beacon,
    const NSError* error) {
    note(error ? "disconnected error " + std::to_string(error->code()) : "disconnected", beacon);
}

void Application::zobiConnectManagerDidBatteryValueChangedForBeacon(
    const std::shared_ptr<ZOKManager>& /*manager*/, int level, const std::shared_ptr<ZOKBeacon>& beacon) {
    note("battery " + std::to_string(level), beacon);
}

void Application::zobiConnectManagerDidTemperatureValueChangedForBeacon(
    const std::shared_ptr<ZOKManager>& /*manager*/, std::uint16_t temperature,
    const std::shared_ptr<ZOKBeacon>& beacon) {
    note("temperature " + std::to_string(temperature), beacon);
}

void Application::zobiConnectManagerDidButtonActionChangedForBeacon(
    const std::shared_ptr<ZOKManager>& /*manager*/, int action, const std::shared_ptr<ZOKBeacon>& beacon) {
    note("button " + std::to_string(action), beacon);
}

void Application::note(const std::string& event, const std::shared_ptr<ZOKBeacon>& beacon) {
    onEvent(event);
    events.push_back(beacon ? event : event + " of nothing");
}
