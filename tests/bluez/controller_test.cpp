// What is read from the kernel's two kinds of Bluetooth sockets and sent to them, over pairs of sockets. The
// linker puts the system call below in the place of the kernel's.

#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "ScriptedPlatform.h"
#include "platform/bluez/controller/HCISocket.h"
#include "platform/bluez/controller/ManagementSocket.h"

using namespace std::string_literals;

namespace {

/// The links of the controller, as the kernel lists them; it lists none if there is nothing.
std::optional<std::string> links;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the names are the linker's
extern "C" {
int __real_ioctl(int descriptor, unsigned long request, char* argument);

int __wrap_ioctl(int descriptor, unsigned long request, char* argument) {
    if (request != _IOR('H', 212, int)) return __real_ioctl(descriptor, request, argument);
    EXPECT_EQ(std::string(argument, 4), "\x02\x01\x20\0"s) << "the controller, and the most links";
    if (!links) return -1;
    argument[2] = static_cast<char>(links->size() / 16);
    std::ranges::copy(*links, argument + 4);
    return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;
using enum LinkEnd::Cause;

const DeviceAddress device{.bytes = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x9C}};
const DeviceAddress randomDevice{.bytes = device.bytes, .isRandom = true};
const std::string addressBytes = "\x9C\x53\0\x5E\0\0"s;

class Controller : public Test {
public:
    Controller() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0); }
    ~Controller() override { ::close(ends[1]); }

protected:
    using Places = std::map<std::size_t, char>;

    void askForRSSI(const DeviceAddress& address) {
        channel->readRSSI(address, [this](auto rssi) { events += rssi ? std::to_string(*rssi) : "none"; });
    }
    std::string received() {
        std::array<char, 64> packet{};
        const auto size = ::recv(ends[1], packet.data(), packet.size(), 0);
        return size < 0 ? "nothing" : std::string(packet.data(), static_cast<std::size_t>(size));
    }
    void send(const std::string& packet) {
        EXPECT_EQ(::send(ends[1], packet.data(), packet.size(), 0), packet.size());
    }
    /// What a packet brings: signal strengths that were asked for, and ends of links.
    std::string told(std::string packet, const Places& changes = {}) {
        for (const auto& [place, byte] : changes) packet[place] = byte;
        send(packet);
        channel->setOnEvent([this] { events += "end"; });
        machine.runLoop().runFor(0.1);
        return std::exchange(events, "");
    }
    /// @param wrong bytes of which each makes the packet one for somebody else, or none that is understood.
    void isIgnored(const std::string& packet, const Places& wrong) {
        for (const auto& change : wrong) EXPECT_EQ(told(packet, {change}), "") << change.first;
        for (auto size = packet.size() - 1; size > 0; --size) EXPECT_EQ(told(packet.substr(0, size)), "");
    }
    /// What the reason at the end of a packet tells.
    LinkEnd::Cause causeOf(std::string packet, int reason) {
        for (const auto& queued : {"?"s, packet}) send(queued);
        channel->watchLink(device);
        EXPECT_FALSE(channel->takeLinkEnd(device)) << "it was the former link's";
        packet.back() = static_cast<char>(reason);
        EXPECT_EQ(told(packet), "endend");
        const auto cause = channel->takeLinkEnd(device).value_or(LinkEnd()).cause;
        EXPECT_EQ(told(packet), "") << "it has ended already";
        channel->watchLink(device);
        return cause;
    }

    /// Ours, and the kernel's.
    std::array<int, 2> ends{};
    ScriptedPlatform machine;
    std::shared_ptr<ControllerChannel> channel;
    std::string events;
};

TEST_F(Controller, HasAnAddressThatIsReadFromItsTextAlone) {
    EXPECT_EQ(textOf(*deviceAddressFromText("0f:a1:5E:00:53:9C", true)), "0F:A1:5E:00:53:9C");
    EXPECT_EQ(deviceAddressFromText("00:00:5e:00:53:9c", true), randomDevice);
    for (const char* const text :
         {"", "00:00:5E:00:53:9C:", "00:00:5E:00-53:9C", "00:00:5E:00:G3:9C", "00:00:5E:00:53:9G"}) {
        EXPECT_FALSE(deviceAddressFromText(text, false)) << text;
    }
}

TEST_F(Controller, IsClosedByTheOneWhoLetsGoOfIt) {
    std::make_shared<HCISocket>(ends[0], 258, machine.runLoop()).reset();
    EXPECT_EQ(received(), "") << "the end";
}

