#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "platform/CBCentralManager.h"
#include "platform/CBPeripheral.h"
#include "platform/CBUUID.h"
#include "platform/Export.h"
#include "platform/NSTimer.h"
#include "platform/Platform.h"

class ZOKManagerDelegate;

/// Scans for beacons and tells its delegate what it finds: the one object through which an application uses
/// the library.
///
/// An application obtains the manager, becomes its delegate, waits until Bluetooth is powered on, starts
/// monitoring, and runs the platform's loop:
///
///     auto manager = ZOKManager::shared();
///     auto delegate = std::make_shared<MyDelegate>();   // the manager does not keep it alive
///     manager->setDelegate(delegate);
///     platform::Platform::current().runLoop().run();    // MyDelegate starts monitoring at state 5
///
/// Everything runs on the main thread, which is the thread that runs the loop: every callback is made there,
/// and every operation is called there. Only `shared` is safe from any thread.
///
/// Nothing here returns an error, and nothing throws on purpose. A payload that is too short for its layout
/// leaves through the discovery event, as `platform::DataRangeError`, to the radio that delivered it. An
/// exception thrown by the delegate leaves through whatever runs the loop.
class ZOK_EXPORT ZOKManager final : public platform::CBCentralManagerDelegate,
                                    public platform::CBPeripheralDelegate,
                                    public std::enable_shared_from_this<ZOKManager> {
public:
    /// The process's one manager, on `platform::Platform::current()`; made by the first call, never
    /// destroyed. Safe from any thread.
    static const std::shared_ptr<ZOKManager>& shared();

    /// A manager of its own, which uses `platform` alone. The platform must outlive it, and holds it until
    /// the platform dies.
    static std::shared_ptr<ZOKManager> managerOnPlatform(platform::Platform& platform);

    ZOKManager(const ZOKManager&) = delete;
    ZOKManager& operator=(const ZOKManager&) = delete;

    // Monitoring

    /// Starts monitoring: restarts the two ranging timers (the report each 1 s, the expiry check each 10 s),
    /// then calls `startMonitoringWithAllowDuplicate`, with true if the application is active.
    ///
    /// The ranging timers start anew, and with them their phase, even if the scan then does not start.
    void startMonitoring();

    /// Starts a scan for beacons, and the timer that restarts it after 30 s, unless it is monitoring already
    /// or Bluetooth is not powered on; then it only logs why not, and nothing tries again later. The scan
    /// itself starts in a later turn of the loop.
    /// @param allowDuplicate true to hear every advertisement; false to hear of each beacon once per scan. As
    ///     silent beacons are dropped, the live beacons then run empty after 20 to 30 s: so it is in the
    ///     background.
    void startMonitoringWithAllowDuplicate(bool allowDuplicate);

    /// Ends the scan and the three timers. The live beacons stay. Harmless when not monitoring.
    void stopMonitoring();

    /// True from the start of a scan to its end. When Bluetooth is turned off it stays true until
    /// monitoring is stopped, or its restart after 30 s is refused.
    bool isMonitoring() const { return monitoring_; }

    // Connection

    /// Asks for a connection to a beacon. The record's `timestamp` becomes 0, and the record joins the live
    /// beacons, where the 0 keeps it until the link is up or the beacon is heard again. A beacon that is
    /// heard while its attempt is pending, and then falls silent, expires like any other: the attempt goes
    /// on, but what comes of it is reported without a record or not at all. The 0 outlasts a failed attempt.
    ///
    /// When the link is up, and the beacon's seven services and their characteristics were asked for and the
    /// seven answers have come, the beacon is connected: `zobiConnectManagerDidBeaconConnected`, then
    /// `ZOKBeaconDidConnectNotification`, then the record's connection completion. When the link cannot be
    /// made, only the completion hears of it, with the error, and nothing tries again. A beacon that lacks a
    /// service is never reported connected, though its link is up: wait with a deadline.
    ///
    /// A link that is lost (error code 6) is asked for again at once, by this operation, without a limit and
    /// before the disconnection is reported. Answers are counted for the manager, not for each beacon:
    /// connect one beacon after the other, or of two that come up together one may go unreported.
    ///
    /// The record keeps the completion that it has, which is then called again. A peripheral that has a
    /// delegate already keeps it; the manager then hears nothing of its GATT events. A null record is
    /// ignored. A connected beacon may be connected again: it is reported once more.
    void connectBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The same, with a completion for the record to keep; an empty one takes away what the record has.
    void connectBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                     ZOKBeaconCompletion completion);

    /// Asks for the end of a connection, or of an attempt at one. When it has come:
    /// `zobiConnectManagerDidBeaconDisconnectedWithError`, then `ZOKBeaconDidDisconnectNotification`, then
    /// the record's disconnection completion. All of them are told of every other end, too, with the error
    /// that the radio gives for it. Harmless for a null record and one that is not connected.
    void disconnectBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The same, with a completion for the record to keep; an empty one takes away what the record has.
    void disconnectBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                        ZOKBeaconCompletion completion);

    /// The first discovered characteristic with the first UUID in a service with the second, of all services
    /// with that UUID, in the peripheral's order. Null if there is none, or no peripheral. The UUIDs of a
    /// beacon stand in `ZobiConnectKit/ZOKGATTProfile.h`.
    static std::shared_ptr<platform::CBCharacteristic> characteristicFromServiceAndPeripheral(
        const platform::CBUUID& characteristicUUID, const platform::CBUUID& serviceUUID,
        const std::shared_ptr<platform::CBPeripheral>& peripheral);

    // Commands to a connected beacon
    //
    // Each sends one request and waits for nothing. A beacon that is null, or on which the characteristic was
    // not found, is sent nothing; requests that fail are not reported: wait for an answer with a deadline.
    // The completions are never called. A read's answer, like a notified value, goes to the delegate, to the
    // notification centre, or both.

    /// Makes the beacon sound an alert: writes 01 to Alert Level (service 1802, characteristic 2A06), without
    /// response.
    void pingBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// Writes the low 8 bits of `mode` as one byte to the button mode (service F0002013-..., characteristic
    /// F000FF97-...), with response.
    void setButtonModeForBeacon(std::int32_t mode, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Reads the button mode, two bytes, big-endian, 0 to 65535: `ZOKBeaconButtonModeNotification`.
    void buttonModeForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                           const ZOKBeaconCompletion& completion);

    /// Reads the temperature (service FFF0, characteristic FFF2, two bytes, big-endian, 0 to 65535):
    /// `zobiConnectManagerDidTemperatureValueChangedForBeacon`, then
    /// `ZOKBeaconDidTemperatureChangeNotification`.
    void temperatureForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                            const ZOKBeaconCompletion& completion);

    /// Reads the firmware revision (service 180A, characteristic 2A26): the record's `firmwareVersion`, then
    /// `ZOKBeaconFirmwareVersionNotification`.
    void firmwareVersionForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                const ZOKBeaconCompletion& completion);

    /// Switches the notifications of the accelerometer's three axes on or off, of each that was found
    /// (service FFA0, characteristics FFA2, FFA3, FFA4, two bytes each, big-endian, 0 to 65535). Each value
    /// arrives as `ZOKBeaconDidAccelerometerAxisXChangeNotification`, or that of Y or Z, and then in the
    /// record's `accelerometer`.
    void setAccelerometerNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Switches the notifications of the battery level on or off (service 180F, characteristic 2A19):
    /// `zobiConnectManagerDidBatteryValueChangedForBeacon`.
    void setBatteryNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Switches the notifications of the temperature on or off: those of FFF2 in the configuration service
    /// F0002013-..., not in the temperature service. As connecting does not ask for FFF2 there, this has no
    /// effect, unless the application discovers it itself: read the temperature instead.
    void setTemperatureNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Switches the notifications of button actions on or off (service FFE0, characteristic FFE1):
    /// `zobiConnectManagerDidButtonActionChangedForBeacon`.
    void setButtonActionsNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    // Signal strength of a connection

    /// Reads it once: `ZOKBeaconDidRSSIChangeNotification`. Nothing happens unless the beacon is connected,
    /// and the completion is never called.
    void RSSIForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                     const ZOKBeaconCompletion& completion);

    /// Reads it each `interval` seconds, until `stopRSSIMonitoringForBeacon`: neither the end of the
    /// connection nor that of monitoring ends it, and while the beacon is not connected nothing is read. A
    /// beacon of the same major and minor that has it already keeps its timer, its interval and its record.
    /// The timer holds record and manager. The completion is never called.
    /// @param interval passed to the run loop as it is: 0.1 ms if it is not above 0.
    void startRSSIMonitoringForBeaconIntervalWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                            double interval,
                                                            const ZOKBeaconCompletion& completion);

    /// Ends the readings of the beacon with this major and minor. Harmless when there are none.
    void stopRSSIMonitoringForBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// Major and minor in decimal, as in "12_345": what a beacon's RSSI timer is found by. Absent for a null
    /// record.
    static std::optional<std::string> keyFromBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    // Live beacons

    /// Appends a record, not null, to the live beacons, unless that very object is among them. A record of
    /// equal major and minor does not count as the same.
    void addLiveBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The first live record of `peripheral`, or null. A null peripheral has none.
    std::shared_ptr<ZOKBeacon> beaconFromPeripheral(
        const std::shared_ptr<platform::CBPeripheral>& peripheral) const;

    // Fields

    /// The field behind `isMonitoring`. Setting it starts and stops nothing.
    bool monitoring() const { return monitoring_; }
    void setMonitoring(bool monitoring) { monitoring_ = monitoring; }

    /// Who is called back, or null. The manager does not own it: a delegate that only a temporary held is
    /// gone at once. It is held for the length of each call. `setDelegate({})` leaves none.
    std::shared_ptr<ZOKManagerDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<ZOKManagerDelegate> delegate) { delegate_ = std::move(delegate); }

    /// The platform's central manager, whose delegate the manager is. Never null but by `setCentralManager`.
    const std::shared_ptr<platform::CBCentralManager>& centralManager() const { return centralManager_; }
    void setCentralManager(std::shared_ptr<platform::CBCentralManager> central) {
        centralManager_ = std::move(central);
    }

    /// Restarts the scan, once, 30 s after its start. Null before the first start; a stopped or spent timer
    /// stays here until the next start replaces it.
    const std::shared_ptr<platform::NSTimer>& updateRestartMonitoringTimer() const {
        return updateRestartMonitoringTimer_;
    }
    void setUpdateRestartMonitoringTimer(std::shared_ptr<platform::NSTimer> timer) {
        updateRestartMonitoringTimer_ = std::move(timer);
    }

    /// Reports the live beacons each 1 s. Null before the first start, kept after a stop.
    const std::shared_ptr<platform::NSTimer>& updateRangedBeaconsTimer() const {
        return updateRangedBeaconsTimer_;
    }
    void setUpdateRangedBeaconsTimer(std::shared_ptr<platform::NSTimer> timer) {
        updateRangedBeaconsTimer_ = std::move(timer);
    }

    /// Drops silent beacons each 10 s. Null before the first start, kept after a stop.
    const std::shared_ptr<platform::NSTimer>& checkRangedBeaconsTimer() const {
        return checkRangedBeaconsTimer_;
    }
    void setCheckRangedBeaconsTimer(std::shared_ptr<platform::NSTimer> timer) {
        checkRangedBeaconsTimer_ = std::move(timer);
    }

    /// The records of the beacons in range, in the order in which they were first seen; none is null.
    const std::vector<std::shared_ptr<ZOKBeacon>>& liveBeacons() const { return liveBeacons_; }
    void setLiveBeacons(std::vector<std::shared_ptr<ZOKBeacon>> beacons) {
        liveBeacons_ = std::move(beacons);
    }

    /// How many answers to characteristic discoveries have come since the last link-up, of whatever
    /// peripheral.
    std::int64_t nbChars() const { return nbChars_; }
    void setNbChars(std::int64_t count) { nbChars_ = count; }

    /// The timers that read signal strengths, by beacon key.
    const std::map<std::string, std::shared_ptr<platform::NSTimer>>& rssiMonitoringTimersDic() const {
        return rssiMonitoringTimersDic_;
    }
    void setRssiMonitoringTimersDic(std::map<std::string, std::shared_ptr<platform::NSTimer>> timers) {
        rssiMonitoringTimersDic_ = std::move(timers);
    }

    // Events, called by the platform

    /// Logs the state of Bluetooth and passes it to the delegate. Neither starts nor stops anything.
    void centralManagerDidUpdateState(platform::CBCentralManager& central) override;

    /// Takes in an advertisement. One whose local name is exactly "morvane", and which has service data under
    /// Device Information (180A), is decoded; any other is ignored. An action of the button goes to the
    /// delegate, each time it is heard. A beacon that is live already only has its time stamp refreshed; one
    /// that is not joins the live beacons. The signal strength is not kept.
    /// @throws platform::DataRangeError for a payload that is too short for its layout.
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        platform::CBCentralManager& central, const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const platform::CBAdvertisementData& advertisementData, platform::NSNumber rssi) override;

    /// A link is up: stamps the record, sets `nbChars` to 0 and asks for the seven services.
    void centralManagerDidConnectPeripheral(
        platform::CBCentralManager& central,
        const std::shared_ptr<platform::CBPeripheral>& peripheral) override;

    /// Calls the record's connection completion, and nothing else.
    void centralManagerDidFailToConnectPeripheralError(
        platform::CBCentralManager& central, const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const platform::NSError* error) override;

    /// Connects again after error code 6 of any domain, then reports the end.
    void centralManagerDidDisconnectPeripheralError(platform::CBCentralManager& central,
                                                    const std::shared_ptr<platform::CBPeripheral>& peripheral,
                                                    const platform::NSError* error) override;

    /// Asks each service of the profile for its characteristics of the profile.
    void peripheralDidDiscoverServices(const std::shared_ptr<platform::CBPeripheral>& peripheral,
                                       const platform::NSError* error) override;

    /// Counts the answer, error or not. The seventh since the last link-up reports the peripheral's beacon
    /// connected.
    void peripheralDidDiscoverCharacteristicsForServiceError(
        const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const std::shared_ptr<platform::CBService>& service, const platform::NSError* error) override;

    /// Decodes a value and reports it: to the delegate, then as a notification, then with a line in the log
    /// (axes and button mode), and an axis then goes into the record; a firmware version goes there first. A
    /// value with an error is dropped. A value shorter than it should be has zero bytes in the missing
    /// places, after those it has were reversed; of a longer number the last two bytes count.
    void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const std::shared_ptr<platform::CBCharacteristic>& characteristic,
        const platform::NSError* error) override;

    /// Broadcasts the signal strength. The record's `rssi` stays as it is.
    void peripheralDidReadRSSIError(const std::shared_ptr<platform::CBPeripheral>& peripheral,
                                    platform::NSNumber rssi, const platform::NSError* error) override;

    /// Asks for one reading for the record that the timer has as its user info.
    void RSSITimerFired(const std::shared_ptr<platform::NSTimer>& timer);

    /// Hands the delegate a snapshot of the live beacons, empty or not.
    void updateRangedBeaconsTimerFired(const std::shared_ptr<platform::NSTimer>& timer);

    /// Drops the live beacons that are not connected and were last seen more than 20 s ago by the wall clock.
    /// A connected one is stamped instead; one with a time stamp of 0 or less stays.
    void checkRangedBeaconsTimerFired(const std::shared_ptr<platform::NSTimer>& timer);

    /// Stops the scan and starts it again with duplicates, if the application is active.
    void updateRestartMonitoringTimer(const std::shared_ptr<platform::NSTimer>& timer);

