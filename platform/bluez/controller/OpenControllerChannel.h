#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/bluez/controller/ControllerChannel.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

/// The number in the name of an adapter such as "hci0"; nothing for any other text.
std::optional<std::uint16_t> controllerNumber(const std::string& adapter);

/// Opens the best channel to a controller that this user and this machine allow: the raw socket of the Host
/// Controller Interface, which is open to every user and tells most, or the kernel's management socket, which
/// needs the capability CAP_NET_ADMIN. Null where neither is to be had, as in most containers.
/// @param adapter "hci0", for example.
/// @param runLoop must outlive every event.
std::shared_ptr<ControllerChannel> openControllerChannel(const std::string& adapter, RunLoop& runLoop);

/// Starts a discovery of the kernel, past the Bluetooth service, which then follows it. That takes the
/// capability CAP_NET_ADMIN; false without it.
/// @param adapter "hci0", for example.
bool startKernelDiscovery(const std::string& adapter);

}  // namespace zobi::platform::bluez
