#include "platform/bluez/bus/Message.h"

#include <array>
#include <stdexcept>

#include "platform/UTF8.h"

namespace zobi::platform::bluez {

namespace {

void check(int result) {
    if (result < 0) throw std::invalid_argument("this cannot be sent over D-Bus");
}

const char* signatureOf(const Value& value) {
    // In the order of the alternatives.
    static constexpr std::array signatures{"b", "y", "n", "q", "u", "s", "o", "ay", "as", "a{sv}", "a(yyay)"};
    static_assert(signatures.size() == std::variant_size_v<Value::Variant>);
    return signatures.at(value.content().index());
}

}  // namespace

bool canBeSent(std::string_view text) {
    if (!isValidUTF8(text) || text.find('\0') != std::string_view::npos) return false;
    for (std::size_t i = 2; i < text.size(); ++i) {
        const auto byte = [&](std::size_t back) { return static_cast<std::uint8_t>(text[i - back]); };
        // U+FDD0 to U+FDEF, and the last two characters of each plane.
        if (byte(2) == 0xEF && byte(1) == 0xB7 && byte(0) >= 0x90 && byte(0) <= 0xAF) return false;
        if ((byte(2) & 0x0F) == 0x0F && byte(1) == 0xBF && (byte(0) & 0xFE) == 0xBE) return false;
    }
    return true;
}

void Message::basic(char type, const void* value) {
    check(sd_bus_message_append_basic(message_.get(), type, value));
}

void Message::open(char type, const char* contents) {
    check(sd_bus_message_open_container(message_.get(), type, contents));
}

void Message::close() {
    check(sd_bus_message_close_container(message_.get()));
}

Message& Message::string(std::string_view text) {
    basic(SD_BUS_TYPE_STRING, std::string(text).c_str());
    return *this;
}

Message& Message::objectPath(std::string_view path) {
    basic(SD_BUS_TYPE_OBJECT_PATH, std::string(path).c_str());
    return *this;
}

Message& Message::bytes(std::span<const std::uint8_t> bytes) {
    check(sd_bus_message_append_array(message_.get(), SD_BUS_TYPE_BYTE, bytes.data(), bytes.size()));
    return *this;
}

Message& Message::strings(const std::vector<std::string>& texts) {
    open(SD_BUS_TYPE_ARRAY, "s");
    for (const std::string& text : texts) string(text);
    close();
    return *this;
}

Message& Message::variant(const Value& value) {
    open(SD_BUS_TYPE_VARIANT, signatureOf(value));
    content(value);
    close();
    return *this;
}

Message& Message::properties(const Properties& properties) {
    open(SD_BUS_TYPE_ARRAY, "{sv}");
    for (const auto& [name, value] : properties) {
        open(SD_BUS_TYPE_DICT_ENTRY, "sv");
        string(name).variant(value);
        close();
    }
    close();
    return *this;
}

Message& Message::interfaces(const std::vector<std::pair<std::string, Properties>>& interfaces) {
    open(SD_BUS_TYPE_ARRAY, "{sa{sv}}");
    for (const auto& [name, values] : interfaces) {
        open(SD_BUS_TYPE_DICT_ENTRY, "sa{sv}");
        string(name).properties(values);
        close();
    }
    close();
    return *this;
}

Message& Message::objects(const std::vector<ManagedObject>& objects) {
    open(SD_BUS_TYPE_ARRAY, "{oa{sa{sv}}}");
    for (const ManagedObject& object : objects) {
        open(SD_BUS_TYPE_DICT_ENTRY, "oa{sa{sv}}");
        objectPath(object.path).interfaces(object.interfaces);
        close();
    }
    close();
    return *this;
}

Message& Message::patterns(const std::vector<AdvertisementPattern>& patterns) {
    open(SD_BUS_TYPE_ARRAY, "(yyay)");
    for (const auto& [position, type, content] : patterns) {
        open(SD_BUS_TYPE_STRUCT, "yyay");
        basic(SD_BUS_TYPE_BYTE, &position);
        basic(SD_BUS_TYPE_BYTE, &type);
        bytes(content);
        close();
    }
    close();
    return *this;
}

void Message::content(const Value& value) {
    struct Append {
        Message& message;

        void operator()(bool content) const {
            const int wide = content ? 1 : 0;
            message.basic(SD_BUS_TYPE_BOOLEAN, &wide);
        }
        void operator()(std::uint8_t content) const { message.basic(SD_BUS_TYPE_BYTE, &content); }
        void operator()(std::int16_t content) const { message.basic(SD_BUS_TYPE_INT16, &content); }
        void operator()(std::uint16_t content) const { message.basic(SD_BUS_TYPE_UINT16, &content); }
        void operator()(std::uint32_t content) const { message.basic(SD_BUS_TYPE_UINT32, &content); }
        void operator()(const std::string& content) const { message.string(content); }
        void operator()(const ObjectPath& content) const { message.objectPath(content.text); }
        void operator()(const Bytes& content) const { message.bytes(content); }
        void operator()(const std::vector<std::string>& content) const { message.strings(content); }
        void operator()(const Properties& content) const { message.properties(content); }
        void operator()(const std::vector<AdvertisementPattern>& content) const { message.patterns(content); }
    };
    std::visit(Append{*this}, value.content());
}

}  // namespace zobi::platform::bluez
