#pragma once

#include <memory>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/AdvertisementMonitor.h"
#include "platform/bluez/central/ConnectionAttempts.h"
#include "platform/bluez/central/Discovery.h"
#include "platform/bluez/controller/ControllerChannel.h"
#include "platform/bluez/service/BlueZService.h"

namespace zobi::platform::bluez {

/// What a central manager and its links stand on. It ends with the central manager, though applications may
/// keep peripherals longer.
struct CentralContext {
    std::shared_ptr<const RadioContext> radio;
    std::shared_ptr<BlueZService> service;
    std::shared_ptr<Discovery> discovery;
    std::shared_ptr<ConnectionAttempts> attempts;
    std::shared_ptr<AdvertisementMonitor> monitor;
    /// Null where the controller cannot be reached past BlueZ.
    std::shared_ptr<ControllerChannel> channel;
};

}  // namespace zobi::platform::bluez
