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
/// Received bytes cannot be trusted, so a radio drops an advertisement that such an error is about: one whose
/// service data, or a view of a part of it, was too short (`CBAdvertisementData::isMalformedBy`). An error
/// about any other bytes is one of the application, and leaves the run loop as every other exception does. A
/// copy of an advertisement's bytes is other bytes.
class ZOBI_EXPORT DataRangeError : public std::out_of_range {
public:
    /// The error of reading `count` bytes at `offset` of `data`.
    DataRangeError(std::span<const std::uint8_t> data, std::size_t offset, std::size_t count);
    /// Copies the error.
    DataRangeError(const DataRangeError&) = default;
    /// Copies the error.
    DataRangeError& operator=(const DataRangeError&) = default;
    ~DataRangeError() override;

    /// Whether the bytes that were too short are `data` or a view of a part of it, by their addresses. A view
    /// without bytes that stands at the end of `data` is a part of it; one without an address is not.
    bool isAbout(std::span<const std::uint8_t> data) const noexcept;

private:
    // Compared and never read, as the bytes may be gone.
    const std::uint8_t* begin_;
    const std::uint8_t* end_;
};

/// The `count` bytes of `data` that start at `offset`.
/// @throws DataRangeError if `data` ends before them.
inline std::span<const std::uint8_t> subdata(std::span<const std::uint8_t> data, std::size_t offset,
                                             std::size_t count) {
    if (offset > data.size() || count > data.size() - offset) throw DataRangeError(data, offset, count);
    return data.subspan(offset, count);
}

}  // namespace zobi::platform
