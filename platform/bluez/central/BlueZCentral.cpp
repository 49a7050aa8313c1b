#include "platform/bluez/central/BlueZCentral.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/bluez/controller/HCI.h"
#include "platform/bluez/diagnosis/Conditions.h"

namespace zobi::platform::bluez {

namespace {

std::uint64_t keyOf(const DeviceAddress& address) {
    std::uint64_t key = 0;
    for (const std::uint8_t byte : address.bytes) key = key << 8 | byte;
    return key;
}

NSNumber signalStrength(const DeviceChange& change) {
    if (!change.rssi || *change.rssi == unknownRSSI) return {};
    return NSNumber::numberWithInt(*change.rssi);
}

}  // namespace

BlueZCentral::BlueZCentral(const RadioContext& context, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : StandardCentral(context.runLoop, context.log, std::move(delegate)) {
    context_->radio = std::make_shared<const RadioContext>(context);
}

BlueZCentral::~BlueZCentral() {
    // First, so that none of those that wait gets a turn now.
    if (context_->attempts) context_->attempts->clear();
    // BlueZ would keep the links up for nobody, and the devices would not advertise meanwhile.
    for (const auto& [key, peripheral] : peripherals()) peripheral->abandon();
}

void BlueZCentral::start() {
    auto& [radio, service, discovery, attempts, monitor, channel] = *context_;
    service = std::make_shared<BlueZService>(radio, self());
    discovery = std::make_shared<Discovery>(radio, service, [this]() -> std::optional<unsigned> {
        return context_->channel ? context_->channel->scanSwitches() : std::nullopt;
    });
    attempts = std::make_shared<ConnectionAttempts>(
        radio, [this](std::function<void()> then) { context_->discovery->stopThen(std::move(then)); },
        [this] { return context_->service->isDiscovering(); }, [this] { updateDiscovery(); });
    radio->foreignLinks->start(radio->clock);
    // The kernel looks for monitors only when it begins a scan.
    monitor =
        std::make_shared<AdvertisementMonitor>(radio, service, [this] { context_->discovery->restart(); });
    service->gatherAdvertisements();
    service->start();
}

void BlueZCentral::shutDown() {
    StandardCentral::shutDown();
    // No scan comes that could need them.
    if (context_->monitor) context_->monitor->stop();
}

// Scanning

void BlueZCentral::beginScan() {
    context_->monitor->start(discoveryFilter());
    if (!context_->attempts->isAttempting()) context_->discovery->start(discoveryFilter());
}

void BlueZCentral::endScan() {
    updateDiscovery();
}

bool BlueZCentral::isRadioIdle() const {
    if (context_->monitor && !context_->monitor->isIdle()) return false;
    const bool isOn = state() == CBManagerState::poweredOn;
    if (!isOn && state() != CBManagerState::resetting) return true;
    const bool isScanOver = !isOn || context_->discovery->isIdle();
    return isScanOver && std::ranges::none_of(peripherals(), [](const auto& known) {
               const BlueZLink& link = static_cast<BlueZPeripheral&>(*known.second).link();
               return link.isDisconnecting() || link.mayBeOrphaned();
           });
}

bool BlueZCentral::isDiscoveryWanted() const {
    return isScanning() || !context_->attempts->waiting().empty();
}

void BlueZCentral::updateDiscovery() {
    if (state() != CBManagerState::poweredOn || context_->attempts->isAttempting()) return;
    if (isDiscoveryWanted()) {
        context_->monitor->resume(discoveryFilter());
        context_->discovery->resume(discoveryFilter());
    } else {
        context_->discovery->stop();
        context_->monitor->stopSoon();
    }
}

/// Lets through what the scan asks for, and the devices that attempts wait for.
std::vector<CBUUID> BlueZCentral::discoveryFilter() const {
    std::vector<CBUUID> filter = isScanning() ? serviceFilter() : std::vector<CBUUID>();
    if (isScanning() && filter.empty()) return filter;
    for (const auto& waiting : context_->attempts->waiting()) {
        const auto& foundWith = waiting->heard().foundWith();
        // It was found among all devices, and is looked for among them.
        if (foundWith.empty()) return {};
        std::ranges::copy_if(foundWith, std::back_inserter(filter), [&](const CBUUID& service) {
            return std::ranges::find(filter, service) == filter.end();
        });
    }
    return filter;
}

void BlueZCentral::hear(const Device& device, const DeviceChange& change) {
    const auto now = context_->radio->clock.monotonicTime();
    BlueZPeripheral* known = peripheralOf(device);
    if (known) {
        known->heard().noteHeard(now);
        // Whatever the scan asks for now.
        context_->attempts->deviceWasHeard();
    }
    // BlueZ filters too, by the packet itself, but lets through what other programs ask for.
    const auto& advertised = device.advertisedServices;
    if (!isScanning() || (advertised && !isSought(*advertised))) return;
    if (!known) {
        const Key key = keyOf(device.address);
        known = &peripheral<BlueZPeripheral>(key, context_, device.address, serviceFilter());
        known->heard().noteHeard(now);
        shown_.emplace(key, known->shared_from_this());
    }
    HeardDevice& heard = known->heard();
    const auto serviceData = change.serviceData.value_or(std::span<const CBServiceData>());
    const NSNumber rssi = signalStrength(change);
    if (!device.isConnected) heard.rememberName(device.name);
    if (!heard.name()) {
        if (change.serviceData) heard.keepUntilNamed(serviceData, rssi);
        return report(*known, serviceData, rssi);
    }
    const auto kept = heard.takeUnnamed();
    if (!kept || change.serviceData) return report(*known, serviceData, rssi);
    // The name was in a packet of its own: now the advertisement is whole.
    std::vector<CBServiceData> keptData;
    keptData.reserve(kept->serviceData.size());
    for (const auto& [service, data] : kept->serviceData) keptData.push_back({service, data});
    report(*known, keptData, rssi.hasValue() ? rssi : kept->rssi);
}

void BlueZCentral::report(BlueZPeripheral& peripheral, std::span<const CBServiceData> serviceData,
                          NSNumber rssi) {
    const auto& name = peripheral.heard().name();
    // The one report of a scan is worth it only when nothing is missing: the rest follows.
    if (!scanOptions().allowDuplicates && (!name || serviceData.empty())) return;
    CBAdvertisementData data{.localName = std::nullopt, .serviceData = serviceData};
    // A copy is not needed, as the name is set by signals alone.
    if (name) data.localName = *name;
    StandardCentral::hear(peripheral, data, rssi);
}

// What BlueZ and the controller tell

void BlueZCentral::serviceDidChangeCondition() {
    const CBManagerState now = stateOf(context_->service->condition().kind);
    if (now == CBManagerState::poweredOn) openChannel();
    if (now == state()) return;
    if (now != CBManagerState::poweredOn) {
        context_->discovery->forget(context_->service->hasLeft());
        context_->attempts->clear();
        // Only with the power alone, the devices and the monitors stay.
        if (now != CBManagerState::poweredOff) {
            shown_.clear();
            context_->monitor->forget();
        } else {
            context_->monitor->stop();
        }
    }
    enterState(now);
}

void BlueZCentral::openChannel() {
    const std::string adapter = context_->service->adapterName();
    auto& channel = context_->channel;
    const bool isOpen = channel && channel->isOpen();
    if (std::exchange(channelAdapter_, adapter) == adapter && isOpen) return;
    channel = context_->radio->openChannel(adapter);
    if (!channel) {
        context_->radio->log.message(
            "Bluetooth: the controller %@ cannot be asked past the service: how links end and how strong "
            "their signal is will be unknown.",
            adapter);
        return;
    }
    channel->setOnEvent([weakSelf = weak_from_this()] {
        const auto self = weakSelf.lock();
        if (self) static_cast<BlueZCentral&>(*self).lookForLinkEnds();
    });
}

void BlueZCentral::lookForLinkEnds() {
    // A copy, as applications may change it when they are told.
    const auto all = peripherals();
    for (const auto& [key, peripheral] : all)
        static_cast<BlueZPeripheral&>(*peripheral).link().lookForLinkEnd();
}

void BlueZCentral::serviceDidCall(const IncomingCall& call) {
    context_->monitor->serviceDidCall(call);
}

BlueZPeripheral* BlueZCentral::peripheralOf(const Device& device) const {
    return knownPeripheral<BlueZPeripheral>(keyOf(device.address));
}

void BlueZCentral::lookForForeignLink(const Device& device) {
    if (!device.isConnected) return;
    const RadioContext& radio = *context_->radio;
    radio.foreignLinks->look(radio.clock, radio.log, context_->service, device);
}

void BlueZCentral::deviceDidAppear(const Device& device) {
    BlueZPeripheral* const peripheral = peripheralOf(device);
    if (!peripheral) return lookForForeignLink(device);
    shown_.emplace(keyOf(device.address), peripheral->shared_from_this());
    peripheral->link().deviceDidAppear();
    DeviceChange appearance;
    appearance.hasConnected = device.isConnected;
    peripheral->deviceDidChange(device, appearance);
    lookForForeignLink(device);
}

void BlueZCentral::deviceDidChange(const Device& device, const DeviceChange& change) {
    if (BlueZPeripheral* const peripheral = peripheralOf(device)) peripheral->deviceDidChange(device, change);
    if (change.hasConnected || change.hasServicesResolved) lookForForeignLink(device);
    if (change.isSighting()) context_->discovery->deviceWasHeard(device);
    if (!isDiscoveryWanted()) return;
    const auto isNamed = [&] {
        BlueZPeripheral* const peripheral = peripheralOf(device);
        return change.name && !device.isConnected && peripheral && peripheral->heard().isNameAwaited();
    };
    if (change.isSighting() || isNamed()) hear(device, change);
}

void BlueZCentral::deviceDidVanish(const Device& device) {
    const auto key = keyOf(device.address);
    BlueZPeripheral* const peripheral = peripheralOf(device);
    if (!peripheral) return;
    peripheral->link().deviceDidVanish();
    shown_.erase(key);
    forget(key);
}

void BlueZCentral::deviceDidTellLinkEnd(const Device& device, const LinkEnd& end) {
    if (BlueZPeripheral* const peripheral = peripheralOf(device)) peripheral->link().linkEndWasTold(end);
}

void BlueZCentral::characteristicDidChange(const Device& device, std::string_view path,
                                           std::span<const std::uint8_t> value) {
    if (BlueZPeripheral* const peripheral = peripheralOf(device)) {
        peripheral->characteristicDidChange(path, value);
    }
}

void BlueZCentral::characteristicDidStopNotifying(const Device& device, std::string_view path) {
    if (BlueZPeripheral* const peripheral = peripheralOf(device)) {
        peripheral->characteristicDidStopNotifying(path);
    }
}

}  // namespace zobi::platform::bluez
