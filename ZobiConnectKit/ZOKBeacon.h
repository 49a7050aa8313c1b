#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/CBPeripheral.h"
#include "platform/Export.h"
#include "platform/NSCoder.h"
#include "platform/NSError.h"
#include "platform/NSNumber.h"

class ZOKBeacon;
class ZOKManager;

/// Called with the manager, the record concerned, and an error, null on success.
///
/// A record keeps its two completions after they were called. A completion that captures its own record is a
/// cycle, and neither is ever released: capture a `std::weak_ptr` instead.
using ZOKBeaconCompletion = std::function<void(const std::shared_ptr<ZOKManager>&,
                                               const std::shared_ptr<ZOKBeacon>&, const platform::NSError*)>;

/// A reading of the accelerometer, as raw values of its three axes.
struct ZOKAccelerometerAxes {
    std::int64_t axisX = 0;
    std::int64_t axisY = 0;
    std::int64_t axisZ = 0;

    friend bool operator==(const ZOKAccelerometerAxes&, const ZOKAccelerometerAxes&) = default;
};

/// Everything known about one beacon: a mutable holder of values without behaviour of its own.
///
/// The decoder makes a record for each advertisement, and the manager keeps one for each beacon in range. The
/// application receives the very records that the manager keeps, never copies. Records are counted objects,
/// always held by `std::shared_ptr`, and equal only when they are the same object; two records stand for the
/// same beacon when their `major` and `minor` are equal.
///
/// Main thread only.
class ZOK_EXPORT ZOKBeacon {
public:
    ZOKBeacon();
    virtual ~ZOKBeacon() = default;
    ZOKBeacon(const ZOKBeacon&) = delete;
    ZOKBeacon& operator=(const ZOKBeacon&) = delete;

    /// A new record of the receiver's own class that carries `firmwareVersion`, `major` and `minor`, and
    /// nothing else: just what an archive carries. A subclass overrides it, makes a record of its own class,
    /// and calls `copyInto`.
    virtual std::shared_ptr<ZOKBeacon> copy() const;

    /// Writes `firmwareVersion`, `major` and `minor`, in this order, under their own names. A subclass that
    /// overrides it calls it, and may then write keys of its own.
    /// @throws std::invalid_argument when the firmware version is not UTF-8.
    virtual void encodeWithCoder(platform::NSCoder& coder) const;

    /// Fills a new record with what `encodeWithCoder` wrote. When it throws, the record is as it was.
    /// @throws std::invalid_argument when the archive has something else under one of the names.
    virtual void initWithCoder(const platform::NSCoder& coder);

    /// One line that tells what the last advertisement told.
    std::string description() const;

    /// The device on the air that the record stands for: that of the advertisement which made it. Null in a
    /// record that was not made by one.
    const std::shared_ptr<platform::CBPeripheral>& peripheral() const { return peripheral_; }
    void setPeripheral(std::shared_ptr<platform::CBPeripheral> peripheral) {
        peripheral_ = std::move(peripheral);
    }

    /// The firmware revision; absent until it was read over a connection (Device Information service 180A,
    /// characteristic 2A26, UTF-8), and again when what was read is not UTF-8.
    const std::optional<std::string>& firmwareVersion() const { return firmwareVersion_; }
    void setFirmwareVersion(std::optional<std::string> version) { firmwareVersion_ = std::move(version); }

    /// First half of the beacon's identity, 0 to 65535: bytes 7 and 8 of the advertised payload, big-endian.
    platform::NSNumber major() const { return major_; }
    void setMajor(platform::NSNumber major) { major_ = major; }

    /// Second half of the beacon's identity, 0 to 65535: bytes 9 and 10 of the advertised payload,
    /// big-endian.
    platform::NSNumber minor() const { return minor_; }
    void setMinor(platform::NSNumber minor) { minor_ = minor; }

    /// For the application's own use: the library neither reads nor writes it.
    std::int64_t rssi() const { return rssi_; }
    void setRssi(std::int64_t rssi) { rssi_ = rssi; }

    /// For the application's own use: the library neither reads nor writes it. A level read over a connection
    /// goes to the delegate, an advertised one is `advertBatteryLevel`.
    platform::NSNumber batteryLevel() const { return batteryLevel_; }
    void setBatteryLevel(platform::NSNumber level) { batteryLevel_ = level; }

