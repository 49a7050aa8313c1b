#include "platform/bluez/controller/OpenControllerChannel.h"

#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

#include "platform/bluez/controller/HCISocket.h"
#include "platform/bluez/controller/ManagementSocket.h"

namespace zobi::platform::bluez {

std::shared_ptr<ControllerChannel> openControllerChannel(const std::string& adapter, RunLoop& runLoop) {
    constexpr std::string_view prefix = "hci";
    std::uint16_t controller = 0;
    const char* const end = adapter.data() + adapter.size();
    if (!adapter.starts_with(prefix)) return nullptr;
    const auto [read, error] = std::from_chars(adapter.data() + prefix.size(), end, controller);
    if (read != end || error != std::errc()) return nullptr;
    if (auto socket = HCISocket::open(controller, runLoop)) return socket;
    return ManagementSocket::open(controller, runLoop);
}

}  // namespace zobi::platform::bluez
