#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSCoder.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/NSNumber.h"

class ZOKBeacon;
class ZOKManager;

/// Called with the manager, the beacon's record, and the error: null on success. On the main thread, from
/// inside the run loop.
///
/// A record keeps its two completions after the call, and they are called again at the next connection or
/// disconnection. A completion that captures a `std::shared_ptr` to its own record is a reference cycle, and
/// neither is ever released: capture a `std::weak_ptr`.
using ZOKBeaconCompletion = std::function<void(
    const std::shared_ptr<ZOKManager>&, const std::shared_ptr<ZOKBeacon>&, const zobi::platform::NSError*)>;

/// A reading of the accelerometer: the raw value of each axis, without a unit, as it came over the air.
struct ZOKAccelerometerAxes {
    /// X axis: characteristic FFA2, 0 to 65535.
    std::int64_t axisX = 0;
    /// Y axis: characteristic FFA3, 0 to 65535.
    std::int64_t axisY = 0;
    /// Z axis: characteristic FFA4, 0 to 65535.
    std::int64_t axisZ = 0;

    /// Equal when all three axes are.
    friend bool operator==(const ZOKAccelerometerAxes&, const ZOKAccelerometerAxes&) = default;
};

/// The record of one beacon: everything known about it.
///
/// The decoder makes a record from each advertisement, and the manager keeps one for each beacon in range.
/// The application receives the records that the manager keeps, not copies of them. A record is always held
/// by `std::shared_ptr`, and is equal only to itself; two records describe the same beacon when their `major`
/// and `minor` are equal.
///
/// Main thread only.
class ZOBI_EXPORT ZOKBeacon {
public:
    /// A record without values: numbers and texts are absent, `timestamp`, `rssi` and the axes are 0.
    ZOKBeacon();
    virtual ~ZOKBeacon() = default;
    ZOKBeacon(const ZOKBeacon&) = delete;
    ZOKBeacon& operator=(const ZOKBeacon&) = delete;

    /// Makes a new record with the `firmwareVersion`, `major` and `minor` of this one, and nothing else: the
    /// same three values that an archive holds. A subclass overrides it to make a record of its own class,
    /// which it fills with `copyInto`.
    virtual std::shared_ptr<ZOKBeacon> copy() const;

    /// Writes `firmwareVersion`, `major` and `minor` to an archive, in this order, under the keys of these
    /// names. An override calls this one first and may then write keys of its own.
    /// @throws std::invalid_argument when the firmware version is not UTF-8, or when `coder` has one of the
    ///     keys already.
    virtual void encodeWithCoder(zobi::platform::NSCoder& coder) const;

    /// Reads what `encodeWithCoder` wrote into this record. A key that the archive does not have makes the
    /// value absent. If it throws, the record is unchanged.
    /// @throws std::invalid_argument when the value under one of the three keys is of another type.
    virtual void initWithCoder(const zobi::platform::NSCoder& coder);

    /// One line for a log: MAC address, major, minor, layout version, battery level, temperature and button
    /// action, with "(null)" for what is absent.
    std::string description() const;

    /// The Bluetooth device that sent the advertisement from which the manager made this record. Null in any
    /// other record.
    const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral() const { return peripheral_; }
    /// Sets `peripheral`.
    void setPeripheral(std::shared_ptr<zobi::platform::CBPeripheral> peripheral) {
        peripheral_ = std::move(peripheral);
    }

    /// The firmware revision, UTF-8, as last read over a connection (Device Information 180A, Firmware
    /// Revision 2A26), up to the first zero byte. Absent until it is read, and after a read that did not give
    /// UTF-8.
    const std::optional<std::string>& firmwareVersion() const { return firmwareVersion_; }
    /// Sets `firmwareVersion`.
    void setFirmwareVersion(std::optional<std::string> version) { firmwareVersion_ = std::move(version); }

    /// First half of the beacon's identity, 0 to 65535: bytes 7 and 8 of the advertised payload, big-endian.
    zobi::platform::NSNumber major() const { return major_; }
    /// Sets `major`.
    void setMajor(zobi::platform::NSNumber major) { major_ = major; }

    /// Second half of the beacon's identity, 0 to 65535: bytes 9 and 10 of the advertised payload,
    /// big-endian.
    zobi::platform::NSNumber minor() const { return minor_; }
    /// Sets `minor`.
    void setMinor(zobi::platform::NSNumber minor) { minor_ = minor; }

    /// For the application's own use: the library neither reads nor writes it. A signal strength that was
    /// read over a connection is posted as `ZOKBeaconDidRSSIChangeNotification`.
    std::int64_t rssi() const { return rssi_; }
    /// Sets `rssi`.
    void setRssi(std::int64_t rssi) { rssi_ = rssi; }

    /// For the application's own use: the library neither reads nor writes it. A level that arrives over a
    /// connection goes to the delegate; an advertised one is in `advertBatteryLevel`.
    zobi::platform::NSNumber batteryLevel() const { return batteryLevel_; }
    /// Sets `batteryLevel`.
    void setBatteryLevel(zobi::platform::NSNumber level) { batteryLevel_ = level; }

