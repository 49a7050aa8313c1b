// What comes over the sockets of the bus: whole or in pieces, in both byte orders, and what is no message.

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "ScriptedPlatform.h"
#include "SilentBus.h"
#include "platform/bluez/bus/SystemBus.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;
using namespace std::string_view_literals;

std::array<int, 2> socketPair() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    return ends;
}

/// Writes down what it is told, and answers calls with their first argument.
struct Peer final : BusDelegate {
    void busDidReceiveSignal(const Signal& signal) override {
        events.push_back(std::string(signal.path) + ' ' + std::string(signal.member) + ' ' +
                         std::to_string(signal.body.properties().size()));
    }
    void busDidReceiveCall(IncomingCall call) override {
        const bool isHello = call.member == "Hello";
        Message reply = Bus::makeReply(call);
        reply.string(isHello ? ":1.1" : call.arguments.string());
        call.bus.lock()->send(reply);
        if (!isHello) events.push_back(std::string(call.path) + ' ' + std::string(call.member));
    }
    void busDidClose(const std::string& reason) override { events.push_back("closed: " + reason); }

    std::vector<std::string> events;
};

/// A client and a server, and between them sockets whose other ends the test has.
class BusTest : public TestWithParam<std::size_t> {
public:
    BusTest() {
        client->setDelegate(clientPeer);
        server->setDelegate(serverPeer);
    }
    ~BusTest() override {
        ::close(clientEnds[1]);
        ::close(serverEnds[1]);
    }

protected:
    /// Carries so many bytes in each direction, again and again, until nothing moves any more.
    void carry(std::size_t piece) {
        std::vector<char> bytes(piece);
        for (bool hasMoved = true; std::exchange(hasMoved, false);) {
            machine.runLoop().processPending();
            for (const auto& [from, to] :
                 {std::pair(clientEnds[1], serverEnds[1]), {serverEnds[1], clientEnds[1]}}) {
                const ssize_t size = ::recv(from, bytes.data(), bytes.size(), 0);
                if (size <= 0) continue;
                EXPECT_EQ(::send(to, bytes.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL), size);
                hasMoved = true;
            }
        }
    }

    ScriptedPlatform machine;
    std::array<int, 2> clientEnds = socketPair();
    std::array<int, 2> serverEnds = socketPair();
    std::shared_ptr<Peer> clientPeer = std::make_shared<Peer>();
    std::shared_ptr<Peer> serverPeer = std::make_shared<Peer>();
    std::shared_ptr<Bus> client = Bus::overSocket(clientEnds[0], {machine.runLoop(), machine.clock()});
    std::shared_ptr<Bus> server = Bus::servingSocket(serverEnds[0], {machine.runLoop(), machine.clock()});
};

