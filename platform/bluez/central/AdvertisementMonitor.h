#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/bus/TimedCall.h"
#include "platform/bluez/controller/MonitorPlace.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

/// Keeps advertisement monitors beside a scan: while there are any, the kernel has the controller report
/// every advertisement. Otherwise it has the controller filter duplicates, and a strict one reports each
/// device once per scan of BlueZ.
///
/// The monitors are BlueZ's where it takes them, or else the kernel's where this process has the capability
/// CAP_NET_ADMIN; otherwise there are none, and the log says so once. Main thread only.
class AdvertisementMonitor final : public std::enable_shared_from_this<AdvertisementMonitor> {
public:
    /// @param onActive called when monitors stand that did not before. A scan that runs takes no notice of
    /// them.
    AdvertisementMonitor(std::shared_ptr<const RadioContext> context, std::shared_ptr<BlueZService> service,
                         std::function<void()> onActive)
        : context_(std::move(context)), service_(std::move(service)), onActive_(std::move(onActive)) {}
    ~AdvertisementMonitor();
    AdvertisementMonitor(const AdvertisementMonitor&) = delete;
    AdvertisementMonitor& operator=(const AdvertisementMonitor&) = delete;

    /// A scan begins: has monitors for devices that advertise one of these services; for any if empty.
    void start(const std::vector<CBUUID>& services);
    /// A scan goes on: as `start`, but a pause after a failure goes on too.
    void resume(const std::vector<CBUUID>& services);
    void stop();
    /// Stops after a moment unless it is started before: a scan that is restarted needs the same ones.
    void stopSoon();
    /// BlueZ has forgotten them, or another adapter is used from now on.
    void forget();
    /// Whether nothing is left that would outlive this process. What BlueZ has ends with it.
    bool isIdle() const;
    /// BlueZ calls one of the objects.
    void serviceDidCall(const IncomingCall& call);

private:
    static void cancel(std::shared_ptr<NSTimer>& timer);
    bool isPlaced() const { return isRegistered_ || place_; }
    void advance();
    void registerObjects();
    void registered(const BusError* error);
    void unregisterObjects();
    void askKernel(const std::string& why);
    void placed(const std::string& trouble);
    void removeFromKernel();
    void restAndRetry();
    void restIsOver();
    void tellRate(const std::string& why);
    void callManager(const char* member, Bus::Answer answer);

    std::shared_ptr<const RadioContext> context_;
    std::shared_ptr<BlueZService> service_;
    std::function<void()> onActive_;
    std::optional<std::vector<CBUUID>> wanted_;
    /// What those that are there were made for.
    std::vector<CBUUID> services_;
    /// Which adapter that was at, and the path of the objects.
    std::string adapter_;
    std::string path_;
    std::vector<ManagedObject> objects_;
    bool isRegistered_ = false;
    /// Registered, and BlueZ has released none of the objects.
    bool isStanding_ = false;
    bool isActive_ = false;
    std::shared_ptr<MonitorPlace> place_;
    /// Those from which the kernel has not removed everything.
    std::vector<std::weak_ptr<MonitorPlace>> leaving_;
    TimedCall call_;
    std::shared_ptr<NSTimer> linger_;
    std::shared_ptr<NSTimer> rest_;
    double delay_ = 0;
    std::chrono::nanoseconds placedAt_{};
    std::string told_;
};

}  // namespace zobi::platform::bluez
