#include "platform/bluez/controller/OpenControllerChannel.h"

#include <charconv>
#include <string_view>
#include <system_error>

#include "platform/bluez/controller/HCISocket.h"
#include "platform/bluez/controller/ManagementSocket.h"

namespace zobi::platform::bluez {

std::optional<std::uint16_t> controllerNumber(const std::string& adapter) {
    constexpr std::string_view prefix = "hci";
    std::uint16_t controller = 0;
    const char* const end = adapter.data() + adapter.size();
    if (!adapter.starts_with(prefix)) return std::nullopt;
    const auto [read, error] = std::from_chars(adapter.data() + prefix.size(), end, controller);
    if (read != end || error != std::errc()) return std::nullopt;
    return controller;
}

std::shared_ptr<ControllerChannel> openControllerChannel(const std::string& adapter, RunLoop& runLoop) {
    const auto controller = controllerNumber(adapter);
    if (!controller) return nullptr;
    if (auto socket = HCISocket::open(*controller, runLoop)) return socket;
    return ManagementSocket::open(*controller, runLoop);
}

bool startKernelDiscovery(const std::string& adapter) {
    const auto controller = controllerNumber(adapter);
    return controller && ManagementSocket::startDiscovery(*controller);
}

}  // namespace zobi::platform::bluez
