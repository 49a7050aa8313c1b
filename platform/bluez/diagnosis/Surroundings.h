#pragma once

#include <string>
#include <system_error>
#include <vector>

namespace zobi::platform::bluez {

// What a process can see of its machine without asking the Bluetooth service.

/// As in "user pi (groups pi, audio)".
std::string userText();

/// Whether the Bluetooth service is installed in this file system.
bool hasServiceInstalled();

/// Whether the kernel has the part that all adapters need. It loads it with the first of them.
bool hasKernelBluetooth();

/// The adapters that the kernel has, "hci0" for example.
std::vector<std::string> kernelAdapters();

/// Why the kernel gives this process no Bluetooth socket; no error if it does.
std::error_code bluetoothSocketError();

}  // namespace zobi::platform::bluez
