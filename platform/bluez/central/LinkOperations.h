#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/bus/TimedCall.h"
#include "platform/bluez/central/BlueZErrors.h"
#include "platform/bluez/central/CentralContext.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/standard/ExceptionKeeper.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::bluez {

/// The operations over a link, one at a time, and the values that come over it. Main thread only.
///
/// A completion is called once, unless the link ends before.
class LinkOperations {
public:
    using Outcome = StandardPeripheral::Outcome;
    using Completion = std::function<void(const Outcome&)>;
    using ReadCompletion = std::function<void(const Outcome&, std::span<const std::uint8_t> value)>;
    using RSSICompletion = std::function<void(const Outcome&, NSNumber rssi)>;

    /// @param peripheral has this object, and is told of the values.
    LinkOperations(StandardPeripheral& peripheral, const DeviceAddress& address,
                   std::weak_ptr<CentralContext> context)
        : peripheral_(peripheral), address_(address), context_(std::move(context)) {}

    /// The link is up, to a device with this GATT table.
    void begin(std::vector<RemoteService> table);
    /// The link is ending or down.
    void end();

    const std::vector<RemoteService>& table() const { return table_; }

    void read(GATTPlace place, ReadCompletion completion);
    void write(GATTPlace place, const std::vector<std::uint8_t>& value, CBCharacteristicWriteType type,
               Completion completion);
    void setNotify(GATTPlace place, bool enabled, Completion completion);
    void readSignalStrength(const RSSICompletion& completion);

    /// BlueZ has signalled a value, which was notified, or read by this or another program.
    void valueDidChange(std::string_view path, std::span<const std::uint8_t> value);

    /// BlueZ has signalled that nobody is subscribed any more. Renews the subscription, once; then tells that
    /// it has ended.
    void subscriptionDidEnd(const std::string& path);

private:
    const std::string& pathOf(GATTPlace place) const;
    std::optional<GATTPlace> placeOf(std::string_view path) const;
    void loseSubscription(const std::string& path, const NSError& error);
    void operate(const std::string& path, const char* member, const std::function<void(Message&)>& append,
                 Bus::Answer answer);
    /// Tells a failure, unless the end of the link comes first, which may be its cause.
    void fail(GATTOperation operation, const BusError& error, const Completion& completion);
    void tellHeldValues(ExceptionKeeper& exceptions);

    StandardPeripheral& peripheral_;
    DeviceAddress address_;
    std::weak_ptr<CentralContext> context_;
    std::vector<RemoteService> table_;
    TimedCall call_;
    std::shared_ptr<NSTimer> timer_;
    /// The characteristic that is being read, and the values of it that BlueZ has signalled meanwhile.
    std::string readPath_;
    std::vector<Bytes> heldValues_;
    /// The paths of the characteristics for which BlueZ was asked to subscribe.
    std::set<std::string> subscribed_;
    /// Those for which it has, and the attempt to renew the subscription, if there was one.
    std::map<std::string, std::optional<TimedCall>> notifying_;
};

}  // namespace zobi::platform::bluez