    /// The MAC address as 12 upper-case hexadecimal digits, most significant byte first: bytes 0 to 5 of the
    /// advertised payload, where the least significant byte comes first. Absent in a record that was not
    /// decoded from a payload.
    const std::optional<std::string>& macAddress() const { return macAddress_; }
    /// Sets `macAddress`.
    void setMacAddress(std::optional<std::string> address) { macAddress_ = std::move(address); }

    /// The advertised battery level, 0 to 255, meant as percent: byte 12 of the payload; 0 in the short
    /// layout. In a live record it stays as it was when the beacon was first seen.
    zobi::platform::NSNumber advertBatteryLevel() const { return advertBatteryLevel_; }
    /// Sets `advertBatteryLevel`.
    void setAdvertBatteryLevel(zobi::platform::NSNumber level) { advertBatteryLevel_ = level; }

    /// The advertised code of the button action, -128 to 127; only 1, 2 and 3 are actions. Byte 15 of the
    /// payload in layout version 3, byte 13 in version 2; 0 in the short layout, absent in other versions. In
    /// a live record it stays as it was when the beacon was first seen.
    zobi::platform::NSNumber advertAction() const { return advertAction_; }
    /// Sets `advertAction`.
    void setAdvertAction(zobi::platform::NSNumber action) { advertAction_ = action; }

    /// The layout version of the advertised payload, -128 to 127: byte 11, signed; 1 in the short layout.
    zobi::platform::NSNumber scanRspVersion() const { return scanRspVersion_; }
    /// Sets `scanRspVersion`.
    void setScanRspVersion(zobi::platform::NSNumber version) { scanRspVersion_ = version; }

    /// The advertised temperature in degrees Celsius, -4 to 65531: bytes 13 and 14 of the payload,
    /// big-endian, minus 4. Only layout version 3 has it; absent in others. In a live record it stays as it
    /// was when the beacon was first seen.
    zobi::platform::NSNumber temperature() const { return temperature_; }
    /// Sets `temperature`.
    void setTemperature(zobi::platform::NSNumber temperature) { temperature_ = temperature; }

    /// When the beacon was last heard, or found connected by the check every 10 s: whole seconds since
    /// 1970-01-01 UTC. 0 in a new record, and from a request to connect until the link is up or the beacon is
    /// heard again.
    std::int64_t timestamp() const { return timestamp_; }
    /// Sets `timestamp`. A record with 0 or less never expires.
    void setTimestamp(std::int64_t timestamp) { timestamp_ = timestamp; }

    /// The values of the accelerometer that arrived last over a connection (service FFA0, characteristics
    /// FFA2 to FFA4, two bytes each, big-endian), each axis 0 to 65535; all 0 at first.
    ZOKAccelerometerAxes accelerometer() const { return accelerometer_; }
    /// Sets `accelerometer`.
    void setAccelerometer(ZOKAccelerometerAxes axes) { accelerometer_ = axes; }

    /// Called when the beacon is connected, again after each reconnection, and when an attempt has failed;
    /// may be empty.
    const ZOKBeaconCompletion& connectionCompletionBlock() const { return connectionCompletionBlock_; }
    /// Sets `connectionCompletionBlock`.
    void setConnectionCompletionBlock(ZOKBeaconCompletion block) {
        connectionCompletionBlock_ = std::move(block);
    }

    /// Called at each end of a connection or of a cancelled attempt, whoever ended it; may be empty. The
    /// error is null when this application asked for the end.
    const ZOKBeaconCompletion& disconnectionCompletionBlock() const { return disconnectionCompletionBlock_; }
    /// Sets `disconnectionCompletionBlock`.
    void setDisconnectionCompletionBlock(ZOKBeaconCompletion block) {
        disconnectionCompletionBlock_ = std::move(block);
    }

protected:
    /// Copies `firmwareVersion`, `major` and `minor` to `copy`.
    void copyInto(ZOKBeacon& copy) const;

private:
    // Writes the address in place.
    friend class ZOKProtocolUtils;

    // Destroyed in reverse order: the completions first, the peripheral last.
    std::shared_ptr<zobi::platform::CBPeripheral> peripheral_;
    std::optional<std::string> firmwareVersion_;
    zobi::platform::NSNumber major_;
    zobi::platform::NSNumber minor_;
    std::int64_t rssi_ = 0;
    zobi::platform::NSNumber batteryLevel_;
    std::optional<std::string> macAddress_;
    zobi::platform::NSNumber advertBatteryLevel_;
    zobi::platform::NSNumber advertAction_;
    zobi::platform::NSNumber scanRspVersion_;
    zobi::platform::NSNumber temperature_;
    std::int64_t timestamp_ = 0;
    ZOKAccelerometerAxes accelerometer_;
    ZOKBeaconCompletion connectionCompletionBlock_;
    ZOKBeaconCompletion disconnectionCompletionBlock_;
};
