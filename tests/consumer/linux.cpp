// Uses the radio of this machine as an application does. Exits with 0 only if the delegate was told whether
// there is one.

#include <cstdlib>
#include <memory>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/bluez/BlueZPlatform.h"
#include "platform/bluez/Diagnosis.h"
#include "platform/bluez/PeripheralManager.h"

using namespace platform::bluez;
using platform::CBManagerState;

namespace {

class Delegate final : public ZOKManagerDelegate {
public:
    explicit Delegate(platform::RunLoop& runLoop) : runLoop_(runLoop) {}

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& /*manager*/,
                                                    int newState) override {
        state = static_cast<CBManagerState>(newState);
        runLoop_.stop();
    }

    CBManagerState state = CBManagerState::unknown;

private:
    platform::RunLoop& runLoop_;
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
    return wasTold && !diagnose({}).empty() && !peripheral->isAdvertising() ? EXIT_SUCCESS : EXIT_FAILURE;
}
