#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "platform/CBCentralManager.h"
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

    /// How many characteristic discoveries the current connection has completed.
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
