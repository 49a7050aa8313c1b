// Connects to the first beacon in range and reads its firmware version and its temperature.
//
// A command waits for nothing, and one that fails is not reported. So a program has a deadline for each step:
// the answer comes before it, as a callback or as a notification, or not at all.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/simulation/SimulatedPlatform.h"

class Reader : public ZOKManagerDelegate, public std::enable_shared_from_this<Reader> {
public:
    void start() {
        ZOKManager::shared()->setDelegate(weak_from_this());
        // The notification centre keeps what it calls, so that must not keep the reader.
        platform::Platform::current().notificationCenter().addObserverForNameObjectUsingBlock(
            ZOKBeaconFirmwareVersionNotification, nullptr,
            [weakSelf = weak_from_this()](const platform::NSNotification& notification) {
                const auto self = weakSelf.lock();
                if (self && notification.object == self->beacon_) self->firmwareVersionArrived();
            });
        await("a beacon");
    }

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        if (state == static_cast<int>(platform::CBManagerState::poweredOn)) manager->startMonitoring();
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& manager,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        if (beacon_ || beacons.empty()) return;
        beacon_ = beacons[0];
        await("the connection");
        manager->connectBeaconWithCompletion(
            beacon_, [weakSelf = weak_from_this()](const auto& /*manager*/, const auto& /*beacon*/,
                                                   const platform::NSError* error) {
                const auto self = weakSelf.lock();
                if (self && error) self->fail(error->localizedDescription().c_str());
            });
    }

    void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& manager,
                                              const std::shared_ptr<ZOKBeacon>& beacon) override {
        await("its firmware version");
        manager->firmwareVersionForBeaconWithCompletion(beacon, nullptr);
    }

    void firmwareVersionArrived() {
        std::printf("firmware %s\n", beacon_->firmwareVersion()->c_str());
        await("its temperature");
        ZOKManager::shared()->temperatureForBeaconWithCompletion(beacon_, nullptr);
    }

    void zobiConnectManagerDidTemperatureValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& manager, std::uint16_t temperature,
        const std::shared_ptr<ZOKBeacon>& beacon) override {
        std::printf("temperature %d\n", temperature);
        await("the end of the connection");
        manager->disconnectBeacon(beacon);
    }

    void zobiConnectManagerDidBeaconDisconnectedWithError(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                          const std::shared_ptr<ZOKBeacon>& /*beacon*/,
                                                          const platform::NSError* error) override {
        if (error) return fail(error->localizedDescription().c_str());
        end(EXIT_SUCCESS);
    }

    int exitStatus() const { return exitStatus_; }

private:
    /// Gives up unless the next step is taken in time.
    void await(const char* what) {
        constexpr double seconds = 10;
        if (deadline_) deadline_->invalidate();
        auto& runLoop = platform::Platform::current().runLoop();
        deadline_ = runLoop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
            seconds,
            [weakSelf = weak_from_this(), what](const auto& /*timer*/) {
                std::printf("waited in vain for %s\n", what);
                if (const auto self = weakSelf.lock()) self->end(EXIT_FAILURE);
            },
            nullptr, false);
    }

    void fail(const char* why) {
        std::printf("%s\n", why);
        end(EXIT_FAILURE);
    }

    void end(int exitStatus) {
        exitStatus_ = exitStatus;
        platform::Platform::current().runLoop().stop();
    }

    std::shared_ptr<ZOKBeacon> beacon_;
    std::shared_ptr<platform::NSTimer> deadline_;
    int exitStatus_ = EXIT_FAILURE;
};

int main() {
    using platform::simulation::SimulatedPlatform;

    auto simulated = std::make_unique<SimulatedPlatform>(platform::StandardPlatform::Time::real);
    simulated->log().setSink(nullptr);
    simulated->world().addBeacon({.major = 300, .minor = 7, .temperature = 22}).comeIntoRange();
    platform::Platform::install(std::move(simulated));

    const auto reader = std::make_shared<Reader>();
    reader->start();
    platform::Platform::current().runLoop().run();
    return reader->exitStatus();
}
