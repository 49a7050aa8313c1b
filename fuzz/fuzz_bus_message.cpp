// Takes in D-Bus messages of any shape as signals and lists of objects of the Bluetooth service: other types
// than are due, what is missing, and what nobody expects.

#include <algorithm>
#include <array>
#include <numeric>
#include <string>
#include <vector>

#include "platform/UTF8.h"
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

/// Lets what was sent arrive, and be answered.
void settle(ScriptedPlatform& machine) {
    for (int i = 0; i < 4; ++i) machine.runLoop().processPending();
}

/// Reads every view that it is given.
struct Witness final : BlueZServiceDelegate {
    void serviceDidChangeAvailability() override {}
    void deviceDidAppear(const Device& /*device*/) override {}
    void deviceDidChange(const Device& device, const DeviceChange& change) override {
        require(isValidUTF8(change.name.value_or(device.name)));
        for (const auto& element : change.serviceData.value_or(std::span<const CBServiceData>())) {
            touch(element.data);
        }
    }
    void deviceDidVanish(const Device& /*device*/) override {}
    void characteristicDidChange(const Device& device, std::string_view path,
                                 std::span<const std::uint8_t> value) override {
        require(path.starts_with(device.path + '/'));
        touch(value);
    }
    static void touch(std::span<const std::uint8_t> bytes) {
        [[maybe_unused]] const volatile auto sum = std::accumulate(bytes.begin(), bytes.end(), 0);
    }
};

/// A service that is ready, and stays from one run to the next.
struct Target {
    Target() {
        machine.log().setSink(nullptr);
        service->start();
        machine.runLoop().runFor(1);
    }

    ScriptedPlatform machine;
    std::shared_ptr<Witness> witness = std::make_shared<Witness>();
    std::shared_ptr<BlueZService> service =
        std::make_shared<BlueZService>(std::make_shared<const RadioContext>(machine.context()), witness);
};

/// A signal or an operation, and the types of its arguments.
struct Kind {
    std::string interface;
    std::string member;
    std::vector<std::string> types;
};

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    static const std::array<Kind, 5> kinds{{{propertiesInterface, "PropertiesChanged", {"s", "a{sv}"}},
                                            {objectManagerInterface, "InterfacesAdded", {"o", "a{sa{sv}}"}},
                                            {objectManagerInterface, "InterfacesRemoved", {"o", "as"}},
                                            {deviceInterface, "Disconnected", {"s", "s"}},
                                            {busInterface, "NameOwnerChanged", {"s", "s", "s"}}}};
    static Target target;
    ScriptedPlatform& machine = target.machine;
    const auto& service = target.service;
    const auto tell = [&](const std::string& path, const Kind& kind, const ScriptedBus::Body& append) {
        const char* const sender = kind.interface == busInterface ? busName : serviceName;
        machine.service.emitFrom(sender, path, kind.interface, kind.member, append);
        settle(machine);
    };
    const auto beginLife = [&] {
        for (const char* const owner : {"", serviceName}) {
            tell("/", kinds.back(), [&](Message& body) { body.string(blueZName).string("").string(owner); });
        }
    };
    machine.service.scripts.clear();
    machine.service.calls.clear();
    beginLife();
    while (service->availability() != Availability::poweredOn) machine.runLoop().processPending();
    const auto readTable = [&] {
        const Device* const device = service->device({.bytes = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01}});
        if (!device) return;
        int answers = 0;
        const Slot slot = service->readTable(*device, [&](const auto& /*table*/) { ++answers; });
        settle(machine);
        require(answers == 1);
    };
    while (!input.isAtEnd()) {
        const std::string path = anyPath(input);
        const std::size_t kind = input.byte() % (kinds.size() + 2);
        if (kind == kinds.size()) {
            machine.service.scripts["GetManagedObjects"].answer = [&](Message& body) {
                appendArguments(body, input, {"a{oa{sa{sv}}}"});
            };
            beginLife();
        } else if (kind > kinds.size()) {
            readTable();
        } else {
            try {
                tell(path, kinds.at(kind),
                     [&](Message& body) { appendArguments(body, input, kinds.at(kind).types); });
            } catch (const std::system_error&) {
                // The bus, which is not doubted, has named an owner by what is no name.
                require(kinds.at(kind).interface == busInterface);
            }
        }
    }
    return 0;
}
