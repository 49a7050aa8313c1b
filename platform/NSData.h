#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

#include "platform/Export.h"

namespace platform {

/// Bytes off the air were read beyond their end.
///
/// What comes off the air is hostile. A radio catches this type, and no other, around its delivery of an
/// advertisement, and drops that advertisement. It has a type of its own so that an application's own
/// out-of-range mistake is never taken for a malformed payload.
class ZOK_EXPORT DataRangeError : public std::out_of_range {
public:
    DataRangeError(std::size_t offset, std::size_t count, std::size_t size);
    DataRangeError(const DataRangeError&) = default;
    DataRangeError& operator=(const DataRangeError&) = default;
    ~DataRangeError() override;
};

/// The `count` bytes from `offset` on.
/// @throws DataRangeError when `data` ends before them.
inline std::span<const std::uint8_t> subdata(std::span<const std::uint8_t> data, std::size_t offset,
                                             std::size_t count) {
    if (offset > data.size() || count > data.size() - offset) {
        throw DataRangeError(offset, count, data.size());
    }
    return data.subspan(offset, count);
}

}  // namespace platform
