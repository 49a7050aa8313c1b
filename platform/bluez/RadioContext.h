#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/bluez/bus/Bus.h"
#include "platform/bluez/central/ForeignLinks.h"
#include "platform/bluez/controller/ControllerChannel.h"
#include "platform/bluez/controller/MonitorPlace.h"
#include "zobi/platform/Clock.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RadioCondition.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

/// What was found out about the service, for all who use it in this process.
struct ServiceFaults {
    /// It crashes when it is asked for services and hears a device that lists one.
    bool endsAtServices = false;
};

/// What a central of this radio stands on. It is referred to for as long as its platform lives.
struct RadioContext {
    RunLoop& runLoop;
    const Clock& clock;
    Log& log;
    /// Opens a connection of its own to the bus on which the Bluetooth service is.
    /// @throws std::system_error
    std::function<std::shared_ptr<Bus>(const Bus::Context&)> openBus;
    /// Opens the channel to a controller, "hci0" for example; null if there is none.
    std::function<std::shared_ptr<ControllerChannel>(const std::string& adapter)> openChannel;
    /// Which adapter is used: its name or its address; empty for any.
    std::string adapter;
    /// Told whether the radio can be used, and if not, why.
    std::function<void(const RadioCondition&)> setCondition = [](const RadioCondition& /*condition*/) {};
    /// Links that are none of this platform's.
    std::shared_ptr<ForeignLinks> foreignLinks = std::make_shared<ForeignLinks>();
    /// Starts a discovery of the kernel, past the service; false if this process may not.
    std::function<bool(const std::string& adapter)> startKernelDiscovery = [](const auto& /*adapter*/) {
        return false;
    };
    std::shared_ptr<ServiceFaults> faults = std::make_shared<ServiceFaults>();
    /// Opens a place for advertisement monitors in the kernel.
    /// @param service the name of the Bluetooth service on the bus.
    std::function<OpenedPlace(const std::string& adapter, const std::string& service)> openMonitorPlace =
        [](const auto& /*adapter*/, const auto& /*service*/) { return OpenedPlace(); };

    /// Calls an action of `object` once, so many seconds from now, if the object lives then.
    template <typename Object>
    std::shared_ptr<NSTimer> after(double seconds, const std::shared_ptr<Object>& object,
                                   void (Object::*action)()) const {
        return runLoop.after(seconds, [weakObject = std::weak_ptr(object), action] {
            if (const auto alive = weakObject.lock()) (*alive.*action)();
        });
    }
};

}  // namespace zobi::platform::bluez
