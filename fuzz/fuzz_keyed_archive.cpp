// Reads arbitrary bytes as a keyed archive. Whatever is accepted must be one archive from its first byte to
// its last, and what it holds must survive being written and read again.

#include <optional>
#include <stdexcept>
#include <vector>

#include "support.h"
#include "zobi/platform/standard/KeyedArchive.h"

namespace {

using zobi::platform::NSKeyedArchiver;
using zobi::platform::NSKeyedUnarchiver;

std::optional<NSKeyedUnarchiver> read(std::span<const std::uint8_t> data) {
    try {
        return NSKeyedUnarchiver(data);
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

/// Writes what stands under some keys.
std::vector<std::uint8_t> written(const NSKeyedUnarchiver& unarchiver) {
    NSKeyedArchiver archiver;
    for (const char* key : {"firmwareVersion", "major", "minor", "a"}) {
        try {
            archiver.encodeTextForKey(unarchiver.decodeTextForKey(key), key);
        } catch (const std::invalid_argument&) {
            // What is refused as a text is a number.
            const auto number = unarchiver.decodeNumberForKey(key);
            require(number.hasValue());
            archiver.encodeNumberForKey(number, key);
        }
    }
    return archiver.encodedData();
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::span data(bytes, size);
    const auto unarchiver = read(data);
    if (!unarchiver) return 0;
    // No archive begins with another.
    constexpr std::size_t mostTruncations = 64;
    for (std::size_t cut = 1; cut <= size && cut <= mostTruncations; ++cut) {
        require(!read(data.first(size - cut)));
    }
    std::vector<std::uint8_t> longer(data.begin(), data.end());
    longer.push_back(0);
    require(!read(longer));
    const auto copy = written(*unarchiver);
    require(written(NSKeyedUnarchiver(copy)) == copy);
    return 0;
}
