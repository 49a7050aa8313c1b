#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/Advertisement.h"
#include "zobi/platform/simulation/BeaconDescription.h"
#include "zobi/platform/simulation/GATTServer.h"

namespace zobi::platform::simulation {

class SimulatedPeripheral;

/// A simulated beacon. Made by `World::addBeacon`. Main thread only.
///
/// It is out of range at first. In range it advertises, at once (by a timer of the run loop) and then at its
/// interval. A value that is set is in the advertisements from then on.
///
/// It has at most one link, and does not advertise while it has one. An attempt to connect waits until the
/// beacon is in range and has no link.
class ZOBI_EXPORT SimulatedBeacon : public std::enable_shared_from_this<SimulatedBeacon> {
public:
    /// Sends one advertisement of `beacon` to all that listen.
    using Transmitter = std::function<void(SimulatedBeacon& beacon, const Advertisement& advertisement)>;

    /// A beacon that is out of range.
    /// @param runLoop runs its timers; must outlive it.
    /// @param transmitter called for each advertisement.
    /// @param index its index in its world; part of its random seed.
    /// @param seed the seed of its world.
    /// @param description what it is.
    /// @throws std::invalid_argument for a description that has a value out of range.
    SimulatedBeacon(RunLoop& runLoop, Transmitter transmitter, std::size_t index, std::uint64_t seed,
                    BeaconDescription description);
    ~SimulatedBeacon();
    SimulatedBeacon(const SimulatedBeacon&) = delete;
    SimulatedBeacon& operator=(const SimulatedBeacon&) = delete;

    /// Its index in its world, from 0.
    std::size_t index() const { return index_; }

    /// Its current description, with all changes so far.
    const BeaconDescription& description() const { return description_; }

    /// Whether it is in range.
    bool isInRange() const { return isInRange_; }
    /// Moves it into range: it advertises and can be connected to. A link that was not lost yet continues.
    void comeIntoRange();
    /// Moves it out of range: it is not heard. A link is lost after the supervision timeout.
    void goOutOfRange();

    /// Advertises the code of a button action for `seconds` of the loop's clock, then 0 again; another press
    /// before that replaces it. Also sets the code in FFE1, where it stays, and notifies it.
    void pressButton(std::int8_t action, double seconds);

    /// Sets the battery level that is advertised and that is in 2A19, and notifies it.
    void setBatteryLevel(std::uint8_t level);
    /// Sets the temperature, in degrees Celsius, that is advertised and that is in FFF2, and notifies it.
    /// @throws std::invalid_argument below -4 or above 65531.
    void setTemperature(std::int32_t degrees);
    /// Sets the advertised local name; absent to advertise none.
    void setLocalName(std::optional<std::string> name);
    /// Sets the mean received signal strength.
    void setSignalStrength(int dBm);

    /// Advertises `serviceData` in place of the payload; absent to advertise the payload again.
    void setServiceData(std::optional<std::vector<ServiceData>> serviceData);

    /// Sends one more advertisement, with `serviceData` of any kind, by a task on the main queue. Sends
    /// nothing if the beacon is then out of range or connected.
    void sendOnce(std::vector<ServiceData> serviceData);

    /// Makes a random reading of the received signal strength, in dBm.
    int nextSignalReading();

    /// The server of its services and values.
    GATTServer& gatt() { return gatt_; }

    /// Whether it has a link.
    bool isConnected() const { return linked_ != nullptr; }

    /// Ends the link, if there is one, by a task on the main queue. The central manager reports `error`, of
    /// any code; absent for an end as if the application had asked for it.
    void endLink(std::optional<NSError> error);

    /// Sets the error with which attempts to connect fail; absent for attempts that succeed.
    void setConnectionError(std::optional<NSError> error);
    /// Sets the error with which discoveries of services are answered; absent to answer them with the
    /// services.
    void setServiceDiscoveryError(std::optional<NSError> error);
    /// Sets the error with which readings of the signal strength are answered; absent to answer them with a
    /// value.
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
    // Not shared, so that what happens to one beacon does not change the random values of another.
    std::minstd_rand random_;
    // Shared, as a delegate that receives it may change what the beacon advertises.
    std::shared_ptr<const Advertisement> advertisement_;
    bool isInRange_ = false;
    std::shared_ptr<NSTimer> advertisingTimer_;
    std::shared_ptr<NSTimer> buttonTimer_;
    GATTServer gatt_;
    // A peripheral removes itself when it is destroyed.
    std::vector<SimulatedPeripheral*> attempts_;
    SimulatedPeripheral* linked_ = nullptr;
};

}  // namespace zobi::platform::simulation
