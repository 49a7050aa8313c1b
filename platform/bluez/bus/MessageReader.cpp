#include "platform/bluez/bus/MessageReader.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/UTF8.h"

namespace zobi::platform::bluez {

namespace {

// The limits of the protocol. It lets 64 containers lie in each other, each of which is two levels here at
// most.
constexpr int deepestNesting = 128;
constexpr std::size_t longestArray = 64U * 1024 * 1024;

std::size_t alignmentOf(char type) {
    switch (type) {
        case 'n':
        case 'q':
            return 2;
        case 'b':
        case 'i':
        case 'u':
        case 'h':
        case 's':
        case 'o':
        case 'a':
            return 4;
        case 'x':
        case 't':
        case 'd':
        case '(':
        case '{':
            return 8;
        default:
            return 1;
    }
}

/// The length of the one complete type that the signature starts with; 0 if it starts with none.
std::size_t typeLength(std::string_view signature) {
    if (signature.empty()) return 0;
    const char first = signature[0];
    if (first == 'a') {
        const std::size_t element = typeLength(signature.substr(1));
        return element == 0 ? 0 : 1 + element;
    }
    if (first != '(' && first != '{') {
        return std::string_view("ybnqiuxtdhsogv").find(first) == std::string_view::npos ? 0 : 1;
    }
    std::size_t at = 1;
    while (at < signature.size() && signature[at] != (first == '(' ? ')' : '}')) {
        const std::size_t member = typeLength(signature.substr(at));
        if (member == 0) return 0;
        at += member;
    }
    return at > 1 && at < signature.size() ? at + 1 : 0;
}

}  // namespace

// Raw values

std::span<const std::uint8_t> MessageReader::takeBytes(std::size_t size, std::size_t alignment) {
    const std::size_t start = (at_ + alignment - 1) / alignment * alignment;
    if (!isGood_ || start > end_ || size > end_ - start) {
        isGood_ = false;
        return {};
    }
    at_ = start + size;
    return bytes_.subspan(start, size);
}

template <typename Number>
Number MessageReader::take() {
    const auto bytes = takeBytes(sizeof(Number), sizeof(Number));
    if (!isGood_) return {};
    std::array<std::uint8_t, sizeof(Number)> ordered{};
    isSwapped_ ? std::ranges::reverse_copy(bytes, ordered.begin())
               : std::ranges::copy(bytes, ordered.begin());
    Number number{};
    std::memcpy(&number, ordered.data(), sizeof(Number));
    return number;
}

std::string_view MessageReader::takeText(std::size_t length) {
    // The length is any number: with one more it may be none.
    if (length >= bytes_.size()) isGood_ = false;
    const auto bytes = takeBytes(length + 1, 1);
    if (!isGood_) return {};
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), length);
    if (std::memchr(bytes.data(), 0, bytes.size()) == &bytes.back() && isValidUTF8(text)) return text;
    isGood_ = false;
    return {};
}

std::span<const std::uint8_t> MessageReader::arrayOf(std::string_view element) {
    if (!expect("a") || !expect(element)) return {};
    const auto size = take<std::uint32_t>();
    takeBytes(0, alignmentOf(element[0]));
    if (size > longestArray || !isGood_ || size > end_ - at_) isGood_ = false;
    return isGood_ ? bytes_.subspan(at_, size) : std::span<const std::uint8_t>();
}

// Values with a signature

bool MessageReader::expect(std::string_view type) {
    if (!isGood_ || !signature_.starts_with(type)) {
        isGood_ = false;
        return false;
    }
    signature_.remove_prefix(type.size());
    return true;
}

template <typename Number>
Number MessageReader::number(std::string_view type) {
    return expect(type) ? take<Number>() : Number();
}

std::uint8_t MessageReader::byte() {
    return number<std::uint8_t>("y");
}

std::uint32_t MessageReader::uint32() {
    return number<std::uint32_t>("u");
}

std::string_view MessageReader::text(std::string_view type) {
    if (!expect(type)) return {};
    const std::size_t length = type == "g" ? take<std::uint8_t>() : take<std::uint32_t>();
    return takeText(length);
}

