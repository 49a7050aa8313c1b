#include "platform/bluez/bus/SystemBus.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include "platform/bluez/bus/FileDescriptor.h"

namespace zobi::platform::bluez {

namespace {

/// Removes a part of the text up to the separator, and gives it out.
std::string_view takePart(std::string_view& text, char separator) {
    const std::string_view part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    return part;
}

/// Bytes may be written as % and two hexadecimal digits.
std::string unescaped(std::string_view value) {
    std::string plain;
    while (!value.empty()) {
        std::uint8_t byte = 0;
        const char* const digits = value.data() + 1;
        if (value[0] == '%' && value.size() > 2 &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            plain += static_cast<char>(byte);
            value.remove_prefix(3);
        } else {
            plain += value[0];
            value.remove_prefix(1);
        }
    }
    return plain;
}

/// The name of the socket in an entry of an address; that of an abstract one starts with a null character.
std::optional<std::string> socketName(std::string_view entry) {
    if (takePart(entry, ':') != "unix") return std::nullopt;
    while (!entry.empty()) {
        std::string_view value = takePart(entry, ',');
        const std::string_view key = takePart(value, '=');
        if (key == "path") return unescaped(value);
        if (key == "abstract") return '\0' + unescaped(value);
    }
    return std::nullopt;
}

/// A connected socket, or the number of an error as a negative one.
int connectTo(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof(address.sun_path)) return -ENAMETOOLONG;
    std::ranges::copy(name, std::begin(address.sun_path));
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    const auto* const pointer = reinterpret_cast<const sockaddr*>(&address);
    return socket.get() < 0 || ::connect(socket.get(), pointer, size) != 0 ? -errno : socket.release();
}

}  // namespace

std::string systemBusAddress() {
    const char* const address = ::secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address ? address : "unix:path=/run/dbus/system_bus_socket";
}

int connectToSystemBus() {
    const std::string address = systemBusAddress();
    int result = -EPROTONOSUPPORT;
    for (std::string_view entries = address; result < 0 && !entries.empty();) {
        if (const auto name = socketName(takePart(entries, ';'))) result = connectTo(*name);
    }
    if (result < 0) throw std::system_error(-result, std::generic_category(), "the system bus");
    return result;
}

}  // namespace zobi::platform::bluez
