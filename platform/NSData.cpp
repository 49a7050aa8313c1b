#include "zobi/platform/NSData.h"

namespace zobi::platform {

namespace {

std::string rangeMessage(std::size_t offset, std::size_t count, std::size_t size) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes") + " at offset " +
           std::to_string(offset) + " read from data of " + std::to_string(size) + " bytes";
}

}  // namespace

DataRangeError::DataRangeError(std::size_t offset, std::size_t count, std::size_t size)
    : std::out_of_range(rangeMessage(offset, count, size)) {}

DataRangeError::~DataRangeError() = default;

}  // namespace zobi::platform
