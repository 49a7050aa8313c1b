// Connects to the first beacon in range and reads its firmware version and its temperature.
//
// A command waits for nothing, and one that fails is not reported. So a program has a deadline for each step:
// the answer comes before it, as a callback or as a notification, or not at all.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/simulation/SimulatedPlatform.h"

class Reader : public ZOKManagerDelegate {
public:
    Reader() {
        platform::Platform::current().notificationCenter().addObserverForNameObjectUsingBlock(
            ZOKBeaconFirmwareVersionNotification, nullptr, [this](const platform::NSNotification&) {
                std::printf("firmware %s\n", beacon_->firmwareVersion()->c_str());
                await("its temperature");
                ZOKManager::shared()->temperatureForBeaconWithCompletion(beacon_, nullptr);
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
        manager->connectBeacon(beacon_);
    }

    void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& manager,
                                              const std::shared_ptr<ZOKBeacon>& beacon) override {
        await("its firmware version");
        manager->firmwareVersionForBeaconWithCompletion(beacon, nullptr);
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
        if (error) std::printf("disconnected: %s\n", error->localizedDescription().c_str());
        end(error ? EXIT_FAILURE : EXIT_SUCCESS);
    }

    int exitStatus() const { return exitStatus_; }

private:
    /// Gives up unless the next step is taken in time.
    void await(const char* what) {
        constexpr double seconds = 10;
        if (deadline_) deadline_->invalidate();
        deadline_ =
            platform::Platform::current().runLoop().scheduledTimerWithTimeIntervalActionUserInfoRepeats(
                seconds,
                [this, what](const auto& /*timer*/) {
                    std::printf("waited for %s in vain\n", what);
                    end(EXIT_FAILURE);
                },
                nullptr, false);
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
    ZOKManager::shared()->setDelegate(reader);
    platform::Platform::current().runLoop().run();
    return reader->exitStatus();
}
