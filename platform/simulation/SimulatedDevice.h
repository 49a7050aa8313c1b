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
#include "zobi/platform/simulation/CentralEnd.h"
#include "zobi/platform/simulation/DeviceDescription.h"
#include "zobi/platform/simulation/GATTServer.h"

namespace zobi::platform::simulation {

class SimulatedDevice;

/// Is told when a simulated device has changed.
class ZOBI_EXPORT SimulatedDeviceObserver {
public:
    virtual ~SimulatedDeviceObserver();

    /// What the device advertises, whether it is in range, or a value of its characteristics may have changed
    /// since the last call.
    virtual void simulatedDeviceDidChange(SimulatedDevice& device) = 0;
};

/// A simulated Bluetooth LE device. Made by `World::addDevice`. Main thread only.
///
/// It is out of range at first. In range it advertises, at once (by a timer of the run loop) and then at its
/// interval. What is set is in the advertisements from then on.
///
/// It has at most one link, and does not advertise while it has one. An attempt to connect waits until the
/// device is in range and has no link.
///
/// A device of a certain kind, with operations of its own, can be derived from it: see `World::add`.
class ZOBI_EXPORT SimulatedDevice : public std::enable_shared_from_this<SimulatedDevice> {
public:
    /// Sends one advertisement of `device` to all that listen.
    using Transmitter = std::function<void(SimulatedDevice& device, const Advertisement& advertisement)>;

    /// What a device is given by its world.
    struct Context {
        /// Runs its timers and tasks; must outlive it.
        RunLoop& runLoop;
        /// Called for each advertisement.
        Transmitter transmit;
        /// Its index in the world; part of its random seed.
        std::size_t index;
        /// The seed of the world.
        std::uint64_t seed;
    };

    /// A device that is out of range.
    /// @param context what its world gives it.
    /// @param description what it is.
    /// @throws std::invalid_argument for a description that has a value out of range.
    SimulatedDevice(Context context, DeviceDescription description);
    virtual ~SimulatedDevice();
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

    /// Its index in its world, from 0.
    std::size_t index() const { return context_.index; }

    /// Its current description, with all changes so far.
    const DeviceDescription& description() const { return description_; }

    /// Adds an observer, which is told of changes from now on, as long as it exists: by one task on the main
    /// queue for all changes that were made before it runs.
    void addObserver(std::weak_ptr<SimulatedDeviceObserver> observer);

    /// Whether it is in range.
    bool isInRange() const { return isInRange_; }
    /// Moves it into range: it advertises and can be connected to. A link that was not lost yet continues.
    void comeIntoRange();
    /// Moves it out of range: it is not heard. A link is lost after the supervision timeout.
    void goOutOfRange();

    /// Sets the advertised local name; absent to advertise none.
    void setLocalName(std::optional<std::string> name);
    /// Sets the advertised service data elements.
    virtual void setServiceData(std::vector<ServiceData> serviceData);
    /// Sets the mean received signal strength.
    void setSignalStrength(int dBm);

    /// Sends one more advertisement, with `serviceData` of any kind, by a task on the main queue. Sends
    /// nothing if the device is then out of range or connected.
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

    /// @name What a central does
    ///
    /// `end` must not be destroyed before it has left.
    /// @{

    /// Begins an attempt to connect. If the device is free, `end` is told from inside the call.
    void addAttempt(CentralEnd& end);
    /// Ends an attempt. Does nothing if there is none.
    void removeAttempt(CentralEnd& end);
    /// Begins the link. The device must be free.
    /// @throws what the generator of a value throws; the link is up all the same.
    void beginLink(CentralEnd& end);
    /// Ends the link.
    void leaveLink();

    /// @}

protected:
    /// The run loop of its world.
    RunLoop& runLoop() const { return context_.runLoop; }

private:
    /// In range and without a link: it advertises, and can be connected to.
    bool isFree() const { return isInRange_ && !linked_; }
    void becomeFree();
    void ceaseToBeFree();
    void changed();
    void tellObservers();

    void scheduleAdvertisement(double seconds);
    double nextInterval();
    void refreshAdvertisement();

    Context context_;
    DeviceDescription description_;
    // Not shared, so that what happens to one device does not change the random values of another.
    std::minstd_rand random_;
    // Shared, as a delegate that receives it may change what the device advertises.
    std::shared_ptr<const Advertisement> advertisement_;
    bool isInRange_ = false;
    std::shared_ptr<NSTimer> advertisingTimer_;
    GATTServer gatt_;
    std::vector<CentralEnd*> attempts_;
    CentralEnd* linked_ = nullptr;
    std::vector<std::weak_ptr<SimulatedDeviceObserver>> observers_;
    bool isChangeQueued_ = false;
};

}  // namespace zobi::platform::simulation
