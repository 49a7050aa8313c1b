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

std::uint64_t keyOf(const DeviceAddress& address) {
    std::uint64_t key = address.isRandom ? 1 : 0;
    for (const std::uint8_t byte : address.bytes) key = key << 8 | byte;
    return key;
}

NSNumber signalStrength(const DeviceChange& change) {
    if (!change.rssi || *change.rssi == unknownSignal) return {};
    return NSNumber::numberWithInt(*change.rssi);
}

}  // namespace

BlueZCentral::~BlueZCentral() {
    for (const auto& [key, known] : peripherals()) {
        // The service would keep the link up, and the device silent, for nobody.
        const auto& peripheral = static_cast<const BlueZPeripheral&>(*known);
        const Device* const device = peripheral.isBusy() ? service_->device(peripheral.address()) : nullptr;
        if (device) service_->send(device->path, deviceInterface, "Disconnect");
    }
}

void BlueZCentral::start() {
    service_ = std::make_shared<BlueZService>(context_, weakSelf());
    discovery_ = std::make_shared<Discovery>(context_, service_);
    attempts_ = std::make_shared<ConnectionAttempts>(
        context_, [this](std::function<void()> then) { discovery_->endThen(std::move(then)); },
        [this] { return service_->isDiscovering(); }, [this] { updateDiscovery(); });
    service_->start();
}

// Scanning

void BlueZCentral::beginScan() {
    if (!attempts_->isAttempting()) discovery_->begin(discoveryFilter());
}

void BlueZCentral::discoverAnew() {
    if (attempts_->isWaited() && !attempts_->isAttempting()) discovery_->begin(discoveryFilter());
}

void BlueZCentral::updateDiscovery() {
    if (state() != CBManagerState::poweredOn || attempts_->isAttempting()) return;
    if (isScanning() || attempts_->isWaited()) {
        discovery_->goOn(discoveryFilter());
    } else {
        discovery_->end();
    }
}

/// Lets through what the scan asks for, and whoever an attempt waits for.
std::vector<CBUUID> BlueZCentral::discoveryFilter() const {
    std::vector<CBUUID> filter = isScanning() ? serviceFilter() : std::vector<CBUUID>();
    if (isScanning() && filter.empty()) return filter;
    for (const auto& waiting : attempts_->waiting()) {
        // It was found among all devices, and is looked for among them.
        if (waiting->foundWith().empty()) return {};
        std::ranges::copy_if(waiting->foundWith(), std::back_inserter(filter), [&](const CBUUID& service) {
            return std::ranges::find(filter, service) == filter.end();
        });
    }
    return filter;
}

void BlueZCentral::deviceDidAppear(Device& device) {
    device.peripheral = knownPeripheral(device.address);
    if (!device.peripheral) return;
    device.peripheral->deviceDidAppear();
    DeviceChange appearance;
    appearance.hasConnected = device.isConnected;
    device.peripheral->deviceDidChange(device, appearance);
}

void BlueZCentral::deviceDidChange(Device& device, const DeviceChange& change) {
    if (device.peripheral) device.peripheral->deviceDidChange(device, change);
    if (isScanning() || attempts_->isWaited()) {
        const bool completes =
            change.name && !device.isConnected && device.peripheral && device.peripheral->isNameAwaited();
        if (change.isSighting() || completes) hear(device, change);
    }
}

void BlueZCentral::hear(Device& device, const DeviceChange& change) {
    // Whatever the scan asks for now.
    if (device.peripheral) attempts_->heard(*device.peripheral);
    // The service filters too, by the packet itself. Here is filtered what it lets through for other
    // programs.
    if (!isScanning() || (device.advertisedServices && !isSought(*device.advertisedServices))) return;
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

std::shared_ptr<BlueZPeripheral> BlueZCentral::knownPeripheral(const DeviceAddress& address) const {
    const auto known = peripherals().find(keyOf(address));
    return known == peripherals().end() ? nullptr : std::static_pointer_cast<BlueZPeripheral>(known->second);
}

std::shared_ptr<BlueZPeripheral> BlueZCentral::peripheralOf(Device& device) {
    if (!device.peripheral) {
        auto& made = peripheral<BlueZPeripheral>(keyOf(device.address), context_, weakSelf(), device.address,
                                                 serviceFilter());
        attempts_->heard(made);
        device.peripheral = std::static_pointer_cast<BlueZPeripheral>(made.shared_from_this());
    }
    return device.peripheral;
}

void BlueZCentral::report(const std::shared_ptr<BlueZPeripheral>& peripheral,
                          std::span<const CBServiceData> serviceData, NSNumber rssi) {
    const auto& name = peripheral->advertisedName();
    // The one report of a scan must be worth it: what is missing follows.
    if (!scanOptions().allowDuplicates && (!name || serviceData.empty())) return;
    CBAdvertisementData data{.localName = std::nullopt, .serviceData = serviceData};
    // A copy is not needed, as the name is set by signals alone.
    if (name) data.localName = *name;
    StandardCentral::hear(*peripheral, data, rssi);
}

void BlueZCentral::peripheralDidChangePhase() {
    // What is asked of a link, and what it answers, must not wait.
    service_->setGathers(std::ranges::none_of(peripherals(), [](const auto& entry) {
        return static_cast<const BlueZPeripheral&>(*entry.second).isBusy();
    }));
}

// What the service tells

void BlueZCentral::serviceDidChangeAvailability() {
    const CBManagerState newState = stateOf(service_->availability());
    const bool isOn = newState == CBManagerState::poweredOn;
    if (isOn) openChannel();
    if (newState == state()) return;
    if (isOn) {
        peripheralDidChangePhase();
    } else {
        discovery_->forget();
        attempts_->clear();
        for (const auto& [key, known] : peripherals()) {
            static_cast<BlueZPeripheral&>(*known).radioIsLost(newState == CBManagerState::resetting);
        }
    }
    enterState(newState);
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
    channel_->setOnEvent([weakSelf = weakSelf()] {
        const auto self = weakSelf.lock();
        if (!self) return;
        const auto peripherals = self->peripherals();
        for (const auto& [key, known] : peripherals) {
            static_cast<BlueZPeripheral&>(*known).lookForLinkEnd();
        }
    });
}

void BlueZCentral::deviceDidVanish(Device& device) {
    auto peripheral = std::exchange(device.peripheral, nullptr);
    if (!peripheral) return;
    peripheral->deviceDidVanish();
    peripheral.reset();
    forget(keyOf(device.address));
}

void BlueZCentral::deviceDidTellLinkEnd(Device& device, const LinkEnd& end) {
    if (device.peripheral) device.peripheral->linkEndWasTold(end);
}

void BlueZCentral::characteristicDidChange(Device& device, std::string_view path,
                                           std::span<const std::uint8_t> value) {
    if (device.peripheral) device.peripheral->characteristicDidChange(path, value);
}

}  // namespace zobi::platform::bluez
