#pragma once

#include <string_view>

namespace platform {

class Log {
public:
    virtual ~Log();
    virtual bool isEnabled() const;
    void log(std::string_view line);
    int lines() const { return lines_; }

private:
    int lines_ = 0;
};

}  // namespace platform
