#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/MainQueue.h"
#include "zobi/platform/standard/RecentKeys.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform {

/// What all radios' central managers share: the state, the scan and its filter, and the peripherals, which
/// take the requests to connect in turn. It keeps the promises of `CBCentralManager`. A radio derives its
/// central manager from it, carries out what the hooks ask for, and tells what happens. Main thread only.
///
/// The radio tells events from a task or a timer of the run loop, and holds the central manager for the
/// length of the call. A hook does not throw.
class ZOBI_EXPORT StandardCentral : public CBCentralManager,
                                    public std::enable_shared_from_this<StandardCentral> {
public:
    /// A central manager that does not know the state of its radio yet.
    /// @param queue,log must outlive every call, though not the object.
    /// @param delegate receives the events.
    StandardCentral(MainQueue& queue, Log& log, std::weak_ptr<CBCentralManagerDelegate> delegate);
    ~StandardCentral() override;
    StandardCentral(const StandardCentral&) = delete;
    StandardCentral& operator=(const StandardCentral&) = delete;

    CBManagerState state() const override { return state_; }
    bool isScanning() const override { return isScanning_; }
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                               CBScanOptions options) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override;
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

    /// @name The end of the program: see `Platform::shutDown`
    /// @{

    /// Ends the scan, and cancels each attempt and each link. Another scan does not start, and another
    /// attempt fails.
    virtual void shutDown();
    /// Whether there is neither an attempt nor a link, and the radio has nothing left to end.
    bool hasEnded() const { return activePeripherals().empty() && isRadioIdle(); }

    /// @}

protected:
    /// What the radio tells its devices apart by: the address as a number, for example.
    using Key = std::uint64_t;
    /// The handles that the radio knows by their keys.
    using Peripherals = std::unordered_map<Key, std::shared_ptr<StandardPeripheral>>;

    /// @name The scan, which the radio carries out
    /// @{

    /// A scan has begun, or has replaced the one that was running: see `serviceFilter` and `scanOptions`.
    /// What is heard of other devices is dropped, so that a radio may hear more than is asked for.
    virtual void beginScan() {}
    /// The scan has ended, as it was stopped or the radio is off.
    virtual void endScan() {}
    /// Whether the radio has carried out the ends of scans, attempts and links that it was asked for, though
    /// their hooks have returned. For a radio that does so later, and would not if the process ended before.
    virtual bool isRadioIdle() const { return true; }
    /// The services that the running scan asks for; empty for all devices.
    const std::vector<CBUUID>& serviceFilter() const { return serviceFilter_; }
    /// The options of the running scan.
    CBScanOptions scanOptions() const { return options_; }
    /// Whether a scan is running that asks for a device that advertises these services.
    bool isSought(std::span<const CBUUID> advertisedServices) const;

    /// @}
    /// @name Handles
    /// @{

    /// The peripheral of the device with this key, made from `arguments` when it is asked for first. There is
    /// one for each key, over all sightings, links and power cycles, for as long as it is in use or somebody
    /// else holds it; others are forgotten at a new scan, or when they have become many.
    template <typename Peripheral, typename... Arguments>
    Peripheral& peripheral(Key key, Arguments&&... arguments) {
        const auto known = peripherals_.find(key);
        if (known == peripherals_.end()) {
            auto made = std::make_shared<Peripheral>(std::forward<Arguments>(arguments)...);
            made->adopt(weak_from_this(), delegate_, queue_);
            return static_cast<Peripheral&>(keep(key, std::move(made)));
        }
        return static_cast<Peripheral&>(*known->second);
    }
    /// The peripheral of the device with this key; null if there is none.
    template <typename Peripheral>
    Peripheral* knownPeripheral(Key key) const {
        const auto known = peripherals_.find(key);
        return known == peripherals_.end() ? nullptr : static_cast<Peripheral*>(known->second.get());
    }
    /// The peripherals of all devices that it knows.
    const Peripherals& peripherals() const { return peripherals_; }
    /// The system has forgotten the device: forgets its peripheral, unless it is in use or someone holds it.
    /// A scan without duplicates still knows of 100,000 such devices that they were reported.
    void forget(Key key);

    /// @}
    /// @name Events, which the radio tells
    /// @{

    /// The radio has this state now, which is reported even if it is the same. Any but powered on ends the
    /// scan, the attempts and the links.
    void enterState(CBManagerState state);
    /// An advertisement of a device that is sought was received: reports it, once per scan unless all are
    /// asked for. An advertisement that is malformed costs one line in the log, and does not count.
    void hear(StandardPeripheral& peripheral, const CBAdvertisementData& data, NSNumber rssi);

    /// @}

private:
    StandardPeripheral& keep(Key key, std::shared_ptr<StandardPeripheral> made);
    /// Forgets all peripherals that are idle and that nobody else holds.
    void forgetUnused();
    /// @returns the next one.
    Peripherals::iterator forgetUnused(Peripherals::iterator known);
    /// Null for a peripheral that is not this central manager's.
    std::shared_ptr<StandardPeripheral> ownPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) const;
    std::vector<std::shared_ptr<StandardPeripheral>> activePeripherals() const;

    MainQueue& queue_;
    Log& log_;
    std::weak_ptr<CBCentralManagerDelegate> delegate_;
    CBManagerState state_ = CBManagerState::unknown;
    bool isScanning_ = false;
    std::vector<CBUUID> serviceFilter_;
    CBScanOptions options_;
    std::uint64_t scansStarted_ = 0;
    std::uint64_t attemptsStarted_ = 0;
    std::uint64_t powerLosses_ = 0;
    bool isShutDown_ = false;
    Peripherals peripherals_;
    /// With so many, those that are unused are forgotten.
    std::size_t manyPeripherals_ = 0;
    /// The devices that were reported in this scan, which is one without duplicates, and then forgotten.
    RecentKeys forgotten_;
    bool isForgettingTold_ = false;
};

}  // namespace zobi::platform
