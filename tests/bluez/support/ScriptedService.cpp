#include "ScriptedService.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace zobi::platform::bluez {

namespace {

// As they were seen with a real service: until a connection, when idle and when discovery is on, and until
// the service gives up; until an unused device is forgotten; and in seconds, for one step each.
constexpr std::chrono::milliseconds connecting{300};
constexpr std::chrono::milliseconds connectingWhileDiscovering{9400};
constexpr std::chrono::seconds connectLimit{40};
constexpr std::chrono::seconds temporaryTimeout{30};
constexpr double resolving = 0.4;
constexpr double disconnecting = 2;
constexpr double roundTrip = 0.05;

constexpr std::uint8_t endedHere = 0x16;
constexpr const char* notUp = "le-connection-abort-by-local";

}  // namespace

// A device

std::string longForm(const CBUUID& uuid) {
    std::string text = uuid.UUIDString();
    if (text.size() == 4) text = "0000" + text + "-0000-1000-8000-00805F9B34FB";
    std::ranges::transform(text, text.begin(), [](int c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string ScriptedDevice::path() const {
    std::string text = adapter + "/dev_" + address;
    std::ranges::replace(text, ':', '_');
    return text;
}

std::vector<ScriptedDevice::Shown> ScriptedDevice::characteristics() {
    std::vector<Shown> shown;
    // Handles as they are in paths: four digits.
    int handle = 1000;
    for (auto& service : services) {
        const std::string above = path() + "/service" + std::to_string(++handle);
        for (auto& it : service.characteristics) {
            shown.push_back({it, above + "/char" + std::to_string(handle += 2), service.uuid, above});
        }
    }
    return shown;
}

ScriptedDevice::Shown ScriptedDevice::characteristic(const CBUUID& uuid) {
    const auto all = characteristics();
    return *std::ranges::find_if(all, [&](const Shown& shown) { return shown.it.uuid == uuid; });
}

// Its life

ScriptedService::ScriptedService(RunLoop& runLoop, const Clock& clock) : ScriptedBus(runLoop), clock_(clock) {
    start();
    constexpr double scanTime = 10.3;
    runLoop_.every(scanTime, [this] {
        if (isDiscovering(firstAdapter) && !believesThatItScans) scanSwitches += 2;
    });
}

void ScriptedService::start() {
    changeOwner(true);
    addAdapter(firstAdapter, "00:00:5E:00:53:01");
}

void ScriptedService::stop() {
    setPowered(false);
    removeAdapter(firstAdapter);
    crash();
}

void ScriptedService::crash() {
    tree_.clear();
    for (auto& device : devices_) device.link = nullptr;
    for (Client& client : clients_) {
        client = {.name = client.name, .bus = client.bus, .rules = client.rules};
    }
    scanFilter_.clear();
    changeOwner(false);
}

void ScriptedService::clientDidLeave(const Client& client) {
    if (!client.discovers.empty()) discoveryEnded(client.discovers);
}

// Its objects

void ScriptedService::addObject(const std::string& path, Interfaces interfaces) {
    // Every object has it.
    interfaces.emplace_back(propertiesInterface, Properties());
    tree_[path] = interfaces;
    emit("/", objectManagerInterface, "InterfacesAdded",
         [&](Message& body) { body.objectPath(path).interfaces(interfaces); });
}

void ScriptedService::removeObjects(const std::string& path) {
    // What is below comes after, and is removed first.
    for (auto object = tree_.end(); object != tree_.begin();) {
        if (!((--object)->first + '/').starts_with(path + '/')) continue;
        std::vector<std::string> names;
        for (const auto& interface : object->second) names.insert(names.begin(), interface.first);
        emit("/", objectManagerInterface, "InterfacesRemoved",
             [&](Message& body) { body.objectPath(object->first).strings(names); });
        object = tree_.erase(object);
    }
}

Properties* ScriptedService::find(const std::string& path, const std::string& interface) {
    auto* const object = named(tree_, path);
    return object ? named(*object, interface) : nullptr;
}

void ScriptedService::change(const std::string& path, const std::string& interface, const Properties& changed,
                             const std::vector<std::string>& invalidated) {
    Properties* const all = find(path, interface);
    if (!all) return;
    std::erase_if(*all, [&](const auto& entry) {
        return named(changed, entry.first) || std::ranges::count(invalidated, entry.first) > 0;
    });
    all->insert(all->end(), changed.begin(), changed.end());
    const auto body = [&](Message& it) { it.string(interface).properties(changed).strings(invalidated); };
    emit(path, propertiesInterface, "PropertiesChanged", body);
}

void ScriptedService::perform(Client& client, const Call& call) {
    const std::string path(call->incoming.path);
    const std::string interface(call->incoming.interface);
    const std::string member(call->incoming.member);
    MessageReader arguments = call->incoming.arguments;
    if (member == "GetManagedObjects") {
        std::vector<ManagedObject> objects;
        for (const auto& [objectPath, interfaces] : tree_) objects.push_back({objectPath, interfaces});
        return reply(call, [&](Message& body) { body.objects(objects); });
    }
    if (!find(path, interface)) {
        return fail(call, "Method \"" + member + "\" doesn't exist", unknownObjectError);
    }
    if (member == "Get" || member == "GetAll") {
        const Properties& all = *find(path, std::string(arguments.string()));
        return reply(call, [&](Message& body) {
            member == "Get" ? body.variant(*named(all, arguments.string())) : body.properties(all);
        });
    }
    if (member == "Set") return reply(call);
    if (member == "SetDiscoveryFilter") {
        client.filter = lastFilter = arguments.properties();
        const auto isAsked = [this](const std::string& key) { return named(lastFilter, key) != nullptr; };
        if (std::ranges::any_of(unknownKeys, isAsked))
            return fail(call, "Invalid arguments", "InvalidArguments");
    }
    if (member == "GetDiscoveryFilters") {
        return reply(call, [](Message& body) { body.strings({"DuplicateData", "Pattern"}); });
    }
    if (member == "StartDiscovery") return startDiscovery(client, call);
    if (member == "StopDiscovery") {
        if (client.discovers != path) return fail(call, "No discovery started");
        client.discovers.clear();
        if (believesThatItScans) return fail(call, "Operation already in progress", "InProgress");
        reply(call);
        return discoveryEnded(path);
    }
    const auto isAbove = [&](const auto& device) { return path.starts_with(device.path()); };
    const auto device = std::ranges::find_if(devices_, isAbove);
    if (device == devices_.end()) return reply(call);
    if (member == "Connect") return connect(*device, call);
    if (member == "Disconnect") return disconnect(*device, call);
    operate(client, *device, call);
}

// Adapters

void ScriptedService::addAdapter(const std::string& path, const std::string& address) {
    addObject(path, {{adapterInterface, {{"Address", address}, {"Powered", true}, {"Discovering", false}}},
                     {gattManagerInterface, {}},
                     {advertisingManagerInterface, {{"SupportedInstances", std::uint8_t{5}}}}});
}

void ScriptedService::offerMonitors() {
    const Properties abilities{{"SupportedMonitorTypes", std::vector<std::string>{"or_patterns"}}};
    addObject(firstAdapter, {{adapterInterface, {{"Address", "00:00:5E:00:53:01"}, {"Powered", true}}},
                             {monitorManagerInterface, abilities}});
}

void ScriptedService::removeAdapter(const std::string& path) {
    for (auto& device : devices_) {
        if (device.adapter == path) forget(device);
    }
    removeObjects(path);
}

void ScriptedService::setPowered(bool isOn, const std::string& adapter) {
    if (isOn) return change(adapter, adapterInterface, {{"Powered", true}});
    const bool wasDiscovering = isDiscovering(adapter);
    for (auto& device : devices_) {
        if (device.adapter != adapter) continue;
        endLink(device, endedHere);
        // What was found or being connected is removed, and the call never answered.
        if (device.link || wasDiscovering) forget(device);
    }
    for (Client& client : clients_) {
        if (client.discovers != adapter) continue;
        client.discovers.clear();
        client.filter.clear();
    }
    scanFilter_.clear();
    change(adapter, adapterInterface, {{"Powered", false}, {"Discovering", false}});
}

bool ScriptedService::isPowered(const std::string& adapter) {
    const Properties* const all = find(adapter, adapterInterface);
    return all && *named(*all, "Powered") == Value(true);
}

// Discovery

bool ScriptedService::isDiscovering(const std::string& adapter) const {
    return othersDiscover || std::ranges::count(clients_, adapter, &Client::discovers) > 0;
}

void ScriptedService::startDiscovery(Client& client, const Call& call) {
    const std::string adapter(call->incoming.path);
    if (!isPowered(adapter)) return fail(call, "Resource Not Ready", "NotReady");
    if (!client.discovers.empty()) return fail(call, "Operation already in progress", "InProgress");
    // As if each scan were stopped at the moment when the service restarts it.
    client.isDeaf = !isDiscovering(adapter) && client.filter == scanFilter_;
    client.discovers = adapter;
    scanFilter_ = client.filter;
    if (!believesThatItScans) ++scanSwitches;
    reply(call);
    change(adapter, adapterInterface, {{"Discovering", true}});
}

void ScriptedService::discoveryEnded(const std::string& adapter) {
    if (isDiscovering(adapter)) return;
    ++scanSwitches;
    for (const auto& device : devices_) {
        const Properties* const all = find(device.path(), deviceInterface);
        if (all && named(*all, "RSSI")) change(device.path(), deviceInterface, {}, {"RSSI"});
    }
    change(adapter, adapterInterface, {{"Discovering", false}});
}

/// The controller has heard it.
void ScriptedService::report(ScriptedDevice& device) {
    const auto looksForIt = [&](const Client& client) {
        const Value* const wanted = named(client.filter, "UUIDs");
        const auto* const uuids = wanted ? wanted->get<std::vector<std::string>>() : nullptr;
        return client.discovers == device.adapter && !client.isDeaf &&
               (!uuids || std::ranges::find_first_of(*uuids, device.uuids) != uuids->end());
    };
    if (!device.isInRange || device.isLinked() || !isPowered(device.adapter) || believesThatItScans) return;
    if (!othersDiscover && std::ranges::none_of(clients_, looksForIt)) return;
    if (endsAtServices && named(lastFilter, "UUIDs")) return crash();
    device.lastSeen = clock_.monotonicTime();
    Properties told{{"RSSI", device.rssi}};
    const Properties* const known = find(device.path(), deviceInterface);
    if (!known || *named(*known, "Name") != Value(device.name)) told.emplace_back("Name", device.name);
    if (!device.serviceData.empty()) told.emplace_back("ServiceData", device.serviceData);
    if (known) return change(device.path(), deviceInterface, told);
    told.insert(told.end(), {{"Address", device.address},
                             {"AddressType", "public"},
                             {"Connected", false},
                             {"UUIDs", device.uuids},
                             {"ServicesResolved", false}});
    addObject(device.path(), {{deviceInterface, told}});
}

// Links

ScriptedDevice& ScriptedService::add(ScriptedDevice device) {
    ScriptedDevice& added = devices_.emplace_back(std::move(device));
    runLoop_.every(1, [this, &added] { beat(added); });
    return added;
}

void ScriptedService::beat(ScriptedDevice& device) {
    report(device);
    const auto now = clock_.monotonicTime();
    const bool isTried = device.link && !device.link->isUp;
    const bool isFound = device.isInRange && device.attempts != Attempts::areSwallowed;
    if (isTried && now >= device.link->from + connectLimit) return loseAttempt(device, notUp);
    if (isTried && isFound && now >= device.link->from) return linkUp(device);
    if (!device.link && now >= device.lastSeen + temporaryTimeout) forget(device);
}

void ScriptedService::connectByOther(ScriptedDevice& device) {
    device.link = std::make_shared<ScriptedLink>();
    linkUp(device);
}

void ScriptedService::connect(ScriptedDevice& device, const Call& call) {
    if (!isPowered(device.adapter)) return fail(call, "Input/output error");
    if (device.isLinked()) return reply(call);
    if (device.link) return fail(call, "Operation already in progress");
    const auto delay = isDiscovering(device.adapter) ? connectingWhileDiscovering : connecting;
    device.link = std::make_shared<ScriptedLink>(ScriptedLink{call, clock_.monotonicTime() + delay});
}

void ScriptedService::disconnect(ScriptedDevice& device, const Call& call) {
    if (device.isLinked()) {
        device.link->disconnects.push_back(call);
        return after(disconnecting, device.link, [this, &device] { endLink(device, endedHere); });
    }
    if (device.link) loseAttempt(device, "br-connection-canceled");
    reply(call);
}

void ScriptedService::loseAttempt(ScriptedDevice& device, const char* why) {
    fail(std::exchange(device.link, nullptr)->connect, why);
    device.lastSeen = clock_.monotonicTime();
}

void ScriptedService::linkUp(ScriptedDevice& device) {
    const auto link = device.link;
    const bool isBrokenOff = device.attempts == Attempts::breakOff;
    if (!isBrokenOff) reply(link->connect);
    if (device.attempts == Attempts::succeedWithoutLink) return device.link.reset();
    link->isUp = true;
    if (device.attempts == Attempts::areNotTold) {
        *named(*find(device.path(), deviceInterface), "Connected") = true;
    } else {
        change(device.path(), deviceInterface, {{"Connected", true}});
    }
    after(resolving, link, [this, &device, isBrokenOff] {
        constexpr std::uint8_t failedToBeEstablished = 0x3E;
        if (isBrokenOff) fail(device.link->connect, notUp);
        if (isBrokenOff) return endLink(device, failedToBeEstablished);
        if (device.attempts != Attempts::areNeverResolved) resolve(device);
    });
}

void ScriptedService::resolve(ScriptedDevice& device) {
    const std::string devicePath = device.path();
    device.link->isResolved = true;
    change(devicePath, deviceInterface, {{"Name", device.gapName}, {"Alias", device.gapName}});
    std::map<std::string, Interfaces> added;
    std::vector<std::string> uuids = device.uuids;
    for (const auto& [it, path, service, above] : device.characteristics()) {
        if (device.attempts == Attempts::areResolvedEmpty) removeObjects(above);
        if (device.attempts == Attempts::areResolvedEmpty || tree_.contains(path)) continue;
        uuids.push_back(longForm(service));
        added[above] = {{gattServiceInterface, {{"UUID", longForm(service)}}}};
        added[path] = {
            {gattCharacteristicInterface, {{"UUID", longForm(it.uuid)}, {"Service", ObjectPath{above}}}}};
    }
    // The objects are there when it is told that they are, and are told after that.
    tree_.insert(added.begin(), added.end());
    Properties told{{"ServicesResolved", true}};
    if (!added.empty()) told.emplace_back("UUIDs", uuids);
    change(devicePath, deviceInterface, told);
    for (const auto& [path, interfaces] : added) addObject(path, interfaces);
    emit("/", objectManagerInterface, "InterfacesAdded", [&](Message& body) {
        body.objectPath(devicePath).interfaces({{"org.bluez.Battery1", {{"Percentage", true}}}});
    });
}

void ScriptedService::endLink(ScriptedDevice& device, std::uint8_t reason) {
    if (!device.isLinked()) return;
    onLinkEnd(device, reason);
    const std::string path = device.path();
    const auto link = std::exchange(device.link, nullptr);
    device.lastSeen = clock_.monotonicTime();
    const char* const told = reason == 0x08        ? "org.bluez.Reason.Timeout"
                             : reason == 0x13      ? "org.bluez.Reason.Remote"
                             : reason == endedHere ? "org.bluez.Reason.Local"
                                                   : "org.bluez.Reason.Unknown";
    const auto body = [&](Message& it) { it.string(told).string("The link has ended"); };
    if (isRecent) emit(path, deviceInterface, "Disconnected", body);
    for (const auto& call : link->operations) fail(call, "Operation failed with ATT error: 0x0e");
    Properties end{{"Connected", false}};
    if (link->isResolved) {
        emit("/", objectManagerInterface, "InterfacesRemoved",
             [&](Message& it) { it.objectPath(path).strings({"org.bluez.Battery1"}); });
        // In two signals when it was asked for.
        end.insert(end.begin(), {"ServicesResolved", false});
        if (!link->disconnects.empty()) change(path, deviceInterface, {std::exchange(end, {end[1]})[0]});
    }
    const auto answer = [&] {
        for (const auto& call : link->disconnects) reply(call);
    };
    if (!isRecent) answer();
    change(path, deviceInterface, end);
    answer();
}

void ScriptedService::forget(ScriptedDevice& device) {
    endLink(device, endedHere);
    device.link = nullptr;
    removeObjects(device.path());
}

// Characteristics

void ScriptedService::setValue(ScriptedDevice& device, const CBUUID& uuid, const Bytes& value) {
    const auto shown = device.characteristic(uuid);
    shown.it.value = value;
    const auto isSubscribed = [&](const Client& client) { return client.subscriptions.contains(shown.path); };
    if (device.isInRange && device.isResolved() && std::ranges::any_of(clients_, isSubscribed)) {
        change(shown.path, gattCharacteristicInterface, {{"Value", value}});
    }
}

void ScriptedService::operate(Client& client, ScriptedDevice& device, const Call& call) {
    const auto all = device.characteristics();
    const auto shown = *std::ranges::find(all, call->incoming.path, &ScriptedDevice::Shown::path);
    const std::string_view member = call->incoming.member;
    if (member == "StartNotify" || member == "StopNotify") {
        const bool isOn = member == "StartNotify";
        if (isOn && !shown.it.properties.notify)
            return fail(call, "Operation is not supported", "NotSupported");
        // That it is not connected is no obstacle: it takes effect when it is.
        if (isOn) client.subscriptions.insert(shown.path);
        if (!isOn && client.subscriptions.erase(shown.path) == 0)
            return fail(call, "No notify session started");
        const bool isNotifying = std::ranges::any_of(
            clients_, [&](const Client& it) { return it.subscriptions.contains(shown.path); });
        change(shown.path, gattCharacteristicInterface, {{"Notifying", isNotifying}});
        return reply(call);
    }
    if (!device.isResolved()) return fail(call, "Not connected");
    const auto isOpen = [](const Call& other) { return !other->isOver; };
    if (std::ranges::any_of(device.link->operations, isOpen)) return fail(call, "In Progress", "InProgress");
    const bool isRead = member == "ReadValue";
    MessageReader arguments = call->incoming.arguments;
    const auto bytes = isRead ? std::span<const std::uint8_t>() : arguments.bytes();
    const Properties options = arguments.properties();
    const bool isCommand = !isRead && *named(options, "type") == Value("command");
    const auto& can = shown.it.properties;
    if (!(isRead ? can.read : isCommand ? can.writeWithoutResponse : can.write)) {
        return fail(call, isRead ? "Read not permitted" : "Write not permitted", "NotPermitted");
    }
    device.link->operations.push_back(call);
    // A command is answered when it is on its way.
    if (isCommand) reply(call);
    after(roundTrip, device.link,
          [this, &device, shown, call, isRead, value = Bytes(bytes.begin(), bytes.end())]() mutable {
              if (!device.isInRange) return;
              if (isRead) value = shown.it.value.value_or(Bytes());
              value.insert(value.begin(), shown.it.width - std::min(shown.it.width, value.size()), 0);
              shown.it.value = value;
              if (isRead) change(shown.path, gattCharacteristicInterface, {{"Value", value}});
              reply(call, [&](Message& body) { isRead ? body.bytes(value) : body; });
          });
}

}  // namespace zobi::platform::bluez
