// What a peripheral manager tells a Bluetooth service and answers to it, against a scripted one, in virtual
// time.

#include <gmock/gmock.h>

#include <cmath>
#include <regex>

#include "ScriptedPlatform.h"
#include "platform/bluez/peripheral-role/BlueZPeripheralManager.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;

const CBUUID battery = CBUUID::UUIDWithString("180F");
const LocalService batteryService{battery, {{.uuid = CBUUID::UUIDWithString("2A19"), .canNotify = true}}};
const LocalAdvertisement advertisement{
    .localName = "morvane", .services = {battery}, .serviceData = {{battery, Bytes(20)}}};
const std::string newStart = "UnregisterAdvertisement, RegisterAdvertisement, advertises";
// Whether it went with the former life of the service is not known.
const std::string wholeNewStart = "RegisterApplication, " + newStart;

std::string central(int number) {
    return "/org/bluez/hci0/dev_00_00_5E_00_53_0" + std::to_string(number);
}

/// A peripheral manager and its delegate. Device 9 has a link before it advertises. Devices 1 and 9 asked for
/// their links, and device 2 did not.
class Peripheral : public Test, public PeripheralManagerDelegate {
protected:
    Peripheral() {
        for (const int device : {1, 2, 9}) {
            machine.channel->incomingLinks["00:00:5E:00:53:0" + std::to_string(device)] = device != 2;
        }
        setConnected(9, true);
        manager->start();
        manager->startAdvertising(advertisement);
        EXPECT_EQ(eventsIn(), "RegisterApplication, RegisterAdvertisement, advertises");
    }
    /// What was told in so many seconds, by the manager to its delegate, the service and the centrals: calls
    /// as "Disconnect1".
    std::string eventsIn(double seconds = 0.1) {
        machine.runLoop().runFor(seconds);
        std::erase(events, "GetManagedObjects /");
        std::string text;
        for (const auto& event : std::exchange(events, {})) text += (text.empty() ? "" : ", ") + event;
        return std::regex_replace(text, std::regex(" /org/bluez/hci0(/dev_[0-9A-F_]*0)?"), "");
    }
    void setConnected(int device, bool isConnected) {
        // The service tells of devices that it did not know in their own way.
        service.addObject(central(device), {{deviceInterface, {{"Connected", isConnected}}}});
    }
    void restartService() {
        service.crash();
        service.start();
    }
    /// What the service is answered when it calls an object: its bytes as a text, or the name of the error.
    std::string call(const char* member, const ScriptedBus::Body& body = nullptr,
                     const std::string& sender = {}) {
        std::string answer = "none";
        const auto note = [&](MessageReader& reply, const BusError* failure) {
            const auto bytes = failure ? std::span<const std::uint8_t>() : reply.bytes();
            answer = failure ? failure->name : std::string(bytes.begin(), bytes.end());
            errorText = failure ? failure->message : "";
        };
        const std::string from = sender.empty() ? service.owner() : sender;
        const Slot slot = service.callFrom(from, object, objectInterface, member, body, note);
        try {
            machine.runLoop().runFor(0.1);
        } catch (const std::runtime_error&) {
            events.emplace_back("thrown");
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
    ScriptedPlatform machine;
    ScriptedService& service = machine.service;
    std::vector<std::string>& events = service.calls;
    // Lets a weak pointer refer to this.
    std::shared_ptr<int> alive = std::make_shared<int>();
    Bytes value = {'a', 'b', 'c'};
    std::optional<NSError> refusal;
    bool throws = false;
    CBManagerState state = CBManagerState::unknown;
    std::string errorText;
    std::shared_ptr<BlueZPeripheralManager> manager =
        std::make_shared<BlueZPeripheralManager>(machine.context("hci0"), std::vector{batteryService},
                                                 std::shared_ptr<PeripheralManagerDelegate>(alive, this));
};

TEST_F(Peripheral, AnswersReadsAndWritesAndNotifiesThoseWhoAskForIt) {
    manager->notify({0, 0}, value);
    EXPECT_EQ(read(1, 2), "c");
    EXPECT_EQ(read(1, 3), "");
    EXPECT_EQ(read(1, 4), "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(eventsIn(), "connected by 00:00:5E:00:53:01");
    EXPECT_EQ(write({1, 2, 3}), "org.bluez.Error.InvalidValueLength");
    EXPECT_EQ(write({1}, 1), "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(write({'x'}), "");
    EXPECT_EQ(read(1), "x");
    call("StartNotify");
    manager->notify({0, 0}, value);
    manager->notify({0, 0}, value);
    EXPECT_EQ(eventsIn(), "subscribed, " + object + " Value, " + object + " Value");
    call("StopNotify");
    manager->notify({0, 0}, value);
    EXPECT_EQ(eventsIn(), "unsubscribed");
}

TEST_F(Peripheral, AnswersWhatIsRefusedOrWrongOrNoneOfTheCallersBusiness) {
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
    EXPECT_EQ(eventsIn(), "thrown");
    throws = false;
    EXPECT_EQ(call("WriteValue", [](Message& it) { it.string("x"); }), "org.bluez.Error.InvalidArguments");
    EXPECT_EQ(call("ReadValue", [](Message& it) { it.string("x"); }), "org.bluez.Error.InvalidArguments");
    const auto odd = [](Message& it) { it.properties({{"offset", "2"}, {"device", ObjectPath{"/"}}}); };
    EXPECT_EQ(call("ReadValue", odd), "abc");
    const auto emptyWrite = [](Message& it) { it.bytes({}).properties({}); };
    EXPECT_EQ(call("WriteValue", emptyWrite, ":9.9"), accessDeniedError);
    EXPECT_EQ(read(1), "abc");
}

TEST_F(Peripheral, EndsTheLinksOfCentralsAlone) {
    service.change(central(9), deviceInterface, {{"ServicesResolved", true}});
    for (const int device : {1, 2, 3, 4}) setConnected(device, true);
    EXPECT_EQ(eventsIn(), "connected by 00:00:5E:00:53:01");
    for (const int device : {2, 3, 9}) read(device);
    EXPECT_EQ(
        eventsIn(),
        "connected by 00:00:5E:00:53:02, connected by 00:00:5E:00:53:03, connected by 00:00:5E:00:53:09");
    manager->shutDown([&] { events.emplace_back("ended"); });
    EXPECT_EQ(eventsIn(2), "Disconnect1, Disconnect3, UnregisterAdvertisement");
    setConnected(1, false);
    setConnected(3, false);
    EXPECT_EQ(eventsIn(), "disconnected by 00:00:5E:00:53:01, disconnected by 00:00:5E:00:53:03, ended");
    EXPECT_FALSE(manager->isAdvertising());
}

TEST_F(Peripheral, EndsInTimeThoughTheServiceDoesNotAnswer) {
    service.scripts["UnregisterAdvertisement"] = neverAnswered;
    manager->shutDown([&] { events.emplace_back("first"); });
    eventsIn();
    setConnected(1, true);
    EXPECT_EQ(eventsIn(), "connected by 00:00:5E:00:53:01, Disconnect1") << "just in time";
    setConnected(1, false);
    eventsIn();
    manager->shutDown([&] { events.emplace_back("second"); });
    EXPECT_EQ(eventsIn(4.9), "");
    EXPECT_EQ(eventsIn(), "second");
    // It may be on the air still.
    EXPECT_EQ(eventsIn(60), "Get, UnregisterAdvertisement");
}

TEST_F(Peripheral, ChangesAnAdvertisementInPlaceOnlyIfItFits) {
    LocalAdvertisement changed = advertisement;
    changed.serviceData.front().data.back() = 1;
    manager->startAdvertising(changed);
    EXPECT_EQ(eventsIn(), "/advertisement ServiceData");
    // Flags, the list and what tells the data's service take 11 of 31 bytes.
    changed.serviceData.front().data.push_back(1);
    service.scripts["RegisterAdvertisement"] = fails("Failed", "Failed to register advertisement");
    manager->startAdvertising(changed);
    EXPECT_THAT(eventsIn(60), AllOf(StartsWith("UnregisterAdvertisement, RegisterAdvertisement, "),
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
    EXPECT_EQ(eventsIn(), "") << "the one before stays";
    manager->startAdvertising({.localName = "\xDF\xBF\xC3\xA9 \xEF\xBF\xBD", .interval = 10});
    EXPECT_EQ(eventsIn(), "UnregisterAdvertisement, RegisterAdvertisement");
}

TEST_F(Peripheral, TakesOffTheAirWhatMayBeThere) {
    manager->stopAdvertising();
    EXPECT_EQ(eventsIn(), "UnregisterAdvertisement");
    service.scripts["RegisterAdvertisement"] = neverAnswered;
    manager->startAdvertising(advertisement);
    EXPECT_THAT(eventsIn(60),
                MatchesRegex("RegisterAdvertisement, .*It gives no answer.*, Get, " + newStart));
    // A service that stands still is asked once.
    service.scripts = {{"RegisterApplication", neverAnswered}, {"Get", {.delay = 60, .times = 1}}};
    restartService();
    EXPECT_THAT(eventsIn(60), MatchesRegex("RegisterApplication, .*It gives no answer.*, Get"));
    EXPECT_EQ(eventsIn(20), wholeNewStart) << "it goes on";
    service.scripts = {{"UnregisterAdvertisement", fails("DoesNotExist")},
                       {"RegisterAdvertisement", neverAnswered}};
    service.setPowered(false);
    service.setPowered(true);
    EXPECT_EQ(eventsIn(), "UnregisterAdvertisement, RegisterAdvertisement");
    service.setPowered(false);
    manager->stopAdvertising();
    service.setPowered(true);
    EXPECT_EQ(eventsIn(), "UnregisterAdvertisement");
    service.scripts["RegisterAdvertisement"] = fails("AlreadyExists");
    service.scripts["UnregisterAdvertisement"] = fails("DoesNotExist");
    manager->startAdvertising(advertisement);
    EXPECT_EQ(eventsIn(),
              "RegisterAdvertisement, UnregisterAdvertisement, RegisterAdvertisement, advertises");
    manager->stopAdvertising();
    EXPECT_EQ(eventsIn(60), "UnregisterAdvertisement");
    service.scripts["RegisterAdvertisement"] = fails("NotSupported");
    manager->startAdvertising(advertisement);
    EXPECT_THAT(eventsIn(60), MatchesRegex("RegisterAdvertisement, .*cannot be a peripheral.*"));
}

TEST_F(Peripheral, AdvertisesAgainSomeTimeAfterTheServiceHasDroppedIt) {
    object = "/advertisement";
    objectInterface = advertisementInterface;
    EXPECT_EQ(call("Renew"), unknownMethodError);
    EXPECT_TRUE(manager->isAdvertising());
    EXPECT_EQ(call("Release"), "");
    EXPECT_FALSE(manager->isAdvertising());
    manager->startAdvertising(advertisement);
    EXPECT_EQ(eventsIn(4), "");
    EXPECT_EQ(eventsIn(2), "RegisterAdvertisement, advertises");
    EXPECT_TRUE(manager->isAdvertising());
}

TEST_F(Peripheral, ComesBackWithThePowerTheServiceAndTheBus) {
    service.setPowered(false);
    EXPECT_EQ(eventsIn(), "");
    EXPECT_FALSE(manager->isAdvertising());
    service.setPowered(true);
    EXPECT_EQ(eventsIn(), newStart);
    // One that has kept the application has kept who is subscribed.
    call("StartNotify");
    service.scripts["RegisterApplication"] = fails("AlreadyExists");
    eventsIn();
    restartService();
    EXPECT_EQ(eventsIn(), wholeNewStart);
    read(2);
    setConnected(1, true);
    eventsIn();
    service.dropBus();
    EXPECT_EQ(eventsIn(3),
              "disconnected by 00:00:5E:00:53:02, RegisterApplication, unsubscribed, " + newStart);
    read(1);
    manager->disconnectCentrals();
    EXPECT_EQ(eventsIn(), "Disconnect1") << "its link has lasted, and is known";
}

TEST_F(Peripheral, ServesOnThoughTheDelegateThrows) {
    read(1);
    eventsIn();
    throws = true;
    restartService();
    EXPECT_THROW(eventsIn(), std::runtime_error);
    EXPECT_EQ(state, CBManagerState::resetting);
    throws = false;
    EXPECT_EQ(eventsIn(), "disconnected by 00:00:5E:00:53:01, " + wholeNewStart);
}

}  // namespace
}  // namespace zobi::platform::bluez
