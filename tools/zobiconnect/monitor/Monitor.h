#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "tools/zobiconnect/monitor/MonitorView.h"
#include "tools/zobiconnect/monitor/ObservedPlatform.h"

namespace zobi::tool {

/// The application on the shared manager: it monitors whenever Bluetooth is on, and hands a view what it is
/// told.
class Monitor final : public ZOKManagerDelegate, public std::enable_shared_from_this<Monitor> {
public:
    /// @param platform,view must outlive the monitor.
    Monitor(ObservedPlatform& platform, MonitorView& view);

    /// Becomes the manager's delegate. What happens then happens in the platform's run loop.
    void start();

    /// Stops monitoring and has the view end.
    void end();

    /// Whether Bluetooth could be used at any time.
    bool hasBeenPoweredOn() const { return hasBeenPoweredOn_; }

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override;
    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& manager,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override;
    void zobiConnectManagerDidButtonActionChangedForBeacon(const std::shared_ptr<ZOKManager>& manager,
                                                           int action,
                                                           const std::shared_ptr<ZOKBeacon>& beacon) override;

private:
    Moment now() const;
    void showRadioCondition();

    ObservedPlatform& platform_;
    MonitorView& view_;
    std::chrono::nanoseconds start_;
    int bluetoothState_ = 0;
    bool hasBeenPoweredOn_ = false;
    /// Why Bluetooth cannot be used, as it was shown; empty if it can.
    std::string shownAdvice_;
    std::set<BeaconIdentity> beaconsSeen_;
    std::uint64_t reports_ = 0;
    std::uint64_t buttonActions_ = 0;
};

}  // namespace zobi::tool
