#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Thrown when received bytes are read beyond their end.
///
/// Received bytes cannot be trusted. A radio catches this type, and no other, when it delivers an
/// advertisement, and drops that advertisement. The type differs from `std::out_of_range` so that an error of
/// the application is not taken for a malformed payload.
class ZOBI_EXPORT DataRangeError : public std::out_of_range {
public:
    /// The error of reading `count` bytes at `offset` of `size` bytes.
    DataRangeError(std::size_t offset, std::size_t count, std::size_t size);
    /// Copies the error.
    DataRangeError(const DataRangeError&) = default;
    /// Copies the error.
    DataRangeError& operator=(const DataRangeError&) = default;
    ~DataRangeError() override;
};

/// The `count` bytes of `data` that start at `offset`.
/// @throws DataRangeError if `data` ends before them.
inline std::span<const std::uint8_t> subdata(std::span<const std::uint8_t> data, std::size_t offset,
                                             std::size_t count) {
    if (offset > data.size() || count > data.size() - offset) {
        throw DataRangeError(offset, count, data.size());
    }
    return data.subspan(offset, count);
}

}  // namespace zobi::platform
