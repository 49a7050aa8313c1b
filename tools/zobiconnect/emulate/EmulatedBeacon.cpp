#include "tools/zobiconnect/emulate/EmulatedBeacon.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "tools/zobiconnect/text/Hex.h"
#include "tools/zobiconnect/text/Names.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

using platform::CBManagerState;
using platform::GATTPlace;
using platform::NSError;
using platform::bluez::LocalAdvertisement;
using platform::bluez::LocalService;
using platform::bluez::PeripheralManager;
using platform::simulation::DeviceDescription;

namespace {

std::vector<LocalService> servicesOf(const DeviceDescription& device) {
    std::vector<LocalService> services;
    for (const auto& service : device.services) {
        LocalService local{service.uuid, {}};
        for (const auto& [uuid, properties, value, width, generated, readError, writeError, notifyError] :
             service.characteristics) {
            local.characteristics.push_back({uuid, properties.read, properties.write,
                                             properties.writeWithoutResponse, properties.notify});
        }
        services.push_back(std::move(local));
    }
    return services;
}

LocalAdvertisement advertisementOf(const DeviceDescription& device) {
    LocalAdvertisement advertisement{.localName = device.localName, .services = device.advertisedServices};
    for (const auto& [service, data] : device.serviceData) {
        advertisement.serviceData.push_back({service, data});
    }
    // The fastest and the slowest that Bluetooth has.
    advertisement.interval = std::clamp(device.advertisingInterval, 0.02, 10.0);
    return advertisement;
}

std::string nameOf(const platform::CBUUID& uuid) {
    return gattName(uuid).empty() ? uuid.UUIDString() : gattText(uuid);
}

}  // namespace

EmulatedBeacon::EmulatedBeacon(platform::RunLoop& runLoop, SimulatedBeacon& beacon, Teller tell)
    : runLoop_(runLoop), beacon_(beacon), tell_(std::move(tell)) {}

EmulatedBeacon::~EmulatedBeacon() {
    beacon_.gatt().endLink();
}

void EmulatedBeacon::start(const ManagerMaker& makeManager) {
    manager_ = makeManager(servicesOf(beacon_.description()), weak_from_this());
    beacon_.addObserver(weak_from_this());
    follow();
}

void EmulatedBeacon::simulatedDeviceDidChange(platform::simulation::SimulatedDevice& /*device*/) {
    if (!isEnding_) follow();
}

void EmulatedBeacon::follow() {
    if (!beacon_.isInRange()) {
        if (onAir_) fallSilent();
        return;
    }
    if (silenceTimer_) silenceTimer_->invalidate();
    auto advertisement = advertisementOf(beacon_.description());
    if (advertisement == onAir_) return;
    onAir_ = std::move(advertisement);
    manager_->startAdvertising(*onAir_);
}

void EmulatedBeacon::fallSilent() {
    onAir_.reset();
    manager_->stopAdvertising();
    tell_("silent", nlohmann::ordered_json::object(), "silent");
    // A link outlives a silence that is not long. The service can only end it in good order.
    silenceTimer_ =
        runLoop_.after(beacon_.description().link.supervisionTimeout, [weakSelf = weak_from_this()] {
            if (const auto self = weakSelf.lock()) self->disconnectCentrals();
        });
}

void EmulatedBeacon::end(std::function<void()> ended) {
    isEnding_ = true;
    manager_->shutDown(std::move(ended));
}

void EmulatedBeacon::fail(const std::string& reason) {
    if (isEnding_) return;
    const bool isRestarting = manager_->state() == CBManagerState::resetting;
    if (hasBeenOnAir_ || isRestarting) return tell_("obstacle", {{"text", reason}}, reason);
    failure_ = reason;
    runLoop_.stop();
}

// The radio

void EmulatedBeacon::peripheralManagerDidUpdateState(PeripheralManager& manager) {
    if (manager.state() != CBManagerState::poweredOn) fail(manager.advice());
}

void EmulatedBeacon::peripheralManagerDidStartAdvertising(PeripheralManager& /*manager*/,
                                                          const NSError* error) {
    if (error) return fail(error->localizedDescription());
    hasBeenOnAir_ = true;
    tell_("advertising", {{"major", beacon_.major()}, {"minor", beacon_.minor()}},
          "on the air as beacon " + std::to_string(beacon_.major()) + '.' + std::to_string(beacon_.minor()));
}

void EmulatedBeacon::peripheralManagerDidConnectCentral(PeripheralManager& manager,
                                                        const std::string& central) {
    tell_("connected", {{"central", central}}, "connected by " + central);
    if (!centrals_.insert(central).second || centrals_.size() > 1) return;
    beacon_.gatt().beginLink([&manager](auto place, auto value) { manager.notify(place, value); }, random_);
}

void EmulatedBeacon::peripheralManagerDidDisconnectCentral(PeripheralManager& /*manager*/,
                                                           const std::string& central) {
    tell_("disconnected", {{"central", central}}, "disconnected by " + central);
    centrals_.erase(central);
    if (centrals_.empty()) beacon_.gatt().endLink();
}

// Requests

EmulatedBeacon::ReadAnswer EmulatedBeacon::peripheralManagerDidReceiveRead(PeripheralManager& /*manager*/,
                                                                           GATTPlace place,
                                                                           const std::string& /*central*/) {
    const auto& characteristic = beacon_.gatt().at(place);
    tellAbout("read", place, "read: ");
    if (characteristic.readError) return *characteristic.readError;
    return *characteristic.value;
}

std::optional<NSError> EmulatedBeacon::peripheralManagerDidReceiveWrite(PeripheralManager& /*manager*/,
                                                                        GATTPlace place,
                                                                        std::span<const std::uint8_t> value,
                                                                        const std::string& /*central*/) {
    const auto& characteristic = beacon_.gatt().at(place);
    if (characteristic.writeError) {
        tellAbout("refused", place, "written, and refused: ");
        return characteristic.writeError;
    }
    beacon_.gatt().write(place, {value.begin(), value.end()});
    tellWrite(characteristic.uuid, value);
    return std::nullopt;
}

void EmulatedBeacon::tellAbout(const char* event, GATTPlace place, const std::string& line) const {
    const auto& uuid = beacon_.gatt().at(place).uuid;
    tell_(event, {{"characteristic", uuid.UUIDString()}}, line + nameOf(uuid));
}

void EmulatedBeacon::tellWrite(const platform::CBUUID& characteristic,
                               std::span<const std::uint8_t> value) const {
    constexpr std::uint8_t noAlert = 0;
    std::string line = "written: " + nameOf(characteristic) + ' ' + hexText(value);
    if (characteristic == ZOKGATTProfile::alertLevelCharacteristic && !value.empty()) {
        line = value.front() == noAlert ? "the alert is silent" : "the alert sounds";
    } else if (characteristic == ZOKGATTProfile::buttonModeCharacteristic && value.size() == 1) {
        line = "button mode written: " + std::to_string(value.front());
    }
    tell_("written", {{"characteristic", characteristic.UUIDString()}, {"value", hexText(value)}}, line);
}

void EmulatedBeacon::peripheralManagerDidChangeSubscription(PeripheralManager& /*manager*/, GATTPlace place,
                                                            bool isSubscribed) {
    const char* const event = isSubscribed ? "subscribed" : "unsubscribed";
    tellAbout(event, place, std::string(event) + ": ");
}

}  // namespace zobi::tool
