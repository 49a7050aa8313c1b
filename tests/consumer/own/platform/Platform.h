#pragma once

#include "Clock.h"
#include "platform/Log.h"

namespace platform {

class Platform {
public:
    virtual ~Platform();
    static Platform& current();
    Clock& clock() { return clock_; }
    Log& log() { return log_; }

private:
    Clock clock_;
    Log log_;
};

}  // namespace platform
