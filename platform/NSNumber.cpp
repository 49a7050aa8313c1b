#include "platform/NSNumber.h"

namespace platform {

std::string NSNumber::description() const {
    return hasValue() ? std::to_string(value_) : "(null)";
}

}  // namespace platform
