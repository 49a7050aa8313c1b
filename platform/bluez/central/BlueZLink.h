#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluez/central/CentralContext.h"
#include "platform/bluez/central/HeardDevice.h"
#include "platform/bluez/central/LinkOperations.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::bluez {

/// The attempt to connect to a device, the link to it, and its end. Main thread only.
///
/// A link is up when the device is connected, its services are resolved and its GATT table was read. The
/// reply to `Connect` is no proof: it may come before the link, after it, or never.
class BlueZLink final : public WantedDevice {
public:
    /// @param peripheral has this object, and is told what happens.
    /// @param heard,operations belong to the peripheral too.
    BlueZLink(StandardPeripheral& peripheral, const DeviceAddress& address, const HeardDevice& heard,
              LinkOperations& operations, std::weak_ptr<CentralContext> context)
        : peripheral_(peripheral),
          address_(address),
          heard_(heard),
          operations_(operations),
          context_(std::move(context)) {}

    /// @name What the peripheral asks for
    /// @{

    /// Connects to the device, however long that takes.
    void begin();
    /// Ends the attempt or the link at once, as far as this side is concerned.
    void drop();
    /// Ends the link, which takes BlueZ two seconds. The peripheral is told when that is done.
    void end();

    /// @}
    /// @name What BlueZ and the controller tell
    /// @{

    void deviceDidAppear();
    void deviceDidChange(const Device& device, const DeviceChange& change);
    void deviceDidVanish();
    void linkEndWasTold(const LinkEnd& end) { toldLinkEnd_ = end; }
    /// The controller may have told how the link has ended.
    void lookForLinkEnd();

    /// @}

    const HeardDevice& heard() const override { return heard_; }
    void turnDidBegin() override;
    void turnEnds() override;

    /// False while it is tried to connect, too.
    bool isUnlinked() const { return phase_ == Phase::idle || phase_ == Phase::waiting; }
    /// Whether BlueZ has yet to end the link, or an attempt at one.
    bool isDisconnecting() const { return isDisconnecting_; }
    /// The connection to BlueZ was lost, and BlueZ may have gone on with the link.
    bool mayBeOrphaned() const { return mayBeOrphaned_; }
    /// Whether values can come over it.
    bool isUp() const { return phase_ == Phase::linked || phase_ == Phase::ending; }

private:
    enum class Phase : std::uint8_t {
        idle,
        /// For the device to be heard, and for its turn.
        waiting,
        /// `Connect` was called.
        connecting,
        /// The device is connected, and BlueZ discovers its services.
        resolving,
        linked,
        /// `Disconnect` was called.
        ending,
        /// The link is down, and its reason is waited for, for a moment.
        lost,
    };
    using Action = void (BlueZLink::*)(CentralContext& context);
    using Answered = void (BlueZLink::*)(CentralContext& context, const BusError* error);

    /// Null while BlueZ has no such device.
    const Device* device(CentralContext& context) const { return context.service->device(address_); }
    void enter(CentralContext& context, Phase phase);
    /// Calls `action` after some seconds, if this object and its context are there then.
    std::shared_ptr<NSTimer> schedule(CentralContext& context, double seconds, Action action);
    /// The same, unless another phase has begun before.
    void after(CentralContext& context, double seconds, Action action);
    Slot call(CentralContext& context, const Device& device, const char* member, Answered answered);

    void waitForTurn(CentralContext& context);
    void connectWasAnswered(CentralContext& context, const BusError* error);
    void deviceIsConnected(CentralContext& context, const Device& device);
    /// The channel is to tell why the link of this device ends.
    void watchEnd(CentralContext& context, const Device& device);
    void readTable(CentralContext& context);
    void tableWasRead(CentralContext& context, std::vector<RemoteService> table);
    void resolvingTookTooLong(CentralContext& context);
    void failAttempt(CentralContext& context, const std::string& why);
    void fail(CentralContext& context, const std::string& why);
    void disconnect(CentralContext& context);
    void disconnectWasAnswered(CentralContext& context, const BusError* error);
    void disconnectingIsOver(CentralContext& context);

    void deviceIsDisconnected(CentralContext& context);
    std::optional<LinkEnd> knownLinkEnd(CentralContext& context);
    void tellLostLink(CentralContext& context);
    void endTookTooLong(CentralContext& context);
    void tellEnd(CentralContext& context, const StandardPeripheral::Outcome& error);

    StandardPeripheral& peripheral_;
    DeviceAddress address_;
    DeviceAddress linkAddress_;
    const HeardDevice& heard_;
    LinkOperations& operations_;
    std::weak_ptr<CentralContext> context_;

    Phase phase_ = Phase::idle;
    int failures_ = 0;
    std::chrono::nanoseconds lastFailure_{};
    /// `Disconnect` was called, and BlueZ has not signalled the end yet.
    bool isDisconnecting_ = false;
    /// The connection to BlueZ was lost during an attempt or a link, with which BlueZ may have gone on.
    bool mayBeOrphaned_ = false;
    std::optional<LinkEnd> toldLinkEnd_;
    /// Held from `Connect` to the end of the link.
    std::shared_ptr<void> promptness_;
    std::shared_ptr<NSTimer> phaseTimer_;
    std::shared_ptr<NSTimer> tableTimer_;
    Slot phaseCall_;
    Slot disconnectCall_;
};

}  // namespace zobi::platform::bluez
