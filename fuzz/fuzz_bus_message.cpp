// Takes in D-Bus messages of any shape as those of the Bluetooth service, signals, lists of objects and
// calls: other types than are due, what is missing, and what nobody expects. And reads arbitrary bytes as
// packets of a controller.

#include <sys/socket.h>

#include <numeric>

#include "AnyService.h"
#include "platform/bluez/controller/HCIEvent.h"
#include "platform/bluez/controller/ManagementSocket.h"
#include "platform/bluez/peripheral-role/BlueZPeripheralManager.h"
#include "platform/bluez/service/BlueZService.h"

namespace {

using namespace zobi::platform;
using namespace zobi::platform::bluez;

/// The service's own name on the bus, and that of whoever uses it.
constexpr const char* serviceName = ":1.1";
constexpr const char* clientName = ":1.2";

/// A bus with the Bluetooth service on it, which answers every call.
class AnsweringBus final : public BusDelegate, public std::enable_shared_from_this<AnsweringBus> {
public:
    /// Gives whoever lives in this context a connection to it.
    RadioContext contextOn(const Machine& machine) {
        RadioContext context = machine.context;
        context.openBus = [self = shared_from_this()](const auto& busContext) {
            std::array<int, 2> ends{};
            require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) == 0);
            self->bus_ = Bus::servingSocket(ends[0], busContext);
            self->bus_->setDelegate(self);
            return Bus::overSocket(ends[1], busContext);
        };
        return context;
    }

    Bus& bus() const { return *bus_; }
    /// What is appended to the list of the service's objects. By default, that is an adapter that is on.
    void setObjects(std::function<void(Message&)> append) { appendObjects_ = std::move(append); }
    /// False for a message that cannot be sent, as what is in it nests too deep.
    bool seal(const Message& message) { return sd_bus_message_seal(message.get(), ++serial_, 0) >= 0; }

    void busDidReceiveCall(IncomingCall call) override {
        Message reply = Bus::makeReply(call);
        if (call.member == "Hello") reply.string(clientName);
        if (call.member == "GetNameOwner") reply.string(serviceName);
        if (call.member == "GetManagedObjects") appendObjects_(reply);
        if (!seal(reply)) return Bus::replyError(call, {"org.bluez.Error.Failed", ""});
        bus_->send(reply);
    }
    void busDidClose(const std::string& /*reason*/) override {}

    static void appendAdapter(Message& body) {
        body.objects({{firstAdapter, {{adapterInterface, {{"Powered", true}}}}}});
    }

private:
    std::shared_ptr<Bus> bus_;
    std::function<void(Message&)> appendObjects_ = &appendAdapter;
    std::uint64_t serial_ = 0;
};

/// Lets what was sent arrive, and be answered.
void settle(Machine& machine) {
    for (int i = 0; i < 4; ++i) machine.runLoop().processPending();
}

/// Touches everything that it is told.
class Witness final : public BlueZServiceDelegate {
public:
    void serviceDidChangeAvailability() override {}
    void deviceDidAppear(Device& device) override { touch(device.name); }
    void deviceDidChange(Device& device, const DeviceChange& change) override {
        std::string end = textOf(device.address);
        std::ranges::replace(end, ':', '_');
        require(device.path == firstAdapter + "/dev_" + end);
        touch(change.name.value_or(""));
        if (!change.serviceData) return;
        for (const auto& [uuid, data] : *change.serviceData) touch(data);
    }
    void deviceDidVanish(Device& device) override { touch(device.path); }
    void deviceDidTellLinkEnd(Device& /*device*/, const LinkEnd& end) override { touch(end.text); }
    void characteristicDidChange(Device& /*device*/, std::string_view path,
                                 std::span<const std::uint8_t> value) override {
        touch(path);
        touch(value);
    }

private:
    template <typename Range>
    static void touch(const Range& range) {
        [[maybe_unused]] const volatile auto sum = std::accumulate(range.begin(), range.end(), 0);
    }
};

/// A service that is ready, and stays from one run to the next.
class Target {
public:
    Target() { service_->start(); }

    /// Begins a new life of the service, which lists an adapter that is on.
    void begin() {
        list(&AnsweringBus::appendAdapter);
        while (service_->availability() != Availability::poweredOn) machine_.runLoop().processPending();
    }

    /// Begins a new life of the service, which lists these objects.
    void list(const std::function<void(Message&)>& append) {
        bus_->setObjects(append);
        for (const char* const owner : {"", serviceName}) {
            tell("/", busInterface, "NameOwnerChanged",
                 [&](Message& body) { body.string(blueZName).string("").string(owner); });
        }
    }

    /// Reads the table of a device, if it is there, from a list of these objects.
    void readTable(const std::function<void(Message&)>& append) {
        const Device* const device = service_->device({.bytes = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01}});
        if (!device) return;
        bus_->setObjects(append);
        int answers = 0;
        const Slot slot = service_->readServices(*device, [&, above = device->path](const auto& table) {
            ++answers;
            for (const RemoteService& service : table) {
                require(service.path.starts_with(above + '/'));
                for (const RemoteCharacteristic& characteristic : service.characteristics) {
                    require(characteristic.path.starts_with(service.path + '/'));
                }
            }
        });
        settle(machine_);
        require(answers == 1);
    }

    void tell(const std::string& path, const std::string& interface, const std::string& member,
              const std::function<void(Message&)>& append) {
        Message message = bus_->bus().makeSignal(path, interface, member);
        append(message);
        if (!bus_->seal(message)) return;
        MessageReader body(message.get());
        service_->busDidReceiveSignal(
            {interface == busInterface ? busName : serviceName, path, interface, member, body});
        // It may have asked for something.
        settle(machine_);
    }