TEST_F(Controller, TellsOfLinksByTheirHandles) {
    channel = std::make_shared<HCISocket>(ends[0], 258, machine.runLoop());
    EXPECT_EQ(channel->isIncomingLink(device), std::nullopt);
    // To another device, of another kind, and the one that is meant.
    const std::string state(6, 0);
    links = "\x41\x01" + std::string(6, 7) + "\x80\x01" + state;
    *links += "\x40\x01" + addressBytes + "\x01\x01" + state;
    EXPECT_EQ(channel->isIncomingLink(device), false);
    *links += "\x42\x01" + addressBytes + "\x80\0"s + state;
    EXPECT_EQ(channel->isIncomingLink(device), true);
    channel->watchLink(device);

    askForRSSI({});
    EXPECT_EQ(events, "") << "in a turn of its own";
    EXPECT_EQ(received(), "nothing");
    EXPECT_EQ(told("\x04"), "none");
    askForRSSI(device);
    EXPECT_EQ(received(), "\x01\x05\x14\x02\x42\x01");
    const std::string reading = "\x04\x0E\x07\x01\x05\x14\0\x42\x01\xC4"s;
    isIgnored(reading, {{0, 2}, {1, 0x0F}, {2, 6}, {4, 6}, {7, 0x43}});
    EXPECT_EQ(told(reading, {{8, 0x21}}), "-60");
    for (const Places& failure : {Places{{6, 2}}, {{9, 127}}}) {
        askForRSSI(device);
        received();
        EXPECT_EQ(told(reading, failure), "none");
    }
    const std::string end = "\x04\x05\x04\0\x42\x01\x13"s;
    isIgnored(end, {{2, 3}, {3, 1}, {4, 0x43}});
    for (const auto& [reason, cause] : std::map<int, LinkEnd::Cause>{
             {0x08, timeout}, {0x13, peer}, {0x14, peer}, {0x15, peer}, {0x16, local}, {0x22, other}}) {
        EXPECT_EQ(causeOf(end, reason), cause) << reason;
    }
    // A scan begins or ends; the second is the command of newer controllers.
    for (const char* const packet : {"\x04\x0E\x04\x01\x0C\x20\0", "\x04\x0E\x04\x01\x42\x20\0"}) {
        const unsigned before = channel->scanSwitches().value_or(99);
        isIgnored({packet, 7}, {{1, 0x0F}, {4, 0x0B}, {5, 0x21}, {6, 0x0C}});
        EXPECT_EQ(channel->scanSwitches(), before);
        EXPECT_EQ(told({packet, 7}), "");
        EXPECT_EQ(channel->scanSwitches(), before + 1);
    }
    links.reset();
    channel->watchLink(device);
    EXPECT_EQ(told(end), "") << "its handle is not known";
    ::close(std::exchange(ends[1], -1));
    channel->takeLinkEnd(device);
    EXPECT_FALSE(channel->isOpen());
}

TEST_F(Controller, TellsOfLinksByTheirAddressesWhenTheKernelIsAsked) {
    channel = std::make_shared<ManagementSocket>(ends[0], 258, machine.runLoop());
    EXPECT_FALSE(channel->asksController());
    channel->watchLink(device);
    for (const auto& [asked, type] : {std::pair(randomDevice, "\x02"), {device, "\x01"}}) {
        askForRSSI(asked);
        EXPECT_EQ(received(), "\x31\0\x02\x01\x07\0"s + addressBytes + type);
    }
    const std::string reading = "\x01\0\x02\x01\x0B\0\x31\0\0"s + addressBytes + "\x01\xC4";
    const std::string withoutStrength = reading.substr(0, reading.size() - 1);
    isIgnored(withoutStrength, {{0, 2}, {2, 3}, {6, 0x32}, {9, 7}});
    EXPECT_EQ(told(reading), "-60");
    EXPECT_EQ(told(reading, {{15, 2}, {16, 127}}), "none");
    EXPECT_EQ(told(reading), "") << "nobody has asked again";
    askForRSSI(device);
    EXPECT_EQ(told(reading, {{8, 2}}), "none");
    askForRSSI(device);
    EXPECT_EQ(told(withoutStrength), "none");
    const std::string end = "\x0C\0\x02\x01\x08\0"s + addressBytes + "\x01\x03";
    isIgnored(end, {{2, 3}, {12, 2}});
    for (const auto& [reason, cause] :
         std::map<int, LinkEnd::Cause>{{0, other}, {1, timeout}, {2, local}, {3, peer}, {5, local}}) {
        EXPECT_EQ(causeOf(end, reason), cause) << reason;
    }
    received();
    askForRSSI(device);
    // An error, as the kernel has not read all.
    ::close(std::exchange(ends[1], -1));
    channel->takeLinkEnd(device);
    EXPECT_FALSE(channel->isOpen());
}

TEST_F(Controller, TellsWhetherLowEnergyIsSwitchedOn) {
    std::vector<std::uint8_t> answer(286);
    answer[0] = 1;
    answer[6] = 4;
    EXPECT_EQ(lowEnergyIn(answer), LowEnergy::missing);
    answer[19] = 2;
    EXPECT_EQ(lowEnergyIn(answer), LowEnergy::off);
    answer[23] = 2;
    EXPECT_EQ(lowEnergyIn(answer), LowEnergy::on);
    EXPECT_EQ(lowEnergyIn(std::span(answer).first(25)), LowEnergy::unknown);
    answer[8] = 0x11;
    EXPECT_EQ(lowEnergyIn(answer), LowEnergy::unknown) << "there is no such controller";
}

}  // namespace
}  // namespace zobi::platform::bluez
