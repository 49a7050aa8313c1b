#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/NSTimer.h"
#include "platform/RunLoop.h"
#include "platform/simulation/Advertisement.h"
#include "platform/simulation/BeaconDescription.h"
#include "platform/simulation/GATTServer.h"

namespace platform::simulation {

class SimulatedPeripheral;

/// A virtual beacon, and what happens to it. Made by `World::addBeacon`. Main thread only.
///
/// It is out of range at first. In range it advertises: first at the loop's next turn, then at its interval.
/// What changes is heard in the advertisements that follow.
///
/// It has one link at most, and while it has one it does not advertise. Attempts to connect wait until it is
/// in range and free.
class ZOK_EXPORT SimulatedBeacon : public std::enable_shared_from_this<SimulatedBeacon> {
public:
    /// Puts one advertisement of `beacon` on the air.
    using Transmitter = std::function<void(SimulatedBeacon& beacon, const Advertisement& advertisement)>;

    /// @param index the beacon's place in its world; part of its random seed.
    SimulatedBeacon(RunLoop& runLoop, Transmitter transmitter, std::size_t index, std::uint64_t seed,
                    BeaconDescription description);
    ~SimulatedBeacon();
    SimulatedBeacon(const SimulatedBeacon&) = delete;
    SimulatedBeacon& operator=(const SimulatedBeacon&) = delete;

    std::size_t index() const { return index_; }

    /// What the beacon is now.
    const BeaconDescription& description() const { return description_; }

    bool isInRange() const { return isInRange_; }
    void comeIntoRange();
    /// Falls silent. A link is lost when the silence has lasted for the supervision timeout.
    void goOutOfRange();

    /// Advertises the code of a button action for `seconds` of the loop's time, then 0 again. A press in the
    /// meantime takes its place. When connected, it notifies the code in FFE1, once; there it stays.
    void pressButton(std::int8_t action, double seconds);

    /// Advertises the level or, when connected, notifies it in 2A19.
    void setBatteryLevel(std::uint8_t level);
    /// Advertises the temperature or, when connected, notifies it in FFF2.
    /// @throws std::invalid_argument for a temperature that no payload can carry.
    void setTemperature(std::int32_t degrees);
    void setLocalName(std::optional<std::string> name);
    void setSignalStrength(int dBm);

    /// Advertises `serviceData` in place of the beacon's own payload, until it is set to none.
    void setServiceData(std::optional<std::vector<ServiceData>> serviceData);

    /// Sends one advertisement with `serviceData`, malformed or foreign ones included, at the loop's next
    /// turn, between the regular ones. A beacon out of range is not heard.
    void sendOnce(std::vector<ServiceData> serviceData);

    /// A reading of the signal strength in dBm.
    int nextSignalReading();

    /// What a connected central finds.
    GATTServer& gatt() { return gatt_; }

    bool isConnected() const { return linked_ != nullptr; }

    /// Ends the link, if there is one, at the loop's next turn.
    /// @param error what the central is told, of whatever code; none for an end that looks asked for.
    void endLink(std::optional<NSError> error);

    /// What attempts fail with from now on; none when they succeed.
    void setConnectionError(std::optional<NSError> error);
    void setServiceDiscoveryError(std::optional<NSError> error);
    void setSignalReadError(std::optional<NSError> error);

private:
    // The other end of the link, and of attempts at one.
    friend class SimulatedPeripheral;

    /// In range and without a link: it advertises, and can be connected to.
    bool isFree() const { return isInRange_ && !linked_; }
    void addAttempt(SimulatedPeripheral& peripheral);
    void removeAttempt(SimulatedPeripheral& peripheral);
    void beginLink(SimulatedPeripheral& peripheral);
    void leaveLink();
    void becomeFree();
    void ceaseToBeFree();

    void scheduleAdvertisement(double seconds);
    double nextInterval();
    void refreshAdvertisement();

    RunLoop& runLoop_;
    Transmitter transmitter_;
    std::size_t index_;
    BeaconDescription description_;
    // Its own, so that one beacon's fate does not shift another's.
    std::minstd_rand random_;
    // Shared, for who hears it may change the beacon.
    std::shared_ptr<const Advertisement> advertisement_;
    bool isInRange_ = false;
    std::shared_ptr<NSTimer> advertisingTimer_;
    std::shared_ptr<NSTimer> buttonTimer_;
    GATTServer gatt_;
    // A peripheral that is destroyed takes itself out.
    std::vector<SimulatedPeripheral*> attempts_;
    SimulatedPeripheral* linked_ = nullptr;
};

}  // namespace platform::simulation