private:
    Machine machine_;
    std::shared_ptr<AnsweringBus> bus_ = std::make_shared<AnsweringBus>();
    std::shared_ptr<Witness> witness_ = std::make_shared<Witness>();
    std::shared_ptr<BlueZService> service_ = std::make_shared<BlueZService>(
        std::make_shared<const RadioContext>(bus_->contextOn(machine_)), witness_);
};

void takeSignalsAndLists(Input& input) {
    struct Kind {
        std::string interface;
        std::string member;
        std::vector<std::string> types;
    };
    static const std::array<Kind, 5> kinds{{{propertiesInterface, "PropertiesChanged", {"s", "a{sv}"}},
                                            {objectManagerInterface, "InterfacesAdded", {"o", "a{sa{sv}}"}},
                                            {objectManagerInterface, "InterfacesRemoved", {"o", "as"}},
                                            {deviceInterface, "Disconnected", {"s", "s"}},
                                            {busInterface, "NameOwnerChanged", {"s", "s", "s"}}}};
    const auto appendObjects = [&](Message& body) { appendArguments(body, input, {"a{oa{sa{sv}}}"}); };
    static Target target;
    target.begin();
    while (!input.isAtEnd()) {
        const std::string path = anyPath(input);
        const std::size_t kind = input.byte() % (kinds.size() + 2);
        if (kind >= kinds.size()) {
            kind == kinds.size() ? target.list(appendObjects) : target.readTable(appendObjects);
            continue;
        }
        const auto& [interface, member, types] = kinds.at(kind);
        try {
            target.tell(path, interface, member,
                        [&, &due = types](Message& body) { appendArguments(body, input, due); });
        } catch (const std::system_error&) {
            // The bus, which is not doubted, has named an owner by what is no name.
            require(interface == busInterface);
        }
    }
}

/// Has a value that centrals read and write.
struct Holder final : PeripheralManagerDelegate {
    void peripheralManagerDidUpdateState(PeripheralManager& /*manager*/) override {}
    ReadAnswer peripheralManagerDidReceiveRead(PeripheralManager& /*manager*/, GATTPlace /*place*/,
                                               const std::string& /*central*/) override {
        return value;
    }
    std::optional<NSError> peripheralManagerDidReceiveWrite(PeripheralManager& /*manager*/,
                                                            GATTPlace /*place*/,
                                                            std::span<const std::uint8_t> written,
                                                            const std::string& /*central*/) override {
        if (written.size() > 20) return NSError(CBATTError::invalidAttributeValueLength, "It is too long.");
        value.assign(written.begin(), written.end());
        return std::nullopt;
    }

    Bytes value{1, 2, 3};
};

void takeCalls(Input& input) {
    struct Operation {
        std::string name;
        std::vector<std::string> types;
    };
    static const std::array<Operation, 4> operations{
        {{"ReadValue", {"a{sv}"}}, {"WriteValue", {"ay", "a{sv}"}}, {"StartNotify", {}}, {"StopNotify", {}}}};
    Machine machine;
    const auto bus = std::make_shared<AnsweringBus>();
    const auto holder = std::make_shared<Holder>();
    const LocalService battery{CBUUID::UUIDWithString("180F"), {{.uuid = CBUUID::UUIDWithString("2A19")}}};
    const auto manager =
        std::make_shared<BlueZPeripheralManager>(bus->contextOn(machine), std::vector{battery}, holder);
    manager->start();
    // Only then has the service been told of the value.
    manager->startAdvertising({});
    while (!manager->isAdvertising()) machine.runLoop().processPending();
    while (!input.isAtEnd()) {
        const auto& [member, types] = operations.at(input.byte() % operations.size());
        const bool isRead = member == "ReadValue";
        Message call = bus->bus().makeCall(
            {clientName, LocalObjects::characteristicPath({0, 0}), gattCharacteristicInterface, member});
        sd_bus_message_set_sender(call.get(), serviceName);
        appendArguments(call, input, types);
        if (!bus->seal(call)) continue;
        int answers = 0;
        const Slot slot = bus->bus().call(call, [&](MessageReader& reply, const BusError* error) {
            ++answers;
            if (error || !isRead) return;
            const auto rest = reply.bytes();
            require(reply.isGood() && rest.size() <= holder->value.size());
            require(std::ranges::equal(rest, std::span(holder->value).last(rest.size())));
        });
        settle(machine);
        require(answers == 1);
    }
}

void readPackets(Input& input) {
    Machine machine;
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()) == 0);
    const auto management = std::make_shared<ManagementSocket>(ends[0], 0, machine.runLoop());
    const DeviceAddress address{.bytes = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01}};
    management->watchLink(address);
    while (!input.isAtEnd()) {
        const auto packet = input.bytes(input.byte());
        const auto event = parseHCIEvent(packet);
        require(!event || (packet.size() >= 7 && packet[0] == 0x04));
        if (::send(ends[1], packet.data(), packet.size(), MSG_NOSIGNAL) <= 0) break;
        const auto end = management->takeLinkEnd(address);
        require(!end || !end->text.empty());
    }
    ::close(ends[1]);
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    switch (input.byte() % 8) {
        case 7:
            readPackets(input);
            break;
        case 6:
            takeCalls(input);
            break;
        default:
            takeSignalsAndLists(input);
    }
    return 0;
}
