#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/zobiconnect/monitor/MonitorView.h"
#include "tools/zobiconnect/terminal/Screen.h"

namespace zobi::tool {

/// A table of the beacons in range: drawn anew on the terminal's screen, or printed one after another.
class TableView final : public MonitorView {
public:
    /// @param display a kind of table.
    /// @param note what the line above the table ends with.
    TableView(Display display, std::string note);

    void bluetoothStateChanged(const Moment& moment) override;
    void radioConditionChanged(const Moment& moment, const platform::RadioCondition& condition) override;
    void applicationStateChanged(const Moment& moment) override;
    void beaconsRanged(const Moment& moment, const std::vector<std::shared_ptr<ZOKBeacon>>& beacons,
                       const Sightings& sightings) override;
    void buttonUsed(const Moment& /*moment*/, int /*action*/, const ZOKBeacon& /*beacon*/) override {}
    void ended(const Moment& moment, const Totals& totals) override;

private:
    void draw(const Moment& moment);
    std::string statusLine(const Moment& moment) const;

    Screen screen_;
    std::string note_;
    std::string advice_;
    std::size_t beaconCount_ = 0;
    std::vector<Screen::Line> headings_;
    std::vector<Screen::Line> rows_;
};

}  // namespace zobi::tool
