#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "RadioBench.h"

/// Something over each radio under test, and what it was told. Everything waits for conditions, none for a
/// time to pass, but where nothing must happen.
class RadioFixture : public testing::TestWithParam<RadioUnderTest> {
protected:
    using Events = std::vector<std::string>;

    virtual Events takeEvents() = 0;
    virtual const Events& events() const = 0;
    /// Waits until `event` was told, `count` times in all.
    bool heard(const std::string& event, std::size_t count = 1, double seconds = RadioBench::patience) {
        const auto told = [&] { return static_cast<std::size_t>(std::ranges::count(events(), event)); };
        return bench->runUntil([&] { return told() >= count; }, seconds);
    }
    /// Waits until `event` was told. With it come those before.
    Events eventsUntil(const std::string& event) {
        EXPECT_TRUE(heard(event));
        return takeEvents();
    }
    /// Waits until so many events were told.
    bool heardSoMany(std::size_t count) {
        return bench->runUntil([&] { return events().size() >= count; });
    }
    /// Looks on for a while.
    bool heardNoMoreThan(std::size_t count) {
        return !bench->runUntil([&] { return events().size() > count; }, RadioBench::aWhile);
    }

    std::unique_ptr<RadioBench> bench = GetParam().makeBench();
    zobi::platform::Platform& platform = bench->platform();
};
