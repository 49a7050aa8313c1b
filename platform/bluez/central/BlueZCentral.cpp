#include "platform/bluez/central/BlueZCentral.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "zobi/platform/NSData.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::bluez {

namespace {

// What a controller reports when it could not measure.
constexpr std::int16_t unknownSignal = 127;

NSError radioIsOff() {
    return {CBError::operationCancelled, "Bluetooth is off."};
}

NSNumber signalStrength(const DeviceChange& change) {
    if (!change.rssi || *change.rssi == unknownSignal) return {};
    return NSNumber::numberWithInt(*change.rssi);
}

}  // namespace

BlueZCentral::~BlueZCentral() {
    for (const auto& [address, peripheral] : peripherals_) {
        // The service would keep the link up, and the beacon silent, for nobody.
        const Device* const device = peripheral->isBusy() ? service_->device(address) : nullptr;
        if (device) service_->send(device->path, deviceInterface, "Disconnect");
        // The application may keep the handle.
        peripheral->abandon();
    }
}

void BlueZCentral::start() {
    service_ = std::make_shared<BlueZService>(context_, weak_from_this());
    discovery_ = std::make_shared<Discovery>(context_, service_);
    attempts_ = std::make_shared<ConnectionAttempts>(
        context_, [this](std::function<void()> then) { discovery_->endThen(std::move(then)); },
        [this] { return service_->isDiscovering(); }, [this] { updateDiscovery(); });
    service_->start();
}

// Scanning

void BlueZCentral::scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                         CBScanOptions options) {
    if (state_ != CBManagerState::poweredOn) return;
    serviceFilter_.assign(services.begin(), services.end());
    options_ = options;
    isScanning_ = true;
    ++scansStarted_;
    std::erase_if(peripherals_,
                  [](const auto& entry) { return entry.second->isIdle() && entry.second.use_count() == 1; });
    if (!attempts_->isAttempting()) discovery_->begin(discoveryFilter());
}

void BlueZCentral::stopScan() {
    isScanning_ = false;
    if (service_) updateDiscovery();
}

void BlueZCentral::updateDiscovery() {
    if (state_ != CBManagerState::poweredOn || attempts_->isAttempting()) return;
    if (isScanning_ || attempts_->isWaited()) {
        discovery_->goOn(discoveryFilter());
    } else {
        discovery_->end();
    }
}

/// Lets through what the scan asks for, and whoever an attempt waits for.
std::vector<CBUUID> BlueZCentral::discoveryFilter() const {
    std::vector<CBUUID> filter = isScanning_ ? serviceFilter_ : std::vector<CBUUID>();
    if (isScanning_ && filter.empty()) return filter;
    for (const auto& waiting : attempts_->waiting()) {
        // It was found among all devices, and is looked for among them.
        if (waiting->foundWith().empty()) return {};
        std::ranges::copy_if(waiting->foundWith(), std::back_inserter(filter), [&](const CBUUID& service) {
            return std::ranges::find(filter, service) == filter.end();
        });
    }
    return filter;
}

bool BlueZCentral::passesServiceFilter(const Device& device) const {
    const auto& advertised = device.advertisedServices;
    // The service filters too, by the packet itself. Here is filtered what it lets through for other
    // programs.
    if (serviceFilter_.empty() || !advertised) return true;
    return std::ranges::find_first_of(*advertised, serviceFilter_) != advertised->end();
}

void BlueZCentral::deviceDidAppear(Device& device) {
    const auto known = peripherals_.find(device.address);
    if (known == peripherals_.end()) return;
    device.peripheral = known->second;
    device.peripheral->deviceDidAppear();
    DeviceChange appearance;
    appearance.hasConnected = device.isConnected;
    device.peripheral->deviceDidChange(device, appearance);
}

void BlueZCentral::deviceDidChange(Device& device, const DeviceChange& change) {
    if (device.peripheral) device.peripheral->deviceDidChange(device, change);
    if (isScanning_ || attempts_->isWaited()) {
        const bool completes =
            change.name && !device.isConnected && device.peripheral && device.peripheral->isNameAwaited();
        if (change.isSighting() || completes) hear(device, change);
    }
}

