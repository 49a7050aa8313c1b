#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/CBPeripheral.h"
#include "platform/Export.h"
#include "platform/NSTimer.h"
#include "platform/RunLoop.h"
#include "platform/simulation/GATTServer.h"
#include "platform/simulation/SimulatedBeacon.h"

namespace platform::simulation {

class SimulatedCentral;

/// A simulated beacon as one central has it: the handle, the attempt to connect, and this side of the link.
///
/// Requests are served one after the other, each after the beacon's response delay.
class ZOK_EXPORT SimulatedPeripheral final : public CBPeripheral,
                                             public std::enable_shared_from_this<SimulatedPeripheral> {
public:
    SimulatedPeripheral(RunLoop& runLoop, std::weak_ptr<SimulatedCentral> central,
                        std::weak_ptr<SimulatedBeacon> beacon);
    ~SimulatedPeripheral() override;
    SimulatedPeripheral(const SimulatedPeripheral&) = delete;
    SimulatedPeripheral& operator=(const SimulatedPeripheral&) = delete;

    std::shared_ptr<CBPeripheralDelegate> delegate() const override { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        delegate_ = std::move(delegate);
    }
    CBPeripheralState state() const override;
    const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const override {
        return services_;
    }
    void discoverServices(std::span<const CBUUID> serviceUUIDs) override;
    void discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                           const std::shared_ptr<CBService>& service) override;
    void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) override;
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value,
                                         const std::shared_ptr<CBCharacteristic>& characteristic,
                                         CBCharacteristicWriteType type) override;
    void setNotifyValueForCharacteristic(bool enabled,
                                         const std::shared_ptr<CBCharacteristic>& characteristic) override;
    void readRSSI() override;

    // What the central does

    /// A request to connect is on its way to `connect`.
    void announceConnect() { ++announcedConnects_; }
    /// Starts an attempt, joins the one that is pending, or reports the link that is up once more.
    /// @param order what the radio, when it is turned off, goes by.
    void connect(std::uint64_t order);
    /// The radio is off: the attempt fails.
    void refuseConnect(const NSError& error);
    /// Ends the attempt or the link, if there is one.
    void cancel();
    /// The radio was turned off: the attempt fails, or the link ends.
    void loseRadio(const NSError& error);
    /// The central or the beacon is gone, and with it the attempt or the link. Nobody is told.
    void abandon();

    bool isIdle() const { return phase_ == Phase::idle; }
    std::uint64_t order() const { return order_; }

    // What the beacon does

    void beaconBecameFree();
    void beaconCeasedToBeFree();
    void beaconFellSilent();
    void beaconIsHeardAgain();
    void beaconEndedLink(const std::optional<NSError>& error);
    void valueChanged(GATTServer::Place place, std::span<const std::uint8_t> value);

private:
    class Service;
    class Characteristic;

    /// Ending: the link is down, and what was outstanding is being answered.
    enum class Phase : std::uint8_t { idle, pending, linked, ending };

    /// What went wrong, if anything did.
    using Outcome = std::optional<NSError>;

    struct Request {
        std::function<Outcome(SimulatedBeacon&)> carryOut;
        /// Tells the delegate the outcome; empty for a request without an answer.
        std::function<void(CBPeripheralDelegate&, const NSError*)> tell;
    };

    void send(Request request);
    void serveNextSoon();
    void serveNext();
    void answer(const Request& request, const Outcome& outcome);
    /// The one that stands at this place of the beacon's description; null if it was not discovered.
    std::shared_ptr<Service> service(std::size_t place) const;
    /// Null for what was not discovered over this link.
    std::shared_ptr<Service> own(const std::shared_ptr<CBService>& service) const;
    std::shared_ptr<Characteristic> own(const std::shared_ptr<CBCharacteristic>& characteristic) const;
    void finishAttempt();
    void loseLink();
    void endLink(const NSError* error);
    void leaveAttempt();
    void leaveLink(Phase next);
    std::shared_ptr<NSTimer> after(double seconds, void (SimulatedPeripheral::*action)());

    RunLoop& runLoop_;
    std::weak_ptr<SimulatedCentral> central_;
    std::weak_ptr<SimulatedBeacon> beacon_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    Phase phase_ = Phase::idle;
    std::size_t announcedConnects_ = 0;
    std::uint64_t order_ = 0;
    std::optional<std::vector<std::shared_ptr<CBService>>> services_;
    std::deque<Request> outstanding_;
    std::shared_ptr<NSTimer> attemptTimer_;
    std::shared_ptr<NSTimer> supervisionTimer_;
    std::shared_ptr<NSTimer> answerTimer_;
};

}  // namespace platform::simulation
