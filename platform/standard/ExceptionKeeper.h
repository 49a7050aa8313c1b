#pragma once

#include <exception>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Makes several callbacks even if one of them throws, and then rethrows the first exception.
class ExceptionKeeper {
public:
    /// Calls `call`. Keeps its exception if it is the first, discards it if it is not.
    template <typename Call>
    void run(const Call& call) {
        try {
            call();
        } catch (...) {
            if (!first_) first_ = std::current_exception();
        }
    }

    /// Throws the first exception, if there was one.
    void rethrow() const {
        if (first_) std::rethrow_exception(first_);
    }

private:
    std::exception_ptr first_;
};

}  // namespace zobi::platform
