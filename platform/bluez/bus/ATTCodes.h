#pragma once

namespace zobi::platform::bluez {

// Error codes of the Attribute Protocol that BlueZ has names for and `CBATTError` does not have.
inline constexpr int insufficientAuthentication = 0x05;
inline constexpr int invalidOffset = 0x07;
inline constexpr int insufficientAuthorization = 0x08;

}  // namespace zobi::platform::bluez
