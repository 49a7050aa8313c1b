#pragma once

#include <exception>

namespace platform {

/// Lets several callbacks be made although one of them throws.
class ExceptionKeeper {
public:
    template <typename Call>
    void run(const Call& call) {
        try {
            call();
        } catch (...) {
            if (!first_) first_ = std::current_exception();
        }
    }

    /// Sends the first exception on its way, if there was one.
    void rethrow() const {
        if (first_) std::rethrow_exception(first_);
    }

private:
    std::exception_ptr first_;
};

}  // namespace platform
