// Connects to the first beacon in range and reads its firmware version and its temperature.
//
// A command waits for nothing, and one that fails is not reported: the answer comes as a callback or as a
// notification, or not at all. An attempt to connect may fail, a link may be lost, and Bluetooth may be
// turned off. So the program asks for the connection each second until it is made, begins anew when the link
// has ended, and has a deadline for all of it.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

class Reader : public ZOKManagerDelegate {
public:
    explicit Reader(zobi::platform::RunLoop& runLoop) : runLoop_(runLoop) {}

    /// Null when there is an answer to everything.
    const char* awaited() const { return awaited_; }

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& manager,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        if (!beacon_ && !beacons.empty()) beacon_ = beacons[0];
        if (!beacon_ || !awaited_) return;
        if (beacon_->peripheral()->state() == zobi::platform::CBPeripheralState::connected) return;
        awaited_ = "the connection";
        // If an attempt is pending, it goes on. The library itself tries again only after a lost link.
        manager->connectBeaconWithCompletion(beacon_, [](const auto& /*manager*/, const auto& /*beacon*/,
                                                         const zobi::platform::NSError* error) {
            if (error) std::printf("not connected: %s\n", error->localizedDescription().c_str());
        });
    }

    void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& manager,
                                              const std::shared_ptr<ZOKBeacon>& beacon) override {
        awaited_ = "its firmware version";
        manager->firmwareVersionForBeaconWithCompletion(beacon, nullptr);
    }

    void firmwareVersionArrived(ZOKManager& manager, const std::shared_ptr<ZOKBeacon>& beacon) {
        std::printf("firmware %s\n", beacon->firmwareVersion()->c_str());
        awaited_ = "its temperature";
        manager.temperatureForBeaconWithCompletion(beacon, nullptr);
    }

    void zobiConnectManagerDidTemperatureValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& manager, std::uint16_t temperature,
        const std::shared_ptr<ZOKBeacon>& beacon) override {
        std::printf("temperature %d\n", temperature);
        awaited_ = nullptr;
        manager->disconnectBeacon(beacon);
    }

    void zobiConnectManagerDidBeaconDisconnectedWithError(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                          const std::shared_ptr<ZOKBeacon>& /*beacon*/,
                                                          const zobi::platform::NSError* error) override {
        if (!awaited_) return runLoop_.stop();
        std::printf("disconnected: %s\n", error ? error->localizedDescription().c_str() : "no error");
    }

private:
    zobi::platform::RunLoop& runLoop_;
    std::shared_ptr<ZOKBeacon> beacon_;
    const char* awaited_ = "a beacon";
};

int readBeacon(zobi::platform::Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto reader = std::make_shared<Reader>(platform.runLoop());
    manager->setDelegate(reader);
    // The notification center keeps what it calls, so that must not keep the reader.
    platform.notificationCenter().addObserverForNameObjectUsingBlock(
        ZOKBeaconFirmwareVersionNotification, nullptr,
        [manager, weakReader = std::weak_ptr(reader)](const zobi::platform::NSNotification& notification) {
            const auto beacon = std::static_pointer_cast<ZOKBeacon>(notification.object);
            if (const auto held = weakReader.lock()) held->firmwareVersionArrived(*manager, beacon);
        });

    platform.runLoop().runFor(60);
    platform.shutDown();
    if (!reader->awaited()) return EXIT_SUCCESS;
    std::printf("no answer: waited for %s\n", reader->awaited());
    return EXIT_FAILURE;
}

int main() {
    using zobi::platform::simulation::SimulatedPlatform;
    SimulatedPlatform platform(SimulatedPlatform::Time::real);
    platform.log().setDiagnosticSink(nullptr);
    zobi::addBeacon(platform.world(), {.major = 300, .minor = 7, .temperature = 22}).comeIntoRange();
    return readBeacon(platform);
}
