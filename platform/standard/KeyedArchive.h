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

#include "platform/Export.h"
#include "platform/NSCoder.h"

namespace platform {

/// The most bytes of a keyed archive.
inline constexpr std::size_t keyedArchiveMaximumSize = 64 * 1024;

/// The most maps, arrays and tags around one another in a keyed archive, its own map among them.
inline constexpr std::size_t keyedArchiveMaximumDepth = 16;

/// Writes a keyed archive: one CBOR (RFC 8949) map whose keys are texts.
///
/// Entries stand in the order they were written. A text is a text string, a number an integer, what is absent
/// is null; all of definite length and in their shortest form, so the same writes always give the same bytes.
///
/// A write that is refused leaves the archive as it was.
class ZOK_EXPORT NSKeyedArchiver final : public NSCoder {
public:
    void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) override;
    void encodeNumberForKey(NSNumber number, std::string_view key) override;

    /// @throws std::logic_error always.
    std::optional<std::string> decodeTextForKey(std::string_view key) const override;
    /// @throws std::logic_error always.
    NSNumber decodeNumberForKey(std::string_view key) const override;

    /// The archive of what was written so far.
    /// @throws std::length_error when it has more than `keyedArchiveMaximumSize` bytes, which could not be
    /// read again.
    std::vector<std::uint8_t> encodedData() const;

private:
    void appendKey(std::string_view key);

    std::set<std::string, std::less<>> keys_;
    std::vector<std::uint8_t> entries_;
};

/// Reads a keyed archive from bytes that need not be trusted.
///
/// Any well-formed CBOR map with text keys is read, in any of its encodings: numbers need not be in their
/// shortest form, and maps, arrays and strings may be of indefinite length. Values under keys that nobody
/// asks for may be anything well-formed, and what maps among them have for keys is not looked at. A key that
/// is missing reads as absent.
///
/// Everything that is refused is refused with `std::invalid_argument`. The message says where (the offset of
/// the item at fault from the beginning of the data, and the key it stands under once that is known) and why.
/// Time and memory are bounded by the size of the data, whatever lengths it claims.
class ZOK_EXPORT NSKeyedUnarchiver final : public NSCoder {
public:
    /// Checks all of `data` and keeps a copy.
    /// @throws std::invalid_argument for data that is not exactly one well-formed item; an item that is not a
    /// map (a tagged map is not); a key that is not a text or occurs twice; a text that is not UTF-8, at any
    /// depth, each chunk of an indefinite-length one by itself; and more than `keyedArchiveMaximumSize`
    /// bytes or `keyedArchiveMaximumDepth` levels.
    explicit NSKeyedUnarchiver(std::span<const std::uint8_t> data);

    /// @throws std::logic_error always.
    void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) override;
    /// @throws std::logic_error always.
    void encodeNumberForKey(NSNumber number, std::string_view key) override;

    /// @throws std::invalid_argument when neither a text string nor null stands there. A tagged text is not
    /// a text, and undefined is not null.
    std::optional<std::string> decodeTextForKey(std::string_view key) const override;
    /// @throws std::invalid_argument when neither an integer nor null stands there, and for an integer beyond
    /// 32 signed bits. A floating-point number is not an integer, whatever its value.
    NSNumber decodeNumberForKey(std::string_view key) const override;

private:
    /// Where the value under `key` begins, unless it is null or the key is missing.
    std::optional<std::size_t> offsetForKey(std::string_view key) const;

    std::map<std::string, std::size_t, std::less<>> offsets_;
    std::vector<std::uint8_t> data_;
};

}  // namespace platform