void BlueZCentral::hear(Device& device, const DeviceChange& change) {
    // Whatever the scan asks for now.
    if (device.peripheral) attempts_->heard(*device.peripheral);
    if (!isScanning_ || !passesServiceFilter(device)) return;
    const auto peripheral = peripheralOf(device);
    const auto serviceData = change.serviceData.value_or(std::span<const CBServiceData>());
    const NSNumber rssi = signalStrength(change);
    if (!device.isConnected) peripheral->rememberName(device.name);
    if (!peripheral->advertisedName()) {
        if (change.serviceData) peripheral->keepUntilNamed(serviceData, rssi);
        return report(peripheral, serviceData, rssi);
    }
    const auto kept = peripheral->takeUnnamed();
    if (!kept || change.serviceData) return report(peripheral, serviceData, rssi);
    // The name was in a packet of its own: now the advertisement is whole.
    std::vector<CBServiceData> keptData;
    keptData.reserve(kept->serviceData.size());
    for (const auto& [service, data] : kept->serviceData) keptData.push_back({service, data});
    report(peripheral, keptData, rssi.hasValue() ? rssi : kept->rssi);
}

std::shared_ptr<BlueZPeripheral> BlueZCentral::peripheralOf(Device& device) {
    if (!device.peripheral) {
        auto& known = peripherals_[device.address];
        if (!known) {
            known =
                std::make_shared<BlueZPeripheral>(context_, weak_from_this(), device.address, serviceFilter_);
            attempts_->heard(*known);
        }
        device.peripheral = known;
    }
    return device.peripheral;
}

void BlueZCentral::report(const std::shared_ptr<BlueZPeripheral>& peripheral,
                          std::span<const CBServiceData> serviceData, NSNumber rssi) {
    const auto& name = peripheral->advertisedName();
    if (!options_.allowDuplicates) {
        // The one report of a scan must be worth it: what is missing follows.
        if (!name || serviceData.empty()) return;
        if (peripheral->wasReportedIn(scansStarted_)) return;
    }
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    peripheral->noteReport(scansStarted_);
    CBAdvertisementData data{.localName = std::nullopt, .serviceData = serviceData};
    // A copy is not needed, as the name is set by signals alone.
    if (name) data.localName = *name;
    try {
        delegate->centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(*this, peripheral, data, rssi);
    } catch (const DataRangeError& error) {
        peripheral->forgetReport();
        context_->log.log("Advertisement from %@ dropped: %@", textOf(peripheral->address()), error.what());
    }
}

// Connecting

// Connecting and cancelling each take a turn of their own, so that they happen in the order in which they
// were asked for, and what was asked of a link before stays outstanding until it ends.

void BlueZCentral::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) {
    const auto connected = ownPeripheral(peripheral);
    if (!connected) return;
    connected->announceConnect();
    context_->runLoop.dispatchAsync(
        [self = shared_from_this(), connected] { self->carryOutConnect(connected); });
}

void BlueZCentral::carryOutConnect(const std::shared_ptr<BlueZPeripheral>& peripheral) {
    if (state_ != CBManagerState::poweredOn) return peripheral->refuseConnect(radioIsOff());
    peripheral->connect(++attemptsStarted_);
    // A controller that reports a device once a scan would not tell soon that the device is there.
    if (attempts_->isWaited() && !attempts_->isAttempting()) discovery_->begin(discoveryFilter());
}

void BlueZCentral::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
    if (const auto cancelled = ownPeripheral(peripheral)) {
        context_->runLoop.dispatchAsync([self = shared_from_this(), cancelled] { cancelled->cancel(); });
    }
}

