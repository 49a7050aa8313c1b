// What the examination finds, and what it advises, on machines that lack something.

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "BlueZRadio.h"
#include "platform/bluez/service/BlockSwitch.h"

namespace zobi::platform::bluez {
namespace {

using Texts = std::vector<std::string>;

class Doctor : public ::testing::Test {
protected:
    /// What is not good, as "power: failed".
    Texts troubles(const std::string& adapter = {}) {
        Texts texts;
        told.clear();
        for (const auto& [subject, severity, found, advice] : findingsOf(machine, adapter)) {
            told[subject] = found + advice;
            if (severity == Finding::Severity::good) continue;
            texts.push_back(subject + (severity == Finding::Severity::obstacle ? ": failed" : ": limited"));
        }
        return texts;
    }
    Texts troublesWith(const std::string& operation, const Script& script) {
        service.scripts = {{operation, script}};
        return troubles();
    }

    ScriptedPlatform machine;
    ScriptedService& service = machine.service;
    std::map<std::string, std::string> told;
};

TEST_F(Doctor, FindsAllGoodOrWhatIsInTheWay) {
    EXPECT_EQ(troubles(), Texts());
    EXPECT_EQ(told.size(), 9);
    EXPECT_EQ(troublesWith("GetNameOwner", neverAnswered), Texts{"system bus: failed"});
    EXPECT_EQ(troublesWith("GetManagedObjects", neverAnswered), Texts{"access: failed"});
    EXPECT_EQ(troublesWith("GetManagedObjects", fails(accessDeniedError)), Texts{"access: failed"});
    EXPECT_TRUE(told["access"].ends_with("or run as root."));
    const std::string policy = "An AppArmor policy prevents this sender from sending this message";
    EXPECT_EQ(troublesWith("GetManagedObjects", fails(accessDeniedError, policy)), Texts{"access: failed"});
    EXPECT_TRUE(told["access"].ends_with("Have that policy allow it."));
    EXPECT_EQ(troublesWith("GetDiscoveryFilters", neverAnswered), Texts{"scan: limited"});
    EXPECT_EQ(troublesWith("GetDiscoveryFilters", fails(unknownMethodError)), Texts{"scan: failed"});
    service.scripts.clear();
    machine.monitorUse = MonitorUse{.most = 3, .handles = {4, 5, 7}, .unrecorded = {5, 7}};
    EXPECT_EQ(troubles(), (Texts{"monitors: limited", "scan: limited"}));
    EXPECT_NE(told["monitors"].find(" 5 7.If"), std::string::npos);
    EXPECT_NE(told["scan"].find("no place left"), std::string::npos);
    machine.monitorUse = std::nullopt;
    EXPECT_EQ(troubles(), Texts{"scan: limited"}) << "the kernel has not answered";
    machine.mayPlaceMonitors = false;
    EXPECT_EQ(troubles(), Texts{"scan: limited"});
    EXPECT_NE(told["scan"].find("systemctl restart bluetooth"), std::string::npos);
    service.offerMonitors();
    EXPECT_NE((troubles(), told["scan"]).find("the service takes"), std::string::npos);
    machine.runLoop().after(1, [&] { service.dropBus(); });
    EXPECT_EQ(troublesWith("GetManagedObjects", neverAnswered), Texts{"system bus: failed"});
    EXPECT_EQ(told.size(), 1);
    service.crash();
    EXPECT_EQ(troubles(), Texts{"service: failed"});
    service.hasBus = false;
    EXPECT_EQ(troubles(), Texts{"system bus: failed"});
}

TEST_F(Doctor, ExaminesTheAdapterThatIsAskedFor) {
    service.addObject("/org/bluez/hci1",
                      {{adapterInterface, {{"Address", "00:00:5E:00:53:02"}, {"Roles", Texts{"central"}}}}});
    EXPECT_EQ(troubles("00:00:5e:00:53:02"), (Texts{"peripheral role: limited", "power: failed"}));
    EXPECT_NE(told["power"].find("/org/bluez/hci1 "), std::string::npos);
    EXPECT_EQ(troubles("hci7"), Texts{"adapter: failed"});
    EXPECT_NE(told["adapter"].find("hci0 (00:00:5E:00:53:01), hci1"), std::string::npos);
}

TEST_F(Doctor, TellsWhatTheMachineCannotDo) {
    machine.channel = nullptr;
    service.scripts["Introspect"].answer = [](Message& it) { it.string("<signal name=\"Disconnected\">"); };
    EXPECT_EQ(troubles(), Texts{"links: limited"});
    EXPECT_TRUE(told["links"].starts_with("Nobody tells why they end")) << "there is no device to ask at";
    service.addObject(firstAdapter, {{adapterInterface, {{"Roles", Texts()}, {"PowerState", "off-blocked"}}},
                                     {deviceInterface, {}}});
    EXPECT_EQ(troubles(), (Texts{"peripheral role: limited", "adapter: failed", "power: failed",
                                 "block switch: failed", "links: limited"}));
    EXPECT_TRUE(told["links"].starts_with("The service tells"));
}

TEST_F(Doctor, NamesWhatKeepsLowEnergyFromBeingUsed) {
    machine.channel->energy = LowEnergy::off;
    EXPECT_EQ(troubles(), Texts{"adapter: failed"});
    EXPECT_NE(told["adapter"].find("ControllerMode = dual"), std::string::npos);
    machine.channel->energy = LowEnergy::missing;
    EXPECT_EQ(troubles(), Texts{"adapter: failed"});
    EXPECT_TRUE(told["adapter"].ends_with("Use another adapter."));
    machine.channel->energy = LowEnergy::unknown;
    Properties phone{{"Class", std::uint32_t{1}}, {"ServiceData", Properties()}, {"Address", "A"}};
    service.addObject(firstAdapter + "/dev_A", {{deviceInterface, phone}});
    EXPECT_EQ(troubles(), Texts{"transport: limited"});
    phone.emplace_back("PreferredBearer", "last-seen");
    service.addObject(firstAdapter + "/dev_A", {{deviceInterface, phone}});
    EXPECT_EQ(troubles(), Texts());
}

TEST_F(Doctor, FindsTheSwitchOfBluetoothAloneThatBlocksMost) {
    const std::string folder = ::testing::TempDir() + "block_switches" + std::to_string(::getpid());
    const auto add = [&](const std::string& name, const char* type, int soft, int hard) {
        std::filesystem::create_directories(folder + '/' + name);
        std::ofstream(folder + '/' + name + "/type") << type << '\n';
        std::ofstream(folder + '/' + name + "/soft") << soft << '\n';
        std::ofstream(folder + '/' + name + "/hard") << hard << '\n';
        return readBlockSwitches(folder);
    };
    EXPECT_EQ(add("rfkill0", "wlan", 1, 1), BlockSwitch::open);
    EXPECT_EQ(add("power", "bluetooth", 1, 1), BlockSwitch::open);
    EXPECT_EQ(add("rfkill1", "bluetooth", 0, 0), BlockSwitch::open);
    EXPECT_EQ(add("rfkill2", "bluetooth", 0, 1), BlockSwitch::hard);
    EXPECT_EQ(add("rfkill3", "bluetooth", 1, 0), BlockSwitch::hard);
    EXPECT_EQ(add("rfkill2", "bluetooth", 0, 0), BlockSwitch::soft);
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace zobi::platform::bluez
