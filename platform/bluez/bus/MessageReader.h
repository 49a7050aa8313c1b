#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/bluez/bus/Value.h"

namespace zobi::platform::bluez {

/// Reads values of D-Bus's wire format from their start to their end. What it gives out are views into them.
///
/// What is not as asked for is no reason to stop: the first mismatch makes the reader fail, it then gives out
/// nothing any more, and `isGood` tells. Main thread only.
class MessageReader {
public:
    /// Of nothing.
    MessageReader() = default;
    /// @param bytes outlive the reader; they start at a multiple of 8 in their message.
    /// @param signature the types of the values; it outlives the reader too.
    /// @param isSwapped whether numbers are in the byte order that this machine has not.
    MessageReader(std::span<const std::uint8_t> bytes, std::string_view signature, bool isSwapped)
        : bytes_(bytes), signature_(signature), isSwapped_(isSwapped) {}

    bool isGood() const { return isGood_; }

    /// Signature y; 0 if it is none.
    std::uint8_t byte();
    /// Signature u; 0 if it is none.
    std::uint32_t uint32();
    /// Signature s; empty if it is none.
    std::string_view string() { return text("s"); }
    /// Signature o; empty if it is none.
    std::string_view objectPath() { return text("o"); }
    /// Signature ay; empty if it is none.
    std::span<const std::uint8_t> bytes();

    /// Calls `each` at each element of an array with elements of the type `element`; it reads the element
    /// whole. Dictionaries are arrays, with elements of a type such as "{sv}".
    template <typename Each>
    void forEach(std::string_view element, const Each& each) {
        const auto contents = arrayOf(element);
        const std::size_t outerEnd = std::exchange(end_, at_ + contents.size());
        while (isGood_ && at_ < end_) within(element, each);
        end_ = outerEnd;
    }

    /// Calls `each` at the members of a structure or of an entry of a dictionary; it reads them all.
    template <typename Each>
    void inside(const Each& each) {
        const std::string_view members = openStructure();
        within(members, each);
    }

    /// Calls `each` with the name of each entry of a dictionary of named values (signature a{sv}). It reads
    /// the value with `variant...` or passes over it with `skipVariant`: one of them, once.
    template <typename Each>
    void forEachProperty(const Each& each) {
        forEach("{sv}", [&] { inside([&] { each(string()); }); });
    }

    /// Calls `each` with the path of each object, and for each of its interfaces with the name, in a
    /// dictionary of interfaces (signature a{sa{sv}}). It reads the properties whole.
    template <typename Each>
    void forEachInterface(const Each& each) {
        forEach("{sa{sv}}", [&] { inside([&] { each(string()); }); });
    }

    /// As many objects with their interfaces (signature a{oa{sa{sv}}}); `each` reads the interfaces whole.
    template <typename Each>
    void forEachObject(const Each& each) {
        forEach("{oa{sa{sv}}}", [&] { inside([&] { each(objectPath()); }); });
    }

    // Values that tell their own type (signature v). One of another type is passed over: that is no failure,
    // since the service's properties change from version to version.

    std::optional<bool> variantBool();
    std::optional<std::int16_t> variantInt16();
    std::optional<std::uint32_t> variantUInt32();
    std::optional<std::string_view> variantString() { return variantText("s"); }
    std::optional<std::string_view> variantObjectPath() { return variantText("o"); }
    std::optional<std::string_view> variantSignature() { return variantText("g"); }
    std::optional<std::span<const std::uint8_t>> variantBytes();
    /// Calls `each` with each text of a list of them (as).
    template <typename Each>
    void variantForEachString(const Each& each) {
        inVariant("as", [&] { forEach("s", [&] { each(string()); }); });
    }
    /// As `forEachProperty`.
    template <typename Each>
    void variantForEachProperty(const Each& each) {
        inVariant("a{sv}", [&] { forEachProperty(each); });
    }
    /// Nothing for a value of a type that `Value` does not have.
    std::optional<Value> variant();
    void skipVariant() { skip("v"); }

    /// Passes over one value of that type.
    void skip(std::string_view type);

    /// A whole dictionary of named values (signature a{sv}), without those of types that `Value` lacks.
    Properties properties();

private:
    /// Has `read` read values of exactly these types.
    template <typename Read>
    void within(std::string_view types, const Read& read) {
        if (!isGood_) return;
        const std::string_view rest = std::exchange(signature_, types);
        ++depth_;
        read();
        --depth_;
        if (!signature_.empty()) isGood_ = false;
        signature_ = rest;
    }
    /// The same with a variant, if its value is of that type. Otherwise passes over it.
    template <typename Read>
    bool inVariant(std::string_view type, const Read& read) {
        const std::string_view found = openVariant();
        if (found == type) {
            within(found, read);
        } else {
            pass(found);
        }
        return isGood_ && found == type;
    }
    /// Passes over the type of a variant, and gives it out.
    std::string_view openVariant();
    /// Passes over the length of an array, and gives out its elements.
    std::span<const std::uint8_t> arrayOf(std::string_view element);
    /// The types of the members.
    std::string_view openStructure();

    std::vector<AdvertisementPattern> patterns();
    std::string_view text(std::string_view type);
    std::optional<std::string_view> variantText(std::string_view type);
    template <typename Number>
    Number number(std::string_view type);
    /// A number without regard to the signature.
    template <typename Number>
    Number take();
    /// A text of the given length, without regard to the signature; its end is marked.
    std::string_view takeText(std::size_t length);
    std::span<const std::uint8_t> takeBytes(std::size_t size, std::size_t alignment);
    /// Passes over a value whose type the signature does not tell.
    void pass(std::string_view type);
    /// Whether the value that follows is of that type; the signature then goes on behind it.
    bool expect(std::string_view type);

    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
    /// Of the innermost array, or of the whole.
    std::size_t end_ = bytes_.size();
    std::string_view signature_;
    int depth_ = 0;
    bool isSwapped_ = false;
    bool isGood_ = true;
};

}  // namespace zobi::platform::bluez
