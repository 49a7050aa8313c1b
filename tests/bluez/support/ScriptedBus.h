#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/bus/Bus.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

/// What is different with the calls of one operation.
struct Script {
    /// Of its name, "org.bluez.Error." may be left out.
    std::optional<BusError> error = std::nullopt;
    bool acts = true;
    bool answers = true;
    /// Every answer comes twice.
    bool repeats = false;
    double delay = 0;
    /// For how many calls; for all if negative.
    int times = -1;
    /// Writes another answer, to a call that does nothing.
    std::function<void(Message&)> answer = nullptr;
};

inline const Script neverAnswered{.acts = false, .answers = false, .times = 1};

inline Script fails(const std::string& name, const std::string& message = {}, int times = 1) {
    return {.error = BusError{name, message}, .times = times};
}

/// A connection to the bus, and how the service gets on with it.
struct ScriptedClient {
    std::string name;
    std::shared_ptr<Bus> bus;
    std::vector<std::string> rules = {};
    /// The path of the adapter.
    std::string discovers = {};
    Properties filter = {};
    /// Its filter was that of the last scan, which the service believes to run.
    bool isDeaf = false;
    /// The paths of characteristics.
    std::set<std::string> subscriptions = {};
};

/// A call to the service, as it was received.
struct ScriptedCall {
    IncomingCall incoming;
    bool isOver = false;
    bool isRepeated = false;
};

/// Plays the message bus, from the loop of the one who uses it. A service on it is derived from it.
class ScriptedBus : public BusDelegate {
public:
    using Body = std::function<void(Message&)>;
    using Call = std::shared_ptr<ScriptedCall>;
    using Client = ScriptedClient;

    explicit ScriptedBus(RunLoop& runLoop) : runLoop_(runLoop) {}

    bool hasBus = true;
    /// By the names of operations, those of the bus too.
    std::map<std::string, Script, std::less<>> scripts;
    /// Each call to the service, its operation and its path; and each property that a client tells to have
    /// changed, its path and its name.
    std::vector<std::string> calls;

    /// The name of the service on the bus; empty when it is not there.
    const std::string& owner() const { return owner_; }
    /// A new connection.
    /// @throws std::system_error when there is no bus.
    std::shared_ptr<Bus> openBus(const Bus::Context& context);
    /// All connections end.
    void dropBus();
    /// Sends a signal of the service, or of the bus, to every connection that has asked for its interface.
    void emit(const std::string& path, const std::string& interface, const std::string& member,
              const Body& body);
    /// Sends a signal of anybody straight to each connection, asked for or not.
    void emitFrom(const std::string& sender, const std::string& path, const std::string& interface,
                  const std::string& member, const Body& body);
    /// Calls an object of the client that came last.
    [[nodiscard]] Slot callFrom(const std::string& sender, const std::string& path,
                                const std::string& interface, const std::string& member, const Body& body,
                                Bus::Answer answer);

    void busDidReceiveCall(IncomingCall incoming) override;
    void busDidReceiveSignal(const Signal& signal) override;
    void busDidClose(const std::string& reason) override;

protected:
    /// Does what a call asks for, and answers it at once or later.
    virtual void perform(Client& client, const Call& call) = 0;
    virtual void clientDidLeave(const Client& client) = 0;

    /// The service has a new name on the bus, or is gone.
    void changeOwner(bool isThere);
    void reply(const Call& call, const Body& body = nullptr);
    void fail(const Call& call, const std::string& message, std::string name = "Failed");
    /// Unless the condition is gone by then.
    void after(double seconds, std::weak_ptr<void> condition, std::function<void()> action);

    RunLoop& runLoop_;
    std::list<Client> clients_;

private:
    std::string newName() { return ":1." + std::to_string(++namesGiven_); }
    bool takeOver(const Call& call);
    void carryOut(const Call& call, const Script& script);
    void performForBus(Client& client, const Call& call);

    // Lets the connections refer to this, which owns them.
    std::shared_ptr<int> alive_ = std::make_shared<int>();
    int namesGiven_ = 0;
    std::string owner_;
    // What is not done in a life of the service is not done in the next.
    std::shared_ptr<bool> life_;
    std::vector<Call> pending_;
};

}  // namespace zobi::platform::bluez
