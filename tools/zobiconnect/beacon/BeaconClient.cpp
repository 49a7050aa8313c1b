#include "tools/zobiconnect/beacon/BeaconClient.h"

#include <algorithm>
#include <utility>

#include "tools/zobiconnect/text/Names.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

using platform::CBUUID;
using platform::NSError;
using platform::NSNumber;

BeaconClient::BeaconClient(platform::Platform& platform, BeaconIdentity identity)
    : platform_(platform), identity_(std::move(identity)) {}

void BeaconClient::start() {
    ZOKManager::shared()->setDelegate(weak_from_this());
    // What is told to no delegate. Battery and button are told to the delegate alone.
    observe(ZOKBeaconDidTemperatureChangeNotification, Quantity::temperature);
    observe(ZOKBeaconDidAccelerometerAxisXChangeNotification, Quantity::axisX);
    observe(ZOKBeaconDidAccelerometerAxisYChangeNotification, Quantity::axisY);
    observe(ZOKBeaconDidAccelerometerAxisZChangeNotification, Quantity::axisZ);
    observe(ZOKBeaconButtonModeNotification, Quantity::buttonMode);
    observe(ZOKBeaconFirmwareVersionNotification, Quantity::firmwareVersion);
    observe(ZOKBeaconDidRSSIChangeNotification, Quantity::signalStrength);
}

void BeaconClient::observe(std::string_view notification, Quantity quantity) {
    platform_.notificationCenter().addObserverForNameObjectUsingBlock(
        notification, nullptr, [weakSelf = weak_from_this(), quantity](const auto& posted) {
            const auto self = weakSelf.lock();
            const Value* const value = posted.userInfo.objectForKey("value");
            if (self && value) self->valueArrived(quantity, *value, posted.object.get());
        });
}

void BeaconClient::end() {
    ZOKManager::shared()->stopMonitoring();
    if (link_ != Link::none) ZOKManager::shared()->disconnectBeacon(beacon_);
}

std::string BeaconClient::name() const {
    return "beacon " + std::to_string(identity_.first) + '.' + std::to_string(identity_.second);
}

bool BeaconClient::isBluetoothOn() const {
    return bluetoothState_ == static_cast<int>(platform::CBManagerState::poweredOn);
}

std::string BeaconClient::obstacle() const {
    if (!isBluetoothOn()) return "Bluetooth is not on, but " + std::string(radioStateName(bluetoothState_));
    if (link_ == Link::none) return ending_.value_or(name() + " was not heard");
    const auto& peripheral = beacon_->peripheral();
    if (peripheral->state() != platform::CBPeripheralState::connected) return name() + " did not accept one";
    // The link is up, but the beacon is not reported connected. The library does not tell why.
    const auto& services = peripheral->services();
    if (!services) return name() + " was linked, but its services were not found";
    std::vector<std::string> missing;
    for (const CBUUID& wanted : ZOKGATTProfile::requestedServices) {
        const bool isFound =
            std::ranges::any_of(*services, [&](const auto& service) { return service->UUID() == wanted; });
        if (!isFound) missing.push_back(gattText(wanted));
    }
    if (missing.empty()) return name() + " was linked, but did not tell all its characteristics";
    return name() + " was linked, but lacks the services that make a connection: " + listed(missing);
}

bool BeaconClient::has(const CBUUID& characteristic, const CBUUID& service) const {
    return ZOKManager::characteristicFromServiceAndPeripheral(characteristic, service,
                                                              beacon_->peripheral()) != nullptr;
}

std::vector<std::string> BeaconClient::missingCharacteristics() const {
    std::vector<std::string> missing;
    for (const auto& [service, characteristics] : ZOKGATTProfile::characteristicRequests) {
        for (const CBUUID& characteristic : characteristics) {
            if (!has(characteristic, service)) missing.push_back(gattText(characteristic));
        }
    }
    return missing;
}

void BeaconClient::zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                              int state) {
    bluetoothState_ = state;
    monitorIfPoweredOn(*manager, state);
    tell({BeaconEvent::Kind::bluetooth});
}

