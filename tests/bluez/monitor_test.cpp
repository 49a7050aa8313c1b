// The advertisement monitors beside a scan: their patterns, their life at the service, and in the kernel,
// whose part is played over pairs of sockets.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "BlueZRadio.h"
#include "platform/bluez/controller/KernelMonitors.h"

using namespace std::string_literals;

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;

const auto beaconService = CBUUID::UUIDWithString("1320");
const auto strapService = CBUUID::UUIDWithString("180D");
const auto longService = CBUUID::UUIDWithString("F0001320-0451-4000-B000-000000000000");

bool matches(const std::vector<AdvertisementPattern>& patterns, std::uint8_t type, const Bytes& content) {
    return std::ranges::any_of(patterns, [&](const auto& it) {
        return it.type == type && it.position + it.bytes.size() <= content.size() &&
               std::ranges::equal(it.bytes, std::span(content).subspan(it.position, it.bytes.size()));
    });
}

TEST(MonitorPatterns, MatchAServiceAtEachPlaceOfEachListAndInData) {
    const Bytes strap{0x0D, 0x18};
    const Bytes sixteenBytes{0, 0, 0, 0, 0, 0, 0, 0xB0, 0, 0x40, 0x51, 0x04, 0x20, 0x13, 0, 0xF0};
    const auto patterns = patternsOf(std::array{beaconService, strapService, longService});
    for (const std::uint8_t type : std::to_array<std::uint8_t>({0x02, 0x03, 0x16})) {
        // A 2 at an odd place is half of each neighbour.
        const Bytes content{0x0D, 0x0D, 0x18, 0x18};
        EXPECT_FALSE(matches(patterns, type, content));
        for (std::size_t place = 0; place < (type == 0x16 ? 1 : 28); place += 2) {
            Bytes list(place, 0xEE);
            list.insert(list.end(), strap.begin(), strap.end());
            EXPECT_TRUE(matches(patterns, type, list)) << int{type} << " at " << place;
        }
    }
    for (const std::uint8_t type : std::to_array<std::uint8_t>({0x06, 0x07, 0x21}))
        EXPECT_TRUE(matches(patterns, type, sixteenBytes));
    EXPECT_FALSE(matches(patterns, 0xFF, strap));
    EXPECT_TRUE(matches(patternsOf({}), 0x01, {0x06})) << "any device";
    std::size_t divided = 0;
    for (const auto& monitor : monitorsOf(patterns, 32)) {
        EXPECT_THAT(monitor, SizeIs(AllOf(Ge(1), Le(7)))) << "more crash the service";
        divided += monitor.size();
    }
    EXPECT_EQ(divided, patterns.size());
    EXPECT_THAT(monitorsOf(patterns, 3), SizeIs(3));
}

class BlueZMonitor : public BlueZRadio {
protected:
    void offerMonitors(const std::string& adapter = firstAdapter) {
        service.addObject(adapter, {{adapterInterface, {{"Address", "00:00:5E:00:53:01"}, {"Powered", true}}},
                                    {monitorManagerInterface,
                                     {{"SupportedMonitorTypes", std::vector<std::string>{"or_patterns"}}}}});
        pass(0.1);
    }
    /// The service calls a monitor; nobody else is answered with success.
    bool tell(const std::string& member, int monitor, const std::string& sender = {}) {
        bool isDone = false;
        const auto slot = service.callFrom(
            sender.empty() ? service.owner() : sender, "/monitors/hci0/" + std::to_string(monitor),
            monitorInterface, member, nullptr, [&](auto&, const BusError* error) { isDone = !error; });
        pass(0.1);
        return isDone;
    }
    /// What the service reads of the monitors.
    std::vector<Properties> monitors() {
        std::vector<Properties> all;
        const auto slot =
            service.callFrom(service.owner(), "/monitors/hci0", objectManagerInterface, "GetManagedObjects",
                             nullptr, [&](MessageReader& reply, const BusError*) {
                                 reply.forEachObject([&](auto path) {
                                     EXPECT_EQ(path, "/monitors/hci0/" + std::to_string(all.size()));
                                     reply.forEachInterface([&](auto interface) {
                                         EXPECT_EQ(interface, monitorInterface);
                                         all.push_back(reply.properties());
                                     });
                                 });
                             });
        pass(0.1);
        return all;
    }
    void scanFor(const CBUUID& itsService) {
        central->scanForPeripheralsWithServicesOptions(std::array{itsService}, {});
    }
    /// The calls about monitors and discovery since the last time.
    std::string callsIn(double seconds) {
        service.calls.clear();
        pass(seconds);
        std::string text;
        for (const std::string& call : service.calls) {
            if (!call.starts_with("SetDiscoveryFilter")) text += call.substr(0, call.find(' ')) + ' ';
        }
        return text;
    }
};
INSTANTIATE_TEST_SUITE_P(Scripted, BlueZMonitor, Values(scriptedRadio));

