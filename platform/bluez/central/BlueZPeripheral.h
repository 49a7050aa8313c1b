#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZErrors.h"
#include "platform/bluez/controller/ControllerChannel.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/standard/ExceptionKeeper.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::bluez {

class BlueZCentral;

/// A device as a central of this radio has it: the handle, the attempt to connect, the link, and the requests
/// over it. It outlives what the service knows of the device.
class BlueZPeripheral final : public StandardPeripheral {
public:
    BlueZPeripheral(std::shared_ptr<const RadioContext> context, std::weak_ptr<BlueZCentral> central,
                    const DeviceAddress& address, std::vector<CBUUID> foundWith)
        : context_(std::move(context)),
          central_(std::move(central)),
          address_(address),
          foundWith_(std::move(foundWith)) {}

    const DeviceAddress& address() const { return address_; }
    std::string addressText() const override { return textOf(address_); }

    // Sightings

    /// The name that the device advertises; nothing while it is not known.
    const std::optional<std::string>& advertisedName() const { return advertisedName_; }
    /// The service shows a name that it has not signalled: it was heard in an earlier life, or has been read
    /// over a connection.
    void rememberName(std::string_view name);
    /// When it was last heard, on the monotonic clock.
    std::optional<std::chrono::nanoseconds> lastHeard() const { return lastHeard_; }
    void noteHeard(std::chrono::nanoseconds moment) { lastHeard_ = moment; }
    /// With which service filter it was found first: with it, it is found again.
    const std::vector<CBUUID>& foundWith() const { return foundWith_; }
    /// What was heard of the device before its name was.
    struct Unnamed {
        NSNumber rssi;
        std::vector<std::pair<CBUUID, std::vector<std::uint8_t>>> serviceData;
    };
    void keepUntilNamed(std::span<const CBServiceData> serviceData, NSNumber rssi);
    bool isNameAwaited() const { return unnamed_.has_value(); }
    /// What was kept, which it is not any more.
    std::optional<Unnamed> takeUnnamed() { return std::exchange(unnamed_, std::nullopt); }

    // What the central does

    /// The adapter or the service is gone.
    /// @param serviceMayGoOn whether it may be only our connection to the service that is lost.
    void radioIsLost(bool serviceMayGoOn);

    bool isWaiting() const { return phase_ == Phase::waiting; }
    /// True while an attempt is made or a link is up.
    bool isBusy() const { return phase_ != Phase::idle && phase_ != Phase::waiting; }

    // What the attempts do

    void takeTurn();
    void attemptWasGivenUp();

    // What the service and the controller tell

    void deviceDidAppear();
    void deviceDidChange(const Device& device, const DeviceChange& change);
    void deviceDidVanish();
    void linkEndWasTold(const LinkEnd& end);
    void characteristicDidChange(std::string_view path, std::span<const std::uint8_t> value);
    /// The controller may have told how the link has ended.
    void lookForLinkEnd();

protected:
    void beginAttempt() override;
    void dropConnection() override;
    void endLink() override;
    Outcome listServices(UUIDs& table) override;
    Outcome listCharacteristics(std::size_t service, UUIDs& table) override;
    void read(GATTPlace place, ReadCompletion completion) override;
    void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
               Completion completion) override;
    void setNotify(GATTPlace place, bool enabled, Completion completion) override;
    void readSignalStrength(RSSICompletion completion) override;

private:
    enum class Phase : std::uint8_t {
        idle,
        /// For the device to be heard, and for its turn.
        waiting,
        /// It is tried to bring the link up.
        connecting,
        /// The link is up, and the service reads the table of the peripheral.
        resolving,
        linked,
        /// The application has asked for the end of the link, which takes the service two seconds.
        ending,
        /// The link is down, and the reason is waited for, for a moment.
        lost,
    };

    std::shared_ptr<BlueZPeripheral> self() {
        return std::static_pointer_cast<BlueZPeripheral>(shared_from_this());
    }
    /// Null while the service has no such device.
    Device* device() const;
    void hearName(std::string_view name);
    void enter(Phase phase);
    void after(double seconds, void (BlueZPeripheral::*action)());

    void waitForTurn();
    void connectWasAnswered(const BusError* error);
    void linkIsUp(const Device& device);
    void readTable();
    void tableWasRead(std::vector<RemoteService> table);
    void resolvingTookTooLong();
    void failAttempt(const std::string& why);
    void fail(const std::string& why);
    void disconnect();
    void disconnectWasAnswered();
    void disconnectingIsOver();
    void leaveTurn();

    void linkIsDown();
    void tellLostLink();
    std::optional<LinkEnd> knownLinkEnd();
    void endTookTooLong();
    void releaseLink();
    void tellEnd(const Outcome& error);

    /// Calls an operation of a GATT object. `answered` is called once, unless the link ends before.
    void operate(const std::string& path, const char* member, const std::function<void(Message&)>& append,
                 std::function<void(MessageReader&, const BusError*)> answered);
    /// A failure is told, or the end of the link that is its cause.
    void failOperation(GATTOperation operation, const BusError& error, const Completion& completion);
    const std::string& pathOf(GATTPlace place) const;
    std::optional<GATTPlace> placeOf(std::string_view path) const;
    void tellHeldValues(ExceptionKeeper& exceptions);

    std::shared_ptr<const RadioContext> context_;
    std::weak_ptr<BlueZCentral> central_;
    DeviceAddress address_;
    std::vector<CBUUID> foundWith_;
    std::optional<std::string> advertisedName_;
    bool isNameHeard_ = false;
    std::optional<Unnamed> unnamed_;
    std::optional<std::chrono::nanoseconds> lastHeard_;

    Phase phase_ = Phase::idle;
    int failures_ = 0;
    std::chrono::nanoseconds lastFailure_{};
    /// The service has been asked for the end of the link, and there was no news of it yet.
    bool isDisconnecting_ = false;
    /// The connection to the service was lost over a link, which the service may have kept.
    bool isLeftBehind_ = false;
    std::optional<LinkEnd> toldLinkEnd_;
    std::shared_ptr<NSTimer> phaseTimer_;
    std::shared_ptr<NSTimer> tableTimer_;
    Slot phaseCall_;
    Slot disconnectCall_;

    std::vector<RemoteService> table_;
    std::shared_ptr<NSTimer> operationTimer_;
    Slot operationCall_;
    // The characteristic that is being read, and the values that the service signalled meanwhile.
    std::string readPath_;
    // The characteristic for which a subscription is on its way.
    std::string subscribingPath_;
    std::vector<Bytes> heldValues_;
};

}  // namespace zobi::platform::bluez
