#pragma once

#include <cstdint>
#include <string>

namespace zobi::platform::bluez {

/// The switch that turns an adapter off from outside the Bluetooth service.
enum class BlockSwitch : std::uint8_t {
    open,
    /// By software: `rfkill unblock bluetooth` opens it.
    soft,
    /// By a switch or a key of the machine.
    hard,
};

/// As the kernel tells it. Open where it tells nothing.
/// @param adapter "hci0", for example.
BlockSwitch readBlockSwitch(const std::string& adapter);

/// The one that is furthest from open among those in a folder, if they are for Bluetooth.
BlockSwitch readBlockSwitches(const std::string& folder);

/// The one of the machine itself, which may take the adapter off its bus.
BlockSwitch readBlockSwitchOfMachine();

}  // namespace zobi::platform::bluez
