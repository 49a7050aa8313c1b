#include "platform/bluez/bus/MessageReader.h"

#include <cstring>
#include <utility>

namespace zobi::platform::bluez {

bool MessageReader::check(int result) {
    if (result < 0) isGood_ = false;
    return result > 0;
}

std::string_view MessageReader::text(char type) {
    const char* text = nullptr;
    if (!isGood_ || !check(sd_bus_message_read_basic(message_, type, static_cast<void*>(&text)))) {
        isGood_ = false;
        return {};
    }
    return text;
}

template <typename T>
T MessageReader::basic(char type) {
    T value{};
    if (!isGood_ || !check(sd_bus_message_read_basic(message_, type, &value))) isGood_ = false;
    return value;
}

std::span<const std::uint8_t> MessageReader::bytes() {
    const void* data = nullptr;
    std::size_t size = 0;
    if (!isGood_ || !check(sd_bus_message_read_array(message_, SD_BUS_TYPE_BYTE, &data, &size))) {
        isGood_ = false;
        return {};
    }
    return {static_cast<const std::uint8_t*>(data), size};
}

std::optional<bool> MessageReader::variantBool() {
    if (!enterVariant("b")) return std::nullopt;
    // On the bus, and in its library, a truth value has four bytes.
    const bool value = basic<int>(SD_BUS_TYPE_BOOLEAN) != 0;
    leave();
    return value;
}

std::optional<std::int16_t> MessageReader::variantInt16() {
    if (!enterVariant("n")) return std::nullopt;
    const auto value = basic<std::int16_t>(SD_BUS_TYPE_INT16);
    leave();
    return value;
}

std::optional<std::string_view> MessageReader::variantText(char type, const char* signature) {
    if (!enterVariant(signature)) return std::nullopt;
    const std::string_view value = text(type);
    leave();
    return value;
}

std::optional<std::span<const std::uint8_t>> MessageReader::variantBytes() {
    if (!enterVariant("ay")) return std::nullopt;
    const auto value = bytes();
    leave();
    return value;
}

std::optional<Value> MessageReader::variant() {
    char type = 0;
    const char* contents = nullptr;
    if (!isGood_ || !check(sd_bus_message_peek_type(message_, &type, &contents)) ||
        type != SD_BUS_TYPE_VARIANT) {
        isGood_ = false;
        return std::nullopt;
    }
    const std::string_view signature = contents;
    if (!enterVariant(contents)) return std::nullopt;
    std::optional<Value> value;
    if (signature == "b") {
        value = basic<int>(SD_BUS_TYPE_BOOLEAN) != 0;
    } else if (signature == "y") {
        value = basic<std::uint8_t>(SD_BUS_TYPE_BYTE);
    } else if (signature == "n") {
        value = basic<std::int16_t>(SD_BUS_TYPE_INT16);
    } else if (signature == "q") {
        value = basic<std::uint16_t>(SD_BUS_TYPE_UINT16);
    } else if (signature == "u") {
        value = basic<std::uint32_t>(SD_BUS_TYPE_UINT32);
    } else if (signature == "s") {
        value = std::string(string());
    } else if (signature == "o") {
        value = ObjectPath{std::string(objectPath())};
    } else if (signature == "ay") {
        const auto read = bytes();
        value = Bytes(read.begin(), read.end());
    } else if (signature == "as") {
        std::vector<std::string> texts;
        forEach("s", [&] { texts.emplace_back(string()); });
        value = std::move(texts);
    } else if (signature == "a{sv}") {
        value = properties();
    } else if (signature == "a(yyay)") {
        value = patterns();
    } else {
        skip(contents);
    }
    leave();
    if (!isGood_) return std::nullopt;
    return value;
}

Properties MessageReader::properties() {
    Properties all;
    forEachProperty([&](std::string_view name) {
        if (auto value = variant()) all.emplace_back(name, *std::move(value));
    });
    return all;
}

std::vector<AdvertisementPattern> MessageReader::patterns() {
    std::vector<AdvertisementPattern> all;
    forEach("(yyay)", [&] {
        if (!enter(SD_BUS_TYPE_STRUCT, "yyay")) return;
        AdvertisementPattern& pattern = all.emplace_back();
        pattern.position = basic<std::uint8_t>(SD_BUS_TYPE_BYTE);
        pattern.type = basic<std::uint8_t>(SD_BUS_TYPE_BYTE);
        const auto read = bytes();
        pattern.bytes.assign(read.begin(), read.end());
        leave();
    });
    return all;
}

void MessageReader::skip(const char* signature) {
    if (isGood_) check(sd_bus_message_skip(message_, signature));
}

bool MessageReader::enterVariant(const char* contents) {
    if (!isGood_) return false;
    const int result = sd_bus_message_enter_container(message_, SD_BUS_TYPE_VARIANT, contents);
    if (result > 0) return true;
    skip("v");
    return false;
}

bool MessageReader::enter(char type, const char* contents) {
    if (!isGood_) return false;
    if (check(sd_bus_message_enter_container(message_, type, contents))) return true;
    isGood_ = false;
    return false;
}

void MessageReader::leave() {
    if (isGood_) check(sd_bus_message_exit_container(message_));
}

bool MessageReader::isAtEnd() {
    const int result = sd_bus_message_at_end(message_, 0);
    check(result);
    return result != 0;
}

}  // namespace zobi::platform::bluez
