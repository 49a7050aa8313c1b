#include "platform/bluez/service/BlueZService.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/diagnosis/Conditions.h"

namespace zobi::platform::bluez {

namespace {

// How soon a bus that was lost, or is not there, is looked for again.
constexpr double reopeningDelay = 2;
// The bus and the service answer in milliseconds; a busy machine takes longer.
constexpr double answerDeadline = 10;
// A service that is being restarted is back by then.
constexpr std::chrono::seconds returnDeadline{10};
// A service that starts is on the bus some tenths of a second before its adapters. An adapter that is reset
// is gone for a second or two.
constexpr double adapterDeadline = 5;
// Policies change when an administrator changes them.
constexpr double refusedDelay = 30;

// Long enough to take dozens of a crowd's advertisements at once, and short beside the time after which a
// person takes a pressed button for ignored.
constexpr auto gatheringTime = std::chrono::milliseconds(40);
// Shorter than the interval at which most peripherals answer over a link.
constexpr auto gatheringTimeWithLink = std::chrono::milliseconds(15);

// Services of the table of each peripheral (generic access, generic attribute), which no device advertises.
constexpr std::array servicesOfTables{CBUUID::UUIDWithString("1800"), CBUUID::UUIDWithString("1801")};

constexpr const char* lowEnergyBearer = "le";

constexpr std::array matchRules{
    "type='signal',sender='org.bluez',path='/',interface='org.freedesktop.DBus.ObjectManager'",
    "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.Properties',"
    "member='PropertiesChanged',path_namespace='/org/bluez'",
    "type='signal',sender='org.bluez',interface='org.bluez.Device1',member='Disconnected'",
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='org.bluez'",
};

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

}  // namespace

std::optional<CBUUID> parseUUID(std::string_view text) {
    try {
        return CBUUID::UUIDWithString(text);
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

// The bus

void BlueZService::start() {
    openBus();
}

void BlueZService::openBus() {
    try {
        bus_ = context_->openBus({context_->runLoop, context_->clock});
    } catch (const std::system_error& error) {
        // Log only the first failure. That it is lost was logged.
        if (condition_ != busIsMissing() && condition_ != radioIsGone()) {
            context_->log.message("Bluetooth: no connection to the bus: %@", error.what());
        }
        afterDelay(reopeningDelay, &BlueZService::openBus);
        return enter(timeToReturn() > 0 ? radioIsGone() : busIsMissing());
    }
    bus_->setDelegate(weak_from_this());
    updateGathering();
    opening_.clear();
    isOpening_ = true;
    // Before anything is read, so that no change is missed.
    for (const char* const rule : matchRules) {
        opening_.push_back(askBus("AddMatch", rule, [this](MessageReader& /*reply*/, const BusError* error) {
            if (error) loseBus(error->message);
        }));
    }
    opening_.push_back(askBus("GetNameOwner", blueZName, [this](MessageReader& reply, const BusError* error) {
        timer_->invalidate();
        isOpening_ = false;
        const std::string owner(error ? "" : reply.string());
        if (!owner.empty()) return ownerIs(owner);
        if (timeToReturn() > 0) return afterDelay(timeToReturn(), &BlueZService::askHowToStart);
        askHowToStart();
    }));
    afterDelay(answerDeadline, &BlueZService::answerIsLate);
}

Slot BlueZService::askBus(const char* member, const char* argument, Bus::Answer answer) {
    Message message = bus_->makeCall({busName, busPath, busInterface, member});
    if (argument) message.string(argument);
    return bus_->call(message, whileThisLives(std::move(answer)));
}

Bus::Answer BlueZService::whileThisLives(Bus::Answer answer) {
    return [weakSelf = weak_from_this(), answer = std::move(answer)](MessageReader& reply,
                                                                     const BusError* error) {
        if (const auto self = weakSelf.lock()) answer(reply, error);
    };
}

void BlueZService::answerIsLate() {
    if (owner_.empty()) return loseBus("The bus does not answer.");
    // Not asked again: a service that stood still answers when it goes on, one that ends fails the call.
    enter(serviceIsSilent());
}

void BlueZService::busDidClose(const std::string& reason) {
    loseBus(reason);
}

/// A service that was in use may come back by itself, and its bus with it.
double BlueZService::timeToReturn() const {
    return std::chrono::duration<double>(returnsUntil_ - context_->clock.monotonicTime()).count();
}

void BlueZService::serviceHasGone() {
    returnsUntil_ = context_->clock.monotonicTime() + returnDeadline;
}

void BlueZService::loseBus(const std::string& reason) {
    if (!owner_.empty()) serviceHasGone();
    // Log only the first failure.
    if (condition_ != busIsMissing()) {
        context_->log.message("Bluetooth: the connection to the bus is lost: %@", reason);
    }
    // Not at once, as this may be called from inside it.
    context_->runLoop.dispatchAsync([bus = std::exchange(bus_, nullptr)] {});
    opening_.clear();
    loading_.reset();
    owner_.clear();
    forgetObjects();
    afterDelay(reopeningDelay, &BlueZService::openBus);
    enter(timeToReturn() > 0 ? radioIsGone() : busIsMissing());
}

void BlueZService::gatherAdvertisements() {
    isGathering_ = true;
    updateGathering();
}

std::shared_ptr<void> BlueZService::stayPrompt() {
    auto promptness = promptness_.lock();
    if (!promptness) {
        promptness = std::shared_ptr<void>(this, [weakSelf = weak_from_this()](void* /*self*/) {
            if (const auto self = weakSelf.lock()) self->updateGathering();
        });
        promptness_ = promptness;
        updateGathering();
    }
    return promptness;
}

void BlueZService::updateGathering() {
    if (bus_ && isGathering_)
        bus_->setLongestRest(promptness_.expired() ? gatheringTime : gatheringTimeWithLink);
}

void BlueZService::afterDelay(double seconds, void (BlueZService::*action)()) {
    if (timer_) timer_->invalidate();
    timer_ = context_->after(seconds, shared_from_this(), action);
}

// The service

void BlueZService::ownerIs(const std::string& owner) {
    if (owner == owner_) return;
    const bool wasInUse = !owner_.empty();
    if (wasInUse) serviceHasGone();
    owner_ = owner;
    // The answers of the former owner do not count any more.
    loading_.reset();
    forgetObjects();
    if (owner_.empty()) {
        afterDelay(timeToReturn(), &BlueZService::askHowToStart);
    } else {
        reload();
    }
    if (wasInUse) enter(radioIsGone());
}

/// There is no service. What helps depends on whether the bus could start one.
void BlueZService::askHowToStart() {
    loading_ = askBus("ListActivatableNames", nullptr, [this](MessageReader& names, const BusError* error) {
        timer_->invalidate();
        loading_.reset();
        bool canBeStarted = false;
        if (!error) names.forEach("s", [&] { canBeStarted = names.string() == blueZName || canBeStarted; });
        enter(serviceIsMissing(canBeStarted));
    });
    afterDelay(answerDeadline, &BlueZService::answerIsLate);
}

void BlueZService::reload() {
    loading_ = call("/", objectManagerInterface, "GetManagedObjects", nullptr,
                    [this](MessageReader& reply, const BusError* error) {
                        timer_->invalidate();
                        loading_.reset();
                        if (!error) return load(reply);
                        if (error->name != accessDeniedError)
                            return loadingFailed(error->name + ' ' + error->message);
                        afterDelay(refusedDelay, &BlueZService::reload);
                        enter(accessIsRefused(error->message));
                    });
    isLoading_ = true;
    afterDelay(answerDeadline, &BlueZService::answerIsLate);
}

void BlueZService::loadingFailed(const std::string& why) {
    // Log only the first failure.
    if (std::exchange(loadingTrouble_, why) != why) {
        context_->log.message("Bluetooth: the service does not list its objects: %@", why);
    }
    afterDelay(answerDeadline, &BlueZService::reload);
    enter(serviceIsSilent());
}

void BlueZService::load(MessageReader& objects) {
    forgetObjects();
    objects.forEachObject([&](std::string_view path) {
        objects.forEachInterface([&](std::string_view interface) {
            if (interface == adapterInterface) {
                readAdapter(adapters_[std::string(path)], objects);
            } else if (interface == monitorManagerInterface) {
                readMonitorManager(adapters_[std::string(path)], objects);
            } else if (interface == deviceInterface) {
                if (Device* const device = addDevice(path)) {
                    readDevice(*device, objects);
                    return;
                }
                objects.skip("a{sv}");
            } else {
                readGATTObject(path, interface, objects);
            }
        });
    });
    if (!objects.isGood()) {
        forgetObjects();
        return loadingFailed("its list makes no sense.");
    }
    isLoading_ = false;
    loadingTrouble_.clear();
    chooseAdapter();
    std::erase_if(devices_, [this](const auto& entry) { return !entry.first.starts_with(devicePrefix_); });
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    for (auto& [path, device] : devices_) delegate->deviceDidAppear(device);
    adapterChanged();
}

void BlueZService::chooseAdapter() {
    adapter_ = chosenAdapter(adapters_, context_->adapter);
    devicePrefix_ = adapter_ + "/dev_";
    if (adapter_.empty() || adapter_ == lastAdapter_) return;
    if (!std::exchange(lastAdapter_, adapter_).empty()) {
        context_->log.message("Bluetooth: the adapter %@ is used from now on.", adapterName());
    }
}

void BlueZService::adapterChanged() {
    if (adapter_.empty()) return afterDelay(adapterDeadline, &BlueZService::adapterStaysAway);
    // The service does not always tell the ends of links that go with the power.
    if (!adapters_.at(adapter_).isPowered) {
        for (auto& [path, device] : devices_) device.isConnected = device.servicesResolved = false;
    }
    enter(conditionOfAdapter(adapters_, adapter_));
}

void BlueZService::adapterStaysAway() {
    enter(adapterIsMissing(adapters_, context_->adapter));
}

/// Whether there is a better adapter than the one that is used, so that another choice is due.
bool BlueZService::isChoiceDue() const {
    const auto chosen = chosenAdapter(adapters_, context_->adapter);
    if (chosen.empty() || chosen == adapter_) return false;
    const auto used = adapters_.find(adapter_);
    return used == adapters_.end() || (!used->second.isPowered && adapters_.find(chosen)->second.isPowered);
}

/// Whether that begins.
bool BlueZService::chooseAgain() {
    if (!isChoiceDue()) return false;
    if (adapter_.empty()) {
        reload();
    } else {
        loseAdapter();
    }
    return true;
}

/// Another adapter is used, or none is left, perhaps because the service is going.
void BlueZService::loseAdapter() {
    forgetObjects();
    reload();
    enter(radioIsGone());
}

void BlueZService::forgetObjects() {
    adapters_.clear();
    adapter_.clear();
    devices_.clear();
    gattObjects_.clear();
}

/// The last thing that is done, as an application that is told may throw.
void BlueZService::enter(const RadioCondition& condition) {
    if (condition == condition_) return;
    condition_ = condition;
    context_->setCondition(condition);
    if (const std::string advice = condition.advice(); !advice.empty()) {
        context_->log.message("Bluetooth: %@", advice);
    }
    if (const auto delegate = delegate_.lock()) delegate->serviceDidChangeCondition();
}

bool BlueZService::isDiscovering() const {
    const auto adapter = adapters_.find(adapter_);
    return adapter != adapters_.end() && adapter->second.isDiscovering;
}

bool BlueZService::takesMonitors() const {
    const auto adapter = adapters_.find(adapter_);
    return adapter != adapters_.end() && adapter->second.takesMonitors;
}

std::string BlueZService::adapterName() const {
    return std::string(lastComponent(adapter_));
}

// Signals

void BlueZService::busDidReceiveSignal(const Signal& signal) {
    if (signal.sender == busName && signal.member == "NameOwnerChanged") {
        if (signal.body.string() != blueZName) return;
        signal.body.string();
        const std::string owner(signal.body.string());
        // While the bus is still to answer who the owner is, it will tell the same.
        if (!signal.body.isGood() || isOpening_ || owner == owner_) return;
        return ownerIs(owner);
    }
    // Anybody may send a signal to this connection: only the service's own count. What it sends before it has
    // listed its objects is in that list.
    if (owner_.empty() || signal.sender != owner_ || isLoading_) return;
    if (signal.interface == propertiesInterface) {
        propertiesChanged(signal.path, signal.body);
    } else if (signal.interface == objectManagerInterface) {
        if (signal.member == "InterfacesAdded") interfacesAdded(signal.body);
        if (signal.member == "InterfacesRemoved") interfacesRemoved(signal.body);
    } else if (signal.interface == deviceInterface && signal.member == "Disconnected") {
        if (Device* const device = deviceAt(signal.path)) linkEndTold(*device, signal.body);
    }
}

void BlueZService::busDidReceiveCall(IncomingCall call) {
    // Anybody may call this connection too.
    if (owner_.empty() || call.sender != owner_) {
        return Bus::replyError(call, {accessDeniedError, "This is for the Bluetooth service alone."});
    }
    if (const auto delegate = delegate_.lock()) delegate->serviceDidCall(call);
}

void BlueZService::interfacesAdded(MessageReader& body) {
    const std::string path(body.objectPath());
    bool isAdapter = false;
    body.forEachInterface([&](std::string_view interface) {
        Device* device = nullptr;
        if (interface == adapterInterface) {
            isAdapter = true;
            readAdapter(adapters_[path], body);
        } else if (interface == monitorManagerInterface) {
            readMonitorManager(adapters_[path], body);
        } else if (interface == deviceInterface && path.starts_with(devicePrefix_) && !adapter_.empty() &&
                   (device = addDevice(path)) != nullptr) {
            const DeviceChange change = readDevice(*device, body);
            // It is new, so what it advertises is known; that may be no service.
            if (!device->isConnected && !device->advertisedServices) device->advertisedServices.emplace();
            const auto delegate = delegate_.lock();
            if (!delegate || !body.isGood()) return;
            delegate->deviceDidAppear(*device);
            delegate->deviceDidChange(*device, change);
        } else {
            readGATTObject(path, interface, body);
        }
    });
    if (isAdapter) chooseAgain();
}

void BlueZService::interfacesRemoved(MessageReader& body) {
    const std::string path(body.objectPath());
    bool isAdapter = false;
    bool isDevice = false;
    body.forEach("s", [&] {
        const std::string_view interface = body.string();
        isAdapter = isAdapter || interface == adapterInterface;
        isDevice = isDevice || interface == deviceInterface;
        if (interface == gattServiceInterface || interface == gattCharacteristicInterface) {
            gattObjects_.remove(path);
        }
    });
    if (isDevice) {
        gattObjects_.removeBelow(path);
        auto node = devices_.extract(path);
        const auto delegate = delegate_.lock();
        if (!node.empty() && delegate) delegate->deviceDidVanish(node.mapped());
    }
    if (!isAdapter) return;
    adapters_.erase(path);
    if (path == adapter_) loseAdapter();
}

void BlueZService::propertiesChanged(std::string_view path, MessageReader& body) {
    const std::string_view interface = body.string();
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    if (interface == deviceInterface) {
        Device* const device = deviceAt(path);
        if (!device) return;
        const DeviceChange change = readDevice(*device, body);
        if (body.isGood()) delegate->deviceDidChange(*device, change);
    } else if (interface == gattCharacteristicInterface) {
        Device* const device = deviceAbove(path);
        if (!device) return;
        body.forEachProperty([&](std::string_view name) {
            if (name == "Value") {
                if (const auto value = body.variantBytes()) {
                    delegate->characteristicDidChange(*device, path, *value);
                }
            } else if (name == "Notifying") {
                if (body.variantBool() == false) delegate->characteristicDidStopNotifying(*device, path);
            } else {
                body.skipVariant();
            }
        });
    } else if (interface == adapterInterface) {
        const auto adapter = adapters_.find(path);
        if (adapter == adapters_.end() || !readAdapter(adapter->second, body)) return;
        if (chooseAgain() || path != adapter_) return;
        delegate->discoveringDidChange();
        adapterChanged();
    }
}

void BlueZService::readGATTObject(std::string_view path, std::string_view interface, MessageReader& body) {
    const bool isService = interface == gattServiceInterface;
    if (!isService && interface != gattCharacteristicInterface) return body.skip("a{sv}");
    std::optional<CBUUID> uuid;
    body.forEachProperty([&](std::string_view name) {
        if (name != "UUID") return body.skipVariant();
        if (const auto text = body.variantString()) uuid = parseUUID(*text);
    });
    using enum GATTObjects::Kind;
    if (uuid && body.isGood()) gattObjects_.add(path, isService ? service : characteristic, *uuid);
}

void BlueZService::linkEndTold(Device& device, MessageReader& body) {
    const std::string_view reason = body.string();
    const std::string_view text = body.string();
    constexpr std::string_view prefix = "org.bluez.Reason.";
    const auto delegate = delegate_.lock();
    if (!body.isGood() || !delegate || !reason.starts_with(prefix)) return;
    const std::string_view cause = reason.substr(prefix.size());
    LinkEnd end{LinkEnd::Cause::other, text.empty() ? "The link has ended." : std::string(text)};
    if (cause == "Timeout") end.cause = LinkEnd::Cause::timeout;
    if (cause == "Remote") end.cause = LinkEnd::Cause::peer;
    if (cause == "Local" || cause == "Suspend") end.cause = LinkEnd::Cause::local;
    delegate->deviceDidTellLinkEnd(device, end);
}

/// Whether anything has changed.
bool BlueZService::readAdapter(Adapter& adapter, MessageReader& body) {
    const Adapter before = adapter;
    body.forEachProperty([&](std::string_view name) {
        if (name == "Powered") {
            adapter.isPowered = body.variantBool().value_or(adapter.isPowered);
        } else if (name == "Discovering") {
            adapter.isDiscovering = body.variantBool().value_or(adapter.isDiscovering);
        } else if (name == "PowerState") {
            adapter.isBlocked = body.variantString() == "off-blocked";
        } else if (name == "Address") {
            adapter.address = body.variantString().value_or(adapter.address);
        } else {
            body.skipVariant();
        }
    });
    return adapter != before;
}

void BlueZService::readMonitorManager(Adapter& adapter, MessageReader& body) {
    body.forEachProperty([&](std::string_view name) {
        if (name != "SupportedMonitorTypes") return body.skipVariant();
        body.variantForEachString(
            [&](std::string_view type) { adapter.takesMonitors |= type == monitorType; });
    });
}

DeviceChange BlueZService::readDevice(Device& device, MessageReader& body) {
    DeviceChange change;
    const bool wasConnected = device.isConnected;
    bool hasServices = false;
    listedServices_.clear();
    body.forEachProperty([&](std::string_view name) {
        if (name == "RSSI") {
            change.rssi = body.variantInt16();
        } else if (name == "ServiceData") {
            readServiceData(body);
            change.serviceData = serviceData_;
        } else if (name == "Name") {
            change.name = body.variantString();
            if (change.name) device.name = *change.name;
        } else if (name == "Connected") {
            change.hasConnected = true;
            device.isConnected = body.variantBool().value_or(device.isConnected);
            if (!device.isConnected) device.servicesResolved = false;
        } else if (name == "ServicesResolved") {
            change.hasServicesResolved = true;
            device.servicesResolved = body.variantBool().value_or(device.servicesResolved);
            // The service sometimes forgets to tell that the device is connected.
            if (device.servicesResolved) change.hasConnected = device.isConnected = true;
        } else if (name == "UUIDs") {
            hasServices = true;
            body.variantForEachString([&](std::string_view text) {
                if (const auto uuid = parseUUID(text)) listedServices_.push_back(*uuid);
            });
        } else if (name == "Address") {
            const auto address = deviceAddressFromText(body.variantString().value_or(""), false);
            if (address) device.linkAddress.bytes = address->bytes;
        } else if (name == "PreferredBearer") {
            device.mayUseOtherBearer = body.variantString() != lowEnergyBearer;
        } else if (name == "AddressType") {
            device.linkAddress.isRandom = body.variantString() == "random";
        } else {
            body.skipVariant();
        }
    });
    // Over a connection, the services of the table replace those that were advertised, and stay.
    const bool isLinked = wasConnected || device.isConnected;
    const bool isTable =
        std::ranges::find_first_of(listedServices_, servicesOfTables) != listedServices_.end();
    if (!hasServices || isLinked || isTable) return change;
    // After a link that ended before its table was read, version 5.66 lists none.
    device.advertisedServices.reset();
    if (!listedServices_.empty()) device.advertisedServices = listedServices_;
    return change;
}

void BlueZService::readServiceData(MessageReader& body) {
    serviceData_.clear();
    body.variantForEachProperty([&](std::string_view text) {
        const auto uuid = parseUUID(text);
        const auto data = body.variantBytes();
        if (uuid && data) serviceData_.push_back({*uuid, *data});
    });
}

// The mirror

Device* BlueZService::addDevice(std::string_view path) {
    if (Device* const known = deviceAt(path)) return known;
    constexpr std::string_view prefix = "dev_";
    std::string_view name = lastComponent(path);
    if (!name.starts_with(prefix)) return nullptr;
    std::string text(name.substr(prefix.size()));
    std::ranges::replace(text, '_', ':');
    const auto address = deviceAddressFromText(text, false);
    if (!address) return nullptr;
    Device& device = devices_[std::string(path)];
    device.path = path;
    device.address = device.linkAddress = *address;
    return &device;
}

Device* BlueZService::deviceAt(std::string_view path) {
    const auto found = devices_.find(path);
    return found == devices_.end() ? nullptr : &found->second;
}

Device* BlueZService::deviceAbove(std::string_view path) {
    // Below a device stand its services, and below those their characteristics.
    return deviceAt(parentOf(parentOf(path)));
}

const Device* BlueZService::device(const DeviceAddress& address) const {
    const auto found = std::ranges::find_if(
        devices_, [&](const auto& entry) { return entry.second.address.bytes == address.bytes; });
    return found == devices_.end() ? nullptr : &found->second;
}

// Calls

Slot BlueZService::call(const std::string& path, const char* interface, const char* member,
                        const std::function<void(Message&)>& append, Bus::Answer answer) {
    if (!bus_ || owner_.empty()) return {};
    Message message = bus_->makeCall({owner_, path, interface, member});
    if (append) append(message);
    return bus_->call(message, whileThisLives(std::move(answer)));
}

Slot BlueZService::callAdapter(const char* member, const std::function<void(Message&)>& append,
                               Bus::Answer answer) {
    if (adapter_.empty()) return {};
    return call(adapter_, adapterInterface, member, append, std::move(answer));
}

void BlueZService::send(const std::string& path, const char* interface, const char* member) {
    if (bus_ && !owner_.empty()) bus_->send(bus_->makeCall({owner_, path, interface, member}));
}

void BlueZService::send(const Message& reply) {
    if (bus_) bus_->send(reply);
}

void BlueZService::emitChange(const std::string& path, const char* interface, const Properties& changed) {
    if (!bus_) return;
    Message message = bus_->makeSignal(path, propertiesInterface, "PropertiesChanged");
    bus_->send(message.string(interface).properties(changed).strings({}));
}

Slot BlueZService::getProperty(const Device& device, const char* name, Bus::Answer answer) {
    return call(
        device.path, propertiesInterface, "Get",
        [name](Message& message) { message.string(deviceInterface).string(name); }, std::move(answer));
}

void BlueZService::preferLowEnergy(const Device& device) {
    Message message = bus_->makeCall({owner_, device.path, propertiesInterface, "Set"});
    bus_->send(message.string(deviceInterface).string("PreferredBearer").variant(lowEnergyBearer));
}

Slot BlueZService::checkConnected(const Device& device) {
    return getProperty(
        device, "Connected", [this, path = device.path](MessageReader& reply, const BusError* error) {
            Device* const known = deviceAt(path);
            const auto delegate = delegate_.lock();
            if (error || !known || !delegate || known->isConnected || reply.variantBool() != true) {
                return;
            }
            known->isConnected = true;
            DeviceChange change;
            change.hasConnected = true;
            delegate->deviceDidChange(*known, change);
        });
}

Slot BlueZService::readTable(const Device& device, std::function<void(std::vector<RemoteService>)> answer) {
    // Before any answer, BlueZ sends the signals of all objects that it has exported.
    return getProperty(device, "ServicesResolved",
                       [this, path = device.path, answer = std::move(answer)](MessageReader& /*reply*/,
                                                                              const BusError* error) {
                           answer(error ? std::vector<RemoteService>() : gattObjects_.tableOf(path));
                       });
}

}  // namespace zobi::platform::bluez
