#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/bluez/RadioContext.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

/// A discovery as its watchdog sees it.
class WatchedDiscovery {
public:
    virtual ~WatchedDiscovery() = default;

    /// BlueZ answers nothing.
    virtual bool isServiceHanging() const = 0;
    /// BlueZ says that the adapter scans.
    virtual bool isToldToScan() const = 0;
    /// See `ControllerChannel::scanSwitches`.
    virtual std::optional<unsigned> scanSwitches() const = 0;
    /// Stops and starts discovery, unless that is being done.
    virtual void restart() = 0;
    /// Starts discovery in the kernel, past BlueZ, which then follows. False if this process may not.
    virtual bool restartPastService() = 0;
};

/// Restarts a discovery that brings nothing. Radios fall silent without an error: BlueZ may believe that the
/// controller scans when it does not.
///
/// When BlueZ signals that the adapter does not scan, discovery is restarted 2 s later, and twice more every
/// 8 s. When no device at all was heard for 20 s, it is restarted; 13 s later, if the controller was not seen
/// to scan meanwhile, past BlueZ. A room may be empty: after that, it is restarted when the silence has
/// lasted 65 s, and then every 10 minutes until a device is heard. Main thread only.
class DiscoveryWatchdog final {
public:
    /// @param context,discovery outlive this object.
    DiscoveryWatchdog(const RadioContext& context, WatchedDiscovery& discovery)
        : context_(context), discovery_(discovery) {}
    ~DiscoveryWatchdog() { forget(); }
    DiscoveryWatchdog(const DiscoveryWatchdog&) = delete;
    DiscoveryWatchdog& operator=(const DiscoveryWatchdog&) = delete;

    /// Discovery is to be on from now on.
    void watch();
    /// It is not, or it pauses.
    void rest();
    /// BlueZ is gone, or the power: what follows has nothing to do with what was.
    void forget();
    /// Any device, whether it is looked for or not.
    void deviceWasHeard();
    /// BlueZ has signalled whether the adapter scans.
    void scanWasTold();

private:
    enum class Step : std::uint8_t { none, restarted, restartedPastService, waiting };

    std::chrono::nanoseconds now() const { return context_.clock.monotonicTime(); }
    /// Examines the discovery after so many seconds.
    void lookIn(std::chrono::nanoseconds delay);
    void look();
    void restart();
    void restartPastService();
    void tellAdministrator();
    void waitLong();
    /// Nothing where that cannot be seen.
    std::optional<bool> hasScannedSinceRestart() const;
    void mendIn(std::chrono::nanoseconds delay);
    void mend();
    std::shared_ptr<NSTimer> after(std::chrono::nanoseconds delay, void (DiscoveryWatchdog::*action)());

    const RadioContext& context_;
    WatchedDiscovery& discovery_;
    bool isWatching_ = false;
    std::chrono::nanoseconds restedAt_{};
    /// When the silence began, as far as it counts.
    std::chrono::nanoseconds silentSince_{};
    Step step_ = Step::none;
    std::chrono::nanoseconds restartedAt_{};
    std::optional<unsigned> switchesBefore_;
    /// Any device, since discovery began after the power came.
    bool hasHeard_ = false;
    bool isAdministratorTold_ = false;
    bool isHintTold_ = false;
    std::shared_ptr<NSTimer> timer_;
    std::shared_ptr<NSTimer> offTimer_;
    int mends_ = 0;
};

}  // namespace zobi::platform::bluez
