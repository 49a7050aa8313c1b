#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

#include "tools/zobiconnect/terminal/Screen.h"
#include "tools/zobiconnect/watch/WatchView.h"
#include "zobi/platform/Clock.h"

namespace zobi::tool {

/// A table of the latest values, and below it what happened to the link: drawn anew on the terminal's screen,
/// or printed one after another.
class WatchTable final : public WatchView {
public:
    /// @param display a kind of table.
    /// @param note what the line above the table ends with.
    WatchTable(const BeaconClient& client, platform::Clock& clock, Display display, std::string note);

    void show(const BeaconEvent& event) override;
    void end(const Totals& totals) override;

private:
    struct Arrivals {
        std::uint64_t count = 0;
        /// Of the latest, by the wall clock.
        double time = 0;
    };

    void noteLink(const BeaconEvent& event);
    void draw();
    std::string statusLine() const;
    std::int64_t elapsedSeconds() const;

    const BeaconClient& client_;
    platform::Clock& clock_;
    std::chrono::nanoseconds start_;
    Screen screen_;
    std::string note_;
    std::array<Arrivals, quantityNames.size()> arrivals_;
    std::deque<std::string> history_;
};

}  // namespace zobi::tool
