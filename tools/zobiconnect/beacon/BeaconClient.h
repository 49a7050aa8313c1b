#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "tools/zobiconnect/monitor/Sightings.h"

namespace zobi::tool {

/// What a connected beacon tells.
enum class Quantity : std::uint8_t {
    batteryLevel,
    temperature,
    axisX,
    axisY,
    axisZ,
    buttonAction,
    buttonMode,
    firmwareVersion,
    signalStrength,
};

/// By the numbers of the quantities.
inline constexpr auto quantityNames =
    std::to_array<std::string_view>({"batteryLevel", "temperature", "axisX", "axisY", "axisZ", "buttonAction",
                                     "buttonMode", "firmwareVersion", "signalStrength"});

constexpr std::string_view nameOf(Quantity quantity) {
    return quantityNames[static_cast<std::size_t>(quantity)];
}

/// A number or a text.
using Value = platform::NSUserInfo::Value;

/// Something that happened between a client and its beacon.
struct BeaconEvent {
    enum class Kind : std::uint8_t {
        /// Bluetooth has another state.
        bluetooth,
        /// The beacon was heard, or its link was lost, and a connection is asked for.
        connecting,
        connected,
        /// An attempt to connect has failed.
        failed,
        /// The link has ended: nothing was heard of the beacon for too long.
        lost,
        /// The link has ended in another way.
        ended,
        /// A value has arrived.
        value,
        /// A second has passed.
        second,
    };

    Kind kind = Kind::second;
    /// Why an attempt failed or a link ended; null for an end that was asked for. Valid for the length of the
    /// call.
    const platform::NSError* error = nullptr;
    /// What has arrived.
    std::optional<Quantity> quantity = std::nullopt;
};

/// An application on the shared manager that is about one beacon: it monitors until it hears the beacon,
/// connects to it, and keeps the latest of each value that arrives. When an attempt has failed or the link
/// has ended, it connects again as soon as the beacon is heard again.
///
/// Each event stops the platform's run loop, so that whoever runs it can see how things stand and run it
/// again.
class BeaconClient final : public ZOKManagerDelegate, public std::enable_shared_from_this<BeaconClient> {
public:
    enum class Link : std::uint8_t { none, connecting, connected };

    using Observer = std::function<void(const BeaconEvent&)>;

    /// @param platform the process's own.
    BeaconClient(platform::Platform& platform, BeaconIdentity identity);

    /// Who is told of each event, before the run loop stops.
    void setObserver(Observer observer) { observer_ = std::move(observer); }

    /// Becomes the manager's delegate. What happens then happens in the run loop.
    void start();

    /// Ends monitoring, and asks for the end of the link or of the attempt at one.
    void end();

    /// As in "beacon 1.7".
    std::string name() const;
    int bluetoothState() const { return bluetoothState_; }
    bool isBluetoothOn() const;
    Link link() const { return link_; }
    /// Why the last attempt failed or the last link ended; absent while connected.
    const std::optional<std::string>& ending() const { return ending_; }
    /// Why there is no connection.
    std::string obstacle() const;

    /// The record that was connected last; null before the first attempt. It stays when a beacon of the same
    /// numbers turns up.
    const std::shared_ptr<ZOKBeacon>& beacon() const { return beacon_; }

    /// Whether the characteristic was found: commands about one that was not do nothing.
    bool has(const platform::CBUUID& characteristic, const platform::CBUUID& service) const;
    /// The characteristics that the library uses and that were not found.
    std::vector<std::string> missingCharacteristics() const;

    /// Absent before the first arrival.
    const std::optional<Value>& latest(Quantity quantity) const {
        return latest_[static_cast<std::size_t>(quantity)];
    }

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override;
    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& manager,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override;
    void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& manager,
                                              const std::shared_ptr<ZOKBeacon>& beacon) override;
    void zobiConnectManagerDidBeaconDisconnectedWithError(const std::shared_ptr<ZOKManager>& manager,
                                                          const std::shared_ptr<ZOKBeacon>& beacon,
                                                          const platform::NSError* error) override;
    void zobiConnectManagerDidBatteryValueChangedForBeacon(const std::shared_ptr<ZOKManager>& manager,
                                                           int level,
                                                           const std::shared_ptr<ZOKBeacon>& beacon) override;
    void zobiConnectManagerDidButtonActionChangedForBeacon(const std::shared_ptr<ZOKManager>& manager,
                                                           int action,
                                                           const std::shared_ptr<ZOKBeacon>& beacon) override;

private:
    void observe(std::string_view notification, Quantity quantity);
    void connect(ZOKManager& manager, const std::shared_ptr<ZOKBeacon>& beacon);
    void becomeConnected();
    /// Whether each service that was found has told its characteristics.
    bool isDiscovered() const;
    bool isOfSamePeripheral(const ZOKBeacon& beacon) const;
    void attemptFailed(const platform::NSError& error);
    void valueArrived(Quantity quantity, Value value, const void* beacon);
    void tell(const BeaconEvent& event);

    platform::Platform& platform_;
    BeaconIdentity identity_;
    Observer observer_;
    int bluetoothState_ = 0;
    Link link_ = Link::none;
    // The library has reported the connection that is being made.
    bool isReported_ = false;
    std::optional<std::string> ending_;
    std::shared_ptr<ZOKBeacon> beacon_;
    // The record's time stamp when there was a link last, or an attempt at one.
    std::int64_t lastHeard_ = 0;
    std::array<std::optional<Value>, quantityNames.size()> latest_;
};

}  // namespace zobi::tool
