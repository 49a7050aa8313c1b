#include "zobi/platform/bluez/PeripheralManager.h"

namespace zobi::platform::bluez {

PeripheralManagerDelegate::~PeripheralManagerDelegate() = default;
PeripheralManager::~PeripheralManager() = default;

}  // namespace zobi::platform::bluez
