#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/CentralEnd.h"
#include "zobi/platform/simulation/GATTServer.h"
#include "zobi/platform/simulation/SimulatedDevice.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::simulation {

class SimulatedCentral;

/// A simulated device as one central has it: the handle, the attempt to connect, and this side of the link.
///
/// Requests are served one after the other, each after the device's response delay.
class SimulatedPeripheral final : public StandardPeripheral, public CentralEnd {
public:
    SimulatedPeripheral(RunLoop& runLoop, std::weak_ptr<SimulatedCentral> central,
                        std::weak_ptr<SimulatedDevice> device);
    ~SimulatedPeripheral() override;
    SimulatedPeripheral(const SimulatedPeripheral&) = delete;
    SimulatedPeripheral& operator=(const SimulatedPeripheral&) = delete;

    CBPeripheralState state() const override;

    // What the central does

    /// A request to connect is on its way to `connect`.
    void announceConnect() { ++announcedConnects_; }
    /// Starts an attempt, joins the one that is pending, or reports the link that is up once more.
    /// @param order sequence number of the request: at power-off, attempts and links end in this order.
    void connect(std::uint64_t order);
    /// The radio is off: the attempt fails.
    void refuseConnect(const NSError& error);
    /// Ends the attempt or the link, if there is one.
    void cancel();
    /// The radio was turned off: the attempt fails, or the link ends.
    void loseRadio(const NSError& error);
    /// The central or the device is gone, and with it the attempt or the link. Nobody is told.
    void abandon();

    bool isIdle() const { return phase_ == Phase::idle; }
    std::uint64_t order() const { return order_; }

    // What the device does

    void deviceBecameFree() override;
    void deviceCeasedToBeFree() override;
    void deviceFellSilent() override;
    void deviceIsHeardAgain() override;
    void deviceEndedLink(const std::optional<NSError>& error) override;
    void valueChanged(GATTPlace place, std::span<const std::uint8_t> value) override;
    void deviceIsGone() override { abandon(); }

protected:
    Outcome listServices(UUIDs& table) override;
    Outcome listCharacteristics(std::size_t service, UUIDs& table) override;
    void read(GATTPlace place, ReadCompletion completion) override;
    void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
               Completion completion) override;
    void setNotify(GATTPlace place, bool enabled, Completion completion) override;
    void readSignalStrength(RSSICompletion completion) override;
    void scheduleNextRequest() override;

private:
    /// Ending: the link is down, and what was outstanding is being answered.
    enum class Phase : std::uint8_t { idle, pending, linked, ending };

    std::shared_ptr<SimulatedPeripheral> self() {
        return std::static_pointer_cast<SimulatedPeripheral>(shared_from_this());
    }
    SimulatedDevice& device() const { return *device_.lock(); }
    void serveNext();
    void finishAttempt();
    void loseLink();
    void endLink(const NSError* error);
    void leaveAttempt();
    void leaveLink();
    std::shared_ptr<NSTimer> after(double seconds, void (SimulatedPeripheral::*action)());

    RunLoop& runLoop_;
    std::weak_ptr<SimulatedCentral> central_;
    std::weak_ptr<SimulatedDevice> device_;
    Phase phase_ = Phase::idle;
    std::size_t announcedConnects_ = 0;
    std::uint64_t order_ = 0;
    std::shared_ptr<NSTimer> attemptTimer_;
    std::shared_ptr<NSTimer> supervisionTimer_;
    std::shared_ptr<NSTimer> answerTimer_;
};

}  // namespace zobi::platform::simulation
