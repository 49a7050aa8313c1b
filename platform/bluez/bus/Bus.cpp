#include "platform/bluez/bus/Bus.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"

namespace zobi::platform::bluez {

using std::chrono::nanoseconds;

namespace {

// Timers and other tasks get their turn after so many messages.
constexpr int messagesInOneTurn = 256;

// The cost of waking up counts little when so many bytes share it: about 80 signals.
constexpr int bytesToGather = 32 * 1024;
// A socket that holds so much is soon full, and then its sender has to wait: one holds 167 messages of up to
// 600 bytes each.
constexpr int bytesOfFullSocket = 44 * 1024;

std::string_view orEmpty(const char* text) {
    return text ? std::string_view(text) : std::string_view();
}

void check(int result, const char* what) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

struct BusUnref {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};

std::unique_ptr<sd_bus, BusUnref> makeBus(int socket) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "D-Bus");
    std::unique_ptr<sd_bus, BusUnref> owner(bus);
    check(sd_bus_set_fd(bus, socket, socket), "D-Bus");
    return owner;
}

}  // namespace

Slot& Slot::operator=(Slot&& other) noexcept {
    if (this != &other) {
        reset();
        bus_ = std::move(other.bus_);
        other.bus_.reset();
        cookie_ = other.cookie_;
    }
    return *this;
}

void Slot::reset() {
    if (const auto bus = bus_.lock()) bus->outstanding_.erase(cookie_);
    bus_.reset();
}

void BusDelegate::busDidReceiveCall(IncomingCall call) {
    Bus::replyNoObject(call);
}

std::shared_ptr<Bus> Bus::overSystemBus(const Context& context) {
    sd_bus* bus = nullptr;
    check(sd_bus_open_system(&bus), "the system bus");
    return start(bus, context);
}

std::shared_ptr<Bus> Bus::overSocket(int socket, const Context& context) {
    auto bus = makeBus(socket);
    check(sd_bus_set_bus_client(bus.get(), 1), "D-Bus");
    check(sd_bus_start(bus.get()), "D-Bus");
    return start(bus.release(), context);
}

std::shared_ptr<Bus> Bus::servingSocket(int socket, const Context& context) {
    auto bus = makeBus(socket);
    sd_id128_t id{};
    check(sd_id128_randomize(&id), "D-Bus");
    check(sd_bus_set_server(bus.get(), 1, id), "D-Bus");
    check(sd_bus_start(bus.get()), "D-Bus");
    return start(bus.release(), context);
}

std::shared_ptr<Bus> Bus::start(sd_bus* bus, const Context& context) {
    auto started = std::make_shared<Bus>(bus, context);
    started->source_ = context.runLoop.addSource({sd_bus_get_fd(bus), 0}, [weakBus = std::weak_ptr(started)] {
        if (const auto self = weakBus.lock()) self->serve();
    });
    // It may have something to send at once.
    started->serveSoon();
    return started;
}

Bus::~Bus() {
    source_.reset();
    sd_bus_close_unref(bus_);
}

Message Bus::makeCall(const Method& method) const {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus_, &message, method.destination.c_str(), method.path.c_str(),
                                         method.interface.c_str(), method.member.c_str()),
          "a D-Bus call");
    MessagePointer owner(message);
    // Whether the service runs is the machine's decision, not that of its clients.
    check(sd_bus_message_set_auto_start(message, 0), "a D-Bus call");
    return Message(std::move(owner));
}

Message Bus::makeSignal(const std::string& path, const std::string& interface,
                        const std::string& member) const {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_signal(bus_, &message, path.c_str(), interface.c_str(), member.c_str()),
          "a D-Bus signal");
    return Message(MessagePointer(message));
}

Message Bus::makeReply(const IncomingCall& call) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_return(call.message.get(), &message), "a D-Bus reply");
    return Message(MessagePointer(message));
}

bool Bus::expectsReply(const IncomingCall& call) {
    return sd_bus_message_get_expect_reply(call.message.get()) > 0;
}

Slot Bus::call(const Message& message, Answer answer) {
    std::uint64_t cookie = 0;
    // A connection that is lost already tells so by itself: the call is one more without an answer.
    if (sd_bus_send(bus_, message.get(), &cookie) < 0) return {};
    outstanding_.emplace(cookie, std::move(answer));
    updateSource();
    return {weak_from_this(), cookie};
}

void Bus::send(const Message& message) {
    sd_bus_send(bus_, message.get(), nullptr);
    updateSource();
}

void Bus::replyError(const IncomingCall& call, const BusError& error) {
    // Whoever waits needs an answer more than its text, which the bus may not carry.
    for (const char* const text : {error.message.c_str(), ""}) {
        if (sd_bus_reply_method_errorf(call.message.get(), error.name.c_str(), "%s", text) >= 0) break;
    }
    if (const auto bus = call.bus.lock()) bus->updateSource();
}

