#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

/// Plays a bus that lets everybody in and says nothing, to the programs that this one starts: they find its
/// address in the variable SILENT_BUS.
inline std::string listenAsSilentBus() {
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // The kernel gives it a name.
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    socklen_t size = sizeof(address.sun_family);
    const auto* const pointer = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, pointer, size) != 0 || ::listen(listener, 100) != 0) {
        throw std::runtime_error("no socket for the silent bus");
    }
    size = sizeof(address);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    const std::string name(address.sun_path + 1, size - sizeof(address.sun_family) - 1);
    const std::string found = "unix:abstract=" + name;
    ::setenv("SILENT_BUS", found.c_str(), 1);
    return found;
}
