// What a peripheral manager tells a Bluetooth service and answers to it, against a scripted one, in virtual
// time.

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <cmath>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/peripheral-role/BlueZPeripheralManager.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;
using Texts = std::vector<std::string>;

const CBUUID battery = CBUUID::UUIDWithString("180F");
const LocalService batteryService{battery, {{.uuid = CBUUID::UUIDWithString("2A19"), .canNotify = true}}};
const LocalAdvertisement advertisement{
    .localName = "morvane", .services = {battery}, .serviceData = {{battery, Bytes(20)}}};
const Texts wholeStart{"RegisterApplication", "RegisterAdvertisement", "advertises"};
const Texts newStart{"UnregisterAdvertisement", "RegisterAdvertisement", "advertises"};
// Whether it went with the former life of the service is not known.
const Texts wholeNewStart{"RegisterApplication", "UnregisterAdvertisement", "RegisterAdvertisement",
                          "advertises"};

std::string central(int number) {
    return "/org/bluez/hci0/dev_00_00_5E_00_53_0" + std::to_string(number);
}

/// Knows that devices 1 and 9 asked for their links, and that device 2 did not.
struct Controller final : ControllerChannel {
    void watchLink(const DeviceAddress&) override {}
    std::optional<LinkEnd> takeLinkEnd(const DeviceAddress&) override { return std::nullopt; }
    void readRSSI(const DeviceAddress&, std::function<void(std::optional<int>)>) override {}
    std::optional<bool> isIncomingLink(const DeviceAddress& device) const override {
        const int number = device.bytes.back();
        return number == 1 || number == 9 ? std::optional(true)
               : number == 2              ? std::optional(false)
                                          : std::nullopt;
    }
};

