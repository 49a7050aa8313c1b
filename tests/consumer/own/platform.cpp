#include "Platform.h"

namespace platform {

Clock::~Clock() = default;
double Clock::timeIntervalSince1970() const {
    return 17;
}

Log::~Log() = default;
bool Log::isEnabled() const {
    return true;
}
void Log::log(std::string_view /*line*/) {
    ++lines_;
}

Platform::~Platform() = default;
Platform& Platform::current() {
    static Platform platform;
    return platform;
}

}  // namespace platform
