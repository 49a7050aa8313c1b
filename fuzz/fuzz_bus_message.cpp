// Takes in D-Bus signals of any shape as those of the Bluetooth service: other types than are due, what is
// missing, and what nobody expects. And reads arbitrary bytes as packets of a controller.

#include <sys/socket.h>

#include <numeric>

#include "AnyService.h"
#include "platform/bluez/controller/HCIEvent.h"
#include "platform/bluez/controller/ManagementSocket.h"
#include "platform/bluez/radio/BlueZService.h"

namespace {

using namespace platform::bluez;

/// Touches everything that it is told.
class Witness final : public BlueZServiceDelegate {
public:
    void serviceDidChangeAvailability() override {}
    void deviceDidAppear(Device& device) override { touch(device.name); }
    void deviceDidChange(Device& device, const DeviceChange& change) override {
        std::string end = textOf(device.address);
        std::ranges::replace(end, ':', '_');
        require(device.path == firstAdapter + "/dev_" + end);
        touch(change.name.value_or(""));
        if (!change.serviceData) return;
        for (const auto& [uuid, data] : *change.serviceData) touch(data);
    }
    void deviceDidVanish(Device& device) override { touch(device.path); }
    void deviceDidTellLinkEnd(Device& /*device*/, const LinkEnd& end) override { touch(end.text); }
    void characteristicDidChange(Device& /*device*/, std::string_view path,
                                 std::span<const std::uint8_t> value) override {
        touch(path);
        touch(value);
    }

private:
    template <typename Range>
    static void touch(const Range& range) {
        [[maybe_unused]] const volatile auto sum = std::accumulate(range.begin(), range.end(), 0);
    }
};

/// A service that is ready, and stays from one run to the next.
class Target {
public:
    Target() { service_->start(); }

    /// Begins a new life of the service.
    void begin() {
        machine_.service.calls.clear();
        for (const char* const owner : {"", ":1.1"}) {
            tell("/", busInterface, "NameOwnerChanged",
                 [&](Message& body) { body.string(blueZName).string("").string(owner); });
        }
        while (service_->availability() != Availability::poweredOn) machine_.runLoop().processPending();
    }

    void tell(const std::string& path, const std::string& interface, const std::string& member,
              const std::function<void(Message&)>& append) {
        Message message = bus_->makeSignal(path, interface, member);
        append(message);
        if (sd_bus_message_seal(message.get(), ++serial_, 0) < 0) return;
        MessageReader body(message.get());
        service_->busDidReceiveSignal(
            {interface == busInterface ? busName : ":1.1", path, interface, member, body});
        // It may have asked for something.
        for (int i = 0; i < 4; ++i) machine_.runLoop().processPending();
    }

private:
    Machine machine_;
    std::shared_ptr<Witness> witness_ = std::make_shared<Witness>();
    std::shared_ptr<BlueZService> service_ =
        std::make_shared<BlueZService>(std::make_shared<const RadioContext>(machine_.context), witness_);
    std::shared_ptr<Bus> bus_ = machine_.service.openBus({machine_.runLoop(), machine_.clock()});
    std::uint64_t serial_ = 0;
};

void takeSignals(Input& input) {
    struct Kind {
        std::string interface;
        std::string member;
        std::vector<std::string> types;
    };
    static const std::array<Kind, 5> kinds{{{propertiesInterface, "PropertiesChanged", {"s", "a{sv}"}},
                                            {objectManagerInterface, "InterfacesAdded", {"o", "a{sa{sv}}"}},
                                            {objectManagerInterface, "InterfacesRemoved", {"o", "as"}},
                                            {deviceInterface, "Disconnected", {"s", "s"}},
                                            {busInterface, "NameOwnerChanged", {"s", "s", "s"}}}};
    static Target target;
    target.begin();
    while (!input.isAtEnd()) {
        const std::string path = anyPath(input);
        const auto& [interface, member, types] = kinds[input.byte() % kinds.size()];
        try {
            target.tell(path, interface, member, [&, &due = types](Message& body) {
                for (const std::string& type : due) {
                    // An argument may be missing, or another one than it should be.
                    const std::uint8_t choice = input.byte();
                    if (choice == 255) break;
                    appendAny(body.get(), input, choice > 240 ? "v" : type);
                }
            });
        } catch (const std::system_error&) {
            // The bus, which is not doubted, has named an owner by what is no name.
            require(interface == busInterface);
        }
    }
}

void readPackets(Input& input) {
    Machine machine;
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()) == 0);
    const auto management = std::make_shared<ManagementSocket>(ends[0], 0, machine.runLoop());
    const DeviceAddress address{.bytes = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01}};
    management->watchLink(address);
    while (!input.isAtEnd()) {
        const auto packet = input.bytes(input.byte());
        const auto event = parseHCIEvent(packet);
        require(!event || (packet.size() >= 7 && packet[0] == 0x04));
        if (::send(ends[1], packet.data(), packet.size(), MSG_NOSIGNAL) <= 0) break;
        const auto end = management->takeLinkEnd(address);
        require(!end || !end->text.empty());
    }
    ::close(ends[1]);
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    input.byte() % 8 == 7 ? readPackets(input) : takeSignals(input);
    return 0;
}