/// A peripheral manager, and around it its delegate, the bus and the service. Device 9 has a link before it
/// advertises.
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
            reply.objects({{"/org/bluez/hci0", {{adapterInterface, {{"Powered", true}}}}},
                           {central(9), {{deviceInterface, {{"Connected", true}}}}}});
        }
        if (call.path.starts_with("/org/bluez/hci0")) {
            events.push_back(member + (member == "Disconnect" ? std::string(1, call.path.back()) : ""));
        }
        const auto error = errors.extract(member);
        if (error.empty()) return bus->send(reply);
        if (!error.mapped().name.empty()) Bus::replyError(call, error.mapped());
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
    void change(const std::string& path, const char* interface, const Properties& properties) {
        emit(":1.9", path.c_str(), propertiesInterface, "PropertiesChanged",
             [&](Message& body) { body.string(interface).properties(properties).strings({}); });
    }
    void setPowered(bool isOn) { change("/org/bluez/hci0", adapterInterface, {{"Powered", isOn}}); }
    void setConnected(int device, bool isConnected) {
        // The service tells of devices that it did not know in their own way.
        emit(":1.9", "/", objectManagerInterface, "InterfacesAdded", [&](Message& body) {
            body.objectPath(central(device)).interfaces({{deviceInterface, {{"Connected", isConnected}}}});
        });
    }
    void restartService() {
        for (const char* const owner : {"", ":1.9"}) {
            emit(busName, busPath, busInterface, "NameOwnerChanged",
                 [&](Message& body) { body.string(blueZName).string("").string(owner); });
        }
    }
    /// What the service is answered when it calls an object: its bytes as a text, or the name of the error.
    std::string call(
        const char* member, const std::function<void(Message&)>& append = [](auto&) {},
        const char* sender = ":1.9") {
        std::string answer = "none";
        Message message = bus->makeCall({":1.1", object, objectInterface, member});
        sd_bus_message_set_sender(message.get(), sender);
        append(message);
        const Slot slot = bus->call(message, [&](MessageReader& reply, const BusError* failure) {
            const auto bytes = failure ? std::span<const std::uint8_t>() : reply.bytes();
            answer = failure ? failure->name : std::string(bytes.begin(), bytes.end());
            errorText = failure ? failure->message : "";
        });
        try {
            machine.runLoop().runFor(0.1);
        } catch (const std::runtime_error&) {
            events.push_back("thrown");
            machine.runLoop().runFor(0.1);
        }
        return answer;
    }
    std::string read(int device, std::uint16_t offset = 0) {
        return call("ReadValue", [&](Message& it) {
            it.properties({{"device", ObjectPath{central(device)}}, {"offset", offset}});
        });
    }
    std::string write(const Bytes& bytes, std::uint16_t offset = 0) {
        return call("WriteValue", [&](Message& it) { it.bytes(bytes).properties({{"offset", offset}}); });
    }

    void throwIfDue() const {
        if (throws) throw std::runtime_error("the delegate's");
    }
    void peripheralManagerDidUpdateState(PeripheralManager& it) override {
        state = it.state();
        throwIfDue();
    }
    void peripheralManagerDidStartAdvertising(PeripheralManager&, const NSError* failure) override {
        events.push_back(failure ? failure->localizedDescription() : "advertises");
    }
    void peripheralManagerDidConnectCentral(PeripheralManager&, const std::string& address) override {
        events.push_back("connected by " + address);
    }
    void peripheralManagerDidDisconnectCentral(PeripheralManager& it, const std::string& address) override {
        events.push_back("disconnected by " + address);
        it.notify({0, 0}, value);
        throwIfDue();
    }
    void peripheralManagerDidChangeSubscription(PeripheralManager&, GATTPlace, bool isOn) override {
        events.emplace_back(isOn ? "subscribed" : "unsubscribed");
    }
    ReadAnswer peripheralManagerDidReceiveRead(PeripheralManager&, GATTPlace, const std::string&) override {
        throwIfDue();
        if (refusal) return *refusal;
        return value;
    }
    std::optional<NSError> peripheralManagerDidReceiveWrite(PeripheralManager&, GATTPlace,
                                                            std::span<const std::uint8_t> written,
                                                            const std::string&) override {
        if (written.size() > 2) return NSError(CBATTError::invalidAttributeValueLength, "It is too long.");
        value.assign(written.begin(), written.end());
        return std::nullopt;
    }

    // What the service calls.
    std::string object = "/application/service0/characteristic0";
    std::string objectInterface = gattCharacteristicInterface;
    StandardPlatform machine{StandardPlatform::Time::virtualTime, std::make_unique<PollWaiting>()};
    // Lets weak pointers refer to this.
    std::shared_ptr<int> alive = std::make_shared<int>();
    std::shared_ptr<Bus> bus;
    Texts events;
    Bytes value = {'a', 'b', 'c'};
    std::optional<NSError> refusal;
    bool throws = false;
    CBManagerState state = CBManagerState::unknown;
    /// What the next call of an operation is refused with; it is not answered at all if that has no name.
    std::map<std::string, BusError> errors;
    std::string errorText;
    std::shared_ptr<BlueZPeripheralManager> manager = std::make_shared<BlueZPeripheralManager>(
        RadioContext{machine.runLoop(), machine.clock(), machine.log(),
                     [this](const auto& context) { return openBus(context); },
                     [](auto&) { return std::make_shared<Controller>(); }, "hci0"},
        std::vector{batteryService}, std::shared_ptr<PeripheralManagerDelegate>(alive, this));
};