TEST_P(BusTest, MessagesArriveInAnyPieces) {
    // From a few bytes to more than a socket or the buffer of the connection holds.
    std::vector<std::string> signals;
    const auto emit = [&](std::size_t entries, std::size_t size) {
        Message signal = server->makeSignal("/a" + std::to_string(entries), "x.y", "Told");
        server->send(signal.properties(Properties(entries, {"ServiceData", Bytes(size, 0xA5)})));
        signals.push_back("/a" + std::to_string(entries) + " Told " + std::to_string(entries));
    };
    const Slot slot =
        client->call(client->makeCall({":1.0", "/object", "x.y", "Ask"}).string(std::string(70'000, 'q')),
                     [&](MessageReader& reply, const BusError* error) {
                         EXPECT_FALSE(error);
                         clientPeer->events.push_back(std::to_string(reply.string().size()));
                     });
    carry(GetParam());
    EXPECT_THAT(serverPeer->events, ElementsAre("/object Ask"));
    EXPECT_THAT(std::exchange(clientPeer->events, {}), ElementsAre("70000"));

    for (const std::size_t entries : {0UL, 1UL, 30UL, 7UL, 200UL}) emit(entries, entries * 3);
    carry(GetParam());
    EXPECT_EQ(std::exchange(clientPeer->events, {}), signals);

    ::shutdown(clientEnds[1], SHUT_RDWR);
    machine.runLoop().processPending();
    EXPECT_THAT(clientPeer->events, ElementsAre("closed: Connection reset by peer"));
    EXPECT_FALSE(client->isOpen());
}
INSTANTIATE_TEST_SUITE_P(Pieces, BusTest, Values(7, 4096, 1'000'000));

TEST_F(BusTest, WhatIsNoMessageEndsTheConnection) {
    carry(4096);
    for (const auto bytes : {"GET / HTTP/1.1\r\n\r\n"sv, "l\4\1\1\377\377\377\377\1\0\0\0\0\0\0\0"sv}) {
        const auto ends = socketPair();
        const auto bus = Bus::servingSocket(ends[0], {machine.runLoop(), machine.clock()});
        const auto peer = std::make_shared<Peer>();
        bus->setDelegate(peer);
        const std::string login = '\0' + std::string("AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n");
        ASSERT_GT(::send(ends[1], login.data(), login.size(), 0), 0);
        machine.runLoop().processPending();
        ASSERT_GT(::send(ends[1], bytes.data(), bytes.size(), 0), 0);
        machine.runLoop().processPending();
        EXPECT_THAT(peer->events, ElementsAre("closed: Bad message"));
        ::close(ends[1]);
    }
    EXPECT_TRUE(client->isOpen());
}

/// A signal with two properties, one of which has structures in it.
std::vector<std::uint8_t> signalIn(bool isBigEndian) {
    std::vector<std::uint8_t> bytes;
    const auto number = [&](std::uint32_t value, std::size_t size) {
        bytes.resize((bytes.size() + size - 1) / size * size);
        for (std::size_t i = 0; i < size; ++i) {
            bytes.push_back(static_cast<std::uint8_t>(value >> 8 * (isBigEndian ? size - 1 - i : i)));
        }
    };
    const auto text = [&](std::string_view value, std::size_t lengthSize = 4) {
        number(static_cast<std::uint32_t>(value.size()), lengthSize);
        bytes.insert(bytes.end(), value.begin(), value.end());
        bytes.push_back(0);
    };
    const auto align = [&] { bytes.resize((bytes.size() + 7) / 8 * 8); };
    const auto field = [&](std::uint8_t code, std::string_view type, std::string_view value) {
        align();
        bytes.push_back(code);
        text(type, 1);
        text(value, type == "g" ? 1 : 4);
    };
    bytes = {static_cast<std::uint8_t>(isBigEndian ? 'B' : 'l'), 4, 0, 1};
    number(64, 4);
    number(9, 4);
    number(59, 4);
    field(1, "o", "/a");
    field(2, "s", "x.y");
    field(3, "s", "Told");
    field(8, "g", "a{sv}");
    align();
    const std::size_t start = bytes.size();
    number(56, 4);
    align();
    text("RSSI");
    text("n", 1);
    number(static_cast<std::uint16_t>(-60), 2);
    align();
    text("Strange");
    text("a(yv)", 1);
    number(16, 4);
    align();
    bytes.push_back(1);
    text("u", 1);
    number(258, 4);
    align();
    bytes.push_back(2);
    text("b", 1);
    number(1, 4);
    EXPECT_EQ(bytes.size(), start + 64);
    return bytes;
}

TEST(WireFormat, IsReadInBothByteOrdersAndNeverBeyondItsEnd) {
    for (const bool isBigEndian : {false, true}) {
        const auto whole = signalIn(isBigEndian);
        ASSERT_EQ(MessageHeader::sizeOfMessage(whole), whole.size());
        const auto header = MessageHeader::of(whole);
        ASSERT_TRUE(header);
        EXPECT_EQ(header->path, "/a");
        // A signal without a member, and a path that is no path.
        for (const auto& [at, change] : {std::pair(48, 9), {17, 2}}) {
            auto changed = whole;
            changed[static_cast<std::size_t>(at)] = static_cast<std::uint8_t>(change);
            EXPECT_FALSE(MessageHeader::of(changed)) << at;
        }
        EXPECT_EQ(header->member, "Told");
        MessageReader body = header->reader();
        EXPECT_EQ(body.properties(), (Properties{{"RSSI", std::int16_t{-60}}}));
        EXPECT_TRUE(body.isGood());

        constexpr std::array<std::uint8_t, 6> lies{0x00, 0x01, 0x29, 0x76, 0x7F, 0xFF};
        // Each number in it may lie. The copy ends where the message does, so that a sanitizer sees a step
        // beyond.
        for (std::size_t at = 0; at < whole.size(); ++at) {
            for (const std::uint8_t lie : lies) {
                auto changed = whole;
                changed[at] = lie;
                if (MessageHeader::sizeOfMessage(changed) != changed.size()) continue;
                if (const auto read = MessageHeader::of(changed)) read->reader().properties();
            }
        }
        auto longText = whole;
        std::fill_n(longText.begin() + 88, 4, 0xFF);
        EXPECT_THAT(MessageHeader::of(longText)->reader().properties(), IsEmpty())
            << "its length and one are 0";
        for (std::size_t length = 0; length < header->body.size(); ++length) {
            const std::vector<std::uint8_t> cut(header->body.begin(),
                                                header->body.begin() + static_cast<int>(length));
            MessageReader reader(cut, header->signature, header->isSwapped);
            reader.properties();
            EXPECT_FALSE(reader.isGood()) << length;
        }
    }
}

TEST(WireFormat, NestsAsDeepAsTheProtocolLets) {
    const std::string type = std::string(31, '(') + 'v' + std::string(31, ')');
    for (const auto& [variants, isGood] : {std::pair(2, true), {3, false}}) {
        std::vector<std::uint8_t> bytes;
        for (int i = 0; i < variants; ++i) {
            bytes.push_back(63);
            bytes.insert(bytes.end(), type.begin(), type.end());
            bytes.resize((bytes.size() + 1 + 7) / 8 * 8);
        }
        bytes.insert(bytes.end(), {1, 'y', 0, 0});
        MessageReader reader(bytes, "v", false);
        reader.skipVariant();
        EXPECT_EQ(reader.isGood(), isGood) << variants;
    }
}

TEST(SystemBusTest, IsReachedAtTheFirstEntryOfItsAddressThatAnswers) {
    const std::string silent = listenAsSilentBus();
    const auto errorAt = [](const std::string& text) {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", text.c_str(), 1);
        try {
            ::close(connectToSystemBus());
        } catch (const std::system_error& error) {
            return error.code().value();
        }
        return 0;
    };
    EXPECT_EQ(errorAt(silent + ",guid=0123"), 0);
    EXPECT_EQ(errorAt("tcp:host=nowhere;unix:path=/%6eowhere;" + silent), 0);
    EXPECT_EQ(errorAt("tcp:host=nowhere;unix:guid=1,path=%2Fdev%2fnull"), ECONNREFUSED);
    EXPECT_EQ(errorAt("unix:path=/nowhere"), ENOENT);
    EXPECT_EQ(errorAt("unix:path=/" + std::string(200, 'x')), ENAMETOOLONG);
    for (const char* const other : {"tcp:host=nowhere,port=1", "not an address", "unix:dir=/tmp", ""}) {
        EXPECT_EQ(errorAt(other), EPROTONOSUPPORT) << other;
    }
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

}  // namespace
}  // namespace zobi::platform::bluez
