#include "platform/Clock.h"

namespace platform {

Clock::~Clock() = default;
double Clock::timeIntervalSince1970() const {
    return 17;
}

}  // namespace platform
