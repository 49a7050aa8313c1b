#pragma once

#include "tools/zobiconnect/monitor/MonitorView.h"
#include "tools/zobiconnect/text/BeaconJson.h"

namespace zobi::tool {

/// One JSON object in a line of stdout for each event.
class JsonLinesView final : public MonitorView {
public:
    /// @param flushes whether each line is seen at once.
    explicit JsonLinesView(bool flushes) : flushes_(flushes) {}

    void bluetoothStateChanged(const Moment& moment) override;
    void radioConditionChanged(const Moment& moment, const platform::RadioCondition& condition) override;
    void applicationStateChanged(const Moment& moment) override;
    void beaconsRanged(const Moment& moment, const std::vector<std::shared_ptr<ZOKBeacon>>& beacons,
                       const Sightings& sightings) override;
    void buttonUsed(const Moment& moment, int action, const ZOKBeacon& beacon) override;
    void ended(const Moment& moment, const Totals& totals) override;

private:
    void print(const char* event, const Moment& moment, const OrderedJson& values) const;

    bool flushes_;
};

}  // namespace zobi::tool
