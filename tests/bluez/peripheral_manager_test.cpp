// What a peripheral manager tells a Bluetooth service and answers to it, against a scripted one, in virtual
// time.

#include <gmock/gmock.h>
#include <sys/socket.h>

#include "platform/bluez/dbus/BlueZNames.h"
#include "platform/bluez/peripheral/BlueZPeripheralManager.h"
#include "platform/standard/StandardPlatform.h"

namespace platform::bluez {
namespace {

using namespace ::testing;
using Texts = std::vector<std::string>;

const CBUUID battery = CBUUID::UUIDWithString("180F");
const LocalService batteryService{battery, {{.uuid = CBUUID::UUIDWithString("2A19"), .canNotify = true}}};
const LocalAdvertisement advertisement{
    .localName = "morvane", .services = {battery}, .serviceData = {{battery, Bytes(20)}}};
const Texts wholeStart{"RegisterApplication", "RegisterAdvertisement", "advertises"};

/// A peripheral manager, and around it its delegate, the bus and the service.
class Peripheral : public Test, public BusDelegate, public PeripheralManagerDelegate {
protected:
    Peripheral() {
        machine.log().setSink(nullptr);
        manager->start();
        manager->startAdvertising(advertisement);
    }
    std::shared_ptr<Bus> openBus(const Bus::Context& context) {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
        bus = Bus::servingSocket(ends[0], context);
        bus->setDelegate(std::shared_ptr<BusDelegate>(alive, this));
        waiting->add(bus);
        return Bus::overSocket(ends[1], context);
    }
    Texts eventsIn(double seconds = 0.1) {
        machine.runLoop().runFor(seconds);
        return std::exchange(events, {});
    }

    void busDidReceiveCall(IncomingCall call) override {
        const std::string member(call.member);
        Message reply = Bus::makeReply(call);
        sd_bus_message_set_sender(reply.get(), call.destination == busName ? busName : ":1.9");
        if (member == "Hello") reply.string(":1.1");
        if (member == "GetNameOwner") reply.string(":1.9");
        if (member == "GetManagedObjects") {
            reply.objects({{"/org/bluez/hci0", {{adapterInterface, {{"Powered", true}}}}}});
        }
        if (call.path == "/org/bluez/hci0") events.push_back(member);
        if (!error || member != "RegisterAdvertisement") return bus->send(reply);
        if (!error->name.empty()) Bus::replyError(call, *error);
    }
    void busDidReceiveSignal(const Signal& signal) override {
        signal.body.string();
        for (const auto& change : signal.body.properties()) {
            events.push_back(std::string(signal.path) + ' ' + change.first);
        }
    }
    void busDidClose(const std::string& /*reason*/) override {}
    void emit(const char* sender, const char* path, const char* interface, const char* member,
              const std::function<void(Message&)>& append) {
        Message signal = bus->makeSignal(path, interface, member);
        sd_bus_message_set_sender(signal.get(), sender);
        append(signal);
        bus->send(signal);
    }
    /// What the service is answered when it calls an object: its bytes as a text, or the name of the error.
    std::string call(const char* member, const std::function<void(Message&)>& append) {
        std::string answer = "none";
        Message message = bus->makeCall({":1.1", object, gattCharacteristicInterface, member});
        append(message);
        const Slot slot = bus->call(message, [&](MessageReader& reply, const BusError* failure) {
            const auto bytes = failure ? std::span<const std::uint8_t>() : reply.bytes();
            answer = failure ? failure->name : std::string(bytes.begin(), bytes.end());
        });
        machine.runLoop().runFor(0.1);
        return answer;
    }

    void peripheralManagerDidUpdateState(PeripheralManager&) override {}
    void peripheralManagerDidStartAdvertising(PeripheralManager&, const NSError* failure) override {
        events.push_back(failure ? failure->localizedDescription() : "advertises");
    }
    void peripheralManagerDidConnectCentral(PeripheralManager&, const std::string& central) override {
        events.push_back("connected by " + central);
    }
    ReadAnswer peripheralManagerDidReceiveRead(PeripheralManager&, GATTPlace, const std::string&) override {
        return value;
    }
    std::optional<NSError> peripheralManagerDidReceiveWrite(PeripheralManager&, GATTPlace,
                                                            std::span<const std::uint8_t> written,
                                                            const std::string&) override {
        if (written.size() > 2) return NSError(CBATTError::invalidAttributeValueLength, "It is too long.");
        value.assign(written.begin(), written.end());
        return std::nullopt;
    }