    /// The MAC address as 12 upper-case hexadecimal digits, most significant byte first: bytes 0 to 5 of the
    /// advertised payload, where the least significant byte comes first.
    const std::optional<std::string>& macAddress() const { return macAddress_; }
    void setMacAddress(std::optional<std::string> address) { macAddress_ = std::move(address); }

    /// The battery level, 0 to 255: byte 12 of the advertised payload; 0 in the short layout. In a live
    /// record it stays as it was when the beacon was first seen.
    platform::NSNumber advertBatteryLevel() const { return advertBatteryLevel_; }
    void setAdvertBatteryLevel(platform::NSNumber level) { advertBatteryLevel_ = level; }

    /// The code of the button action, -128 to 127, of which 1 to 3 are actions: byte 15 of the advertised
    /// payload in layout version 3, byte 13 in version 2; 0 in the short layout, absent in any other. In a
    /// live record it stays as it was when the beacon was first seen.
    platform::NSNumber advertAction() const { return advertAction_; }
    void setAdvertAction(platform::NSNumber action) { advertAction_ = action; }

    /// The layout version of the advertised payload, -128 to 127: its byte 11, signed; 1 in the short layout.
    platform::NSNumber scanRspVersion() const { return scanRspVersion_; }
    void setScanRspVersion(platform::NSNumber version) { scanRspVersion_ = version; }

    /// The temperature in degrees Celsius, -4 to 65531: bytes 13 and 14 of the advertised payload,
    /// big-endian, less 4. Layout version 3 only, otherwise absent. In a live record it stays as it was when
    /// the beacon was first seen.
    platform::NSNumber temperature() const { return temperature_; }
    void setTemperature(platform::NSNumber temperature) { temperature_ = temperature; }

    /// When the beacon was last seen or touched: whole seconds since 1970-01-01 UTC. 0 when never, and from a
    /// request for a connection until the link is up or the beacon is heard again.
    std::int64_t timestamp() const { return timestamp_; }
    void setTimestamp(std::int64_t timestamp) { timestamp_ = timestamp; }

    /// The last accelerometer reading notified over a connection (service FFA0, characteristics FFA2 to FFA4,
    /// big-endian), each axis 0 to 65535; all zero at first.
    ZOKAccelerometerAxes accelerometer() const { return accelerometer_; }
    void setAccelerometer(ZOKAccelerometerAxes axes) { accelerometer_ = axes; }

    /// Called when a requested connection is complete, or has failed; may be empty.
    const ZOKBeaconCompletion& connectionCompletionBlock() const { return connectionCompletionBlock_; }
    void setConnectionCompletionBlock(ZOKBeaconCompletion block) {
        connectionCompletionBlock_ = std::move(block);
    }

    /// Called at every end of a connection; may be empty.
    const ZOKBeaconCompletion& disconnectionCompletionBlock() const { return disconnectionCompletionBlock_; }
    void setDisconnectionCompletionBlock(ZOKBeaconCompletion block) {
        disconnectionCompletionBlock_ = std::move(block);
    }

protected:
    /// Gives `copy` what a copy carries.
    void copyInto(ZOKBeacon& copy) const;

private:
    // Writes the address in place.
    friend class ZOKProtocolUtils;

    // Released in reverse order: the completions first, the peripheral last.
    std::shared_ptr<platform::CBPeripheral> peripheral_;
    std::optional<std::string> firmwareVersion_;
    platform::NSNumber major_;
    platform::NSNumber minor_;
    std::int64_t rssi_ = 0;
    platform::NSNumber batteryLevel_;
    std::optional<std::string> macAddress_;
    platform::NSNumber advertBatteryLevel_;
    platform::NSNumber advertAction_;
    platform::NSNumber scanRspVersion_;
    platform::NSNumber temperature_;
    std::int64_t timestamp_ = 0;
    ZOKAccelerometerAxes accelerometer_;
    ZOKBeaconCompletion connectionCompletionBlock_;
    ZOKBeaconCompletion disconnectionCompletionBlock_;
};
