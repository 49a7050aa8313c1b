#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "tools/zobiconnect/emulate/Teller.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/bluez/PeripheralManager.h"

namespace zobi::tool {

/// Puts a simulated beacon on the real air, through the radio of this machine: it advertises what the beacon
/// advertises and offers what the beacon offers, so that whatever happens to the beacon happens on the air.
///
/// What the beacon only simulates is left to the air: signal strengths, failing connections and discoveries.
class EmulatedBeacon final : public platform::bluez::PeripheralManagerDelegate,
                             public platform::simulation::SimulatedDeviceObserver,
                             public std::enable_shared_from_this<EmulatedBeacon> {
public:
    /// Makes the way to the radio.
    using ManagerMaker = std::function<std::shared_ptr<platform::bluez::PeripheralManager>(
        std::vector<platform::bluez::LocalService> services,
        std::weak_ptr<platform::bluez::PeripheralManagerDelegate> delegate)>;

    /// @param runLoop,beacon must outlive it.
    EmulatedBeacon(platform::RunLoop& runLoop, SimulatedBeacon& beacon, Teller tell);
    ~EmulatedBeacon() override;
    EmulatedBeacon(const EmulatedBeacon&) = delete;
    EmulatedBeacon& operator=(const EmulatedBeacon&) = delete;

    void start(const ManagerMaker& makeManager);

    /// Why it cannot be put on the air at all: whole sentences; the run loop is stopped when they are known.
    /// What is in the way later, once it has been there, is told in a line instead; so is a service that is
    /// just restarting.
    const std::string& failure() const { return failure_; }

    void disconnectCentrals() { manager_->disconnectCentrals(); }

    /// Takes the beacon off the air, and calls `ended` when it is.
    void end(std::function<void()> ended);

    void simulatedDeviceDidChange(platform::simulation::SimulatedDevice& device) override;
    void peripheralManagerDidUpdateState(platform::bluez::PeripheralManager& manager) override;
    void peripheralManagerDidStartAdvertising(platform::bluez::PeripheralManager& manager,
                                              const platform::NSError* error) override;
    void peripheralManagerDidConnectCentral(platform::bluez::PeripheralManager& manager,
                                            const std::string& central) override;
    void peripheralManagerDidDisconnectCentral(platform::bluez::PeripheralManager& manager,
                                               const std::string& central) override;
    ReadAnswer peripheralManagerDidReceiveRead(platform::bluez::PeripheralManager& manager,
                                               platform::GATTPlace place,
                                               const std::string& central) override;
    std::optional<platform::NSError> peripheralManagerDidReceiveWrite(
        platform::bluez::PeripheralManager& manager, platform::GATTPlace place,
        std::span<const std::uint8_t> value, const std::string& central) override;
    void peripheralManagerDidChangeSubscription(platform::bluez::PeripheralManager& manager,
                                                platform::GATTPlace place, bool isSubscribed) override;

private:
    /// Brings the air up to date with the beacon.
    void follow();
    void fallSilent();
    void fail(const std::string& reason);
    /// Tells about a characteristic.
    void tellAbout(const char* event, platform::GATTPlace place, const std::string& line) const;
    void tellWrite(const platform::CBUUID& characteristic, std::span<const std::uint8_t> value) const;

    platform::RunLoop& runLoop_;
    SimulatedBeacon& beacon_;
    Teller tell_;
    std::shared_ptr<platform::bluez::PeripheralManager> manager_;
    std::optional<platform::bluez::LocalAdvertisement> onAir_;
    std::set<std::string> centrals_;
    std::minstd_rand random_;
    bool hasBeenOnAir_ = false;
    bool isEnding_ = false;
    std::string failure_;
    /// Ends the links when a silence is over that they do not outlive.
    std::shared_ptr<platform::NSTimer> silenceTimer_;
};

}  // namespace zobi::tool
