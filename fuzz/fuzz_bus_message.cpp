// Takes in D-Bus messages of any shape as those of the Bluetooth service, signals, lists of objects and
// calls: other types than are due, what is missing, and what nobody expects.

#include <algorithm>
#include <array>
#include <numeric>
#include <string>
#include <vector>

#include "platform/UTF8.h"
#include "platform/bluez/peripheral-role/BlueZPeripheralManager.h"
#include "platform/bluez/service/BlueZService.h"
#include "support.h"
#include "tests/bluez/support/ScriptedPlatform.h"

namespace {

using namespace zobi::platform;
using namespace zobi::platform::bluez;

/// One of the words.
std::string anyWord(Input& input, std::string_view words) {
    for (auto left = input.byte() % (std::ranges::count(words, ' ') + 1); left > 0; --left) {
        words.remove_prefix(words.find(' ') + 1);
    }
    return std::string(words.substr(0, words.find(' ')));
}

std::string anyPath(Input& input) {
    return "/org/bluez/hci" + anyWord(input,
                                      "0/dev_00_00_5E_00_53_01 0/dev_00_00_5E_00_53_02 0 1 0/dev_00_00 "
                                      "0/dev_00_00_5E_00_53_01/service0001/char0002 "
                                      "0/dev_00_00_5E_00_53_01/service0001");
}

std::string anyText(Input& input) {
    std::string text =
        anyWord(input,
                "org.bluez.Device1 org.bluez.Adapter1 org.bluez.GattCharacteristic1 org.bluez morvane "
                "0000180a-0000-1000-8000-00805f9b34fb 00001320-0000-1000-8000-00805f9b34fb random :1.1 "
                "off-blocked org.bluez.Reason.Timeout 00:00:5E:00:53:01 org.bluez.GattService1 ?");
    if (text != "?") return text;
    const auto bytes = input.bytes(input.byte());
    text.assign(bytes.begin(), std::ranges::find(bytes, 0));
    return isValidUTF8(text) ? text : "?";
}

/// Appends a value of the type. The texts in it, and the names of properties, mean something or do not.
void appendAny(sd_bus_message* message, Input& input, const std::string& type) {
    const std::string inner = type.substr(1);
    const auto appendContainer = [&](char kind, const std::string& contents, const auto& append) {
        sd_bus_message_open_container(message, kind, contents.c_str());
        append();
        sd_bus_message_close_container(message);
    };
    const auto appendVariant = [&](const std::string& contents) {
        appendContainer('v', contents, [&] { appendAny(message, input, contents); });
    };
    if (type[0] == 'v') {
        appendVariant(anyWord(input, "ay y b n q u x d s o i as aav a{sv} a{ov}"));
    } else if (type[0] == 'a') {
        appendContainer('a', inner, [&] {
            for (int left = input.byte() % (inner == "y" ? 256 : 4); left > 0; --left) {
                appendAny(message, input, inner);
            }
        });
    } else if (type == "{sv}") {
        appendContainer('e', "sv", [&] {
            const std::string property = anyWord(
                input,
                "RSSI:n ServiceData:a{sv} Name:s UUIDs:as Connected:b ServicesResolved:b Value:ay "
                "AddressType:s Address:s Powered:b Discovering:b PowerState:s UUID:s device:o offset:q ?");
            const auto colon = property.find(':');
            const std::string name = property == "?" ? anyText(input) : property.substr(0, colon);
            sd_bus_message_append_basic(message, 's', name.c_str());
            property == "?" ? appendAny(message, input, "v") : appendVariant(property.substr(colon + 1));
        });
    } else if (type[0] == '{') {
        appendContainer('e', inner.substr(0, inner.size() - 1), [&] {
            appendAny(message, input, inner.substr(0, 1));
            appendAny(message, input, inner.substr(1, inner.size() - 2));
        });
    } else if (type == "s" || type == "o") {
        sd_bus_message_append_basic(message, type[0], (type == "s" ? anyText : anyPath)(input).c_str());
    } else {
        std::array<std::uint8_t, 8> number{};
        std::ranges::copy(input.bytes(type == "y" ? 1 : 2), number.begin());
        sd_bus_message_append_basic(message, type[0], number.data());
    }
}

/// Appends values of the types that are due; one may be missing, or another one than it should be.
void appendArguments(Message& message, Input& input, const std::vector<std::string>& types) {
    for (const std::string& type : types) {
        const std::uint8_t choice = input.byte();
        if (choice == 255) break;
        appendAny(message.get(), input, choice > 240 ? "v" : type);
    }
}

/// The name that the service has on the bus in its first life.
constexpr const char* serviceName = ":1.1";

/// False for a message that cannot be sent, as what is in it nests too deep.
bool seal(const Message& message) {
    static std::uint64_t serial = 0;
    return sd_bus_message_seal(message.get(), ++serial, 0) >= 0;
}

/// Lets what was sent arrive, and be answered.
void settle(ScriptedPlatform& machine) {
    for (int i = 0; i < 4; ++i) machine.runLoop().processPending();
}

/// Touches everything that it is told.
struct Witness final : BlueZServiceDelegate {
    void serviceDidChangeCondition() override {}
    void deviceDidAppear(const Device& device) override { touch(device.name); }
    void deviceDidChange(const Device& device, const DeviceChange& change) override {
        std::string end = textOf(device.address);
        std::ranges::replace(end, ':', '_');
        require(device.path == firstAdapter + "/dev_" + end);
        touch(change.name.value_or(""));
        for (const auto& element : change.serviceData.value_or(std::span<const CBServiceData>())) {
            touch(element.data);
        }
    }
    void deviceDidVanish(const Device& device) override { touch(device.path); }
    void characteristicDidChange(const Device& /*device*/, std::string_view path,
                                 std::span<const std::uint8_t> value) override {
        touch(path);
        touch(value);
    }
    template <typename Range>
    static void touch(const Range& range) {
        [[maybe_unused]] const volatile auto sum = std::accumulate(range.begin(), range.end(), 0);
    }
};

/// A service that is ready, and stays from one run to the next.
class Target {
public:
    Target() {
        machine_.log().setSink(nullptr);
        service_->start();
        machine_.runLoop().runFor(1);
    }

