#include "tools/zobiconnect/monitor/Reception.h"

#include <algorithm>

namespace zobi::tool {

void Reception::noteReport(Time now) {
    if (!first_) {
        first_ = latest_ = now;
        return;
    }
    const auto second = std::chrono::floor<Seconds>(now);
    // A slot is used again each minute.
    for (Seconds passed = std::max(std::chrono::floor<Seconds>(latest_), second - window); passed < second;) {
        slots_[indexOf(++passed)] = {};
    }
    Slot& slot = slots_[indexOf(second)];
    ++slot.reports;
    const auto gap = std::chrono::duration_cast<std::chrono::milliseconds>(now - latest_);
    slot.gap =
        std::max(slot.gap, Milliseconds(std::min(gap, std::chrono::milliseconds(Milliseconds::max()))));
    latest_ = now;
}

/// Of those between the first report and the latest.
template <typename Visit>
void Reception::forEachSlotOfWindow(Time now, Visit visit) const {
    const auto latest = std::chrono::floor<Seconds>(latest_);
    auto second = std::max(windowStart(now), std::chrono::floor<Seconds>(*first_));
    for (; second <= latest; ++second) visit(slots_[indexOf(second)]);
}

std::optional<double> Reception::rate(Time now) const {
    if (!first_ || now <= *first_) return std::nullopt;
    double reports = 0;
    forEachSlotOfWindow(now, [&](const Slot& slot) { reports += slot.reports; });
    const std::chrono::duration<double> measured = now - std::max<Time>(*first_, windowStart(now));
    return reports / measured.count();
}

std::optional<double> Reception::longestGap(Time now) const {
    if (!first_) return std::nullopt;
    std::chrono::duration<double> longest = now - latest_;
    forEachSlotOfWindow(
        now, [&](const Slot& slot) { longest = std::max<std::chrono::duration<double>>(longest, slot.gap); });
    return longest.count();
}

}  // namespace zobi::tool