TEST_P(BlueZMonitor, StandsAtTheServiceAsLongAsTheScan) {
    offerMonitors();
    scan();
    EXPECT_EQ(callsIn(1), "RegisterMonitor StartDiscovery ");
    std::vector<AdvertisementPattern> patterns;
    const auto all = monitors();
    for (const Properties& properties : all) {
        EXPECT_THAT(properties, UnorderedElementsAre(Pair("Type", Value("or_patterns")),
                                                     Pair("RSSISamplingPeriod", Value(std::uint16_t{0})),
                                                     Pair("Patterns", _)));
        const auto* const part = named(properties, "Patterns")->get<std::vector<AdvertisementPattern>>();
        ASSERT_TRUE(part);
        patterns.insert(patterns.end(), part->begin(), part->end());
    }
    EXPECT_EQ(patterns, patternsOf(std::array{beaconService}));

    // A scan that runs takes no notice of a new monitor.
    service.calls.clear();
    EXPECT_FALSE(tell("Activate", 0, ":9.9"));
    EXPECT_THAT(service.calls, IsEmpty());
    for (const int monitor : {0, 1}) EXPECT_TRUE(tell("Activate", monitor));
    EXPECT_EQ(callsOf("StopDiscovery"), 1);
    EXPECT_EQ(callsOf("StartDiscovery"), 1);
    EXPECT_TRUE(tell("DeviceFound", 0));
    central->stopScan();
    EXPECT_EQ(callsIn(1), "StopDiscovery ");
    scan();
    EXPECT_EQ(callsIn(5), "StartDiscovery ") << "a scan for the same needs no others";
    scanFor(strapService);
    EXPECT_THAT(callsIn(1), AllOf(StartsWith("UnregisterMonitor "), HasSubstr(" RegisterMonitor ")));

    // When the first is released, all are made anew: soon, and later and later.
    const auto anew = HasSubstr("UnregisterMonitor RegisterMonitor ");
    for (const double rest : {2, 4, 8, 2}) {
        tell("Release", 3);
        EXPECT_THAT(callsIn(rest - 0.5), Not(HasSubstr("Monitor")));
        EXPECT_THAT(callsIn(0.5), anew) << rest;
        // Then they stand for long.
        if (rest == 8) pass(61);
    }
    tell("Release", 0);
    scanFor(strapService);
    EXPECT_THAT(callsIn(1), AllOf(StartsWith("UnregisterMonitor "), HasSubstr(" RegisterMonitor ")))
        << "a new scan does not wait";

    central->stopScan();
    EXPECT_EQ(callsIn(1), "StopDiscovery ");
    EXPECT_EQ(callsIn(1), "UnregisterMonitor ");
    EXPECT_EQ(callsIn(100), "");
    scan();
    pass(1);
    service.setPowered(false);
    EXPECT_EQ(callsIn(1), "UnregisterMonitor ");
    service.setPowered(true);
    EXPECT_EQ(callsIn(100), "") << "the scan is forgotten";
    EXPECT_THAT(machine.monitorEvents, IsEmpty());

    scan();
    pass(1);
    service.crash();
    pass(1);
    service.start();
    offerMonitors();
    pass(1);
    scan();
    EXPECT_THAT(callsIn(1), HasSubstr("RegisterMonitor ")) << "the service knows of none";
    service.scripts["RegisterMonitor"] = fails("AlreadyExists");
    service.scripts["UnregisterMonitor"] = {.delay = 0.5, .times = 1};
    scanFor(strapService);
    service.calls.clear();
    tell("Release", 0);
    pass(1);
    EXPECT_EQ(callsOf("UnregisterMonitor"), 2);
    EXPECT_EQ(callsOf("RegisterMonitor"), 2) << "they were released as they were unregistered";

    // Another adapter is used, and the service releases those at the former one late.
    offerMonitors("/org/bluez/hci1");
    service.removeObjects(firstAdapter);
    service.calls.clear();
    pass(1);
    EXPECT_THAT(service.calls, Contains("UnregisterMonitor /org/bluez/hci0"));
    scan();
    pass(1);
    tell("Release", 0);
    EXPECT_THAT(callsIn(5), Not(HasSubstr("Monitor")));
}

