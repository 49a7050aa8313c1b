#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace zobi::tool {

/// How well a beacon is heard: what was reported of it in the last minute, or since the first report where
/// that is less. Its size does not depend on how much is reported. All times are of the monotonic clock.
class Reception {
public:
    using Time = std::chrono::nanoseconds;

    /// @param now not before the last one.
    void noteReport(Time now);

    /// Reports per second. The first report only opens the time that is measured: at that moment there is no
    /// rate yet.
    std::optional<double> rate(Time now) const;

    /// The longest time without a report, in seconds: of those that ended within the minute, and the one
    /// since the latest report. Nothing before the first report.
    std::optional<double> longestGap(Time now) const;

private:
    using Seconds = std::chrono::duration<std::int64_t>;
    using Milliseconds = std::chrono::duration<std::uint16_t, std::milli>;

    /// What was reported in one second of the clock.
    struct Slot {
        std::uint16_t reports = 0;
        /// The longest gap that ended in it.
        Milliseconds gap{};
    };
    static constexpr Seconds window{60};

    static std::size_t indexOf(Seconds second) {
        return static_cast<std::size_t>(second.count() % window.count());
    }
    /// The first second of the minute that ends now.
    static Seconds windowStart(Time now) { return std::chrono::floor<Seconds>(now) - window + Seconds(1); }
    template <typename Visit>
    void forEachSlotOfWindow(Time now, Visit visit) const;

    std::optional<Time> first_;
    Time latest_{};
    std::array<Slot, window.count()> slots_{};
};

}  // namespace zobi::tool
