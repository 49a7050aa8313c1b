#include "zobi/platform/bluez/PeripheralManager.h"

#include <utility>

#include "platform/bluez/peripheral-role/BlueZPeripheralManager.h"
#include "zobi/platform/bluez/BlueZPlatform.h"

namespace zobi::platform::bluez {

PeripheralManagerDelegate::~PeripheralManagerDelegate() = default;
PeripheralManager::~PeripheralManager() = default;

std::shared_ptr<PeripheralManager> PeripheralManager::makeOnPlatform(
    BlueZPlatform& platform, std::vector<LocalService> services,
    std::weak_ptr<PeripheralManagerDelegate> delegate) {
    auto manager = std::make_shared<BlueZPeripheralManager>(*platform.context_, std::move(services),
                                                            std::move(delegate));
    platform.runLoop().dispatchAsync([manager] { manager->start(); });
    return manager;
}

}  // namespace zobi::platform::bluez
