#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/GATTServer.h"
#include "zobi/platform/simulation/SimulatedBeacon.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::simulation {

/// A simulated beacon as one central has it: the handle, the attempt to connect, and this side of the link.
///
/// Requests are served one after the other, each after the beacon's response delay.
class SimulatedPeripheral final : public StandardPeripheral {
public:
    SimulatedPeripheral(RunLoop& runLoop, std::weak_ptr<SimulatedBeacon> beacon)
        : runLoop_(runLoop), beacon_(std::move(beacon)) {}

    std::string addressText() const override;

    // What the beacon does

    void beaconBecameFree();
    void beaconCeasedToBeFree();
    void beaconFellSilent();
    void beaconIsHeardAgain();
    void beaconEndedLink(const std::optional<NSError>& error);
    void valueChanged(GATTPlace place, std::span<const std::uint8_t> value);

protected:
    void beginAttempt() override;
    void dropConnection() override;
    Outcome listServices(UUIDs& table) override;
    Outcome listCharacteristics(std::size_t service, UUIDs& table) override;
    void read(GATTPlace place, ReadCompletion completion) override;
    void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
               Completion completion) override;
    void setNotify(GATTPlace place, bool enabled, Completion completion) override;
    void readSignalStrength(RSSICompletion completion) override;
    void scheduleNextRequest() override;

private:
    SimulatedBeacon& beacon() const { return *beacon_.lock(); }
    void serveNext();
    void finishAttempt();
    void loseLink();
    std::shared_ptr<NSTimer> after(double seconds, void (SimulatedPeripheral::*action)());

    RunLoop& runLoop_;
    std::weak_ptr<SimulatedBeacon> beacon_;
    bool hasLink_ = false;
    std::shared_ptr<NSTimer> attemptTimer_;
    std::shared_ptr<NSTimer> supervisionTimer_;
    std::shared_ptr<NSTimer> answerTimer_;
};

}  // namespace zobi::platform::simulation