std::shared_ptr<BlueZPeripheral> BlueZCentral::ownPeripheral(
    const std::shared_ptr<CBPeripheral>& peripheral) const {
    const auto found =
        std::ranges::find_if(peripherals_, [&](const auto& entry) { return entry.second == peripheral; });
    return found == peripherals_.end() ? nullptr : found->second;
}

void BlueZCentral::peripheralDidChangePhase() {
    // What is asked of a link, and what it answers, must not wait.
    service_->setGathers(
        std::ranges::none_of(peripherals_, [](const auto& entry) { return entry.second->isBusy(); }));
}

void BlueZCentral::reportConnection(const std::shared_ptr<BlueZPeripheral>& peripheral) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidConnectPeripheral(*this, peripheral);
    }
}

void BlueZCentral::reportFailure(const std::shared_ptr<BlueZPeripheral>& peripheral, const NSError& error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidFailToConnectPeripheralError(*this, peripheral, &error);
    }
}

void BlueZCentral::reportDisconnection(const std::shared_ptr<BlueZPeripheral>& peripheral,
                                       const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidDisconnectPeripheralError(*this, peripheral, error);
    }
}

// What the service tells

void BlueZCentral::serviceDidChangeAvailability() {
    const CBManagerState state = stateOf(service_->availability());
    if (state == CBManagerState::poweredOn) openChannel();
    if (state != state_) enterState(state);
}

void BlueZCentral::openChannel() {
    const std::string adapter = service_->adapterName();
    const bool isOpen = channel_ && channel_->isOpen();
    if (std::exchange(channelAdapter_, adapter) == adapter && isOpen) return;
    channel_ = context_->openChannel(adapter);
    if (!channel_) {
        context_->log.log(
            "Bluetooth: the controller %@ cannot be asked past the service: how links end and how strong "
            "their signal is will be unknown.",
            adapter);
        return;
    }
    channel_->setOnEvent([weakSelf = weak_from_this()] {
        const auto self = weakSelf.lock();
        if (!self) return;
        const auto peripherals = self->peripherals_;
        for (const auto& [address, peripheral] : peripherals) peripheral->lookForLinkEnd();
    });
}

void BlueZCentral::enterState(CBManagerState state) {
    state_ = state;
    const auto reportState = [this] {
        if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(*this);
    };
    if (state == CBManagerState::poweredOn) {
        peripheralDidChangePhase();
        return reportState();
    }
    isScanning_ = false;
    discovery_->forget();
    attempts_->clear();
    std::vector<std::shared_ptr<BlueZPeripheral>> ended;
    for (const auto& [address, peripheral] : peripherals_) {
        if (!peripheral->isIdle()) ended.push_back(peripheral);
    }
    std::ranges::sort(ended, {}, &BlueZPeripheral::order);
    ExceptionKeeper exceptions;
    exceptions.run(reportState);
    for (const auto& peripheral : ended) {
        exceptions.run([&] { peripheral->loseRadio(radioIsOff(), state == CBManagerState::resetting); });
    }
    exceptions.rethrow();
}

void BlueZCentral::deviceDidVanish(Device& device) {
    const auto peripheral = std::exchange(device.peripheral, nullptr);
    if (!peripheral) return;
    peripheral->deviceDidVanish();
    // Nobody could tell a handle that is made anew from this one; but the scan may have to know it again.
    constexpr long thisAndTheMap = 2;
    const bool isUsed = !peripheral->isIdle() || peripheral.use_count() > thisAndTheMap;
    const bool isKnown = isScanning_ && !options_.allowDuplicates && peripheral->wasReportedIn(scansStarted_);
    if (!isUsed && !isKnown) peripherals_.erase(peripheral->address());
}

void BlueZCentral::deviceDidTellLinkEnd(Device& device, const LinkEnd& end) {
    if (device.peripheral) device.peripheral->linkEndWasTold(end);
}

void BlueZCentral::characteristicDidChange(Device& device, std::string_view path,
                                           std::span<const std::uint8_t> value) {
    if (device.peripheral) device.peripheral->characteristicDidChange(path, value);
}

}  // namespace zobi::platform::bluez
