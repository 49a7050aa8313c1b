#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSCoder.h"

namespace zobi::platform {

/// The maximum size of a keyed archive, in bytes.
inline constexpr std::size_t keyedArchiveMaximumSize = 64 * 1024;

/// The maximum nesting depth of maps, arrays and tags in a keyed archive, its own map included.
inline constexpr std::size_t keyedArchiveMaximumDepth = 16;

/// Writes a keyed archive: one CBOR (RFC 8949) map whose keys are texts.
///
/// The entries are in the order in which they were written. A text becomes a text string, a number an
/// integer, and an absent one null. All have a definite length and their shortest form, so the same calls
/// always give the same bytes. A call that throws does not change the archive.
class ZOBI_EXPORT NSKeyedArchiver final : public NSCoder {
public:
    void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) override;
    void encodeNumberForKey(NSNumber number, std::string_view key) override;

    /// Not supported: an archiver only writes.
    /// @throws std::logic_error always.
    std::optional<std::string> decodeTextForKey(std::string_view key) const override;
    /// Not supported: an archiver only writes.
    /// @throws std::logic_error always.
    NSNumber decodeNumberForKey(std::string_view key) const override;

    /// The archive with all entries so far.
    /// @throws std::length_error if it has more than `keyedArchiveMaximumSize` bytes, as it could not be read
    ///     again.
    std::vector<std::uint8_t> encodedData() const;

private:
    void appendKey(std::string_view key);

    std::set<std::string, std::less<>> keys_;
    std::vector<std::uint8_t> entries_;
};

/// Reads a keyed archive. The bytes need not be trusted.
///
/// It accepts any well-formed CBOR map with text keys: numbers need not be in their shortest form, and maps,
/// arrays and strings may have an indefinite length. The value of a key that is never decoded may be any
/// well-formed item. A missing key reads as absent.
///
/// Anything else is refused with `std::invalid_argument`. The message says why and where: the offset of the
/// item from the beginning of the data, and its key once it is known. Time and memory are bounded by the size
/// of the data, whatever lengths it contains.
class ZOBI_EXPORT NSKeyedUnarchiver final : public NSCoder {
public:
    /// Checks all of `data` and copies it.
    /// @throws std::invalid_argument if the data is not exactly one well-formed item; if the item is not a
    ///     map, or is a tagged one; if a key is not a text, or occurs twice; if a text at any depth is not
    ///     UTF-8, or a chunk of a text of indefinite length is not by itself; for more than
    ///     `keyedArchiveMaximumSize` bytes or `keyedArchiveMaximumDepth` levels.
    explicit NSKeyedUnarchiver(std::span<const std::uint8_t> data);

    /// Not supported: an unarchiver only reads.
    /// @throws std::logic_error always.
    void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) override;
    /// Not supported: an unarchiver only reads.
    /// @throws std::logic_error always.
    void encodeNumberForKey(NSNumber number, std::string_view key) override;

    /// Reads the text under `key`; absent if the value is null or the key is missing.
    /// @throws std::invalid_argument if the value is neither a text string nor null. A tagged text is not a
    ///     text, and undefined is not null.
    std::optional<std::string> decodeTextForKey(std::string_view key) const override;
    /// Reads the number under `key`; without a value if the value is null or the key is missing.
    /// @throws std::invalid_argument if the value is neither an integer nor null, or does not fit in 32
    ///     signed bits. A floating-point number is not an integer, whatever its value.
    NSNumber decodeNumberForKey(std::string_view key) const override;

private:
    /// Where the value under `key` begins, unless it is null or the key is missing.
    std::optional<std::size_t> offsetForKey(std::string_view key) const;

    std::map<std::string, std::size_t, std::less<>> offsets_;
    std::vector<std::uint8_t> data_;
};

}  // namespace zobi::platform
