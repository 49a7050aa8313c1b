#pragma once

#include <string_view>

#include "tools/zobiconnect/text/BeaconJson.h"
#include "tools/zobiconnect/watch/WatchView.h"
#include "zobi/platform/Clock.h"

namespace zobi::tool {

/// One JSON object in a line of stdout for each event.
class WatchJsonLines final : public WatchView {
public:
    /// @param flushes whether each line is seen at once.
    WatchJsonLines(const BeaconClient& client, platform::Clock& clock, bool flushes);

    void show(const BeaconEvent& event) override;
    void end(const Totals& totals) override;

private:
    void print(std::string_view event, const OrderedJson& values) const;

    const BeaconClient& client_;
    platform::Clock& clock_;
    std::chrono::nanoseconds start_;
    bool flushes_;
};

}  // namespace zobi::tool
