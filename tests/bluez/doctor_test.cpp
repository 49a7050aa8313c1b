#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <map>
#include <string>

#include "platform/bluez/controller/HCISocket.h"
#include "platform/bluez/diagnosis/Examination.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {
namespace {

/// A bus that answers each call by its name: with an error, with a reply, or not at all.
struct BusOfMachine final : BusDelegate {
    std::vector<ManagedObject> objects{
        {"/org/bluez/hci0",
         {{"org.bluez.Adapter1",
           {{"Address", "00:00:5E:00:53:01"},
            {"Powered", true},
            {"Roles", std::vector<std::string>{"central"}}}},
          {"org.bluez.GattManager1", {}},
          {"org.bluez.LEAdvertisingManager1", {{"SupportedInstances", std::uint8_t{5}}}}}}};
    std::map<std::string, std::function<void(Message&)>, std::less<>> replies{
        {"Hello", [](Message& body) { body.string(":1.7"); }},
        {"GetNameOwner", [](Message& body) { body.string(":1.3"); }},
        {"GetManagedObjects", [this](Message& body) { body.objects(objects); }},
        {"GetDiscoveryFilters", [](Message& body) {
             body.strings({"DuplicateData", "Pattern"});
         }}};
    std::map<std::string, std::string, std::less<>> errors;
    std::string errorText = "Sender is not authorized to send message";
    std::string dropsAt;
    std::shared_ptr<Bus> bus;

    void busDidReceiveCall(IncomingCall call) override {
        if (call.member == dropsAt) return bus.reset();
        if (const auto error = errors.find(call.member); error != errors.end()) {
            return Bus::replyError(call, {"org.freedesktop.DBus.Error." + error->second, errorText});
        }
        const auto reply = replies.find(call.member);
        if (reply == replies.end()) return;
        Message message = Bus::makeReply(call);
        reply->second(message);
        bus->send(message);
    }
    void busDidClose(const std::string& /*reason*/) override {}
};

class DoctorTest : public ::testing::Test {
protected:
    using Texts = std::vector<std::string>;

    /// What is not good, as "power: failed".
    Texts troubles() {
        StandardPlatform platform(StandardPlatform::Time::virtualTime, std::make_unique<PollWaiting>());
        const auto socket = std::make_shared<HCISocket>(-1, std::uint16_t{}, platform.runLoop());
        const auto openBus = [&](const Bus::Context& context) {
            std::array<int, 2> ends{};
            EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
            machine->bus = Bus::servingSocket(ends[0], context);
            machine->bus->setDelegate(machine);
            return Bus::overSocket(ends[1], context);
        };
        const auto openChannel = [&](const auto&) { return hasChannel ? socket : nullptr; };
        const RadioContext context{platform.runLoop(), platform.clock(), platform.log(), openBus,
                                   openChannel,        adapter};
        int ends = 0;
        const auto examination = std::make_shared<Examination>(context, [&] { ++ends; });
        examination->start();
        platform.runLoop().runFor(20);
        EXPECT_EQ(ends, 1);
        machine->bus = nullptr;
        Texts texts;
        told.clear();
        for (const auto& [subject, severity, found, advice] : examination->findings()) {
            told[subject] = found + advice;
            if (severity == Finding::Severity::good) continue;
            texts.push_back(subject + (severity == Finding::Severity::obstacle ? ": failed" : ": limited"));
        }
        return texts;
    }

    std::shared_ptr<BusOfMachine> machine = std::make_shared<BusOfMachine>();
    bool hasChannel = true;
    std::string adapter;
    std::map<std::string, std::string> told;
};

TEST_F(DoctorTest, FindsAllGoodOrWhatIsInTheWay) {
    EXPECT_EQ(troubles(), Texts());
    EXPECT_EQ(told.size(), 9);
    const auto without = [&](const char* member, const char* error = nullptr) {
        machine = std::make_shared<BusOfMachine>();
        error ? (machine->errors[member] = error, 0) : machine->replies.erase(member);
        return troubles();
    };
    EXPECT_EQ(without("GetNameOwner"), Texts{"system bus: failed"});
    EXPECT_EQ(without("GetNameOwner", "NameHasNoOwner"), Texts{"service: failed"});
    EXPECT_EQ(without("GetManagedObjects"), Texts{"access: failed"});
    EXPECT_EQ(without("GetManagedObjects", "AccessDenied"), Texts{"access: failed"});
    EXPECT_TRUE(told["access"].ends_with("or run as root."));
    machine->errorText = "An AppArmor policy prevents this sender from sending this message";
    EXPECT_EQ(troubles(), Texts{"access: failed"});
    EXPECT_TRUE(told["access"].ends_with("Have that policy allow it."));
    EXPECT_EQ(without("GetDiscoveryFilters"), Texts{"scan: limited"});
    EXPECT_EQ(without("GetDiscoveryFilters", "UnknownMethod"), Texts{"scan: failed"});
    machine->dropsAt = "GetManagedObjects";
    EXPECT_EQ(troubles(), Texts{"system bus: failed"});
    EXPECT_EQ(told.size(), 1);
}

TEST_F(DoctorTest, ExaminesTheAdapterThatIsAskedFor) {
    machine->objects.push_back(
        {"/org/bluez/hci1", {{"org.bluez.Adapter1", {{"Address", "00:00:5E:00:53:02"}}}}});
    adapter = "00:00:5e:00:53:02";
    EXPECT_EQ(troubles(), (Texts{"beacon role: limited", "power: failed"}));
    EXPECT_NE(told["power"].find("/org/bluez/hci1 "), std::string::npos);
    adapter = "hci7";
    EXPECT_EQ(troubles(), Texts{"adapter: failed"});
    EXPECT_NE(told["adapter"].find("hci0 (00:00:5E:00:53:01), hci1"), std::string::npos);
}

TEST_F(DoctorTest, TellsWhatTheMachineCannotDo) {
    hasChannel = false;
    machine->replies["Introspect"] = [](Message& body) { body.string("<signal name=\"Disconnected\">"); };
    EXPECT_EQ(troubles(), Texts{"links: limited"});
    machine->objects = {{"/org/bluez/hci0",
                         {{"org.bluez.Adapter1", {{"Roles", Texts()}, {"PowerState", "off-blocked"}}},
                          {"org.bluez.Device1", {}}}}};
    EXPECT_EQ(troubles(), (Texts{"beacon role: limited", "adapter: failed", "power: failed",
                                 "block switch: failed", "links: limited"}));
    EXPECT_TRUE(told["links"].starts_with("The service tells"));
}

}  // namespace
}  // namespace zobi::platform::bluez
