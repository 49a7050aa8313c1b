#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/NSNumber.h"

namespace platform {

/// A keyed archive, being written or being read.
///
/// A coder does one of the two: the operations of the other throw `std::logic_error`.
class ZOK_EXPORT NSCoder {
public:
    virtual ~NSCoder() = default;

    /// Writes a text, or its absence, under a key that was not written before.
    /// @throws std::invalid_argument for a text or key that is not UTF-8, and for a repeated key.
    virtual void encodeTextForKey(const std::optional<std::string>& text, std::string_view key) = 0;

    /// Writes a number, or its absence, under a key that was not written before. The value is kept, its kind
    /// is not.
    /// @throws std::invalid_argument for a key that is not UTF-8, and for a repeated key.
    virtual void encodeNumberForKey(NSNumber number, std::string_view key) = 0;

    /// The text under `key`; absent when the archive has it so, or has no such key.
    /// @throws std::invalid_argument when something else stands there.
    virtual std::optional<std::string> decodeTextForKey(std::string_view key) const = 0;

    /// The number under `key`, as a signed 32-bit one; absent when the archive has it so, or has no such key.
    /// @throws std::invalid_argument when something else, or a number beyond 32 signed bits, stands there.
    virtual NSNumber decodeNumberForKey(std::string_view key) const = 0;
};

}  // namespace platform
