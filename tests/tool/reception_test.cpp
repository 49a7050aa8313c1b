// The rate and the longest gap that a person sees of a beacon.

#include <gtest/gtest.h>

#include <utility>

#include "tools/zobiconnect/monitor/Reception.h"

namespace zobi::tool {
namespace {

using namespace std::chrono_literals;
using Figures = std::pair<double, double>;

TEST(Reception, IsThatSinceTheFirstReportAndThenThatOfTheLastMinute) {
    Reception reception;
    const auto hear = [&](Reception::Time from, Reception::Time to, Reception::Time interval) {
        for (; from <= to; from += interval) reception.noteReport(from);
    };
    const auto at = [&](Reception::Time now) {
        return Figures(reception.rate(now).value_or(-1), reception.longestGap(now).value_or(-1));
    };
    EXPECT_EQ(at(7s), Figures(-1, -1));
    reception.noteReport(0s);
    EXPECT_EQ(at(0s), Figures(-1, 0));
    EXPECT_EQ(at(500ms), Figures(0, 0.5));
    hear(250ms, 4s, 250ms);
    EXPECT_EQ(at(4s), Figures(4, 0.25));
    EXPECT_EQ(at(8s), Figures(2, 4));
    hear(8s, 99s + 500ms, 500ms);
    // From the beginning of the sixtieth second.
    EXPECT_EQ(at(99s + 500ms), Figures(120 / 59.5, 0.5));
    EXPECT_EQ(at(110s), Figures(98.0 / 59, 10.5));
    EXPECT_EQ(at(200s), Figures(0, 100.5));
    reception.noteReport(1000s);
    EXPECT_EQ(at(1000s), Figures(1.0 / 59, 65.535)) << "more is not kept";
    hear(1010s + 300ms, 1299s, 10s + 300ms);
    EXPECT_EQ(at(1299s), Figures(6.0 / 59, 10.3)) << "nothing is left of what was there before";
}

}  // namespace
}  // namespace zobi::tool
