#pragma once

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <system_error>

#include "platform/bluez/bus/FileDescriptor.h"
#include "platform/bluez/bus/Message.h"
#include "platform/bluez/bus/ReceiveBuffer.h"

namespace zobi::platform::bluez {

/// A socket to a message bus or to a peer, over which messages come and go. Main thread only.
///
/// sd-bus logs in, writes, and answers calls. What arrives is read here, many messages with one call of the
/// system: sd-bus takes two for each, and then more time than the rest of the radio. What sd-bus needs of it
/// is passed on: the handshake, and calls, whose answers it makes.
class BusConnection {
public:
    enum class Role { client, server };

    /// @param socket connected; it is taken over.
    /// @throws std::system_error
    BusConnection(int socket, Role role);

    /// For messages that are made and sent.
    sd_bus* get() const { return bus_.get(); }
    int descriptor() const { return socket_; }
    /// What the descriptor is to be watched for, as for `poll`.
    short events() const;
    /// How many bytes the last look has received.
    std::size_t bytesReceived() const { return received_; }

    /// Why the connection is lost, if it is: then nothing comes any more. It is too when a peer sends what is
    /// no message.
    std::error_code error() const { return error_; }

    /// Begins a look at the connection: writes what could not be written before.
    void look();
    /// The next message that has arrived whole, valid until the next call of this function. After the last
    /// that is there, nothing, until the next look.
    std::optional<std::span<const std::uint8_t>> next();
    /// The message of a call, for its answer; null if sd-bus has answered it itself.
    MessagePointer callOf(std::span<const std::uint8_t> message) { return passOn(message); }

private:
    struct BusUnref {
        void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    };

    void lose(int error) {
        if (!error_) error_ = {error, std::generic_category()};
    }
    /// The length of the next line of the handshake or the next message; 0 if it is not there whole.
    std::size_t nextSize();
    bool receive();
    MessagePointer passOn(std::span<const std::uint8_t> bytes);
    /// Has sd-bus write, and read what was passed on, up to one message.
    MessagePointer process();

    std::unique_ptr<sd_bus, BusUnref> bus_;
    /// Belongs to `bus_`.
    int socket_;
    /// What is written to it, sd-bus reads.
    FileDescriptor input_;
    ReceiveBuffer buffer_;
    /// The length of what is next, if it is known and not there whole.
    std::size_t wanted_ = 0;
    bool isReady_ = false;
    bool isDrained_ = false;
    std::size_t received_ = 0;
    std::error_code error_;
};

}  // namespace zobi::platform::bluez