TEST_P(BlueZMonitor, IsTheKernelsOrNobodysWhereTheServiceTakesNone) {
    scan();
    pass(1);
    EXPECT_EQ(machine.monitorEvents, Events{"added 29"});
    service.calls.clear();
    machine.monitors.lock()->tell("");
    pass(1);
    EXPECT_EQ(callsOf("StartDiscovery"), 1) << "anew, as the scan may have begun before";
    service.setPowered(false);
    pass(1);
    service.setPowered(true);
    pass(1);
    scan();
    pass(1);
    service.crash();
    pass(1);
    EXPECT_EQ(machine.monitorEvents, (Events{"added 29", "removed", "added 29", "removed"}));

    const auto linesWith = [&](const std::string& text) {
        return std::ranges::count_if(machine.lines, [&](auto& it) { return it.find(text) != it.npos; });
    };
    service.start();
    pass(1);
    scan();
    pass(1);
    for (int refusals = 0; refusals < 2; ++refusals) {
        machine.monitors.lock()->tell("the kernel is full");
        pass(61);
    }
    EXPECT_THAT(machine.monitorEvents, SizeIs(9)) << "it is tried again";
    EXPECT_EQ(linesWith("once in 10 s: the kernel is full. "), 1);
    central->stopScan();
    pass(2);

    machine.mayPlaceMonitors = false;
    for (int scans = 0; scans < 3; ++scans) {
        scan();
        pass(30);
        central->stopScan();
    }
    EXPECT_EQ(linesWith("takes none of this process. Turn on"), 1);
    EXPECT_EQ(linesWith("setcap cap_net_admin+ep"), 2);
    offerMonitors();
    service.scripts["RegisterMonitor"] = fails("Failed", "no", -1);
    machine.mayPlaceMonitors = true;
    scan();
    scanFor(longService);
    pass(1);
    EXPECT_EQ(machine.monitorEvents.back(), "added 3") << "what one refuses the other may take";
    auto busyKernel = machine.monitors.lock();
    EXPECT_FALSE(machine.shutDown(1));
    EXPECT_EQ(machine.monitorEvents.back(), "removed");
    busyKernel.reset();
    EXPECT_TRUE(machine.shutDown(1));
}

/// The kernel at the other end of a socket.
class KernelMonitor : public Test {
public:
    KernelMonitor() { std::filesystem::create_directories(folder); }
    ~KernelMonitor() override {
        std::filesystem::remove_all(folder);
        if (kernel >= 0) ::close(kernel);
    }
    KernelMonitor(const KernelMonitor&) = delete;
    KernelMonitor& operator=(const KernelMonitor&) = delete;

