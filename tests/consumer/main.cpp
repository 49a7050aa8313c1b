// Uses the library as an application does. Exits with 0 only if the delegate was told of the beacon.

#include <cstdlib>
#include <memory>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/simulation/SimulatedPlatform.h"

using platform::simulation::SimulatedPlatform;

namespace {

struct Delegate final : ZOKManagerDelegate {
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        if (state == static_cast<int>(platform::CBManagerState::poweredOn)) manager->startMonitoring();
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        wasTold = beacons.size() == 1 && beacons.front()->minor().integerValue() == 7;
    }

    bool wasTold = false;
};

}  // namespace

int main() {
    SimulatedPlatform platform(SimulatedPlatform::Time::virtualTime);
    platform.world().addBeacon({.major = 1, .minor = 7}).comeIntoRange();
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto delegate = std::make_shared<Delegate>();
    manager->setDelegate(delegate);
    platform.runLoop().runFor(5);
    return delegate->wasTold && ZobiConnectKitVersionNumber == 1.0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
