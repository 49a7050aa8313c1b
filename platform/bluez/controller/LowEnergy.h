#pragma once

#include <cstdint>
#include <span>

namespace zobi::platform::bluez {

/// Whether a controller has Bluetooth Low Energy, and whether the Bluetooth service has it switched on.
enum class LowEnergy : std::uint8_t { unknown, missing, off, on };

/// Asks the kernel, which answers every user at once. Unknown where it gives this process no socket.
LowEnergy readLowEnergy(std::uint16_t controller);

/// From the kernel's answer; unknown for any other packet.
LowEnergy lowEnergyIn(std::span<const std::uint8_t> packet);

}  // namespace zobi::platform::bluez