void Bus::replyNoObject(const IncomingCall& call) {
    // Without an answer, the caller would wait until its own time limit.
    replyError(call, {unknownObjectError, "There is no such object."});
}

void Bus::setLongestRest(nanoseconds longestRest) {
    longestRest_ = longestRest;
    restsUntil_.reset();
    updateSource();
}

void Bus::updateSource() {
    if (!source_) return;
    source_->setEvents(static_cast<short>(std::max(sd_bus_get_events(bus_), 0)));
    source_->restUntil(outstanding_.empty() ? restsUntil_ : std::nullopt);
}

void Bus::serveSoon() {
    if (std::exchange(isServingSoon_, true)) return;
    context_.runLoop.dispatchAsync([weakSelf = weak_from_this()] {
        const auto self = weakSelf.lock();
        if (!self) return;
        self->isServingSoon_ = false;
        self->serve();
    });
}

void Bus::serve() {
    struct Afterwards {
        Bus& bus;
        int waiting = 0;
        int served = 0;

        ~Afterwards() {
            // What was read already makes no descriptor ready; nor does what an exception kept from its turn.
            if (served == messagesInOneTurn || std::uncaught_exceptions() > 0) bus.serveSoon();
            const nanoseconds now = bus.context_.clock.monotonicTime();
            const nanoseconds rest = bus.restAfter(served, waiting, now);
            bus.restsUntil_ = rest > nanoseconds::zero() ? std::optional(now + rest) : std::nullopt;
            if (served > 0) bus.lastServed_ = now;
            bus.updateSource();
        }
    } afterwards{*this, longestRest_ > nanoseconds::zero() ? bytesWaiting() : 0};
    while (afterwards.served < messagesInOneTurn && serveOne()) ++afterwards.served;
}

int Bus::bytesWaiting() const {
    int bytes = 0;
    return bus_ && ::ioctl(sd_bus_get_fd(bus_), FIONREAD, &bytes) == 0 ? bytes : 0;
}

nanoseconds Bus::restAfter(int served, int waiting, nanoseconds now) const {
    if (served == 0 || served == messagesInOneTurn) return nanoseconds::zero();
    if (waiting == 0 || waiting >= bytesOfFullSocket) return nanoseconds::zero();
    const nanoseconds elapsed = now - lastServed_;
    // Worth it if at least two are expected to come meanwhile.
    if (elapsed / served > longestRest_ / 2) return nanoseconds::zero();
    return std::min(longestRest_, elapsed * bytesToGather / waiting);
}

bool Bus::serveOne() {
    if (!bus_) return false;
    sd_bus_message* message = nullptr;
    const int result = sd_bus_process(bus_, &message);
    MessagePointer owner(message);
    if (result < 0 || sd_bus_is_open(bus_) <= 0) {
        close(result < 0 ? -result : ECONNRESET);
        return false;
    }
    if (owner) handle(std::move(owner));
    return result > 0;
}

void Bus::handle(MessagePointer message) {
    std::uint8_t type = 0;
    sd_bus_message* const raw = message.get();
    if (sd_bus_message_get_type(raw, &type) < 0) return;
    if (type == SD_BUS_MESSAGE_METHOD_RETURN || type == SD_BUS_MESSAGE_METHOD_ERROR) {
        return handleReply(raw, type == SD_BUS_MESSAGE_METHOD_ERROR);
    }
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto sender = orEmpty(sd_bus_message_get_sender(raw));
    const auto path = orEmpty(sd_bus_message_get_path(raw));
    const auto interface = orEmpty(sd_bus_message_get_interface(raw));
    const auto member = orEmpty(sd_bus_message_get_member(raw));
    if (type == SD_BUS_MESSAGE_SIGNAL) {
        MessageReader body(raw);
        delegate->busDidReceiveSignal({sender, path, interface, member, body});
    } else {
        const auto destination = orEmpty(sd_bus_message_get_destination(raw));
        delegate->busDidReceiveCall(
            {std::move(message), sender, destination, path, interface, member, weak_from_this()});
    }
}

void Bus::handleReply(sd_bus_message* message, bool isError) {
    std::uint64_t cookie = 0;
    if (sd_bus_message_get_reply_cookie(message, &cookie) < 0) return;
    const auto node = outstanding_.extract(cookie);
    if (node.empty()) return;
    MessageReader body(message);
    if (!isError) return node.mapped()(body, nullptr);
    const sd_bus_error* const raw = sd_bus_message_get_error(message);
    const BusError error{std::string(orEmpty(raw->name)), std::string(orEmpty(raw->message))};
    node.mapped()(body, &error);
}

void Bus::close(int error) {
    const auto self = shared_from_this();
    source_.reset();
    sd_bus_close_unref(std::exchange(bus_, nullptr));
    outstanding_.clear();
    const auto delegate = delegate_.lock();
    if (delegate) delegate->busDidClose(std::generic_category().message(error));
}

}  // namespace zobi::platform::bluez
