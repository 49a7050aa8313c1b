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

/// Writes a keyed archive: one CBOR (RFC 8949) map whose keys are texts.
///
/// The entries are in the order in which they were written. A text becomes a text string, a number an
/// integer, and an absent one null. All have a definite length and their shortest form, so the same calls
/// always give the same bytes. A call that throws does not change the archive.
class ZOBI_EXPORT NSKeyedArchiver final : public NSCoder {
public:
    void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) override;
    void encodeNumberForKey(NSNumber number, std::string_view key) override;

    /// @throws std::logic_error always: an archiver only writes.
    std::optional<std::string> decodeTextForKey(std::string_view key) const override;
    /// @throws std::logic_error always: an archiver only writes.
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
/// It accepts one CBOR map of definite length, whose keys are texts, and whose values are texts, integers and
/// nulls; numbers and lengths need not be in their shortest form. A missing key reads as absent.
///
/// Anything else is refused with `std::invalid_argument`. The message says why and where: the offset of the
/// item from the beginning of the data, and its key once it is known. Time and memory are bounded by the size
/// of the data, whatever lengths it contains.
class ZOBI_EXPORT NSKeyedUnarchiver final : public NSCoder {
public:
    /// Reads all of `data`.
    /// @throws std::invalid_argument if the data is not exactly one such map; if a key occurs twice, a text
    ///     is not UTF-8, or an integer does not fit in 32 signed bits; for more than
    ///     `keyedArchiveMaximumSize` bytes.
    explicit NSKeyedUnarchiver(std::span<const std::uint8_t> data);

    /// @throws std::logic_error always: an unarchiver only reads.
    void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) override;
    /// @throws std::logic_error always: an unarchiver only reads.
    void encodeNumberForKey(NSNumber number, std::string_view key) override;

    /// Reads the text under `key`; absent if the value is null or the key is missing.
    /// @throws std::invalid_argument if the value is a number.
    std::optional<std::string> decodeTextForKey(std::string_view key) const override;
    /// Reads the number under `key`; without a value if the value is null or the key is missing.
    /// @throws std::invalid_argument if the value is a text.
    NSNumber decodeNumberForKey(std::string_view key) const override;

private:
    class Reader;
    /// Of null, neither a text nor a number.
    struct Value {
        std::size_t offset = 0;
        std::optional<std::string> text;
        NSNumber number;
    };

    std::map<std::string, Value, std::less<>> values_;
};

}  // namespace zobi::platform
