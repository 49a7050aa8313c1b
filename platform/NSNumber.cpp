#include "zobi/platform/NSNumber.h"

namespace zobi::platform {

std::string NSNumber::description() const {
    return hasValue() ? std::to_string(value_) : "(null)";
}

}  // namespace zobi::platform