TEST_F(Peripheral, AnswersReadsAndWritesAndNotifiesThoseWhoAskForIt) {
    EXPECT_EQ(eventsIn(), wholeStart);
    manager->notify({0, 0}, value);
    EXPECT_EQ(read(1, 2), "c");
    EXPECT_EQ(read(1, 4), "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(eventsIn(), Texts({"connected by 00:00:5E:00:53:01"}));
    EXPECT_EQ(write({1, 2, 3}), "org.bluez.Error.InvalidValueLength");
    EXPECT_EQ(write({1}, 1), "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(write({'x'}), "");
    EXPECT_EQ(read(1), "x");
    call("StartNotify");
    manager->notify({0, 0}, value);
    manager->notify({0, 0}, value);
    EXPECT_EQ(eventsIn(), Texts({"subscribed", object + " Value", object + " Value"}));
    call("StopNotify");
    manager->notify({0, 0}, value);
    EXPECT_EQ(eventsIn(), Texts({"unsubscribed"}));
}

TEST_F(Peripheral, AnswersWhatIsRefusedOrWrongOrNoneOfTheCallersBusiness) {
    eventsIn();
    for (const auto& [code, name, text] : {std::tuple(0x7F, "Unlikely", "no"),
                                           {0x80, "Failed", "0x80"},
                                           {0x9F, "Failed", "0x9f"},
                                           {0xA0, "Unlikely", "no"}}) {
        refusal = NSError(std::string(CBATTErrorDomain), code, "no");
        EXPECT_EQ(read(1), std::string("org.bluez.Error.") + name);
        EXPECT_EQ(errorText, text);
    }
    refusal = NSError(CBATTError::readNotPermitted, "\xFF");
    EXPECT_EQ(read(1), "org.bluez.Error.NotPermitted");
    refusal.reset();
    eventsIn();
    throws = true;
    EXPECT_EQ(read(1), "org.bluez.Error.Unlikely");
    EXPECT_EQ(eventsIn(), Texts({"thrown"}));
    throws = false;
    EXPECT_EQ(call("WriteValue", [](Message& it) { it.string("x"); }), "org.bluez.Error.InvalidArguments");
    EXPECT_EQ(call("ReadValue", [](Message& it) { it.string("x"); }), "org.bluez.Error.InvalidArguments");
    EXPECT_EQ(call(
                  "WriteValue", [](Message& it) { it.bytes({}).properties({}); }, ":1.7"),
              accessDeniedError);
    EXPECT_EQ(read(1), "abc");
}

TEST_F(Peripheral, EndsTheLinksOfCentralsAlone) {
    eventsIn();
    change(central(9), deviceInterface, {{"ServicesResolved", true}});
    for (const int device : {1, 2, 3, 4}) setConnected(device, true);
    EXPECT_EQ(eventsIn(), Texts({"connected by 00:00:5E:00:53:01"}));
    for (const int device : {2, 3, 9}) read(device);
    EXPECT_THAT(eventsIn(), ElementsAre(EndsWith("02"), EndsWith("03"), EndsWith("09")));
    manager->shutDown([&] { events.emplace_back("ended"); });
    EXPECT_EQ(eventsIn(2), Texts({"Disconnect1", "Disconnect3", "UnregisterAdvertisement"}));
    setConnected(1, false);
    setConnected(3, false);
    EXPECT_THAT(eventsIn(), ElementsAre("disconnected by 00:00:5E:00:53:01",
                                        "disconnected by 00:00:5E:00:53:03", "ended"));
    EXPECT_FALSE(manager->isAdvertising());
}

TEST_F(Peripheral, EndsInTimeThoughTheServiceDoesNotAnswer) {
    eventsIn();
    errors["UnregisterAdvertisement"] = {};
    manager->shutDown([&] { events.emplace_back("first"); });
    eventsIn();
    setConnected(1, true);
    EXPECT_EQ(eventsIn(), Texts({"connected by 00:00:5E:00:53:01", "Disconnect1"})) << "just in time";
    setConnected(1, false);
    eventsIn();
    manager->shutDown([&] { events.emplace_back("second"); });
    EXPECT_EQ(eventsIn(4.9), Texts());
    EXPECT_EQ(eventsIn(), Texts({"second"}));
    // It may be on the air still.
    EXPECT_EQ(eventsIn(60), Texts({"UnregisterAdvertisement"}));
}

TEST_F(Peripheral, ChangesAnAdvertisementInPlaceOnlyIfItFits) {
    eventsIn();
    LocalAdvertisement changed = advertisement;
    changed.serviceData.front().data.back() = 1;
    manager->startAdvertising(changed);
    EXPECT_EQ(eventsIn(), Texts({"/advertisement ServiceData"}));
    // Flags, the list and what tells the data's service take 11 of 31 bytes.
    changed.serviceData.front().data.push_back(1);
    errors["RegisterAdvertisement"] = {"org.bluez.Error.Failed", "Failed to register advertisement"};
    manager->startAdvertising(changed);
    EXPECT_THAT(eventsIn(60), ElementsAre("UnregisterAdvertisement", "RegisterAdvertisement",
                                          HasSubstr("takes 32 bytes, and an advertisement has 31")));
}

TEST_F(Peripheral, RefusesWhatCannotBeAdvertised) {
    for (const std::string name : {"\xFF", "\xEF\xBF\xBE", "\xEF\xB7\x90", "\xF0\x9F\xBF\xBF"}) {
        EXPECT_THROW(manager->startAdvertising({.localName = name}), std::invalid_argument);
    }
    EXPECT_THROW(manager->startAdvertising({.localName = std::string(1, '\0')}), std::invalid_argument);
    for (const double interval : {-1.0, 0.019, 10.1, std::nan("")}) {
        EXPECT_THROW(manager->startAdvertising({.interval = interval}), std::invalid_argument);
    }
    EXPECT_EQ(eventsIn(), wholeStart);
    manager->startAdvertising({.localName = "\xDF\xBF\xC3\xA9 \xEF\xBF\xBD", .interval = 10});
    EXPECT_EQ(eventsIn(), Texts({"UnregisterAdvertisement", "RegisterAdvertisement"}));
}

TEST_F(Peripheral, TakesOffTheAirWhatMayBeThere) {
    errors["RegisterAdvertisement"] = {};
    EXPECT_THAT(eventsIn(60), ElementsAre("RegisterApplication", "RegisterAdvertisement",
                                          HasSubstr("It gives no answer"), "UnregisterAdvertisement"));
    errors["RegisterAdvertisement"] = {};
    manager->startAdvertising(advertisement);
    EXPECT_EQ(eventsIn(), Texts({"RegisterAdvertisement"}));
    setPowered(false);
    manager->stopAdvertising();
    setPowered(true);
    EXPECT_EQ(eventsIn(), Texts({"UnregisterAdvertisement"}));
    errors["RegisterAdvertisement"] = {"org.bluez.Error.AlreadyExists", ""};
    errors["UnregisterAdvertisement"] = {"org.bluez.Error.DoesNotExist", ""};
    manager->startAdvertising(advertisement);
    EXPECT_EQ(eventsIn(), Texts({"RegisterAdvertisement", "UnregisterAdvertisement", "RegisterAdvertisement",
                                 "advertises"}));
    manager->stopAdvertising();
    EXPECT_EQ(eventsIn(60), Texts({"UnregisterAdvertisement"}));
    errors["RegisterAdvertisement"] = {"org.bluez.Error.NotSupported", ""};
    manager->startAdvertising(advertisement);
    EXPECT_THAT(eventsIn(60), ElementsAre("RegisterAdvertisement", HasSubstr("cannot be a peripheral")));
}

TEST_F(Peripheral, AdvertisesAgainSomeTimeAfterTheServiceHasDroppedIt) {
    eventsIn();
    object = "/advertisement";
    objectInterface = advertisementInterface;
    EXPECT_EQ(call("Renew"), unknownMethodError);
    EXPECT_TRUE(manager->isAdvertising());
    EXPECT_EQ(call("Release"), "");
    EXPECT_FALSE(manager->isAdvertising());
    manager->startAdvertising(advertisement);
    EXPECT_EQ(eventsIn(4), Texts());
    EXPECT_EQ(eventsIn(2), Texts({"RegisterAdvertisement", "advertises"}));
    EXPECT_TRUE(manager->isAdvertising());
}

TEST_F(Peripheral, ComesBackWithThePowerTheServiceAndTheBus) {
    eventsIn();
    setPowered(false);
    EXPECT_EQ(eventsIn(), Texts());
    EXPECT_FALSE(manager->isAdvertising());
    setPowered(true);
    EXPECT_EQ(eventsIn(), newStart);
    // One that has kept the application has kept who is subscribed.
    call("StartNotify");
    errors["RegisterApplication"] = {"org.bluez.Error.AlreadyExists", ""};
    eventsIn();
    restartService();
    EXPECT_EQ(eventsIn(), wholeNewStart);
    read(1);
    eventsIn();
    bus.reset();
    Texts expected = wholeNewStart;
    expected.insert(expected.begin(), "disconnected by 00:00:5E:00:53:01");
    expected.insert(expected.begin() + 2, "unsubscribed");
    EXPECT_EQ(eventsIn(3), expected);
}

TEST_F(Peripheral, ServesOnThoughTheDelegateThrows) {
    eventsIn();
    read(1);
    eventsIn();
    throws = true;
    restartService();
    EXPECT_THROW(eventsIn(), std::runtime_error);
    EXPECT_EQ(state, CBManagerState::resetting);
    throws = false;
    Texts expected = wholeNewStart;
    expected.insert(expected.begin(), "disconnected by 00:00:5E:00:53:01");
    EXPECT_EQ(eventsIn(), expected);
}

}  // namespace
}  // namespace zobi::platform::bluez
