#pragma once

#include <cstdint>

#include "tools/zobiconnect/beacon/BeaconClient.h"

namespace zobi::tool {

/// Shows what happens between a client and its beacon.
class WatchView {
public:
    /// What happened in all.
    struct Totals {
        std::uint64_t connections = 0;
        std::uint64_t values = 0;
    };

    virtual ~WatchView() = default;

    virtual void show(const BeaconEvent& event) = 0;
    virtual void end(const Totals& totals) = 0;
};

}  // namespace zobi::tool
