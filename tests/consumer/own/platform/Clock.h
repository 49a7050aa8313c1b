#pragma once

namespace platform {

/// A class of the consumer's own, which has the name of one of the library's.
class Clock {
public:
    virtual ~Clock();
    virtual double timeIntervalSince1970() const;
};

}  // namespace platform
