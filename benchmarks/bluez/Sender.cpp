#include "benchmarks/bluez/Sender.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include "ZobiConnectKit/simulation/PayloadEncoder.h"

namespace zobi::bench {

using std::chrono::nanoseconds;
using zobi::BeaconDescription;

namespace {

constexpr const char* service = ":1.1";
constexpr const char* client = ":1.7";
constexpr const char* adapter = "/org/bluez/hci0";
constexpr const char* deviceInterface = "org.bluez.Device1";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* objectManagerInterface = "org.freedesktop.DBus.ObjectManager";

int check(int result) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), "the sender");
    return result;
}

int checkCall(long result) {
    return check(result < 0 ? -errno : static_cast<int>(result));
}

struct Unref {
    void operator()(sd_bus* bus) const { sd_bus_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusPointer = std::unique_ptr<sd_bus, Unref>;
using MessagePointer = std::unique_ptr<sd_bus_message, Unref>;

std::string addressOf(std::size_t number, char separator) {
    const auto address = numberedBeacon(number).macAddress;
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%02X%c%02X%c%02X%c%02X%c%02X%c%02X", address[0], separator,
                  address[1], separator, address[2], separator, address[3], separator, address[4], separator,
                  address[5]);
    return text.data();
}

std::string pathOf(std::size_t number) {
    return std::string(adapter) + "/dev_" + addressOf(number, '_');
}

std::int16_t signalStrengthOf(std::size_t number) {
    return static_cast<std::int16_t>(-40 - static_cast<int>(number % 50));
}

nanoseconds now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

std::array<int, 2> connectedSockets() {
    std::array<int, 2> ends{};
    checkCall(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()));
    return ends;
}

void writeAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(socket, bytes.data(), bytes.size());
        if (written < 0 && errno == EAGAIN) {
            pollfd full{socket, POLLOUT, 0};
            checkCall(::poll(&full, 1, -1));
            continue;
        }
        bytes.remove_prefix(static_cast<std::size_t>(checkCall(written)));
    }
}

/// The bus's side of a connection over `socket`.
BusPointer serve(int socket) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    BusPointer owner(bus);
    check(sd_bus_set_fd(bus, socket, socket));
    sd_id128_t id{};
    check(sd_id128_randomize(&id));
    check(sd_bus_set_server(bus, 1, id));
    check(sd_bus_set_anonymous(bus, 1));
    check(sd_bus_start(bus));
    return owner;
}

/// A connection over `socket` to a message bus, on which it is the Bluetooth service.
BusPointer join(int socket) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    BusPointer owner(bus);
    check(sd_bus_set_fd(bus, socket, socket));
    check(sd_bus_set_bus_client(bus, 1));
    check(sd_bus_start(bus));
    check(sd_bus_request_name(bus, "org.bluez", 0));
    return owner;
}

/// Begins a message bus in a process of its own.
/// @returns the process, and the path of the bus's socket.
std::pair<pid_t, std::string> beginDaemon() {
    std::array<int, 2> ends{};
    checkCall(::pipe2(ends.data(), O_CLOEXEC));
    const pid_t process = checkCall(::fork());
    if (process == 0) {
        // It ends with this process, however that ends.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        ::dup2(ends[1], STDOUT_FILENO);
        ::execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
                 "--print-address", "--address=unix:tmpdir=/tmp", static_cast<char*>(nullptr));
        ::_exit(1);
    }
    ::close(ends[1]);
    std::array<char, 256> bytes{};
    const auto size = static_cast<std::size_t>(checkCall(::read(ends[0], bytes.data(), bytes.size())));
    ::close(ends[0]);
    constexpr std::string_view lead = "unix:path=";
    const std::string_view address(bytes.data(), size);
    if (!address.starts_with(lead)) throw std::runtime_error("the sender: dbus-daemon does not run");
    return {process, std::string(address.substr(lead.size(), address.find(',') - lead.size()))};
}

