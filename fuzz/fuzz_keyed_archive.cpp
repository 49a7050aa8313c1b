// Reads arbitrary bytes as a keyed archive. Whatever is accepted must be one archive from its first byte to
// its last, and what it holds must survive being written and read again.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/UTF8.h"
#include "support.h"
#include "zobi/platform/standard/KeyedArchive.h"

namespace {

using zobi::platform::NSKeyedArchiver;
using zobi::platform::NSKeyedUnarchiver;
using zobi::platform::NSNumber;

constexpr std::array<std::string_view, 4> keys{"", "a", "b", "key"};

bool isRefused(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::invalid_argument&) {
        return true;
    }
    return false;
}

bool isArchive(std::span<const std::uint8_t> data) {
    return !isRefused([&] { NSKeyedUnarchiver{data}; });
}

/// What stands under a key; nothing for what is absent or neither a text nor a number.
struct Value {
    std::optional<std::string> text;
    NSNumber number;

    friend bool operator==(const Value&, const Value&) = default;
};

Value valueForKey(const NSKeyedUnarchiver& unarchiver, std::string_view key) {
    Value value;
    const bool isNoText = isRefused([&] { value.text = unarchiver.decodeTextForKey(key); });
    const bool isNoNumber = isRefused([&] { value.number = unarchiver.decodeNumberForKey(key); });
    // What is absent is absent in both, and nothing is both a text and a number.
    const bool isAbsent = !isNoText && !value.text;
    require(isAbsent == (!isNoNumber && !value.number.hasValue()));
    require(isAbsent || isNoText || isNoNumber);
    require(!value.text || zobi::platform::isValidUTF8(*value.text));
    return value;
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::span data(bytes, size);
    if (!isArchive(data)) return 0;

    // No archive begins with another.
    constexpr std::size_t mostTruncations = 64;
    for (std::size_t cut = 1; cut <= size && cut <= mostTruncations; ++cut) {
        require(!isArchive(data.first(size - cut)));
    }
    std::vector<std::uint8_t> longer(data.begin(), data.end());
    longer.push_back(0);
    require(!isArchive(longer));

    const NSKeyedUnarchiver unarchiver(data);
    std::vector<Value> values;
    NSKeyedArchiver archiver;
    for (const std::string_view key : keys) {
        values.push_back(valueForKey(unarchiver, key));
        if (values.back().text) {
            archiver.encodeTextForKey(values.back().text, key);
        } else {
            archiver.encodeNumberForKey(values.back().number, key);
        }
    }
    const NSKeyedUnarchiver again(archiver.encodedData());
    for (std::size_t i = 0; i < values.size(); ++i) require(valueForKey(again, keys[i]) == values[i]);
    return 0;
}
