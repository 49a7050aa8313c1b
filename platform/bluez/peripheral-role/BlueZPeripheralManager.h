#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/bus/TimedCall.h"
#include "platform/bluez/peripheral-role/LocalObjects.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/bluez/PeripheralManager.h"

namespace zobi::platform::bluez {

/// The peripheral manager over BlueZ, with a bus connection of its own: what the service has been told over
/// it ends with it.
///
/// What is wanted and what the service has are brought together by one call after the other: see `proceed`.
class BlueZPeripheralManager final : public PeripheralManager,
                                     public BlueZServiceDelegate,
                                     public std::enable_shared_from_this<BlueZPeripheralManager> {
public:
    /// @param context what it refers to must outlive every call, though not the object.
    BlueZPeripheralManager(RadioContext context, std::vector<LocalService> services,
                           std::weak_ptr<PeripheralManagerDelegate> delegate);
    ~BlueZPeripheralManager() override;
    BlueZPeripheralManager(const BlueZPeripheralManager&) = delete;
    BlueZPeripheralManager& operator=(const BlueZPeripheralManager&) = delete;

    /// Looks for the service. Called once, from the run loop.
    void start();

    CBManagerState state() const override;
    std::string advice() const override;
    void startAdvertising(LocalAdvertisement advertisement) override;
    void stopAdvertising() override;
    bool isAdvertising() const override;
    void notify(GATTPlace place, std::span<const std::uint8_t> value) override;
    void disconnectCentrals() override;
    void shutDown(std::function<void()> completion) override;

    void serviceDidChangeCondition() override;
    void deviceDidAppear(const Device& device) override;
    void deviceDidChange(const Device& device, const DeviceChange& change) override;
    void deviceDidVanish(const Device& device) override;
    void serviceDidCall(const IncomingCall& call) override;

private:
    /// A link of the adapter.
    struct Link {
        /// The device has used it as a central, or the controller says that it initiated it.
        bool isCentral = false;
        /// It came up while this machine advertised, which did not initiate it.
        bool isIncoming = false;
        /// The service was lost since, and is still to tell whether it is up.
        bool isUncertain = false;

        bool isOurs() const { return isCentral && isIncoming; }
    };

    std::string adapterPath() const { return "/org/bluez/" + service_->adapterName(); }
    bool isPoweredOn() const { return service_ && service_->isPoweredOn(); }

    /// Makes the next call that is needed, if any is, once the last one has been answered.
    void proceed();
    void proceedSoon();
    void registerApplication();
    void registerAdvertisement();
    void unregisterAdvertisement();
    /// Changes the advertisement that the service has, if that can be done so that a failure is told.
    bool changeAdvertisement();
    void waitForAnswer();
    using Done = void (BlueZPeripheralManager::*)(const BusError* error);
    void callManager(const char* interface, const char* member, const char* path, bool hasOptions, Done done);
    void applicationRegistered(const BusError* error);
    void advertisementRegistered(const BusError* error);
    void advertisementUnregistered(const BusError* error);
    void advertisingFailed(const NSError& error);
    void advertisementReleased();
    void restIsOver();

    void linkIsThere(const Device& device);
    void linkIsGone(const std::string& path);
    /// @returns its address.
    std::string centralIsThere(const std::string& path);
    void finishShutDownIfDone();
    void finishShutDown();

    void answerObjects(const IncomingCall& call) const;
    void answerProperties(const IncomingCall& call) const;
    void answerRequest(const IncomingCall& call, GATTPlace place);
    void answerRead(const IncomingCall& call, GATTPlace place);
    void answerWrite(const IncomingCall& call, GATTPlace place);
    void changeSubscription(const IncomingCall& call, GATTPlace place, bool isSubscribed);
    /// The address of the central that a request comes from; empty if the service does not tell.
    std::string centralIn(const Properties& options);

    RadioContext context_;
    LocalObjects objects_;
    std::weak_ptr<PeripheralManagerDelegate> delegate_;
    std::shared_ptr<BlueZService> service_;

    std::optional<LocalAdvertisement> wanted_;
    /// What the object of the advertisement shows; absent when BlueZ may have read something else.
    std::optional<LocalAdvertisement> told_;
    bool isApplicationRegistered_ = false;
    /// BlueZ has, or may still have, our advertisement registered.
    bool isAdvertisementRegistered_ = false;
    /// BlueZ has refused what is wanted.
    bool isRefused_ = false;
    /// The delegate was told that the advertisement is on the air.
    bool isAnnounced_ = false;
    TimedCall call_;
    /// A call was not answered in time, and the service has answered nothing since.
    bool isSilent_ = false;
    Slot probe_;
    /// Runs for some time after BlueZ has released an advertisement, during which no new one is registered.
    std::shared_ptr<NSTimer> restTimer_;

    /// By the paths of their devices.
    std::map<std::string, Link> links_;
    std::set<std::string, std::less<>> subscribed_;

    std::function<void()> shutDownCompletion_;
    std::shared_ptr<NSTimer> shutDownTimer_;
};

}  // namespace zobi::platform::bluez
