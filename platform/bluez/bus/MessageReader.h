#pragma once

#include <systemd/sd-bus.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/bus/Value.h"

namespace zobi::platform::bluez {

/// Reads the body of a message from its start to its end. What it gives out are views into the message.
///
/// A body that is not what is asked for is no reason to stop: the first mismatch makes the reader fail, it
/// then gives out nothing any more, and `isGood` tells. Main thread only.
class MessageReader {
public:
    /// @param message outlives the reader.
    explicit MessageReader(sd_bus_message* message) : message_(message) {}

    bool isGood() const { return isGood_; }

    /// Signature s; empty if it is none.
    std::string_view string() { return text(SD_BUS_TYPE_STRING); }
    /// Signature o; empty if it is none.
    std::string_view objectPath() { return text(SD_BUS_TYPE_OBJECT_PATH); }
    /// Signature ay; empty if it is none.
    std::span<const std::uint8_t> bytes();

    /// Calls `each` at each element of an array with elements of the type `element`; it reads the element
    /// whole. Dictionaries are arrays, with elements of a type such as "{sv}".
    template <typename Each>
    void forEach(const char* element, const Each& each) {
        if (!enter(SD_BUS_TYPE_ARRAY, element)) return;
        while (isGood_ && !isAtEnd()) each();
        leave();
    }

    /// Calls `each` with the name of each entry of a dictionary of named values (signature a{sv}). It reads
    /// the value with `variant...` or passes over it with `skipVariant`: one of them, once.
    template <typename Each>
    void forEachProperty(const Each& each) {
        forEach("{sv}", [&] {
            if (!enter(SD_BUS_TYPE_DICT_ENTRY, "sv")) return;
            each(string());
            leave();
        });
    }

    /// Calls `each` with the path of each object, and for each of its interfaces with the name, in a
    /// dictionary of interfaces (signature a{sa{sv}}). It reads the properties whole.
    template <typename Each>
    void forEachInterface(const Each& each) {
        forEach("{sa{sv}}", [&] {
            if (!enter(SD_BUS_TYPE_DICT_ENTRY, "sa{sv}")) return;
            each(string());
            leave();
        });
    }

    /// As many objects with their interfaces (signature a{oa{sa{sv}}}); `each` reads the interfaces whole.
    template <typename Each>
    void forEachObject(const Each& each) {
        forEach("{oa{sa{sv}}}", [&] {
            if (!enter(SD_BUS_TYPE_DICT_ENTRY, "oa{sa{sv}}")) return;
            each(objectPath());
            leave();
        });
    }

    // Values that tell their own type (signature v). One of another type is passed over: that is no failure,
    // since the service's properties change from version to version.

    std::optional<bool> variantBool();
    std::optional<std::int16_t> variantInt16();
    std::optional<std::string_view> variantString() { return variantText(SD_BUS_TYPE_STRING, "s"); }
    std::optional<std::string_view> variantObjectPath() { return variantText(SD_BUS_TYPE_OBJECT_PATH, "o"); }
    std::optional<std::span<const std::uint8_t>> variantBytes();
    /// Calls `each` with each text of a list of them (as).
    template <typename Each>
    void variantForEachString(const Each& each) {
        if (!enterVariant("as")) return;
        forEach("s", [&] { each(string()); });
        leave();
    }
    /// As `forEachProperty`.
    template <typename Each>
    void variantForEachProperty(const Each& each) {
        if (!enterVariant("a{sv}")) return;
        forEachProperty(each);
        leave();
    }
    /// Nothing for a value of a type that `Value` does not have.
    std::optional<Value> variant();
    void skipVariant() { skip("v"); }

    void skip(const char* signature);

    /// A whole dictionary of named values (signature a{sv}), without those of types that `Value` lacks.
    Properties properties();

private:
    std::vector<AdvertisementPattern> patterns();
    std::string_view text(char type);
    std::optional<std::string_view> variantText(char type, const char* signature);
    template <typename T>
    T basic(char type);
    /// False if the variant was of another type, and was passed over.
    bool enterVariant(const char* contents);
    bool enter(char type, const char* contents);
    void leave();
    bool isAtEnd();
    bool check(int result);

    sd_bus_message* message_;
    bool isGood_ = true;
};

}  // namespace zobi::platform::bluez