int connectTo(const std::string& path) {
    sockaddr_un address{AF_UNIX, {}};
    path.copy(&address.sun_path[0], sizeof address.sun_path - 1);
    const int socket = checkCall(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets are connected
    checkCall(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    return socket;
}

/// From the service.
MessagePointer makeSignal(sd_bus* bus, const std::string& path, const char* interface, const char* member) {
    sd_bus_message* raw = nullptr;
    check(sd_bus_message_new_signal(bus, &raw, path.c_str(), interface, member));
    MessagePointer message(raw);
    check(sd_bus_message_set_sender(raw, service));
    return message;
}

/// Makes the bytes of messages, by sending each to itself: so they are written once and sent often.
class Recorder {
public:
    Recorder() {
        constexpr std::string_view handshake("\0AUTH ANONYMOUS\r\nBEGIN\r\n", 24);
        writeAll(ends_[1], handshake);
        while (check(sd_bus_is_ready(bus_.get())) == 0) check(sd_bus_process(bus_.get(), nullptr));
        read();
    }
    ~Recorder() { ::close(ends_[1]); }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// What the service signals for an advertisement of a device that it knows.
    std::string propertiesChanged(std::size_t beacon, int code) const {
        const auto message = makeSignal(bus_.get(), pathOf(beacon), propertiesInterface, "PropertiesChanged");
        sd_bus_message* const raw = message.get();
        check(sd_bus_message_append(raw, "s", deviceInterface));
        open(raw, 'a', "{sv}");
        check(sd_bus_message_append(raw, "{sv}", "RSSI", "n", signalStrengthOf(beacon)));
        appendServiceData(raw, beacon, code);
        close(raw, 1);
        check(sd_bus_message_append(raw, "as", 0));
        return bytesOf(message);
    }

    /// What it signals for the first one.
    std::string interfacesAdded(std::size_t beacon) const {
        const auto message = makeSignal(bus_.get(), "/", objectManagerInterface, "InterfacesAdded");
        sd_bus_message* const raw = message.get();
        check(sd_bus_message_append(raw, "o", pathOf(beacon).c_str()));
        open(raw, 'a', "{sa{sv}}");
        check(sd_bus_message_append(raw, "{sa{sv}}", "org.freedesktop.DBus.Introspectable", 0));
        open(raw, 'e', "sa{sv}");
        check(sd_bus_message_append(raw, "s", deviceInterface));
        open(raw, 'a', "{sv}");
        const std::string address = addressOf(beacon, ':');
        const std::array<std::pair<const char*, const char*>, 4> texts{{{"Address", address.c_str()},
                                                                        {"AddressType", "public"},
                                                                        {"Name", "morvane"},
                                                                        {"Alias", "morvane"}}};
        for (const auto& [name, text] : texts) {
            check(sd_bus_message_append(raw, "{sv}", name, "s", text));
        }
        for (const char* const name :
             {"Paired", "Bonded", "Trusted", "Blocked", "LegacyPairing", "Connected", "ServicesResolved"}) {
            check(sd_bus_message_append(raw, "{sv}", name, "b", 0));
        }
        check(sd_bus_message_append(raw, "{sv}", "RSSI", "n", signalStrengthOf(beacon)));
        check(sd_bus_message_append(raw, "{sv}", "UUIDs", "as", 1, "00001320-0000-1000-8000-00805f9b34fb"));
        check(sd_bus_message_append(raw, "{sv}", "Adapter", "o", adapter));
        appendServiceData(raw, beacon, 0);
        close(raw, 2);
        check(sd_bus_message_append(raw, "{sa{sv}}", propertiesInterface, 0));
        close(raw, 1);
        return bytesOf(message);
    }

    /// Its call to the monitor of a client.
    std::string deviceFound(std::size_t beacon) const {
        sd_bus_message* raw = nullptr;
        check(sd_bus_message_new_method_call(bus_.get(), &raw, client, monitorPath,
                                             "org.bluez.AdvertisementMonitor1", "DeviceFound"));
        const MessagePointer message(raw);
        check(sd_bus_message_set_sender(raw, service));
        check(sd_bus_message_append(raw, "o", pathOf(beacon).c_str()));
        return bytesOf(message);
    }

private:
    static void open(sd_bus_message* message, char type, const char* contents) {
        check(sd_bus_message_open_container(message, type, contents));
    }

    static void close(sd_bus_message* message, int count) {
        for (int i = 0; i < count; ++i) check(sd_bus_message_close_container(message));
    }

    static void appendServiceData(sd_bus_message* message, std::size_t beacon, int code) {
        BeaconDescription description = numberedBeacon(beacon);
        description.buttonAction = static_cast<std::int8_t>(code);
        const auto payload = zobi::encodePayload(description);
        open(message, 'e', "sv");
        check(sd_bus_message_append(message, "s", "ServiceData"));
        open(message, 'v', "a{sv}");
        open(message, 'a', "{sv}");
        open(message, 'e', "sv");
        check(sd_bus_message_append(message, "s", "0000180a-0000-1000-8000-00805f9b34fb"));
        open(message, 'v', "ay");
        check(sd_bus_message_append_array(message, 'y', payload.data(), payload.size()));
        close(message, 5);
    }

    std::string bytesOf(const MessagePointer& message) const {
        // Who wants the number of a call wants its answer.
        std::uint64_t cookie = 0;
        check(sd_bus_send(bus_.get(), message.get(), &cookie));
        check(sd_bus_flush(bus_.get()));
        return read();
    }

    std::string read() const {
        std::array<char, 4096> bytes{};
        return {bytes.data(),
                static_cast<std::size_t>(checkCall(::read(ends_[1], bytes.data(), bytes.size())))};
    }

    std::array<int, 2> ends_ = connectedSockets();
    BusPointer bus_ = serve(ends_[0]);
};

/// What the other process does.
class Service {
public:
    Service(int control, BusPointer bus, std::size_t beacons)
        : socket_(sd_bus_get_fd(bus.get())), control_(control), bus_(std::move(bus)) {
        const Recorder recorder;
        for (std::size_t i = 0; i < beacons; ++i) {
            order_.push_back(i);
            found_.push_back(recorder.interfacesAdded(i));
            quiet_.push_back(recorder.propertiesChanged(i, 0));
            pressed_.push_back(recorder.propertiesChanged(i, pressCode));
            calls_.push_back(recorder.deviceFound(i));
        }
        last_ = recorder.propertiesChanged(0, lastCode);
        // Beacons do not advertise in the order in which they were found.
        std::ranges::shuffle(order_, std::minstd_rand(1));
    }

    /// Until the client or the one who gives the orders is gone.
    void run() {
        writeAll(control_, "!");
        while (true) {
            if (!serveClient()) return;
            const auto events = static_cast<short>(sd_bus_get_events(bus_.get()));
            std::array<pollfd, 2> polled{{{socket_, events, 0}, {control_, POLLIN, 0}}};
            checkCall(::poll(polled.data(), polled.size(), -1));
            if (polled[1].revents == 0) continue;
            Traffic traffic{};
            if (checkCall(::read(control_, &traffic, sizeof traffic)) != sizeof traffic) return;
            traffic.signals == 0 ? announce() : send(traffic);
        }
    }

private:
    /// Takes what the client has sent.
    /// @returns false when the connection has ended.
    bool serveClient() {
        int result = 0;
        do {
            sd_bus_message* raw = nullptr;
            result = sd_bus_process(bus_.get(), &raw);
            const MessagePointer message(raw);
            if (!message) continue;
            // The end of the connection is a signal.
            if (sd_bus_message_is_method_call(raw, nullptr, nullptr) > 0) {
                answer(raw);
            } else if (sd_bus_message_is_signal(raw, nullptr, nullptr) == 0) {
                --unanswered_;
            }
        } while (result > 0);
        return result == 0;
    }

    void answer(sd_bus_message* call) const {
        const std::string_view member = sd_bus_message_get_member(call);
        sd_bus_message* raw = nullptr;
        check(sd_bus_message_new_method_return(call, &raw));
        const MessagePointer reply(raw);
        if (member == "Hello") check(sd_bus_message_append(raw, "s", client));
        if (member == "GetNameOwner") check(sd_bus_message_append(raw, "s", service));
        // Of a linked device, whether it is connected, and whether its services are resolved.
        if (member == "Get") check(sd_bus_message_append(raw, "v", "b", 1));
        if (member == "GetManagedObjects") {
            check(sd_bus_message_append(raw, "a{oa{sa{sv}}}", 1, adapter, 1, "org.bluez.Adapter1", 2,
                                        "Address", "s", "00:00:5E:00:53:01", "Powered", "b", 1));
        }
        check(sd_bus_send(bus_.get(), raw, nullptr));
        if (member == "Connect") link(sd_bus_message_get_path(call));
        // What is recorded goes past the bus's own connection.
        check(sd_bus_flush(bus_.get()));
    }

    void link(const std::string& device) const {
        const auto change = [&](const char* property) {
            const auto signal = makeSignal(bus_.get(), device, propertiesInterface, "PropertiesChanged");
            check(sd_bus_message_append(signal.get(), "sa{sv}as", deviceInterface, 1, property, "b", 1, 0));
            check(sd_bus_send(bus_.get(), signal.get(), nullptr));
        };
        change("Connected");
        const auto table = makeSignal(bus_.get(), "/", objectManagerInterface, "InterfacesAdded");
        check(sd_bus_message_append(table.get(), "oa{sa{sv}}", (device + "/service0001").c_str(), 1,
                                    "org.bluez.GattService1", 1, "UUID", "s",
                                    "00001801-0000-1000-8000-00805f9b34fb"));
        check(sd_bus_send(bus_.get(), table.get(), nullptr));
        change("ServicesResolved");
    }

    void announce() const {
        for (const std::string& signal : found_) writeAll(socket_, signal);
    }

    void send(const Traffic& traffic) {
        std::vector<nanoseconds> pressTimes;
        std::string crowd;
        const nanoseconds start = now();
        for (std::size_t i = 0; i < traffic.signals; ++i) {
            const std::size_t beacon = order_[i % order_.size()];
            if (traffic.interval == nanoseconds::zero()) {
                // Many at once, so that the next ones are there before these are taken.
                constexpr std::size_t crowdSize = 65536;
                crowd += quiet_[beacon];
                if (crowd.size() >= crowdSize) writeAll(socket_, std::exchange(crowd, {}));
                continue;
            }
            waitUntil(start + static_cast<nanoseconds::rep>(i) * traffic.interval);
            const bool isPress = traffic.pressEvery > 0 && i % traffic.pressEvery == traffic.pressEvery - 1;
            serveClient();
            if (traffic.callsMonitor) {
                ++unanswered_;
                writeAll(socket_, calls_[beacon]);
            }
            if (isPress) pressTimes.push_back(now());
            writeAll(socket_, isPress ? pressed_[beacon] : quiet_[beacon]);
        }
        writeAll(socket_, crowd + last_);
        while (unanswered_ > 0 && serveClient()) {
            pollfd polled{socket_, POLLIN, 0};
            constexpr int deadline = 10'000;
            if (checkCall(::poll(&polled, 1, deadline)) == 0) throw std::runtime_error("no answer to a call");
        }
        const auto* const bytes = static_cast<const void*>(pressTimes.data());
        writeAll(control_, {static_cast<const char*>(bytes), pressTimes.size() * sizeof(nanoseconds)});
    }

    static void waitUntil(nanoseconds moment) {
        constexpr long second = 1'000'000'000;
        const timespec until{moment.count() / second, moment.count() % second};
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }

    int socket_;
    int control_;
    BusPointer bus_;
    // By the numbers of the beacons.
    std::vector<std::string> found_;
    std::vector<std::string> quiet_;
    std::vector<std::string> pressed_;
    std::vector<std::string> calls_;
    std::size_t unanswered_ = 0;
    std::string last_;
    std::vector<std::size_t> order_;
};

}  // namespace

BeaconDescription numberedBeacon(std::size_t number) {
    const auto high = static_cast<std::uint8_t>(number >> 8);
    const auto low = static_cast<std::uint8_t>(number & 0xFF);
    return {.macAddress = {0x00, 0x00, 0x5E, 0x00, high, low},
            .major = 1,
            .minor = static_cast<std::uint16_t>(number)};
}

Sender::Sender(std::size_t beacons, Route route) : control_(connectedSockets()) {
    if (route == Route::daemon) std::tie(daemon_, path_) = beginDaemon();
    bus_ = path_.empty() ? connectedSockets() : std::array{connectTo(path_), connectTo(path_)};
    process_ = checkCall(::fork());
    const std::size_t mine = process_ == 0 ? 1 : 0;
    ::close(bus_[1 - mine]);
    ::close(control_[1 - mine]);
    char isReady = 0;
    if (process_ != 0) {
        if (checkCall(::read(control_[0], &isReady, 1)) == 0)
            throw std::runtime_error("the sender: it ended");
        return;
    }
    try {
        Service(control_[mine], route == Route::daemon ? join(bus_[mine]) : serve(bus_[mine]), beacons).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    ::_exit(0);
}

Sender::~Sender() {
    ::close(control_[0]);
    ::waitpid(process_, nullptr, 0);
    if (daemon_ == 0) return;
    ::kill(daemon_, SIGTERM);
    ::waitpid(daemon_, nullptr, 0);
    ::unlink(path_.c_str());
}

void Sender::send(const Traffic& traffic) const {
    checkCall(::send(control_[0], &traffic, sizeof traffic, MSG_NOSIGNAL));
}

std::vector<nanoseconds> Sender::pressTimes(std::size_t presses) const {
    std::vector<nanoseconds> times(presses);
    auto bytes = std::as_writable_bytes(std::span(times));
    while (!bytes.empty()) {
        const auto size =
            static_cast<std::size_t>(checkCall(::read(control_[0], bytes.data(), bytes.size())));
        if (size == 0) throw std::system_error(EPIPE, std::generic_category(), "the sender");
        bytes = bytes.subspan(size);
    }
    return times;
}

}  // namespace zobi::bench
