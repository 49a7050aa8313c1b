#include "ScriptedBus.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

namespace zobi::platform::bluez {

namespace {

void send(Bus& bus, const std::string& sender, Message message, const ScriptedBus::Body& body) {
    sd_bus_message_set_sender(message.get(), sender.c_str());
    if (body) body(message);
    bus.send(message);
}

}  // namespace

// Connections

std::shared_ptr<Bus> ScriptedBus::openBus(const Bus::Context& context) {
    std::array<int, 2> ends{};
    if (!hasBus || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) != 0) {
        throw std::system_error(ENOENT, std::generic_category(), "the system bus");
    }
    clients_.push_back({newName(), Bus::servingSocket(ends[0], context)});
    clients_.back().bus->setDelegate(std::shared_ptr<BusDelegate>(alive_, this));
    return Bus::overSocket(ends[1], context);
}

void ScriptedBus::dropBus() {
    while (!clients_.empty()) {
        const Client left = clients_.front();
        clients_.pop_front();
        clientDidLeave(left);
    }
}

void ScriptedBus::busDidClose(const std::string& /*reason*/) {
    const auto isLeft = [](const Client& client) { return !client.bus->isOpen(); };
    const auto leaving = std::ranges::find_if(clients_, isLeft);
    const Client left = *leaving;
    clients_.erase(leaving);
    clientDidLeave(left);
}

void ScriptedBus::changeOwner(bool isThere) {
    life_ = isThere ? std::make_shared<bool>() : nullptr;
    const std::string before = std::exchange(owner_, isThere ? newName() : "");
    const auto body = [&](Message& it) { it.string(blueZName).string(before).string(owner_); };
    emit(busPath, busInterface, "NameOwnerChanged", body);
    if (isThere) return;
    for (const auto& call : std::vector(pending_)) {
        fail(call, "Message recipient disconnected from message bus without replying",
             "org.freedesktop.DBus.Error.NoReply");
    }
}

// What is sent

void ScriptedBus::emit(const std::string& path, const std::string& interface, const std::string& member,
                       const Body& body) {
    const auto isAsked = [&](const std::string& rule) {
        return rule.find("interface='" + interface + '\'') != std::string::npos;
    };
    for (const Client& client : clients_) {
        if (std::ranges::none_of(client.rules, isAsked)) continue;
        const std::string sender = interface == busInterface ? busName : owner_;
        send(*client.bus, sender, client.bus->makeSignal(path, interface, member), body);
    }
}

void ScriptedBus::emitFrom(const std::string& sender, const std::string& path, const std::string& interface,
                           const std::string& member, const Body& body) {
    for (const Client& client : clients_) {
        send(*client.bus, sender, client.bus->makeSignal(path, interface, member), body);
    }
}

Slot ScriptedBus::callFrom(const std::string& sender, const std::string& path, const std::string& interface,
                           const std::string& member, const Body& body, Bus::Answer answer) {
    const Client& client = clients_.back();
    Message message = client.bus->makeCall({client.name, path, interface, member});
    sd_bus_message_set_sender(message.get(), sender.c_str());
    if (body) body(message);
    return client.bus->call(message, std::move(answer));
}

void ScriptedBus::busDidReceiveSignal(const Signal& signal) {
    signal.body.string();
    for (const auto& [property, value] : signal.body.properties()) {
        calls.push_back(std::string(signal.path) + ' ' + property);
    }
}

// What is called

void ScriptedBus::busDidReceiveCall(IncomingCall incoming) {
    const auto call = std::make_shared<ScriptedCall>(ScriptedCall{std::move(incoming)});
    const auto& [destination, path, member] =
        std::tie(call->incoming.destination, call->incoming.path, call->incoming.member);
    // Nobody waits for an answer over a connection that is gone.
    std::erase_if(pending_, [](const Call& other) { return other->incoming.bus.expired(); });
    pending_.push_back(call);
    if (destination != busName) {
        if (owner_.empty() || (destination != blueZName && destination != owner_)) {
            return fail(call, "The name is not activatable", "org.freedesktop.DBus.Error.ServiceUnknown");
        }
        calls.push_back(std::string(member) + ' ' + std::string(path));
    }
    const auto found = scripts.find(member);
    if (found == scripts.end()) return carryOut(call, {});
    const Script script = found->second;
    if (script.times > 0 && --found->second.times == 0) scripts.erase(found);
    if (script.delay == 0) return carryOut(call, script);
    after(script.delay, life_, [this, call, script] { carryOut(call, script); });
}

void ScriptedBus::carryOut(const Call& call, const Script& script) {
    const auto bus = call->incoming.bus.lock();
    const auto client = std::ranges::find(clients_, bus, &Client::bus);
    if (client == clients_.end()) return;
    call->isRepeated = script.repeats;
    if (script.error) return fail(call, script.error->message, script.error->name);
    if (script.answer) return reply(call, script.answer);
    if (script.acts) {
        if (!script.answers) call->isOver = true;
        call->incoming.destination == busName ? performForBus(*client, call) : perform(*client, call);
    } else if (script.answers) {
        reply(call);
    }
}

void ScriptedBus::performForBus(Client& client, const Call& call) {
    const std::string_view member = call->incoming.member;
    if (member == "AddMatch") {
        client.rules.emplace_back(call->incoming.arguments.string());
        return reply(call);
    }
    const std::string name = member == "Hello" ? client.name : owner_;
    if (!name.empty()) return reply(call, [&](Message& body) { body.string(name); });
    fail(call, "Could not get owner of name", "org.freedesktop.DBus.Error.NameHasNoOwner");
}

bool ScriptedBus::takeOver(const Call& call) {
    std::erase(pending_, call);
    return call && !std::exchange(call->isOver, true) && !call->incoming.bus.expired();
}

void ScriptedBus::reply(const Call& call, const Body& body) {
    if (!takeOver(call)) return;
    const auto bus = call->incoming.bus.lock();
    const std::string sender = call->incoming.destination == busName ? busName : owner_;
    for (int left = call->isRepeated ? 2 : 1; left > 0; --left) {
        send(*bus, sender, Bus::makeReply(call->incoming), body);
    }
}

void ScriptedBus::fail(const Call& call, const std::string& message, std::string name) {
    if (!name.starts_with("org.")) name = "org.bluez.Error." + name;
    if (takeOver(call)) Bus::replyError(call->incoming, {name, message});
}

void ScriptedBus::after(double seconds, std::weak_ptr<void> condition, std::function<void()> action) {
    runLoop_.after(seconds, [condition = std::move(condition), action = std::move(action)] {
        if (!condition.expired()) action();
    });
}

}  // namespace zobi::platform::bluez
