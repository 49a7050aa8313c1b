#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "platform/bluez/bus/BusConnection.h"
#include "platform/bluez/bus/Message.h"
#include "platform/bluez/bus/MessageHeader.h"
#include "platform/bluez/bus/MessageReader.h"
#include "zobi/platform/Clock.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

class Bus;

/// Names an operation of an object, and whose object it is.
struct Method {
    std::string destination;
    std::string path;
    std::string interface;
    std::string member;
};

/// An error that was answered to a call: its name ("org.bluez.Error.Failed"), and a text.
struct BusError {
    std::string name;
    std::string message;
};

/// A signal that has arrived. Views, valid for the length of the event.
struct Signal {
    std::string_view sender;
    std::string_view path;
    std::string_view interface;
    std::string_view member;
    /// At the start of the body.
    MessageReader& body;
};

/// A call to an object of this side, which is answered through `Bus::reply` or `Bus::replyError`, once; or
/// not, by dropping it.
struct IncomingCall {
    /// For a reply alone: its arguments are in `bytes`.
    MessagePointer message;
    /// The whole message, which the views are of.
    std::vector<std::uint8_t> bytes;
    /// At their start. A copy reads them without moving this one on.
    MessageReader arguments;
    std::string_view sender;
    std::string_view destination;
    std::string_view path;
    std::string_view interface;
    std::string_view member;
    std::weak_ptr<Bus> bus;
};

/// The interest in the answer to a call: without it, the answer is dropped when it comes.
class Slot {
public:
    Slot() = default;
    Slot(std::weak_ptr<Bus> bus, std::uint64_t cookie) : bus_(std::move(bus)), cookie_(cookie) {}
    ~Slot() { reset(); }
    Slot(Slot&& other) noexcept : bus_(std::move(other.bus_)), cookie_(other.cookie_) { other.bus_.reset(); }
    Slot& operator=(Slot&& other) noexcept;
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    void reset();

private:
    std::weak_ptr<Bus> bus_;
    std::uint64_t cookie_ = 0;
};

/// Receives what arrives over a bus, each event in a task of the main queue. Every one may be thrown from.
class BusDelegate {
public:
    virtual ~BusDelegate() = default;

    virtual void busDidReceiveSignal(const Signal& /*signal*/) {}
    /// By default, the call is answered that there is no such object.
    virtual void busDidReceiveCall(IncomingCall call);
    /// The connection is lost for good. Calls that are outstanding have no answer any more.
    virtual void busDidClose(const std::string& reason) = 0;
};

/// A connection to a message bus, or to one peer over a socket, served from the run loop. Main thread only.
///
/// All calls are asynchronous and none has a time limit of its own: whoever calls sets a timer.
class Bus final : public std::enable_shared_from_this<Bus> {
public:
    /// Who the connection belongs to, and what it is served with. All outlive every event.
    struct Context {
        RunLoop& runLoop;
        const Clock& clock;
    };

    /// Opens a connection to the system bus, in the background: what is sent meanwhile waits.
    /// @throws std::system_error when there is none.
    static std::shared_ptr<Bus> overSystemBus(const Context& context);
    /// As a bus's client over a connected socket, which it takes over.
    /// @throws std::system_error
    static std::shared_ptr<Bus> overSocket(int socket, const Context& context);
    /// As the bus itself, with the one client at the other end of a connected socket, which it takes over.
    /// Whose process the client is, is not asked.
    /// @throws std::system_error
    static std::shared_ptr<Bus> servingSocket(int socket, const Context& context);

    /// @param socket connected; it is taken over.
    /// @throws std::system_error
    Bus(int socket, BusConnection::Role role, const Context& context)
        : context_(context), connection_(std::make_unique<BusConnection>(socket, role)) {}
    ~Bus() = default;
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    void setDelegate(std::weak_ptr<BusDelegate> delegate) { delegate_ = std::move(delegate); }

    /// False when the connection is lost: then no call and no signal can be made.
    bool isOpen() const { return connection_ != nullptr; }

    Message makeCall(const Method& method) const;
    Message makeSignal(const std::string& path, const std::string& interface,
                       const std::string& member) const;
    static Message makeReply(const IncomingCall& call);
    /// Whether the caller waits for a reply: otherwise, none need be made.
    static bool expectsReply(const IncomingCall& call);

    /// What an answer is told to: the body of the reply, or the error; the body is empty with an error.
    using Answer = std::function<void(MessageReader& reply, const BusError* error)>;
    /// Sends a call. The answer is told as long as the slot is kept, exactly once unless the connection is
    /// lost before.
    [[nodiscard]] Slot call(const Message& message, Answer answer);
    /// Sends a call of which no answer is wanted, a signal, or a reply.
    void send(const Message& message);
    /// A text that cannot be sent is left out.
    static void replyError(const IncomingCall& call, const BusError& error);
    /// There is no object at the path of the call.
    static void replyNoObject(const IncomingCall& call);

    /// Messages that come fast may gather for so long before they are read, which saves most of the cost of
    /// waking up; zero, as at first, for never. They never do while the answer to a call is awaited.
    void setLongestRest(std::chrono::nanoseconds longestRest);

private:
    friend class Slot;

    static std::shared_ptr<Bus> start(int socket, BusConnection::Role role, const Context& context);
    /// For making and sending messages; null when the connection is lost.
    sd_bus* library() const { return connection_ ? connection_->get() : nullptr; }
    /// False if it cannot be sent.
    bool write(const Message& message, std::uint64_t* cookie);
    void serveSoon();
    void serve();
    /// Whether there was a message.
    bool serveOne();
    /// How long to leave unread what comes next.
    /// @param served the number of messages that were read.
    /// @param now when the last message was read.
    std::chrono::nanoseconds restAfter(int served, std::chrono::nanoseconds now) const;
    /// Has the loop watch for what the connection waits for now.
    void updateSource();
    void handle(std::span<const std::uint8_t> message);
    void handleCall(std::span<const std::uint8_t> message);
    void handleReply(const MessageHeader& header);
    void close();

    Context context_;
    std::unique_ptr<BusConnection> connection_;
    std::shared_ptr<RunLoopSource> source_;
    std::weak_ptr<BusDelegate> delegate_;
    std::unordered_map<std::uint64_t, Answer> outstanding_;
    bool isServingSoon_ = false;
    std::chrono::nanoseconds longestRest_{};
    std::chrono::nanoseconds lastServed_{};
    std::optional<std::chrono::nanoseconds> restsUntil_;
};

}  // namespace zobi::platform::bluez
