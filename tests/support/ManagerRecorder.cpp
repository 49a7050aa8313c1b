#include "ManagerRecorder.h"

#include <gtest/gtest.h>

#include <string_view>
#include <variant>

using namespace zobi::platform;

namespace {

class Delegate final : public ManagerRecorder {
    using Manager = std::shared_ptr<ZOKManager>;

public:
    explicit Delegate(const Manager& manager) : manager_(manager) {}

    void noteBroadcast(const NSNotification& notification) {
        std::string event(notification.name);
        const auto* const value = notification.userInfo.objectForKey("value");
        const auto* const number = value ? std::get_if<NSNumber>(value) : nullptr;
        if (number && notification.name == ZOKBeaconDidRSSIChangeNotification) {
            // It is another each time.
            lastSignal = *number;
        } else if (number) {
            event += ' ' + number->description();
            const auto twoBytes = static_cast<std::uint16_t>(number->integerValue());
            EXPECT_EQ(*number, NSNumber::numberWithUnsignedShort(twoBytes)) << event;
        } else if (value) {
            event += ' ' + std::get<std::string>(*value);
        }
        note(event, std::static_pointer_cast<ZOKBeacon>(notification.object));
    }

private:
    void zobiConnectManagerDidBluetoothStateChanged(const Manager& manager, int state) override {
        expectOwn(manager);
        // The scan ended with the power, whatever the manager thinks.
        if (monitors && manager->isMonitoring()) manager->stopMonitoring();
        if (monitors) manager->startMonitoring();
        events.push_back("state " + std::to_string(state));
    }
    void zobiConnectManagerDidRangeBeacon(const Manager& manager,
                                          const std::vector<Beacon>& beacons) override {
        expectOwn(manager);
        onReport();
        reports.push_back(beacons);
    }
    void zobiConnectManagerDidBeaconConnected(const Manager& manager, const Beacon& beacon) override {
        noteOf(manager, "connected", beacon);
    }
    void zobiConnectManagerDidBeaconDisconnectedWithError(const Manager& manager, const Beacon& beacon,
                                                          const NSError* error) override {
        expectOwn(manager);
        noteEnd("disconnected", beacon, error);
    }
    void zobiConnectManagerDidBatteryValueChangedForBeacon(const Manager& manager, int level,
                                                           const Beacon& beacon) override {
        noteOf(manager, "battery " + std::to_string(level), beacon);
    }
    void zobiConnectManagerDidTemperatureValueChangedForBeacon(const Manager& manager,
                                                               std::uint16_t temperature,
                                                               const Beacon& beacon) override {
        noteOf(manager, "temperature " + std::to_string(temperature), beacon);
    }
    void zobiConnectManagerDidButtonActionChangedForBeacon(const Manager& manager, int action,
                                                           const Beacon& beacon) override {
        buttons.emplace_back(action, beacon);
        noteOf(manager, "button " + std::to_string(action), beacon);
    }

    void expectOwn(const Manager& manager) const { EXPECT_EQ(manager, manager_.lock()); }
    void noteOf(const Manager& manager, const std::string& event, const Beacon& beacon) {
        expectOwn(manager);
        note(event, beacon);
    }

    std::weak_ptr<ZOKManager> manager_;
};

}  // namespace

std::shared_ptr<ManagerRecorder> ManagerRecorder::of(const std::shared_ptr<ZOKManager>& manager,
                                                     Platform* platform) {
    auto delegate = std::make_shared<Delegate>(manager);
    manager->setDelegate(delegate);
    if (!platform) return delegate;
    for (const std::string_view name :
         {ZOKBeaconDidConnectNotification, ZOKBeaconDidDisconnectNotification,
          ZOKBeaconDidTemperatureChangeNotification, ZOKBeaconDidAccelerometerAxisXChangeNotification,
          ZOKBeaconDidAccelerometerAxisYChangeNotification, ZOKBeaconDidAccelerometerAxisZChangeNotification,
          ZOKBeaconButtonModeNotification, ZOKBeaconFirmwareVersionNotification,
          ZOKBeaconDidRSSIChangeNotification}) {
        platform->notificationCenter().addObserverForNameObjectUsingBlock(
            name, nullptr, [weak = std::weak_ptr(delegate)](const NSNotification& notification) {
                if (const auto self = weak.lock()) self->noteBroadcast(notification);
            });
    }
    return delegate;
}

Events ManagerRecorder::takeEvents() {
    reports.clear();
    buttons.clear();
    return std::exchange(events, {});
}

ZOKBeaconCompletion ManagerRecorder::completion(const std::string& name) {
    return [this, name](const auto& /*manager*/, const auto& beacon, const NSError* error) {
        noteEnd(name, beacon, error);
    };
}

void ManagerRecorder::note(const std::string& event, const Beacon& beacon) {
    onEvent(event);
    lastRecord = beacon;
    events.push_back(beacon ? event : event + " of nothing");
}

void ManagerRecorder::noteEnd(const std::string& event, const Beacon& beacon, const NSError* error) {
    note(error ? event + " error " + std::to_string(error->code()) : event, beacon);
}
