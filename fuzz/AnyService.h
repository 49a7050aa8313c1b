#pragma once

#include <memory>
#include <string>

#include "platform/UTF8.h"
#include "platform/bluez/RadioContext.h"
#include "support.h"
#include "tests/bluez/ScriptedService.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {

/// A machine in virtual time whose bus and Bluetooth service are played.
class Machine : public StandardPlatform {
public:
    Machine() : StandardPlatform(Time::virtualTime, std::make_unique<PollWaiting>()) {
        log().setSink(nullptr);
    }
    ~Machine() override { shutDown(); }

    ScriptedService service{runLoop(), clock()};
    const RadioContext context{runLoop(),
                               clock(),
                               log(),
                               [this](const auto& busContext) { return service.openBus(busContext); },
                               [](const auto& /*adapter*/) { return nullptr; },
                               ""};
};

/// One of the words.
inline std::string anyWord(Input& input, std::string_view words) {
    for (auto left = input.byte() % (std::ranges::count(words, ' ') + 1); left > 0; --left) {
        words.remove_prefix(words.find(' ') + 1);
    }
    return std::string(words.substr(0, words.find(' ')));
}

inline std::string anyPath(Input& input) {
    return "/org/bluez/hci" + anyWord(input,
                                      "0/dev_00_00_5E_00_53_01 0/dev_00_00_5E_00_53_02 0 1 0/dev_00_00 "
                                      "0/dev_00_00_5E_00_53_01/service0001/char0002 "
                                      "0/dev_00_00_5E_00_53_01/service0001");
}

inline std::string anyText(Input& input) {
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
inline void appendAny(sd_bus_message* message, Input& input, const std::string& type) {
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
inline void appendArguments(Message& message, Input& input, const std::vector<std::string>& types) {
    for (const std::string& type : types) {
        const std::uint8_t choice = input.byte();
        if (choice == 255) break;
        appendAny(message.get(), input, choice > 240 ? "v" : type);
    }
}

}  // namespace zobi::platform::bluez
