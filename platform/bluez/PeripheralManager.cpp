#include "platform/bluez/PeripheralManager.h"

#include <utility>

#include "platform/bluez/BlueZPlatform.h"
#include "platform/bluez/peripheral/BlueZPeripheralManager.h"

namespace platform::bluez {

std::shared_ptr<PeripheralManager> PeripheralManager::makeOnPlatform(
    BlueZPlatform& platform, std::vector<LocalService> services,
    std::weak_ptr<PeripheralManagerDelegate> delegate) {
    auto manager = std::make_shared<BlueZPeripheralManager>(*platform.context_, std::move(services),
                                                            std::move(delegate));
    platform.runLoop().dispatchAsync([manager] { manager->start(); });
    return manager;
}

}  // namespace platform::bluez
