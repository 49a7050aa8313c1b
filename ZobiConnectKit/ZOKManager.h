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
#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/Platform.h"

class ZOKManagerDelegate;

/// Scans for beacons and tells its delegate what it finds: the one object through which an application uses
/// the library.
///
/// An application makes a manager, becomes its delegate, starts monitoring each time that Bluetooth becomes
/// powered on, and runs the platform's loop:
///
///     #include "ZobiConnectKit/ZobiConnectKit.h"
///
///     struct MyDelegate : ZOKManagerDelegate {
///         void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
///                                                         int state) override {
///             zobi::monitorIfPoweredOn(*manager, state);
///         }
///     };
///
///     auto manager = ZOKManager::managerOnPlatform(platform);
///     auto delegate = std::make_shared<MyDelegate>();   // the manager does not keep it alive
///     manager->setDelegate(delegate);
///     platform.runLoop().run();
///     platform.shutDown();
///
/// Everything runs on the main thread, which is the thread that runs the loop: every callback is made there,
/// and every operation is called there. Only `shared` is safe from any thread. In a debug build of the
/// library an operation on another thread, once the loop has run, ends the process with the operation's name.
///
/// Nothing here returns an error, and nothing throws on purpose. A payload that is too short for its layout
/// leaves through the discovery event, as `zobi::platform::DataRangeError`, to the radio that delivered it.
/// An exception thrown by the delegate leaves through whatever runs the loop.
class ZOBI_EXPORT ZOKManager final : public zobi::platform::CBCentralManagerDelegate,
                                     public zobi::platform::CBPeripheralDelegate,
                                     public std::enable_shared_from_this<ZOKManager> {
public:
    /// The manager of the process, on `zobi::platform::Platform::current()`. Made by the first call, never
    /// destroyed. Safe from any thread.
    static const std::shared_ptr<ZOKManager>& shared();

    /// Makes another manager, which uses only `platform`. The platform must outlive it, and its notification
    /// center keeps the manager alive until the platform is destroyed.
    static std::shared_ptr<ZOKManager> managerOnPlatform(zobi::platform::Platform& platform);

    ZOKManager(const ZOKManager&) = delete;
    ZOKManager& operator=(const ZOKManager&) = delete;

    /// @name Monitoring
    /// @{

    /// Starts monitoring: restarts the two ranging timers (the report each 1 s, the expiry check each 10 s),
    /// then calls `startMonitoringWithAllowDuplicate`, with true if the application is active.
    ///
    /// The ranging timers start anew, and with them their phase, even if the scan then does not start.
    ///
    /// Call `zobi::monitorIfPoweredOn` when Bluetooth becomes powered on. `startMonitoring` alone starts no
    /// scan then if `isMonitoring` is still true from before Bluetooth was turned off. Nothing is heard, and
    /// beacons that are in range are dropped: until the restart of the scan, 30 s after the last one began,
    /// or, in the background, until the application becomes active.
    void startMonitoring();

    /// Starts a scan for beacons, and the timer that restarts it after 30 s, unless it is monitoring already
    /// or Bluetooth is not powered on; then it only logs why not, and nothing tries again later. The scan
    /// itself starts in a later turn of the loop.
    /// @param allowDuplicate true to hear every advertisement; false to hear of each beacon once per scan. As
    ///     silent beacons are dropped, the live beacons then run empty after 20 to 30 s: so it is in the
    ///     background.
    void startMonitoringWithAllowDuplicate(bool allowDuplicate);

    /// Ends the scan and the three timers. The live beacons stay. Harmless when not monitoring.
    ///
    /// Do not call it because Bluetooth was turned off: without the timers nothing is reported and no silent
    /// beacon is dropped until monitoring starts again, so the delegate never hears that the beacons left.
    void stopMonitoring();

    /// True from the start of monitoring to its end. When Bluetooth is turned off it stays true until
    /// `stopMonitoring`, or until the restart of the scan, 30 s after its start, is refused.
    bool isMonitoring() const { return monitoring_; }

    /// @}
    /// @name Connection
    /// @{

    /// Starts to connect to a beacon. The attempt waits, without a limit, until the beacon is heard; it ends
    /// when the link is up or has failed, or with `disconnectBeacon`.
    ///
    /// First the record's `timestamp` becomes 0 and the record is added to the live beacons, unless it is
    /// there; the 0 keeps it there until the link is up or the beacon is heard again, and also after a failed
    /// attempt. A beacon that is heard during the attempt, and then falls silent, expires like any other: the
    /// attempt goes on, but its outcome is reported without a record or not at all.
    ///
    /// When the link is up, the manager discovers the seven services of the profile, and in each its
    /// characteristics. After seven answers the beacon is connected. This is reported by
    /// `zobiConnectManagerDidBeaconConnected`, then `ZOKBeaconDidConnectNotification`, then the record's
    /// connection completion. A beacon that lacks a service is never reported connected, though its link is
    /// up: wait with a deadline. When the link could not be made, only the completion is called, with the
    /// error, and the manager does not try again.
    ///
    /// When a link is lost (error code 6), the manager calls this operation again before it reports the
    /// disconnection, as often as that happens. It counts answers over all peripherals: connect one beacon
    /// after the other, as of two whose discoveries overlap one may not be reported.
    ///
    /// The record keeps its completion, which is then called again. If the peripheral has a delegate already,
    /// that stays its delegate and the manager receives no GATT events. A null record is ignored. A beacon
    /// that is connected is reported connected once more.
    void connectBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The same, after storing `completion` as the record's connection completion; an empty one removes it.
    void connectBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                     ZOKBeaconCompletion completion);

    /// Ends a connection, or an attempt at one. The end is reported later, without an error, by
    /// `zobiConnectManagerDidBeaconDisconnectedWithError`, then `ZOKBeaconDidDisconnectNotification`, then
    /// the record's disconnection completion. Every other end of a link is reported by the same three, with
    /// the error of the radio. Does nothing for a null record, or one that is neither connected nor
    /// connecting.
    void disconnectBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The same, after storing `completion` as the record's disconnection completion; an empty one removes
    /// it.
    void disconnectBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                        ZOKBeaconCompletion completion);

    /// Finds a discovered characteristic by its UUID and that of its service: the first one, in the order of
    /// the peripheral, in any service of that UUID. Null if none was discovered, or `peripheral` is null. The
    /// UUIDs of a beacon are in `ZOKGATTProfile`.
    static std::shared_ptr<zobi::platform::CBCharacteristic> characteristicFromServiceAndPeripheral(
        const zobi::platform::CBUUID& characteristicUUID, const zobi::platform::CBUUID& serviceUUID,
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral);

    /// @}
    /// @name Commands to a connected beacon
    ///
    /// Each command sends one request and returns at once. It sends nothing if the beacon is null or if the
    /// characteristic was not discovered. A failed request is not reported: wait for the answer with a
    /// deadline. A value that was read arrives like a notified one, at the delegate, as a notification of the
    /// notification center, or both. The completions are never called.
    /// @{

    /// Makes the beacon sound an alert: writes 01 to Alert Level (service 1802, characteristic 2A06), without
    /// response.
    void pingBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// Writes the low 8 bits of `mode` as one byte to the button mode (service F0002013-..., characteristic
    /// F000FF97-...), with response.
    void setButtonModeForBeacon(std::int32_t mode, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Reads the button mode (two bytes, big-endian, 0 to 65535). It arrives as
    /// `ZOKBeaconButtonModeNotification`.
    void buttonModeForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                           const ZOKBeaconCompletion& completion);

    /// Reads the temperature (service FFF0, characteristic FFF2, two bytes, big-endian, 0 to 65535). It
    /// arrives by `zobiConnectManagerDidTemperatureValueChangedForBeacon`, then as
    /// `ZOKBeaconDidTemperatureChangeNotification`.
    void temperatureForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                            const ZOKBeaconCompletion& completion);

    /// Reads the firmware revision (Device Information 180A, Firmware Revision 2A26, UTF-8). It is stored in
    /// the record's `firmwareVersion`, then arrives as `ZOKBeaconFirmwareVersionNotification`; a value that
    /// is not UTF-8 is not notified.
    void firmwareVersionForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                const ZOKBeaconCompletion& completion);

    /// Subscribes to the three axes of the accelerometer, or unsubscribes: one request for each axis that was
    /// discovered (service FFA0, characteristics FFA2, FFA3, FFA4, two bytes each, big-endian, 0 to 65535).
    /// Each value arrives as `ZOKBeaconDidAccelerometerAxisXChangeNotification`, or that of Y or Z, and is
    /// then stored in the record's `accelerometer`.
    void setAccelerometerNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Subscribes to the battery level, or unsubscribes (Battery Service 180F, Battery Level 2A19). A value
    /// arrives by `zobiConnectManagerDidBatteryValueChangedForBeacon`.
    void setBatteryNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Subscribes to characteristic FFF2 of the configuration service F0002013-..., or unsubscribes; not of
    /// the temperature service. As `connectBeacon` does not discover FFF2 there, this has no effect unless
    /// the application discovers it: use `temperatureForBeaconWithCompletion`.
    void setTemperatureNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// Subscribes to button actions, or unsubscribes (service FFE0, characteristic FFE1). An action arrives
    /// by `zobiConnectManagerDidButtonActionChangedForBeacon`.
    void setButtonActionsNotificationsForBeacon(bool enabled, const std::shared_ptr<ZOKBeacon>& beacon);

    /// @}
    /// @name Signal strength of a connection
    /// @{

    /// Reads the signal strength once. It arrives as `ZOKBeaconDidRSSIChangeNotification`. Does nothing
    /// unless the beacon is connected. The completion is never called.
    void RSSIForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                     const ZOKBeaconCompletion& completion);

    /// Reads the signal strength every `interval` seconds, from `interval` seconds after the call until
    /// `stopRSSIMonitoringForBeacon`. While the beacon is not connected nothing is read, and the timer goes
    /// on; it also goes on when monitoring stops. Does nothing if a timer runs for a beacon of the same major
    /// and minor. The timer holds a reference to the record and to the manager. An interval below 0.0001 s is
    /// taken as 0.0001 s. The completion is never called.
    void startRSSIMonitoringForBeaconIntervalWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                                            double interval,
                                                            const ZOKBeaconCompletion& completion);

    /// Stops the timer of the beacon with the same major and minor, if it runs.
    void stopRSSIMonitoringForBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The key of a beacon in `rssiMonitoringTimersDic`: its major and minor in decimal, as in "12_345".
    /// Absent for a null record.
    static std::optional<std::string> keyFromBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// @}
    /// @name Live beacons
    /// @{

    /// Appends a record, which must not be null, to the live beacons, unless this object is among them.
    /// Another record with the same major and minor does not count.
    void addLiveBeacon(const std::shared_ptr<ZOKBeacon>& beacon);

    /// The first live record of `peripheral`; null if there is none or `peripheral` is null.
    std::shared_ptr<ZOKBeacon> beaconFromPeripheral(
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral) const;

    /// @}
    /// @name Fields
    /// @{

    /// The same as `isMonitoring`.
    bool monitoring() const { return monitoring_; }
    /// Sets the value of `isMonitoring` and nothing else: no scan starts or stops.
    void setMonitoring(bool monitoring) { monitoring_ = monitoring; }

    /// The object that receives the callbacks; null if none is set or it was destroyed.
    std::shared_ptr<ZOKManagerDelegate> delegate() const { return delegate_.lock(); }
    /// Sets the delegate. The manager does not own it: keep a `std::shared_ptr` to it. It owns it only during
    /// a callback. `setDelegate({})` removes it. The new delegate is told of the next change of Bluetooth's
    /// state, not of the present one: see `zobi::monitorIfPoweredOn`.
    void setDelegate(std::weak_ptr<ZOKManagerDelegate> delegate) { delegate_ = std::move(delegate); }

    /// The central manager of the platform, whose delegate this manager is. Never null unless
    /// `setCentralManager` set it so.
    const std::shared_ptr<zobi::platform::CBCentralManager>& centralManager() const {
        return centralManager_;
    }
    /// Sets the central manager that scans and connects. Its delegate does not change.
    void setCentralManager(std::shared_ptr<zobi::platform::CBCentralManager> central) {
        centralManager_ = std::move(central);
    }

    /// The timer that restarts the scan, once, 30 s after its start. Null before the first start; a timer
    /// that has fired or was invalidated stays here until the next start.
    const std::shared_ptr<zobi::platform::NSTimer>& updateRestartMonitoringTimer() const {
        return updateRestartMonitoringTimer_;
    }
    /// Sets the restart timer. The previous one is not invalidated.
    void setUpdateRestartMonitoringTimer(std::shared_ptr<zobi::platform::NSTimer> timer) {
        updateRestartMonitoringTimer_ = std::move(timer);
    }

    /// The timer that reports the live beacons every second. Null before the first start, kept after a stop.
    const std::shared_ptr<zobi::platform::NSTimer>& updateRangedBeaconsTimer() const {
        return updateRangedBeaconsTimer_;
    }
    /// Sets the report timer. The previous one is not invalidated.
    void setUpdateRangedBeaconsTimer(std::shared_ptr<zobi::platform::NSTimer> timer) {
        updateRangedBeaconsTimer_ = std::move(timer);
    }

    /// The timer that removes silent beacons every 10 s. Null before the first start, kept after a stop.
    const std::shared_ptr<zobi::platform::NSTimer>& checkRangedBeaconsTimer() const {
        return checkRangedBeaconsTimer_;
    }
    /// Sets the expiry timer. The previous one is not invalidated.
    void setCheckRangedBeaconsTimer(std::shared_ptr<zobi::platform::NSTimer> timer) {
        checkRangedBeaconsTimer_ = std::move(timer);
    }

    /// The records of the beacons in range, in the order in which they were first seen; none is null.
    const std::vector<std::shared_ptr<ZOKBeacon>>& liveBeacons() const { return liveBeacons_; }
    /// Replaces the live beacons. None may be null.
    void setLiveBeacons(std::vector<std::shared_ptr<ZOKBeacon>> beacons) {
        liveBeacons_ = std::move(beacons);
    }

    /// How many answers to discoveries of characteristics have come, of all peripherals, since a link last
    /// came up.
    std::int64_t nbChars() const { return nbChars_; }
    /// Sets the count of answers.
    void setNbChars(std::int64_t count) { nbChars_ = count; }

    /// The timers that read signal strengths, by `keyFromBeacon`.
    const std::map<std::string, std::shared_ptr<zobi::platform::NSTimer>>& rssiMonitoringTimersDic() const {
        return rssiMonitoringTimersDic_;
    }
    /// Replaces the timers. The previous ones are not invalidated.
    void setRssiMonitoringTimersDic(std::map<std::string, std::shared_ptr<zobi::platform::NSTimer>> timers) {
        rssiMonitoringTimersDic_ = std::move(timers);
    }

    /// @}
    /// @name Events, called by the platform
    /// @{

    /// Logs the state of Bluetooth and passes it to the delegate. Starts and stops nothing.
    void centralManagerDidUpdateState(zobi::platform::CBCentralManager& central) override;

    /// Decodes an advertisement if its local name is exactly "morvane" and it has service data under Device
    /// Information (180A); ignores any other. First a button action in it is reported to the delegate. Then,
    /// if a live record has the same major and minor, its `timestamp` is set and nothing else; if none has,
    /// the new record is added to the live beacons. The signal strength is ignored.
    /// @throws zobi::platform::DataRangeError for a payload that is too short for its layout.
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        zobi::platform::CBCentralManager& central,
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const zobi::platform::CBAdvertisementData& advertisementData, zobi::platform::NSNumber rssi) override;

    /// A link is up: sets the record's `timestamp` to the current time and `nbChars` to 0, and discovers the
    /// seven services.
    void centralManagerDidConnectPeripheral(
        zobi::platform::CBCentralManager& central,
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral) override;

    /// An attempt has failed: calls the record's connection completion with the error.
    void centralManagerDidFailToConnectPeripheralError(
        zobi::platform::CBCentralManager& central,
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const zobi::platform::NSError* error) override;

    /// A link has ended: connects again if the error has code 6, in any domain; then reports the end as
    /// `disconnectBeacon` describes.
    void centralManagerDidDisconnectPeripheralError(
        zobi::platform::CBCentralManager& central,
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const zobi::platform::NSError* error) override;

    /// Services were discovered: discovers the characteristics of the profile in each of them.
    void peripheralDidDiscoverServices(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
                                       const zobi::platform::NSError* error) override;

    /// Characteristics were discovered, or that has failed: increments `nbChars`, and when it is 7 reports
    /// the beacon of this peripheral connected.
    void peripheralDidDiscoverCharacteristicsForServiceError(
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const std::shared_ptr<zobi::platform::CBService>& service,
        const zobi::platform::NSError* error) override;

    /// A value was read or notified: decodes it and reports it to the delegate, then as a notification, each
    /// where the value has one. An axis or a button mode is then logged, and an axis stored in the record; a
    /// firmware version is stored before it is notified. A value with an error is ignored.
    ///
    /// Of a number of two bytes the last two count, the more significant one first. One byte alone is the
    /// less significant one; an empty value is 0.
    void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const std::shared_ptr<zobi::platform::CBCharacteristic>& characteristic,
        const zobi::platform::NSError* error) override;

    /// A signal strength was read: posts `ZOKBeaconDidRSSIChangeNotification`, unless there is an error. The
    /// record's `rssi` does not change.
    void peripheralDidReadRSSIError(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
                                    zobi::platform::NSNumber rssi,
                                    const zobi::platform::NSError* error) override;

    /// Reads the signal strength of the record that is the timer's user info.
    void RSSITimerFired(const std::shared_ptr<zobi::platform::NSTimer>& timer);

    /// Reports a copy of the list of live beacons, empty or not, to the delegate.
    void updateRangedBeaconsTimerFired(const std::shared_ptr<zobi::platform::NSTimer>& timer);

    /// Removes the live beacons that are not connected and were last heard more than 20 s ago by the wall
    /// clock. A connected one gets the current time as its `timestamp`; one with a `timestamp` of 0 or less
    /// stays.
    void checkRangedBeaconsTimerFired(const std::shared_ptr<zobi::platform::NSTimer>& timer);

    /// Stops the scan and starts it again with duplicates, if the application is active.
    void updateRestartMonitoringTimer(const std::shared_ptr<zobi::platform::NSTimer>& timer);
    /// @}