    std::shared_ptr<KernelMonitors> open() {
        const auto openSocket = [this]() -> std::optional<int> {
            std::array<int, 2> ends{};
            if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()) != 0) return {};
            if (kernel >= 0) ::close(kernel);
            kernel = ends[1];
            if (!features.empty()) send(0x51, 0, features);
            return ends[0];
        };
        return std::make_shared<KernelMonitors>(
            258, openSocket, std::make_unique<MonitorRecord>(folder, "hci2", "life"), machine.runLoop());
    }
    using Patterns = std::vector<AdvertisementPattern>;
    std::shared_ptr<KernelMonitors> begin(const Patterns& patterns = patternsOf(std::array{beaconService})) {
        told.clear();
        auto monitors = open();
        monitors->add(patterns, placed);
        return monitors;
    }
    /// The next command: its code, and the first bytes of its parameters, as they are.
    std::string command() {
        std::array<char, 512> packet{};
        const auto size = ::recv(kernel, packet.data(), packet.size(), 0);
        if (size < 6) return size == 0 ? "closed" : "nothing";
        EXPECT_EQ(std::string(packet.data() + 2, 2), "\x02\x01");
        last = std::string(packet.data() + 6, static_cast<std::size_t>(size) - 6);
        return packet[0] == 0x51   ? "features"
               : packet[0] == 0x52 ? "add"
                                   : "remove " + std::to_string(last[0]);
    }
    void send(char code, char status, const std::string& parameters) const {
        const std::string body = std::string{code} + '\0' + status + parameters;
        const std::string packet = "\1\0\2\1"s + static_cast<char>(body.size()) + '\0' + body;
        EXPECT_GT(::send(kernel, packet.data(), packet.size(), 0), 0);
    }
    void answer(char code, char status, const std::string& parameters) {
        send(code, status, parameters);
        machine.runLoop().runFor(0.1);
    }
    /// Which monitors there are, of 32 at most.
    static std::string featuresWith(const std::string& handles) {
        std::string text = std::string(8, 0) + "\x20\0\x10"s + static_cast<char>(handles.size()) + '\0';
        for (const char handle : handles) text += handle + "\0"s;
        return text;
    }
    void tellFeatures(const std::string& handles) {
        EXPECT_EQ(command(), "features");
        answer(0x51, 0, featuresWith(handles));
    }
    std::size_t files() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }

    std::string folder = TempDir() + "zobi_monitors" + std::to_string(::getpid());
    ScriptedPlatform machine;
    int kernel = -1;
    /// Told as soon as it is asked.
    std::string features;
    std::string last;
    Events told;
    MonitorPlace::Placed placed = [this](const std::string& trouble) { told.push_back(trouble); };
};

TEST_F(KernelMonitor, StandsUntilItIsRemovedAndOutlivesNoKilledProcess) {
    const auto patterns = patternsOf(std::array{beaconService});
    {
        // What a process leaves that is killed: its lock ends, its file stays.
        MonitorRecord killed(folder, "hci2", "life");
        killed.write({3, 9});
        MonitorRecord before(folder, "hci2", "another life");
        before.write({5});
    }
    MonitorRecord alive(folder, "hci2", "life");
    alive.write({4});
    ASSERT_EQ(files(), 3U);

    auto monitors = open();
    features = featuresWith("\3\4\5");
    EXPECT_THAT(monitors->use().value().unrecorded, ElementsAre(3, 5));
    EXPECT_EQ(files(), 3U) << "the question changes nothing";
    features.clear();
    monitors->add(patterns, placed);
    tellFeatures("\3\4\5");
    EXPECT_EQ(files(), 2U);
    EXPECT_EQ(command(), "remove 3") << "9 is gone, 4 of a living process, 5 of another's since";
    answer(0x53, 0, "\3\0"s);
    for (char handle = 10; handle < 15; ++handle) {
        EXPECT_EQ(command(), "add");
        EXPECT_EQ(last.size(), 1U + 34U * static_cast<unsigned>(last[0]));
        if (handle == 10) {
            EXPECT_EQ(last.substr(0, 6), "\x07\x16\0\x02\x20\x13"s);
        }
        EXPECT_THAT(told, IsEmpty());
        answer(0x52, 0, handle + "\0"s);
    }
    EXPECT_EQ(told, Events{""});
    EXPECT_EQ(command(), "closed") << "it would bring every advertisement";
    EXPECT_EQ(MonitorRecord(folder, "hci2", "life").takeLeft(), std::vector<std::uint16_t>()) << "both live";

    monitors->remove();
    monitors.reset();
    for (int handle = 10; handle < 15; ++handle) {
        EXPECT_EQ(command(), "remove " + std::to_string(handle));
        // One that somebody else has removed already.
        answer(0x53, handle == 12 ? 0x11 : 0, "");
    }
    EXPECT_EQ(command(), "closed");
    EXPECT_EQ(files(), 1U);
}

