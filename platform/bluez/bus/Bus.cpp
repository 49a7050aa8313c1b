#include "platform/bluez/bus/Bus.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/bus/SystemBus.h"

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

void check(int result, const char* what) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), what);
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
    return start(connectToSystemBus(), BusConnection::Role::client, context);
}

std::shared_ptr<Bus> Bus::overSocket(int socket, const Context& context) {
    return start(socket, BusConnection::Role::client, context);
}

std::shared_ptr<Bus> Bus::servingSocket(int socket, const Context& context) {
    return start(socket, BusConnection::Role::server, context);
}

std::shared_ptr<Bus> Bus::start(int socket, BusConnection::Role role, const Context& context) {
    auto started = std::make_shared<Bus>(socket, role, context);
    started->source_ = context.runLoop.addSource({socket, 0}, [weakBus = std::weak_ptr(started)] {
        if (const auto self = weakBus.lock()) self->serve();
    });
    // It may have something to send at once.
    started->serveSoon();
    return started;
}

Message Bus::makeCall(const Method& method) const {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(library(), &message, method.destination.c_str(), method.path.c_str(),
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
    check(sd_bus_message_new_signal(library(), &message, path.c_str(), interface.c_str(), member.c_str()),
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
    if (!write(message, &cookie)) return {};
    outstanding_.emplace(cookie, std::move(answer));
    updateSource();
    return {weak_from_this(), cookie};
}

void Bus::send(const Message& message) {
    if (write(message, nullptr)) updateSource();
}

bool Bus::write(const Message& message, std::uint64_t* cookie) {
    if (sd_bus_send(library(), message.get(), cookie) >= 0) return true;
    // A look tells that the connection is lost: the call is one more without an answer.
    serveSoon();
    return false;
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
    source_->setEvents(connection_->events());
    // A rest that is over is not begun again by what is sent before the next look.
    const bool rests = outstanding_.empty() && restsUntil_ && *restsUntil_ > context_.clock.monotonicTime();
    source_->restUntil(rests ? restsUntil_ : std::nullopt);
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
    if (!connection_) return;
    struct Afterwards {
        Bus& bus;
        int served = 0;

        ~Afterwards() {
            // What was read already makes no descriptor ready; nor does what an exception kept from its turn.
            if (served == messagesInOneTurn || std::uncaught_exceptions() > 0) bus.serveSoon();
            const nanoseconds now = bus.context_.clock.monotonicTime();
            const nanoseconds rest = bus.restAfter(served, now);
            bus.restsUntil_ = rest > nanoseconds::zero() ? std::optional(now + rest) : std::nullopt;
            if (served > 0) bus.lastServed_ = now;
            bus.updateSource();
        }
    } afterwards{*this};
    connection_->look();
    while (afterwards.served < messagesInOneTurn && serveOne()) ++afterwards.served;
}

nanoseconds Bus::restAfter(int served, nanoseconds now) const {
    if (!connection_ || served == 0 || served == messagesInOneTurn) return nanoseconds::zero();
    const auto received = static_cast<nanoseconds::rep>(connection_->bytesReceived());
    if (received == 0 || received >= bytesOfFullSocket) return nanoseconds::zero();
    const nanoseconds elapsed = now - lastServed_;
    // Worth it if at least two are expected to come meanwhile.
    if (elapsed / served > longestRest_ / 2) return nanoseconds::zero();
    return std::min(longestRest_, elapsed * bytesToGather / received);
}

bool Bus::serveOne() {
    const auto message = connection_->next();
    if (message) handle(*message);
    if (!connection_->error()) return message.has_value();
    close();
    return false;
}

void Bus::handle(std::span<const std::uint8_t> message) {
    using enum MessageHeader::Type;
    if (MessageHeader::typeOf(message) == call) return handleCall(message);
    const auto header = MessageHeader::of(message);
    if (!header) return;
    if (header->type == reply || header->type == error) return handleReply(*header);
    const auto delegate = delegate_.lock();
    if (header->type != signal || !delegate) return;
    MessageReader body = header->reader();
    delegate->busDidReceiveSignal({header->sender, header->path, header->interface, header->member, body});
}

void Bus::handleCall(std::span<const std::uint8_t> message) {
    MessagePointer raw = connection_->callOf(message);
    const auto delegate = delegate_.lock();
    if (!raw || !delegate) return;
    std::vector<std::uint8_t> bytes(message.begin(), message.end());
    const auto header = MessageHeader::of(bytes);
    if (!header) return;
    delegate->busDidReceiveCall({std::move(raw), std::move(bytes), header->reader(), header->sender,
                                 header->destination, header->path, header->interface, header->member,
                                 weak_from_this()});
}

void Bus::handleReply(const MessageHeader& header) {
    const auto node = outstanding_.extract(header.replySerial);
    if (node.empty()) return;
    MessageReader body = header.reader();
    if (header.type == MessageHeader::Type::reply) return node.mapped()(body, nullptr);
    const BusError error{std::string(header.errorName),
                         std::string(header.signature.starts_with('s') ? body.string() : "")};
    MessageReader nothing;
    node.mapped()(nothing, &error);
}

void Bus::close() {
    const auto self = shared_from_this();
    source_.reset();
    const std::string reason = std::exchange(connection_, nullptr)->error().message();
    outstanding_.clear();
    const auto delegate = delegate_.lock();
    if (delegate) delegate->busDidClose(reason);
}

}  // namespace zobi::platform::bluez
