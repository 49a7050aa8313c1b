#pragma once

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <list>
#include <map>
#include <set>
#include <system_error>

#include "ZobiConnectKit/simulation/BeaconDescription.h"
#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/bus/Bus.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/ServiceDescription.h"

namespace zobi::platform::bluez {

inline const std::string firstAdapter = "/org/bluez/hci0";

/// A UUID as the service writes it.
inline std::string longForm(const CBUUID& uuid) {
    std::string text = uuid.UUIDString();
    if (text.size() == 4) text = "0000" + text + "-0000-1000-8000-00805F9B34FB";
    std::ranges::transform(text, text.begin(), [](int c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The value that has the name, or null.
template <typename Named>
auto* named(Named& all, std::string_view name) {
    const auto found = std::ranges::find_if(all, [&](const auto& entry) { return entry.first == name; });
    return found == all.end() ? nullptr : &found->second;
}

/// What becomes of the attempts to connect to a device in range.
enum class Attempts : std::uint8_t {
    succeed,
    /// The link comes up and fails to be established.
    breakOff,
    /// The controller's failure is lost on the way: the service waits for its own time limit.
    areSwallowed,
    succeedWithoutLink,
    areLostBeforeResolved,
    areNeverResolved,
    areResolvedEmpty,
    /// They succeed, and the service forgets to tell that the device is connected.
    areNotTold,
};

/// A device on the air, and how the service gets on with it.
struct ScriptedDevice {
    std::string address = "00:00:5E:00:53:02";
    std::string adapter = firstAdapter;
    /// The advertised name, and the one that is read over a link.
    std::string name = "morvane";
    std::string gapName = "Beacon 7";
    std::vector<std::string> uuids = {longForm(CBUUID::UUIDWithString("1320"))};
    Properties serviceData = {};
    std::int16_t rssi = -60;
    std::vector<simulation::ServiceDescription> services = zobi::beaconServices();
    bool isInRange = false;
    Attempts attempts = Attempts::succeed;
    // Kept by the service.
    std::shared_ptr<struct ScriptedLink> link = {};
    std::chrono::nanoseconds lastSeen = {};

    std::string path() const {
        std::string text = adapter + "/dev_" + address;
        std::ranges::replace(text, ':', '_');
        return text;
    }
    /// Calls `each` with every characteristic, its path, its service and that one's path.
    template <typename Each>
    void forEachCharacteristic(const Each& each) {
        // Handles as they are in paths: four digits.
        int handle = 1000;
        for (auto& service : services) {
            const std::string servicePath = path() + "/service" + std::to_string(++handle);
            for (auto& characteristic : service.characteristics) {
                each(characteristic, servicePath + "/char" + std::to_string(handle += 2), service,
                     servicePath);
            }
        }
    }
    /// The first one with this UUID, and its path.
    std::pair<simulation::CharacteristicDescription*, std::string> characteristic(const CBUUID& uuid) {
        std::pair<simulation::CharacteristicDescription*, std::string> found;
        forEachCharacteristic([&](auto& candidate, const auto& itsPath, auto&, auto&) {
            if (!found.first && candidate.uuid == uuid) found = {&candidate, itsPath};
        });
        return found;
    }
};

/// What is different with the calls of one operation.
struct Script {
    std::optional<BusError> error = std::nullopt;
    bool acts = true;
    bool answers = true;
    double delay = 0;
    /// For how many calls; for all if negative.
    int times = -1;
};

/// A call to the service, as it was received.
struct ScriptedCall {
    IncomingCall incoming;
    std::weak_ptr<struct ScriptedClient> client;
    bool isOver = false;
};
using ScriptedCallPointer = std::shared_ptr<ScriptedCall>;

/// A link of a device, or an attempt at one.
struct ScriptedLink {
    ScriptedCallPointer connect;
    /// When the controller finds the device at the earliest.
    std::chrono::nanoseconds from{};
    bool isUp = false;
    bool isResolved = false;
    std::vector<ScriptedCallPointer> disconnects = {};
    std::vector<ScriptedCallPointer> operations = {};
};

/// A connection to the bus.
struct ScriptedClient final : BusDelegate {
    void busDidReceiveCall(IncomingCall call) override { onCall(std::move(call)); }
    void busDidClose(const std::string& /*reason*/) override { onClose(); }

    std::function<void(IncomingCall)> onCall;
    std::function<void()> onClose;
    std::string name;
    std::shared_ptr<Bus> bus;
    std::vector<std::string> rules;
    /// The path of the adapter.
    std::string discovers;
    Properties filter;
    Properties startedFilter;
    /// Its filter was the last one's, which a service that was stopped at the wrong moment believes to run.
    bool isDeaf = false;
    /// The paths of characteristics.
    std::set<std::string> subscriptions;
};

/// Plays the message bus and the Bluetooth service on it, from the loop of the one who uses them. It does
/// what a real service does, in the order and with the words of a real one, as long as no script says
/// otherwise.
class ScriptedService {
    using Call = ScriptedCallPointer;
    using Client = ScriptedClient;
    using Body = std::function<void(Message&)>;

public:
    ScriptedService(RunLoop& runLoop, const Clock& clock) : runLoop_(runLoop), clock_(clock) { start(); }

    bool hasBus = true;
    /// The policy of the bus forbids every call to the service.
    bool isRefused = false;
    /// A version that tells why links end, and answers `Disconnect` when they have.
    bool isRecent = false;
    /// Somebody else discovers too, without any filter.
    bool othersDiscover = false;
    /// Told of the end of each link, with the controller's reason, before the service tells it.
    std::function<void(const ScriptedDevice&, std::uint8_t reason)> onLinkEnd = [](auto&, auto) {};
    /// By the names of operations.
    std::map<std::string, Script, std::less<>> scripts;
    /// Each call to the service: operation, path, and the type of a write.
    std::vector<std::string> calls;
    Properties lastFilter;

    // The bus

    /// A new connection.
    /// @throws std::system_error when there is no bus.
    std::shared_ptr<Bus> openBus(const Bus::Context& context) {
        std::array<int, 2> ends{};
        if (!hasBus || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) != 0) {
            throw std::system_error(ENOENT, std::generic_category(), "the system bus");
        }
        const auto client = std::make_shared<Client>();
        client->name = ":1." + std::to_string(++namesGiven_);
        client->bus = Bus::servingSocket(ends[0], context);
        client->bus->setDelegate(client);
        client->onCall = [this, it = client.get()](IncomingCall call) { receive(*it, std::move(call)); };
        client->onClose = [this, it = client.get()] { leave(*it); };
        clients_.push_back(client);
        return Bus::overSocket(ends[1], context);
    }
    /// All connections end.
    void dropBus() {
        while (!clients_.empty()) leave(*clients_.back());
    }
    /// Sends a signal to every connection that has asked for such.
    /// @param firstText the first argument, if match rules may ask for it.
    /// @param stranger who sends it if it is not the service: straight to each connection, asked for or not.
    void emit(const std::string& path, const std::string& interface, const std::string& member,
              const Body& body, const std::string& firstText = {}, const std::string& stranger = {}) {
        const bool isUnasked = !stranger.empty() && stranger != busName;
        const std::array<std::string, 6> terms{
            "sender='" + (stranger.empty() ? blueZName : stranger),
            "path='" + path,
            "path_namespace='" + path.substr(0, std::min(path.size(), firstAdapter.rfind('/'))),
            "interface='" + interface,
            "member='" + member,
            "arg0='" + firstText};
        const auto wants = [&](const std::string& rule) {
            return std::ranges::all_of(terms, [&](const std::string& term) {
                const auto at = rule.find(term.substr(0, term.find('\'') + 1));
                return at == std::string::npos || rule.substr(at).starts_with(term + '\'');
            });
        };
        for (const auto& client : clients_) {
            if (!isUnasked && std::ranges::none_of(client->rules, wants)) continue;
            Message message = client->bus->makeSignal(path, interface, member);
            sd_bus_message_set_sender(message.get(), stranger.empty() ? owner_.c_str() : stranger.c_str());
            body(message);
            client->bus->send(message);
        }
    }

    // The life of the service

    void start() {
        life_ = std::make_shared<bool>();
        ownerBecomes(":1." + std::to_string(++namesGiven_));
        addAdapter(firstAdapter, "00:00:5E:00:53:01");
    }
    /// It ends in good order.
    void stop() {
        setPowered(false);
        removeAdapter(firstAdapter);
        crash();
    }
    void crash() {
        life_ = nullptr;
        tree_.clear();
        for (auto& device : devices_) device.link = nullptr;
        for (const auto& client : clients_) {
            client->discovers.clear();
            client->filter.clear();
            client->subscriptions.clear();
        }
        ownerBecomes("");
        for (const auto& call : std::vector(pending_)) {
            fail(call, "Message recipient disconnected from message bus without replying",
                 "org.freedesktop.DBus.Error.NoReply");
        }
    }

    // Objects

    using Interfaces = std::vector<std::pair<std::string, Properties>>;
    void addObject(const std::string& path, const Interfaces& interfaces) {
        tree_[path] = interfaces;
        emit("/", objectManagerInterface, "InterfacesAdded",
             [&](Message& body) { body.objectPath(path).interfaces(interfaces); });
    }
    /// With what is below it.
    void removeObjects(const std::string& path) {
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
    /// Changes properties, and tells so.
    void change(const std::string& path, const std::string& interface, const Properties& changed,
                const std::vector<std::string>& invalidated = {}) {
        Properties* const all = find(path, interface);
        if (!all) return;
        std::erase_if(*all, [&](const auto& entry) {
            return named(changed, entry.first) || std::ranges::count(invalidated, entry.first) > 0;
        });
        all->insert(all->end(), changed.begin(), changed.end());
        const auto body = [&](Message& it) { it.string(interface).properties(changed).strings(invalidated); };
        emit(path, propertiesInterface, "PropertiesChanged", body, interface);
    }

    // Adapters

    void addAdapter(const std::string& path, const std::string& address) {
        addObject(path, onObject(adapterInterface,
                                 {{"Address", address}, {"Powered", true}, {"Discovering", false}}));
    }
    void removeAdapter(const std::string& path) {
        for (auto& device : devices_) {
            if (device.adapter == path) forget(device);
        }
        removeObjects(path);
    }
    void setPowered(bool isOn, const std::string& adapter = firstAdapter) {
        if (isOn) return change(adapter, adapterInterface, {{"Powered", true}});
        const bool wasDiscovering = isDiscovering(adapter);
        for (auto& device : devices_) {
            if (device.adapter != adapter) continue;
            endLink(device, endedHere);
            // What was found or being connected is removed, and the call never answered.
            if (device.link || wasDiscovering) forget(device);
        }
        for (const auto& client : clients_) {
            if (client->discovers != adapter) continue;
            client->discovers.clear();
            client->filter.clear();
        }
        change(adapter, adapterInterface, {{"Powered", false}, {"Discovering", false}});
    }

    // Devices

    /// It advertises each second when it is in range.
    ScriptedDevice& add(ScriptedDevice device) {
        ScriptedDevice& added = devices_.emplace_back(std::move(device));
        runLoop_.every(1, [this, &added] {
            report(added);
            const auto now = clock_.monotonicTime();
            const bool isTried = added.link && !added.link->isUp;
            const bool isFound = added.isInRange && added.attempts != Attempts::areSwallowed;
            if (isTried && now >= added.link->from + connectLimit) return loseAttempt(added, notUp);
            if (isTried && isFound && now >= added.link->from) return linkUp(added);
            if (!added.link && now >= added.lastSeen + temporaryTimeout) forget(added);
        });
        return added;
    }
    /// Another program connects to it.
    void connectByOther(ScriptedDevice& device) {
        device.link = std::make_shared<ScriptedLink>();
        linkUp(device);
    }
    void endLink(ScriptedDevice& device, std::uint8_t reason) {
        if (!device.link || !device.link->isUp) return;
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
    /// Somebody removes the device.
    void forget(ScriptedDevice& device) {
        endLink(device, endedHere);
        device.link = nullptr;
        removeObjects(device.path());
    }
    void setValue(ScriptedDevice& device, const CBUUID& uuid, const Bytes& value) {
        const auto [characteristic, path] = device.characteristic(uuid);
        characteristic->value = value;
        const bool isAnswering = device.isInRange && device.link && device.link->isResolved;
        for (const auto& client : clients_) {
            if (!isAnswering || !client->subscriptions.contains(path)) continue;
            return change(path, gattCharacteristicInterface, {{"Value", value}});
        }
    }

private:
    // As they were seen with a real service: until a connection, when idle and when discovery is on, and
    // until the service gives up; until an unused device is forgotten; and in seconds, for one step each.
    static constexpr std::chrono::milliseconds connecting{300};
    static constexpr std::chrono::milliseconds connectingWhileDiscovering{9400};
    static constexpr std::chrono::seconds connectLimit{40};
    static constexpr std::chrono::seconds temporaryTimeout{30};
    static constexpr double resolving = 0.4;
    static constexpr double disconnecting = 2;
    static constexpr double roundTrip = 0.05;

    static constexpr std::uint8_t endedHere = 0x16;
    static constexpr const char* notUp = "le-connection-abort-by-local";

    // The bus

    void ownerBecomes(const std::string& owner) {
        const std::string before = std::exchange(owner_, owner);
        const auto body = [&](Message& it) { it.string(blueZName).string(before).string(owner); };
        emit(busPath, busInterface, "NameOwnerChanged", body, blueZName, busName);
    }
    void leave(Client& client) {
        const std::string adapter = std::exchange(client.discovers, "");
        std::erase_if(clients_, [&](const auto& known) { return known.get() == &client; });
        if (!adapter.empty()) discoveryEnded(adapter);
    }
    void receive(Client& client, IncomingCall incoming) {
        const auto self = std::ranges::find(clients_, &client, &std::shared_ptr<Client>::get);
        const auto call = std::make_shared<ScriptedCall>(ScriptedCall{std::move(incoming), *self});
        const auto& [message, sender, destination, path, interface, member, bus] = call->incoming;
        pending_.push_back(call);
        if (destination == busName) return performForBus(client, call);
        if (isRefused) return fail(call, "Rejected send message, 1 matched rules", accessDeniedError);
        if (owner_.empty() || (destination != blueZName && destination != owner_)) {
            return fail(call, "The name is not activatable", "org.freedesktop.DBus.Error.ServiceUnknown");
        }
        calls.push_back(std::string(member) + ' ' + std::string(path));
        const auto found = scripts.find(member);
        if (found == scripts.end()) return perform(client, call);
        const Script script = found->second;
        if (script.times > 0 && --found->second.times == 0) scripts.erase(found);
        const auto act = [this, call, script] {
            const auto stillThere = call->client.lock();
            if (script.error) return fail(call, script.error->message, script.error->name);
            if (script.acts && !script.answers) call->isOver = true;
            if (script.acts && stillThere) return perform(*stillThere, call);
            if (script.answers) reply(call);
        };
        script.delay > 0 ? after(script.delay, life_, act) : act();
    }
    void performForBus(Client& client, const Call& call) {
        const std::string_view member = call->incoming.member;
        if (member == "AddMatch") {
            client.rules.emplace_back(MessageReader(call->incoming.message.get()).string());
            return reply(call);
        }
        const std::string name = member == "Hello" ? client.name : owner_;
        if (!name.empty()) return reply(call, [&](Message& body) { body.string(name); });
        fail(call, "Could not get owner of name", "org.freedesktop.DBus.Error.NameHasNoOwner");
    }
    std::shared_ptr<Client> takeClient(const Call& call) {
        std::erase(pending_, call);
        return std::exchange(call->isOver, true) ? nullptr : call->client.lock();
    }
    void reply(const Call& call, const Body& body = nullptr) {
        const auto client = call ? takeClient(call) : nullptr;
        if (!client) return;
        Message message = Bus::makeReply(call->incoming);
        const bool isFromBus = call->incoming.destination == busName;
        sd_bus_message_set_sender(message.get(), isFromBus ? busName : owner_.c_str());
        if (body) body(message);
        client->bus->send(message);
    }
    void fail(const Call& call, const std::string& message, std::string name = "Failed") {
        if (!name.starts_with("org.")) name = "org.bluez.Error." + name;
        if (call && takeClient(call)) Bus::replyError(call->incoming, {name, message});
    }
    /// Unless the condition is gone by then.
    void after(double seconds, std::weak_ptr<void> condition, std::function<void()> action) {
        runLoop_.after(seconds, [condition = std::move(condition), action = std::move(action)] {
            if (!condition.expired()) action();
        });
    }

    // Objects

    /// With an interface that every object has.
    static Interfaces onObject(const char* interface, Properties properties) {
        return {{interface, std::move(properties)}, {propertiesInterface, {}}};
    }
    Properties* find(const std::string& path, const std::string& interface) {
        auto* const object = named(tree_, path);
        return object ? named(*object, interface) : nullptr;
    }
    void perform(Client& client, const Call& call) {
        const std::string path(call->incoming.path);
        const std::string interface(call->incoming.interface);
        const std::string member(call->incoming.member);
        if (member == "GetManagedObjects") {
            std::vector<ManagedObject> objects;
            for (const auto& [objectPath, interfaces] : tree_) objects.push_back({objectPath, interfaces});
            return reply(call, [&](Message& body) { body.objects(objects); });
        }
        if (!find(path, interface)) {
            return fail(call,
                        "Method \"" + member + R"(" with signature "" on interface ")" + interface +
                            "\" doesn't exist\n",
                        unknownObjectError);
        }
        const auto isAbove = [&](const auto& device) { return path.starts_with(device.path()); };
        const auto device = std::ranges::find_if(devices_, isAbove);
        if (member == "Get") return get(path, call);
        if (member == "Connect") return connect(*device, call);
        if (member == "Disconnect") return disconnect(*device, call);
        if (interface == gattCharacteristicInterface) return operate(client, *device, call);
        if (member == "StartDiscovery") return startDiscovery(client, call);
        if (member == "SetDiscoveryFilter") {
            client.filter = lastFilter = MessageReader(call->incoming.message.get()).properties();
            return reply(call);
        }
        if (client.discovers != path) return fail(call, "No discovery started");
        client.discovers.clear();
        reply(call);
        discoveryEnded(path);
    }

    void get(const std::string& path, const Call& call) {
        MessageReader arguments(call->incoming.message.get());
        const std::string interface(arguments.string());
        const Value value = *named(*find(path, interface), arguments.string());
        reply(call, [&](Message& body) { body.variant(value); });
    }

    // Discovery

    bool isPowered(const std::string& adapter) {
        const Properties* const all = find(adapter, adapterInterface);
        return all && *named(*all, "Powered") == Value(true);
    }
    bool isDiscovering(const std::string& adapter) const {
        const auto discovers = [&](const auto& client) { return client->discovers == adapter; };
        return othersDiscover || std::ranges::any_of(clients_, discovers);
    }
    void startDiscovery(Client& client, const Call& call) {
        const std::string adapter(call->incoming.path);
        if (!isPowered(adapter)) return fail(call, "Resource Not Ready", "NotReady");
        if (!client.discovers.empty()) return fail(call, "Operation already in progress", "InProgress");
        client.discovers = adapter;
        client.isDeaf = client.filter == std::exchange(client.startedFilter, client.filter);
        reply(call);
        change(adapter, adapterInterface, {{"Discovering", true}});
    }
    void discoveryEnded(const std::string& adapter) {
        if (isDiscovering(adapter)) return;
        for (const auto& device : devices_) {
            const Properties* const all = find(device.path(), deviceInterface);
            if (all && named(*all, "RSSI")) change(device.path(), deviceInterface, {}, {"RSSI"});
        }
        change(adapter, adapterInterface, {{"Discovering", false}});
    }
    /// The controller has heard it.
    void report(ScriptedDevice& device) {
        const auto looksForIt = [&](const auto& client) {
            const Value* const wanted = named(client->filter, "UUIDs");
            const auto* const uuids = wanted ? wanted->template get<std::vector<std::string>>() : nullptr;
            return client->discovers == device.adapter && !client->isDeaf &&
                   (!uuids || std::ranges::find_first_of(*uuids, device.uuids) != uuids->end());
        };
        if (!device.isInRange || (device.link && device.link->isUp) || !isPowered(device.adapter)) return;
        if (!othersDiscover && std::ranges::none_of(clients_, looksForIt)) return;
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
        addObject(device.path(), onObject(deviceInterface, std::move(told)));
    }

    // Links

    void connect(ScriptedDevice& device, const Call& call) {
        if (!isPowered(device.adapter)) return fail(call, "Input/output error");
        if (device.link && device.link->isUp) return reply(call);
        if (device.link) return fail(call, "Operation already in progress");
        const auto now = clock_.monotonicTime();
        const auto delay = isDiscovering(device.adapter) ? connectingWhileDiscovering : connecting;
        device.link = std::make_shared<ScriptedLink>(ScriptedLink{call, now + delay});
    }
    void disconnect(ScriptedDevice& device, const Call& call) {
        if (device.link && device.link->isUp) {
            device.link->disconnects.push_back(call);
            return after(disconnecting, device.link, [this, &device] { endLink(device, endedHere); });
        }
        if (device.link) loseAttempt(device, "br-connection-canceled");
        reply(call);
    }
    void loseAttempt(ScriptedDevice& device, const char* why) {
        fail(std::exchange(device.link, nullptr)->connect, why);
        device.lastSeen = clock_.monotonicTime();
    }
    void linkUp(ScriptedDevice& device) {
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
            const bool isLost = isBrokenOff || device.attempts == Attempts::areLostBeforeResolved;
            if (isLost) return endLink(device, failedToBeEstablished);
            if (device.attempts != Attempts::areNeverResolved) resolve(device);
        });
    }
    void resolve(ScriptedDevice& device) {
        const std::string devicePath = device.path();
        device.link->isResolved = true;
        change(devicePath, deviceInterface, {{"Name", device.gapName}, {"Alias", device.gapName}});
        std::map<std::string, Interfaces> added;
        std::vector<std::string> uuids = device.uuids;
        device.forEachCharacteristic([&](auto& it, const auto& path, auto& service, auto& above) {
            if (device.attempts == Attempts::areResolvedEmpty) return removeObjects(above);
            if (tree_.contains(path)) return;
            uuids.push_back(longForm(service.uuid));
            added[above] = onObject(gattServiceInterface, {{"UUID", longForm(service.uuid)}});
            added[path] = onObject(gattCharacteristicInterface,
                                   {{"UUID", longForm(it.uuid)}, {"Service", ObjectPath{above}}});
        });
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

    // Characteristics

    void operate(Client& client, ScriptedDevice& device, const Call& call) {
        const std::string path(call->incoming.path);
        const std::string_view member = call->incoming.member;
        simulation::CharacteristicDescription* it = nullptr;
        device.forEachCharacteristic([&](auto& candidate, const auto& itsPath, auto&, auto&) {
            if (itsPath == path) it = &candidate;
        });
        if (member == "StartNotify" || member == "StopNotify") {
            const bool isOn = member == "StartNotify";
            if (isOn && !it->properties.notify)
                return fail(call, "Operation is not supported", "NotSupported");
            // That it is not connected is no obstacle: it takes effect when it is.
            if (isOn) client.subscriptions.insert(path);
            if (!isOn && client.subscriptions.erase(path) == 0)
                return fail(call, "No notify session started");
            change(path, gattCharacteristicInterface, {{"Notifying", isOn}});
            return reply(call);
        }
        if (!device.link || !device.link->isResolved) return fail(call, "Not connected");
        const bool isRead = member == "ReadValue";
        Bytes value;
        if (!isRead) {
            MessageReader arguments(call->incoming.message.get());
            const auto bytes = arguments.bytes();
            value.assign(bytes.begin(), bytes.end());
            calls.back() += ' ' + *arguments.properties().at(0).second.get<std::string>();
        }
        // A command is answered when it is on its way.
        const bool isCommand = !isRead && calls.back().ends_with("command");
        if (isCommand) reply(call);
        device.link->operations.push_back(call);
        after(roundTrip, device.link, [this, &device, it, call, path, isRead, isCommand, value]() mutable {
            if (!device.isInRange) return;
            if (isRead && !it->properties.read) return fail(call, "Read not permitted", "NotPermitted");
            if (!isRead && !isCommand && !it->properties.write) {
                return fail(call, "Write not permitted", "NotPermitted");
            }
            if (isRead) value = it->value.value_or(Bytes());
            value.insert(value.begin(), it->width - std::min(it->width, value.size()), 0);
            it->value = value;
            if (isRead) change(path, gattCharacteristicInterface, {{"Value", value}});
            reply(call, [&](Message& body) { isRead ? body.bytes(value) : body; });
        });
    }

    RunLoop& runLoop_;
    const Clock& clock_;
    std::vector<std::shared_ptr<Client>> clients_;
    int namesGiven_ = 0;
    std::string owner_;
    // What is not done in a life of the service is not done in the next.
    std::shared_ptr<bool> life_;
    std::map<std::string, Interfaces> tree_;
    std::list<ScriptedDevice> devices_;
    std::vector<Call> pending_;
};

}  // namespace zobi::platform::bluez