TEST_F(KernelMonitor, TellsWhyItIsNotThereAndLeavesNothing) {
    auto monitors = begin(patternsOf({}));
    tellFeatures(std::string(32, 7));
    EXPECT_THAT(told, ElementsAre(HasSubstr("other programs")));
    for (const bool isKnown : {false, true}) {
        monitors = begin();
        if (isKnown) tellFeatures("");
        EXPECT_EQ(command(), isKnown ? "add" : "features");
        answer(isKnown ? 0x52 : 0x51, 0x14, "");
        EXPECT_THAT(told, ElementsAre(HasSubstr("status 20")));
        EXPECT_EQ(command(), "closed");
    }
    monitors = begin();
    machine.runLoop().runFor(11);
    EXPECT_THAT(told, ElementsAre(HasSubstr("does not answer")));

    // The scan ends while one is being added.
    monitors = begin();
    tellFeatures("");
    EXPECT_EQ(command(), "add");
    monitors->remove();
    monitors.reset();
    answer(0x52, 0, "\6\0"s);
    EXPECT_EQ(command(), "remove 6");
    answer(0x53, 0x0A, "");
    EXPECT_EQ(command(), "remove 6") << "the kernel was busy";
    answer(0x53, 0x03, "");
    EXPECT_EQ(command(), "closed");
    monitors = begin();
    tellFeatures("\6");
    monitors->remove();
    monitors.reset();
    EXPECT_EQ(command(), "remove 6") << "the controller was off";
    answer(0x53, 0, "\6\0"s);
    EXPECT_EQ(command(), "closed");
    EXPECT_THAT(told, IsEmpty());

    // What cannot be recorded is removed.
    ::setenv("RUNTIME_DIRECTORY", ("/nowhere:" + folder).c_str(), 1);
    EXPECT_EQ(MonitorRecord::usualFolder(), folder);
    std::filesystem::remove_all(folder);
    monitors = begin({{0, 0x16, {0x20, 0x13}}});
    tellFeatures("");
    EXPECT_EQ(command(), "add");
    answer(0x52, 0, "\6\0"s);
    EXPECT_THAT(told, ElementsAre(HasSubstr("cannot record")));
    std::filesystem::create_directories(folder);
    monitors.reset();
    EXPECT_EQ(command(), "remove 6");

    // The run loop has ended before the scan.
    monitors = begin({{0, 0x16, {0x20, 0x13}}});
    tellFeatures("");
    EXPECT_EQ(command(), "add");
    answer(0x52, 0, "\7\0"s);
    const int before = kernel;
    EXPECT_EQ(files(), 1U);
    monitors.reset();
    EXPECT_NE(kernel, before);
    EXPECT_EQ(command(), "remove 7");
    EXPECT_EQ(files(), 1U) << "the kernel has not answered: the next process tries again";
}

}  // namespace
}  // namespace zobi::platform::bluez