private:
    explicit ZOKManager(zobi::platform::Platform& platform);

    void init();
    void observeApplication();
    void restartMonitoringIfRunning();
    bool isApplicationActive() const;
    void reportButtonAction(const std::shared_ptr<ZOKBeacon>& beacon);
    bool refreshLiveBeacons(const ZOKBeacon& sighted);
    void connect(std::shared_ptr<ZOKBeacon> beacon, std::optional<ZOKBeaconCompletion> completion);
    void callCompletion(const ZOKBeaconCompletion& completion, const std::shared_ptr<ZOKBeacon>& beacon,
                        const zobi::platform::NSError* error);
    void post(std::string_view notification, const std::shared_ptr<ZOKBeacon>& beacon,
              zobi::platform::NSUserInfo userInfo = {});
    void reportConnected(const std::shared_ptr<ZOKBeacon>& beacon);
    void reportBattery(int level, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportButton(std::uint8_t code, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportTemperature(std::uint16_t temperature, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportAxis(std::size_t axis, std::uint16_t value, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportButtonMode(std::uint16_t mode, const std::shared_ptr<ZOKBeacon>& beacon);
    void reportFirmware(std::span<const std::uint8_t> value, const std::shared_ptr<ZOKBeacon>& beacon);

    zobi::platform::Platform& platform_;
    // Destroyed in reverse order. That invalidates no timer and stops no scan.
    bool monitoring_ = false;
    std::weak_ptr<ZOKManagerDelegate> delegate_;
    std::shared_ptr<zobi::platform::CBCentralManager> centralManager_;
    std::shared_ptr<zobi::platform::NSTimer> updateRestartMonitoringTimer_;
    std::shared_ptr<zobi::platform::NSTimer> updateRangedBeaconsTimer_;
    std::shared_ptr<zobi::platform::NSTimer> checkRangedBeaconsTimer_;
    std::vector<std::shared_ptr<ZOKBeacon>> liveBeacons_;
    std::int64_t nbChars_ = 0;
    std::map<std::string, std::shared_ptr<zobi::platform::NSTimer>> rssiMonitoringTimersDic_;
};