    const std::string object = "/application/service0/characteristic0";
    PollWaiting* const waiting = new PollWaiting;
    StandardPlatform machine{StandardPlatform::Time::virtualTime, std::unique_ptr<PollWaiting>(waiting)};
    // Lets weak pointers refer to this.
    std::shared_ptr<int> alive = std::make_shared<int>();
    std::shared_ptr<Bus> bus;
    Texts events;
    Bytes value = {'a', 'b', 'c'};
    /// What advertisements are refused with; nothing at all is answered if it has no name.
    std::optional<BusError> error;
    std::shared_ptr<BlueZPeripheralManager> manager = std::make_shared<BlueZPeripheralManager>(
        RadioContext{machine.runLoop(), machine.clock(), machine.log(), *waiting,
                     [this](const auto& context) { return openBus(context); }, nullptr, "hci0"},
        std::vector{batteryService}, std::shared_ptr<PeripheralManagerDelegate>(alive, this));
};

TEST_F(Peripheral, AnswersReadsAndWritesAndNotifiesThoseWhoAskForIt) {
    EXPECT_EQ(eventsIn(), wholeStart);
    manager->notify({0, 0}, value);
    const auto read = [&](std::uint16_t offset) {
        const ObjectPath central{"/org/bluez/hci0/dev_00_00_5E_00_53_01"};
        return call("ReadValue", [&](Message& it) {
            it.properties({{"device", central}, {"offset", offset}});
        });
    };
    EXPECT_EQ(read(2), "c");
    EXPECT_EQ(read(4), "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(eventsIn(), Texts({"connected by 00:00:5E:00:53:01"}));
    const auto write = [&](const Bytes& bytes) {
        return call("WriteValue", [&](Message& it) { it.bytes(bytes).properties({}); });
    };
    EXPECT_EQ(write({1, 2, 3}), "org.bluez.Error.InvalidValueLength");
    write({'x'});
    EXPECT_EQ(read(0), "x");
    call("StartNotify", [](Message&) {});
    manager->notify({0, 0}, value);
    manager->notify({0, 0}, value);
    EXPECT_EQ(eventsIn(), Texts(2, object + " Value"));
}

TEST_F(Peripheral, ChangesAnAdvertisementInPlaceOnlyIfItFits) {
    eventsIn();
    LocalAdvertisement changed = advertisement;
    changed.serviceData.front().data.back() = 1;
    manager->startAdvertising(changed);
    EXPECT_EQ(eventsIn(), Texts({"/advertisement ServiceData"}));
    // Flags, the list and what tells the data's service take 11 of 31 bytes.
    changed.serviceData.front().data.push_back(1);
    error = {"org.bluez.Error.Failed", "Failed to register advertisement"};
    manager->startAdvertising(changed);
    EXPECT_THAT(eventsIn(60), ElementsAre("UnregisterAdvertisement", "RegisterAdvertisement",
                                          HasSubstr("takes 32 bytes, and an advertisement has 31")));
    error = BusError();
    manager->startAdvertising(advertisement);
    EXPECT_THAT(eventsIn(60), ElementsAre("RegisterAdvertisement", HasSubstr("It gives no answer")));
}

TEST_F(Peripheral, ComesBackWithThePowerAndTheService) {
    eventsIn();
    const auto setPowered = [&](bool isOn) {
        emit(":1.9", "/org/bluez/hci0", propertiesInterface, "PropertiesChanged", [&](Message& body) {
            body.string(adapterInterface).properties({{"Powered", isOn}}).strings({});
        });
    };
    setPowered(false);
    EXPECT_EQ(eventsIn(), Texts());
    EXPECT_FALSE(manager->isAdvertising());
    setPowered(true);
    EXPECT_EQ(eventsIn(), Texts({"UnregisterAdvertisement", "RegisterAdvertisement", "advertises"}));
    const auto changeOwner = [&](const char* from, const char* to) {
        emit(busName, busPath, busInterface, "NameOwnerChanged",
             [&](Message& body) { body.string(blueZName).string(from).string(to); });
    };
    changeOwner(":1.9", "");
    changeOwner("", ":1.9");
    EXPECT_EQ(eventsIn(), wholeStart);
}

}  // namespace
}  // namespace platform::bluez
