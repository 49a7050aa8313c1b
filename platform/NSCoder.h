#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::platform {

/// Writes or reads a keyed archive.
///
/// A coder does one of the two; the functions for the other throw `std::logic_error`.
class ZOBI_EXPORT NSCoder {
public:
    virtual ~NSCoder();

    /// Writes `text`, which may be absent, under a new key.
    /// @throws std::invalid_argument for a text or key that is not UTF-8, and for a key that was written
    ///     before.
    virtual void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) = 0;

    /// Writes `number`, which may be without a value, under a new key. The archive keeps the value, but not
    /// its kind.
    /// @throws std::invalid_argument for a key that is not UTF-8, and for a key that was written before.
    virtual void encodeNumberForKey(NSNumber number, std::string_view key) = 0;

    /// Reads the text under `key`; absent if it was written so, or the archive does not have the key.
    /// @throws std::invalid_argument if the value is not a text.
    virtual std::optional<std::string> decodeTextForKey(std::string_view key) const = 0;

    /// Reads the number under `key`, as one of kind int32; without a value if it was written so, or the
    /// archive does not have the key.
    /// @throws std::invalid_argument if the value is not an integer, or does not fit in 32 signed bits.
    virtual NSNumber decodeNumberForKey(std::string_view key) const = 0;
};

}  // namespace zobi::platform
