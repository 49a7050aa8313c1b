// Uses the radio of this machine as an application does. Exits with 0 only if the delegate was told whether
// there is one.

#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "zobi/platform/bluez/BlueZPlatform.h"
#include "zobi/platform/bluez/Diagnosis.h"
#include "zobi/platform/bluez/PeripheralManager.h"

using namespace zobi::platform::bluez;
using zobi::platform::CBManagerState;

namespace {

struct Delegate final : ZOKManagerDelegate {
    explicit Delegate(zobi::platform::RunLoop& its) : runLoop(its) {}

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                    int newState) override {
        state = static_cast<CBManagerState>(newState);
        runLoop.stop();
    }

    zobi::platform::RunLoop& runLoop;
    CBManagerState state = CBManagerState::unknown;
};

}  // namespace

int main() {
    BlueZPlatform platform;
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto delegate = std::make_shared<Delegate>(platform.runLoop());
    manager->setDelegate(delegate);
    platform.runLoop().runFor(60);
    const bool wasTold = delegate->state != CBManagerState::unknown;
    const auto peripheral = PeripheralManager::makeOnPlatform(platform, {}, {});
    const auto condition = platform.radioCondition();
    const bool isUsable = condition.kind == zobi::platform::RadioCondition::Kind::poweredOn;
    const bool isExplained = isUsable == condition.text.empty() && isUsable == condition.remedy.empty();
    return wasTold && isExplained && !diagnose({}).empty() && !peripheral->isAdvertising() ? EXIT_SUCCESS
                                                                                           : EXIT_FAILURE;
}