void BeaconClient::zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& manager,
                                                    const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) {
    // A record stays live for a while after its beacon has gone. Its time stamp tells of a new sighting.
    const auto heard = std::ranges::find_if(beacons, [this](const auto& beacon) {
        return identityOf(*beacon) == identity_ && beacon->timestamp() != lastHeard_;
    });
    if (isBluetoothOn() && link_ == Link::none && heard != beacons.end()) connect(*manager, *heard);
    if (link_ == Link::connecting && isReported_) becomeConnected();
    // A beacon that is heard while its attempt is pending, and then falls silent, is dropped. To ask again
    // keeps the record, and the attempt is the same.
    const bool isDropped = std::ranges::find(beacons, beacon_) == beacons.end();
    if (link_ == Link::connecting && isDropped) manager->connectBeacon(beacon_);
    tell({BeaconEvent::Kind::second});
}

void BeaconClient::connect(ZOKManager& manager, const std::shared_ptr<ZOKBeacon>& beacon) {
    beacon_ = beacon;
    link_ = Link::connecting;
    isReported_ = false;
    manager.connectBeaconWithCompletion(
        beacon,
        [weakSelf = weak_from_this()](const auto& /*manager*/, const auto& connected, const NSError* error) {
            const auto self = weakSelf.lock();
            // Nobody else is told of a failure. Success is told to the delegate too.
            if (self && error && connected == self->beacon_) self->attemptFailed(*error);
        });
    tell({BeaconEvent::Kind::connecting});
}

void BeaconClient::zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                        const std::shared_ptr<ZOKBeacon>& beacon) {
    if (!isOfSamePeripheral(*beacon)) return;
    beacon_ = beacon;
    isReported_ = true;
    // A beacon that has a service twice is reported before its last answer, which then comes soon or never.
    if (isDiscovered()) becomeConnected();
}

void BeaconClient::becomeConnected() {
    isReported_ = false;
    link_ = Link::connected;
    ending_.reset();
    tell({BeaconEvent::Kind::connected});
}

bool BeaconClient::isDiscovered() const {
    return std::ranges::all_of(*beacon_->peripheral()->services(),
                               [](const auto& service) { return service->characteristics().has_value(); });
}

/// While its own record is dropped, another may have taken its place.
bool BeaconClient::isOfSamePeripheral(const ZOKBeacon& beacon) const {
    return beacon_ && beacon.peripheral() == beacon_->peripheral();
}

void BeaconClient::attemptFailed(const NSError& error) {
    link_ = Link::none;
    lastHeard_ = beacon_->timestamp();
    ending_ = "cannot connect to " + name() + ": " + errorText(error);
    tell({BeaconEvent::Kind::failed, &error});
}

void BeaconClient::zobiConnectManagerDidBeaconDisconnectedWithError(
    const std::shared_ptr<ZOKManager>& /*manager*/, const std::shared_ptr<ZOKBeacon>& beacon,
    const NSError* error) {
    if (!beacon || !isOfSamePeripheral(*beacon)) return;
    beacon_ = beacon;
    isReported_ = false;
    if (error && error->code() == static_cast<int>(platform::CBError::connectionTimeout)) {
        // The library has asked for another connection already.
        link_ = Link::connecting;
        ending_ = "the link to " + name() + " was lost: " + errorText(*error);
        tell({BeaconEvent::Kind::lost, error});
        tell({BeaconEvent::Kind::connecting});
        return;
    }
    link_ = Link::none;
    lastHeard_ = beacon->timestamp();
    ending_ = "the link to " + name() + " has ended" + (error ? ": " + errorText(*error) : "");
    tell({BeaconEvent::Kind::ended, error});
}

void BeaconClient::zobiConnectManagerDidBatteryValueChangedForBeacon(
    const std::shared_ptr<ZOKManager>& /*manager*/, int level, const std::shared_ptr<ZOKBeacon>& beacon) {
    valueArrived(Quantity::batteryLevel, NSNumber::numberWithInt(level), beacon.get());
}

void BeaconClient::zobiConnectManagerDidButtonActionChangedForBeacon(
    const std::shared_ptr<ZOKManager>& /*manager*/, int action, const std::shared_ptr<ZOKBeacon>& beacon) {
    valueArrived(Quantity::buttonAction, NSNumber::numberWithInt(action), beacon.get());
}

/// Those of other beacons, and what is advertised, come with other records.
void BeaconClient::valueArrived(Quantity quantity, Value value, const void* beacon) {
    if (!beacon || beacon != beacon_.get()) return;
    latest_[static_cast<std::size_t>(quantity)] = std::move(value);
    tell({BeaconEvent::Kind::value, nullptr, quantity});
}

void BeaconClient::tell(const BeaconEvent& event) {
    if (observer_) observer_(event);
    platform_.runLoop().stop();
}

}  // namespace zobi::tool
