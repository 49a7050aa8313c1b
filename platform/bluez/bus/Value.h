#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/bluez/controller/AdvertisementPattern.h"

namespace zobi::platform::bluez {

struct ObjectPath {
    std::string text;

    friend bool operator==(const ObjectPath&, const ObjectPath&) = default;
};

using Bytes = std::vector<std::uint8_t>;

class Value;

/// A dictionary of named values (signature a{sv}), such as the properties of an object, in the order in which
/// it travels.
using Properties = std::vector<std::pair<std::string, Value>>;

/// A value whose type it tells itself (signature v), of the types that the Bluetooth service uses.
class Value {
public:
    using Variant =
        std::variant<bool, std::uint8_t, std::int16_t, std::uint16_t, std::uint32_t, std::string, ObjectPath,
                     Bytes, std::vector<std::string>, Properties, std::vector<AdvertisementPattern>>;

    template <typename T>
    requires std::constructible_from<Variant, T> Value(T content) : content_(std::move(content)) {}
    Value(const char* text) : content_(std::string(text)) {}

    const Variant& content() const { return content_; }

    /// The content if it is of the type `T`, or null.
    template <typename T>
    const T* get() const {
        return std::get_if<T>(&content_);
    }

    friend bool operator==(const Value&, const Value&) = default;

private:
    Variant content_;
};

}  // namespace zobi::platform::bluez
