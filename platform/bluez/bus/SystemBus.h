#pragma once

#include <string>

namespace zobi::platform::bluez {

/// Where the system bus is looked for: the value of DBUS_SYSTEM_BUS_ADDRESS, or the usual place.
std::string systemBusAddress();

/// Connects to the system bus. Of an address with several entries, the first that can be reached counts; only
/// Unix sockets can ("unix:path=" and "unix:abstract=").
/// @returns a socket that does not block.
/// @throws std::system_error when there is none.
int connectToSystemBus();

}  // namespace zobi::platform::bluez
