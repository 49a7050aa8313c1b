#include "zobi/platform/NSData.h"

#include <functional>

namespace zobi::platform {

namespace {

std::string rangeMessage(std::size_t offset, std::size_t count, std::size_t size) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes") + " at offset " +
           std::to_string(offset) + " read from data of " + std::to_string(size) + " bytes";
}

}  // namespace

DataRangeError::DataRangeError(std::span<const std::uint8_t> data, std::size_t offset, std::size_t count)
    : std::out_of_range(rangeMessage(offset, count, data.size())),
      begin_(data.data()),
      end_(data.data() + data.size()) {}

DataRangeError::~DataRangeError() = default;

bool DataRangeError::isAbout(std::span<const std::uint8_t> data) const noexcept {
    // The addresses may be of different objects, which only the library's own order compares.
    const std::less_equal<> isNotAfter;
    return begin_ && isNotAfter(data.data(), begin_) && isNotAfter(end_, data.data() + data.size());
}

}  // namespace zobi::platform
