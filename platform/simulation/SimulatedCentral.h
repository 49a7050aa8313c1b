#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/simulation/SimulatedPeripheral.h"
#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/Advertisement.h"
#include "zobi/platform/simulation/SimulatedDevice.h"

namespace zobi::platform::simulation {

/// The central service of the simulated radio: what an application knows as its central manager. What it
/// hears comes from the `World` that started it.
class SimulatedCentral final : public CBCentralManager,
                               public std::enable_shared_from_this<SimulatedCentral> {
public:
    /// @param runLoop,log must outlive every call, though not the object.
    SimulatedCentral(RunLoop& runLoop, Log& log, std::weak_ptr<CBCentralManagerDelegate> delegate);
    ~SimulatedCentral() override;
    SimulatedCentral(const SimulatedCentral&) = delete;
    SimulatedCentral& operator=(const SimulatedCentral&) = delete;

    CBManagerState state() const override { return state_; }
    bool isScanning() const override { return isScanning_; }
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                               CBScanOptions options) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override;
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

    /// The radio started, or its state changed: any but powered on ends the scan, the attempts and the links.
    /// Reports the state and then these ends.
    void enterState(CBManagerState state);

    /// A device advertises, and is received at `signalStrength` dBm. Reports it if the scan lets it through.
    /// A payload that the delegate finds too short costs one log line and this advertisement.
    void hear(SimulatedDevice& device, const Advertisement& advertisement, int signalStrength);

    // What a peripheral tells

    void reportConnection(const std::shared_ptr<SimulatedPeripheral>& peripheral);
    void reportFailure(const std::shared_ptr<SimulatedPeripheral>& peripheral, const NSError& error);
    void reportDisconnection(const std::shared_ptr<SimulatedPeripheral>& peripheral, const NSError* error);

private:
    /// What this central knows of one device.
    struct Sighted {
        std::shared_ptr<SimulatedPeripheral> peripheral;
        std::uint64_t lastReportedInScan = 0;
    };

    /// Null for a peripheral that is not this central's.
    std::shared_ptr<SimulatedPeripheral> ownPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) const;
    bool passesServiceFilter(const SimulatedDevice& device) const;

    RunLoop& runLoop_;
    Log& log_;
    std::weak_ptr<CBCentralManagerDelegate> delegate_;
    CBManagerState state_ = CBManagerState::unknown;
    bool isScanning_ = false;
    std::vector<CBUUID> serviceFilter_;
    CBScanOptions options_;
    std::uint64_t scansStarted_ = 0;
    std::uint64_t attemptsStarted_ = 0;
    // By the device's index.
    std::vector<Sighted> sighted_;
};

}  // namespace zobi::platform::simulation
