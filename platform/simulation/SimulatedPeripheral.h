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
#include "zobi/platform/simulation/CentralEnd.h"
#include "zobi/platform/simulation/GATTServer.h"
#include "zobi/platform/simulation/SimulatedDevice.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::simulation {

/// A simulated device as one central has it: the handle, the attempt to connect, and this side of the link.
///
/// Requests are served one after the other, each after the device's response delay.
class SimulatedPeripheral final : public StandardPeripheral, public CentralEnd {
public:
    SimulatedPeripheral(RunLoop& runLoop, std::weak_ptr<SimulatedDevice> device)
        : runLoop_(runLoop), device_(std::move(device)) {}

    std::string addressText() const override;

    // What the device does

    void deviceBecameFree() override;
    void deviceCeasedToBeFree() override;
    void deviceFellSilent() override;
    void deviceIsHeardAgain() override;
    void deviceEndedLink(const std::optional<NSError>& error) override;
    void valueChanged(GATTPlace place, std::span<const std::uint8_t> value) override;
    void deviceIsGone() override { abandon(); }

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
    SimulatedDevice& device() const { return *device_.lock(); }
    void serveNext();
    void finishAttempt();
    void loseLink();
    std::shared_ptr<NSTimer> after(double seconds, void (SimulatedPeripheral::*action)());

    RunLoop& runLoop_;
    std::weak_ptr<SimulatedDevice> device_;
    bool hasLink_ = false;
    std::shared_ptr<NSTimer> attemptTimer_;
    std::shared_ptr<NSTimer> supervisionTimer_;
    std::shared_ptr<NSTimer> answerTimer_;
};

}  // namespace zobi::platform::simulation
