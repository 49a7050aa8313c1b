// Two virtual Bluetooth LE controllers on one simulated air, for the hosts of this machine.
//
//     air SOCKET
//
// The controllers are the first two that the machine gets: hci0 and hci1. They are steered by lines that are
// sent to the socket, each a packet of its own and answered by one; see README.md.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "Air.h"
#include "Commands.h"
#include "Descriptor.h"

namespace {

using namespace air;

/// A controller as the kernel sees it: what is written to /dev/vhci comes from it.
class VirtualDevice {
public:
    // Writing the first packet makes the controller, with the next number. What the kernel answers is none of
    // the packets that a controller receives.
    VirtualDevice() : device_(::open("/dev/vhci", O_RDWR | O_CLOEXEC), "/dev/vhci") { send({0xFF, 0x00}); }

    int descriptor() const { return device_.get(); }
    void send(const Bytes& packet) const {
        // A host that is powered off takes nothing, and need not.
        if (::write(device_.get(), packet.data(), packet.size()) < 0)
            log("not taken: ", std::strerror(errno));
    }
    Bytes read() const {
        Bytes packet(1100);
        const ssize_t size = ::read(device_.get(), packet.data(), packet.size());
        if (size <= 0) fail("from the host");
        packet.resize(static_cast<std::size_t>(size));
        return packet;
    }

private:
    Descriptor device_;
};

Descriptor listenAt(const char* path) {
    Descriptor listener(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    ::unlink(path);
    // The socket is for every user.
    const mode_t mask = ::umask(0);
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(path);
    ::umask(mask);
    if (::listen(listener.get(), 8) != 0) fail(path);
    return listener;
}

/// Answers one line. False when the other side has hung up.
bool serve(const Descriptor& client, Air& air) {
    std::array<char, 1024> line{};
    const ssize_t size = ::recv(client.get(), line.data(), line.size(), 0);
    if (size <= 0) return false;
    const std::string text(line.data(), static_cast<std::size_t>(size));
    const std::string answer = carryOut(text, air);
    log("> ", text, ": ", answer);
    return ::send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL) >= 0;
}

int millisecondsUntil(Time due) {
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(wait, 0, 60000));
}

/// The controllers that the machine has.
class Devices {
public:
    Devices() {
        for (auto& device : devices_) device.emplace();
    }

    void send(std::size_t number, const Bytes& packet) const {
        if (devices_[number]) devices_[number]->send(packet);
    }
    const std::optional<VirtualDevice>& at(std::size_t number) const { return devices_[number]; }
    /// Plugs in or unplugs what is to be.
    void update(Air& air) {
        for (std::size_t number = 0; number < devices_.size(); ++number) {
            auto& device = devices_[number];
            Controller& controller = air.controller(number);
            if (device.has_value() == controller.radio.isPlugged) continue;
            controller.reset();
            if (device) {
                device.reset();
            } else {
                plugIn(number);
            }
        }
    }

private:
    /// The kernel frees the number of one that was unplugged when nothing uses it any more.
    void plugIn(std::size_t number) {
        const std::string path = "/sys/class/bluetooth/hci" + std::to_string(number);
        constexpr int mostTries = 100;
        for (int tries = 0; tries < mostTries; ++tries) {
            devices_[number].emplace();
            if (::access(path.c_str(), F_OK) == 0) return;
            log("another number than ", number);
            devices_[number].reset();
            ::poll(nullptr, 0, 100);
        }
        fail(path);
    }

    std::array<std::optional<VirtualDevice>, 2> devices_;
};

[[noreturn]] void run(const char* path) {
    Devices devices;
    Air air([&](const Bytes& packet) { devices.send(0, packet); },
            [&](const Bytes& packet) { devices.send(1, packet); });
    constexpr int none = -1;  // which poll() passes over
    const auto descriptorOf = [&](std::size_t number) {
        return devices.at(number) ? devices.at(number)->descriptor() : none;
    };
    const Descriptor listener = listenAt(path);
    std::vector<Descriptor> clients;
    log("on the air");
    while (true) {
        air.run(Clock::now());
        std::vector<pollfd> watched{
            {descriptorOf(0), POLLIN, 0}, {descriptorOf(1), POLLIN, 0}, {listener.get(), POLLIN, 0}};
        for (const Descriptor& client : clients) watched.push_back({client.get(), POLLIN, 0});
        ::poll(watched.data(), watched.size(), millisecondsUntil(air.due()));

        for (const std::size_t number : {0U, 1U}) {
            if (watched[number].revents != 0) air.controller(number).receive(devices.at(number)->read());
        }
        for (std::size_t i = clients.size(); i-- > 0;) {
            if (watched[i + 3].revents != 0 && !serve(clients[i], air)) {
                clients.erase(clients.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (watched[2].revents != 0) {
            clients.emplace_back(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept");
        }
        devices.update(air);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 2) throw std::invalid_argument("usage: air SOCKET");
        run(argv[1]);
    } catch (const std::exception& error) {
        air::log(error.what());
        return 1;
    }
}
