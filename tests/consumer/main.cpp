// Uses the library as an application does, beside a folder and a namespace `platform` of the application's
// own. Exits with 0 only if the delegate was told of the beacon, and each namespace had its own classes.

#include <cstdlib>
#include <memory>
#include <vector>

#include "Clock.h"
#include "ZobiConnectKit/ZOKManagerDelegate.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/Clock.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

#if __has_include("tests/support/ManagerTest.h") ||                                    \
                  __has_include("tools/zobiconnect/Command.h") ||                      \
                                __has_include("platform/CBUUID.h") ||                  \
                                              __has_include("zobi/platform/UTF8.h") || \
                                                            __has_include("zobi/platform/bluez/bus/Bus.h")
#error "more of ZobiConnectKit than its public headers is on the include path"
#endif

using zobi::platform::simulation::SimulatedPlatform;

namespace {

struct Delegate final : ZOKManagerDelegate {
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        wasTold = beacons.size() == 1 && beacons.front()->minor().integerValue() == 7;
    }

    bool wasTold = false;
};

}  // namespace

int main() {
    const platform::Clock ourClock;
    SimulatedPlatform platform(SimulatedPlatform::Time::virtualTime);
    zobi::addBeacon(platform.world(), {.major = 1, .minor = 7}).comeIntoRange();
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto delegate = std::make_shared<Delegate>();
    manager->setDelegate(delegate);
    platform.runLoop().runFor(5);
    const bool isWhole = delegate->wasTold && ZobiConnectKitVersionNumber == 1.0;
    const bool areOurs =
        ourClock.timeIntervalSince1970() == 17 && platform.clock().timeIntervalSince1970() > 17;
    return isWhole && areOurs ? EXIT_SUCCESS : EXIT_FAILURE;
}