std::span<const std::uint8_t> MessageReader::bytes() {
    return takeBytes(arrayOf("y").size(), 1);
}

std::string_view MessageReader::openStructure() {
    const std::size_t length = typeLength(signature_);
    if (length < 2 || signature_[0] == 'a' || depth_ > deepestNesting) isGood_ = false;
    takeBytes(0, alignmentOf('('));
    if (!isGood_) return {};
    const std::string_view members = signature_.substr(1, length - 2);
    signature_.remove_prefix(length);
    return members;
}

void MessageReader::skip(std::string_view type) {
    if (expect(type)) pass(type);
}

void MessageReader::pass(std::string_view type) {
    if (type.empty() || typeLength(type) != type.size()) isGood_ = false;
    if (!isGood_) return;
    switch (type[0]) {
        case 's':
        case 'o':
        case 'g':
            return within(type, [&] { text(type); });
        case 'v':
            return within(type, [&] { pass(openVariant()); });
        case 'a':
            return within(type, [&] { takeBytes(arrayOf(type.substr(1)).size(), 1); });
        case '(':
        case '{':
            return within(type, [&] {
                inside([&] {
                    while (isGood_ && !signature_.empty()) skip(signature_.substr(0, typeLength(signature_)));
                });
            });
        default:
            takeBytes(alignmentOf(type[0]), alignmentOf(type[0]));
    }
}

// Variants

std::string_view MessageReader::openVariant() {
    if (depth_ > deepestNesting) isGood_ = false;
    if (!expect("v")) return {};
    return takeText(take<std::uint8_t>());
}

std::optional<bool> MessageReader::variantBool() {
    bool value = false;
    if (!inVariant("b", [&] { value = number<std::uint32_t>("b") != 0; })) return std::nullopt;
    return value;
}

std::optional<std::int16_t> MessageReader::variantInt16() {
    std::int16_t value = 0;
    if (!inVariant("n", [&] { value = number<std::int16_t>("n"); })) return std::nullopt;
    return value;
}

std::optional<std::uint32_t> MessageReader::variantUInt32() {
    std::uint32_t value = 0;
    if (!inVariant("u", [&] { value = uint32(); })) return std::nullopt;
    return value;
}

std::optional<std::string_view> MessageReader::variantText(std::string_view type) {
    std::string_view value;
    if (!inVariant(type, [&] { value = text(type); })) return std::nullopt;
    return value;
}

std::optional<std::span<const std::uint8_t>> MessageReader::variantBytes() {
    std::span<const std::uint8_t> value;
    if (!inVariant("ay", [&] { value = bytes(); })) return std::nullopt;
    return value;
}

std::optional<Value> MessageReader::variant() {
    std::optional<Value> value;
    const std::string_view type = openVariant();
    const auto read = [&](const auto& readContent) { within(type, [&] { value = readContent(); }); };
    if (type == "b") {
        read([&] { return number<std::uint32_t>("b") != 0; });
    } else if (type == "y") {
        read([&] { return byte(); });
    } else if (type == "n") {
        read([&] { return number<std::int16_t>("n"); });
    } else if (type == "q") {
        read([&] { return number<std::uint16_t>("q"); });
    } else if (type == "u") {
        read([&] { return uint32(); });
    } else if (type == "s") {
        read([&] { return std::string(string()); });
    } else if (type == "o") {
        read([&] { return ObjectPath{std::string(objectPath())}; });
    } else if (type == "ay") {
        read([&] {
            const auto content = bytes();
            return Bytes(content.begin(), content.end());
        });
    } else if (type == "as") {
        read([&] {
            std::vector<std::string> texts;
            forEach("s", [&] { texts.emplace_back(string()); });
            return texts;
        });
    } else if (type == "a{sv}") {
        read([&] { return properties(); });
    } else if (type == "a(yyay)") {
        read([&] { return patterns(); });
    } else {
        pass(type);
    }
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
        inside([&] {
            AdvertisementPattern& pattern = all.emplace_back();
            pattern.position = byte();
            pattern.type = byte();
            const auto content = bytes();
            pattern.bytes.assign(content.begin(), content.end());
        });
    });
    return all;
}

}  // namespace zobi::platform::bluez