private:
    explicit ZOKManager(platform::Platform& platform);

    void init();
    void observeApplication();
    void restartMonitoringIfRunning();
    bool isApplicationActive() const;
    void reportButtonAction(const std::shared_ptr<ZOKBeacon>& beacon);
    bool refreshLiveBeacons(const ZOKBeacon& sighted);
    void connect(std::shared_ptr<ZOKBeacon> beacon, std::optional<ZOKBeaconCompletion> completion);
    void callCompletion(const ZOKBeaconCompletion& completion, const std::shared_ptr<ZOKBeacon>& beacon,
                        const platform::NSError* error);
    void post(std::string_view notification, const std::shared_ptr<ZOKBeacon>& beacon,
              platform::NSUserInfo userInfo = {});
    void reportConnected(const std::shared_ptr<ZOKBeacon>& beacon);
    void reportBattery(int level, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportButton(std::uint8_t code, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportTemperature(std::uint16_t temperature, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportAxis(std::size_t axis, std::uint16_t value, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportButtonMode(std::uint16_t mode, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportFirmware(std::span<const std::uint8_t> value, const std::shared_ptr<ZOKBeacon>& beacon);

    platform::Platform& platform_;
    // Released in reverse order. No timer is invalidated and no scan stopped on the way.
    bool monitoring_ = false;
    std::weak_ptr<ZOKManagerDelegate> delegate_;
    std::shared_ptr<platform::CBCentralManager> centralManager_;
    std::shared_ptr<platform::NSTimer> updateRestartMonitoringTimer_;
    std::shared_ptr<platform::NSTimer> updateRangedBeaconsTimer_;
    std::shared_ptr<platform::NSTimer> checkRangedBeaconsTimer_;
    std::vector<std::shared_ptr<ZOKBeacon>> liveBeacons_;
    std::int64_t nbChars_ = 0;
    std::map<std::string, std::shared_ptr<platform::NSTimer>> rssiMonitoringTimersDic_;
};