    /// Begins a new life of the service, which lists an adapter that is on.
    void begin() {
        machine_.service.scripts.clear();
        machine_.service.calls.clear();
        beginLife();
        while (!service_->isPoweredOn()) machine_.runLoop().processPending();
    }

    /// Begins a new life of the service, which lists these objects.
    void list(const std::function<void(Message&)>& append) {
        machine_.service.scripts["GetManagedObjects"] = {.answer = append};
        beginLife();
    }

    /// Reads the table of a device, if it is there.
    void readTable() {
        const Device* const device = service_->device({.bytes = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01}});
        if (!device) return;
        int answers = 0;
        const Slot slot = service_->readTable(*device, [&, above = device->path](const auto& table) {
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
        const char* const sender = interface == busInterface ? busName : serviceName;
        machine_.service.emitFrom(sender, path, interface, member, append);
        // It may have asked for something.
        settle(machine_);
    }

private:
    void beginLife() {
        for (const char* const owner : {"", serviceName}) {
            tell("/", busInterface, "NameOwnerChanged",
                 [&](Message& body) { body.string(blueZName).string("").string(owner); });
        }
    }

    ScriptedPlatform machine_;
    std::shared_ptr<Witness> witness_ = std::make_shared<Witness>();
    std::shared_ptr<BlueZService> service_ =
        std::make_shared<BlueZService>(std::make_shared<const RadioContext>(machine_.context()), witness_);
};

/// A signal or an operation, and what its arguments are.
struct Member {
    std::string interface;
    std::string name;
    std::vector<std::string> types;
};

void takeSignalsAndLists(Input& input) {
    static const std::array<Member, 5> signals{
        {{propertiesInterface, "PropertiesChanged", {"s", "a{sv}"}},
         {objectManagerInterface, "InterfacesAdded", {"o", "a{sa{sv}}"}},
         {objectManagerInterface, "InterfacesRemoved", {"o", "as"}},
         {deviceInterface, "Disconnected", {"s", "s"}},
         {busInterface, "NameOwnerChanged", {"s", "s", "s"}}}};
    const auto appendObjects = [&](Message& body) { appendArguments(body, input, {"a{oa{sa{sv}}}"}); };
    static Target target;
    target.begin();
    while (!input.isAtEnd()) {
        const std::string path = anyPath(input);
        const std::size_t kind = input.byte() % (signals.size() + 2);
        if (kind == signals.size()) target.list(appendObjects);
        if (kind > signals.size()) target.readTable();
        if (kind >= signals.size()) continue;
        const auto& [interface, member, types] = signals.at(kind);
        try {
            target.tell(path, interface, member,
                        [&, &due = types](Message& body) { appendArguments(body, input, due); });
        } catch (const std::system_error&) {
            // The bus, which is not doubted, has named an owner by what is no name.
            require(interface == busInterface);
        }
    }
}

void takeCalls(Input& input) {
    static const std::array<Member, 4> operations{
        {{gattCharacteristicInterface, "ReadValue", {"a{sv}"}},
         {gattCharacteristicInterface, "WriteValue", {"ay", "a{sv}"}},
         {gattCharacteristicInterface, "StartNotify", {}},
         {gattCharacteristicInterface, "StopNotify", {}}}};
    ScriptedPlatform machine;
    const LocalService battery{CBUUID::UUIDWithString("180F"), {{.uuid = CBUUID::UUIDWithString("2A19")}}};
    const auto manager = std::make_shared<BlueZPeripheralManager>(machine.context(), std::vector{battery},
                                                                  std::weak_ptr<PeripheralManagerDelegate>());
    manager->start();
    // Only then has the service been told of the value.
    manager->startAdvertising({});
    while (!manager->isAdvertising()) machine.runLoop().processPending();
    while (!input.isAtEnd()) {
        const auto& [interface, member, types] = operations.at(input.byte() % operations.size());
        bool isSent = false;
        int answers = 0;
        const auto append = [&, &due = types](Message& call) {
            appendArguments(call, input, due);
            isSent = seal(call);
        };
        const Slot slot = machine.service.callFrom(
            serviceName, LocalObjects::characteristicPath({0, 0}), interface, member, append,
            [&](MessageReader& /*reply*/, const BusError* /*error*/) { ++answers; });
        settle(machine);
        require(answers == (isSent ? 1 : 0));
    }
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    if (input.byte() % 4 == 2) {
        takeCalls(input);
    } else {
        takeSignalsAndLists(input);
    }
    return 0;
}
