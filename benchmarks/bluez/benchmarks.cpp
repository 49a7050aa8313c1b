#include <benchmark/benchmark.h>
#ifdef ZOBI_HAS_GLIB
#include <glib-unix.h>
#endif
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "benchmarks/bluez/PlainClient.h"
#include "benchmarks/bluez/Sender.h"
#ifdef ZOBI_HAS_GLIB
#include "examples/GLibLoop.h"
#endif
#include "platform/bluez/RadioContext.h"
#include "platform/bluez/bus/Bus.h"
#include "platform/bluez/central/BlueZCentral.h"
#include "zobi/platform/standard/ExceptionKeeper.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardPlatform.h"

using std::chrono::nanoseconds;
using zobi::platform::bluez::Bus;

namespace zobi::bench {

namespace {

nanoseconds now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

/// The radio of Linux, over a connection that is there already, with the log off.
class RadioPlatform final : public zobi::platform::StandardPlatform {
public:
    explicit RadioPlatform(int socket)
        : StandardPlatform(Time::real, std::make_unique<zobi::platform::PollWaiting>()),
          context_{runLoop(),
                   clock(),
                   log(),
                   [socket](const Bus::Context& context) { return Bus::overSocket(socket, context); },
                   [](const std::string& /*adapter*/) { return nullptr; },
                   ""} {
        log().setSink(nullptr);
    }
    ~RadioPlatform() override { clear(); }

protected:
    std::shared_ptr<zobi::platform::StandardCentral> makeCentral(
        std::weak_ptr<zobi::platform::CBCentralManagerDelegate> delegate) override {
        auto central = std::make_shared<zobi::platform::bluez::BlueZCentral>(context_, std::move(delegate));
        runLoop().dispatchAsync([central] { central->start(); });
        return central;
    }

private:
    zobi::platform::bluez::RadioContext context_;
};

/// Monitors as soon as it can, and tells when the last signal has come.
struct Listener final : ZOKManagerDelegate {
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        if (state != static_cast<int>(zobi::platform::CBManagerState::poweredOn)) {
            throw std::runtime_error("the library: the connection to the sender is lost");
        }
        manager->startMonitoring();
    }
    void zobiConnectManagerDidRangeBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/,
        const std::vector<std::shared_ptr<ZOKBeacon>>& /*beacons*/) override {
        ++reports;
    }
    void zobiConnectManagerDidButtonActionChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int action,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) override {
        // The payload's code begins with 1, the action with 0.
        if (action == lastCode - 1) return onLast();
        pressesTold.push_back(now());
    }

    std::function<void()> onLast;
    std::size_t reports = 0;
    std::vector<nanoseconds> pressesTold;
};

/// A manager that monitors over the radio, with beacons that are live.
struct Stack {
    explicit Stack(std::size_t beacons, Route route = Route::direct)
        : sender(beacons, route), platform(sender.clientSocket()) {
        manager->setDelegate(listener);
        const auto waitFor = [this](const auto& isThere) {
            while (!isThere()) platform.runLoop().runFor(0.01);
        };
        waitFor([this] { return manager->centralManager()->isScanning(); });
        sender.announce();
        waitFor([&] { return manager->liveBeacons().size() == beacons; });
    }

    /// Links one of the beacons, for good.
    void link() {
        const auto& beacon = manager->liveBeacons().front();
        manager->connectBeacon(beacon);
        const auto peripheral = beacon->peripheral();
        while (!peripheral->services()) platform.runLoop().runFor(0.01);
    }

    void takeAll() {
        listener->onLast = [this] { platform.runLoop().stop(); };
        platform.runLoop().run();
    }

    Sender sender;
    RadioPlatform platform;
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
};

/// The processor time that this process takes for something, in seconds.
double processorTime(const std::function<void()>& work) {
    const auto passed = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::duration<double>(std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec));
    };
    const auto start = passed();
    work();
    return (passed() - start).count();
}

/// The real time that something takes, in seconds.
double realTime(const std::function<void()>& work) {
    const nanoseconds start = now();
    work();
    return std::chrono::duration<double>(now() - start).count();
}

#ifdef ZOBI_HAS_GLIB
void takeAllUnderGLib(PlainClient& client) {
    struct Taking {
        PlainClient& client;
        GMainLoop* loop = nullptr;
        // An exception must not pass through GLib.
        zobi::platform::ExceptionKeeper exceptions{};
    } taking{client, g_main_loop_new(nullptr, FALSE)};
    const auto take = [](gint /*fd*/, GIOCondition /*events*/, gpointer data) -> gboolean {
        auto& self = *static_cast<Taking*>(data);
        bool isOver = true;
        self.exceptions.run([&] { isOver = self.client.takeWhatIsThere(); });
        if (isOver) g_main_loop_quit(self.loop);
        return isOver ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
    };
    g_unix_fd_add(client.descriptor(), G_IO_IN, take, &taking);
    g_main_loop_run(taking.loop);
    g_main_loop_unref(taking.loop);
    taking.exceptions.rethrow();
}

void takeAllUnderGLib(Stack& stack) {
    GLibLoop loop(stack.platform);
    stack.listener->onLast = [&] { loop.stop(); };
    loop.run();
}
#endif

/// How floor and library are compared.
struct Comparison {
    Traffic traffic;
    int turns = 1;
    /// Whether the library has linked a beacon meanwhile.
    bool isLinked = false;
    Route route = Route::direct;
    void (*runFloor)(PlainClient&) = [](PlainClient& client) { client.takeAll(); };
    void (*runLibrary)(Stack&) = [](Stack& stack) { stack.takeAll(); };
    double (*measure)(const std::function<void()>&) = &processorTime;
};

/// The floor and the library take the same in turns, so that what slows the machine down for a while falls on
/// both.
void takeInTurns(benchmark::State& state, const Comparison& comparison) {
    const auto beacons = static_cast<std::size_t>(state.range(0));
    const Sender sender(beacons, comparison.route);
    PlainClient client(sender.clientSocket(), beacons);
    Stack stack(beacons, comparison.route);
    if (comparison.isLinked) stack.link();
    const std::int64_t start = stack.platform.clock().secondsSince1970();
    double floor = 0;
    double library = 0;
    for ([[maybe_unused]] auto _ : state) {
        for (int turn = 0; turn < comparison.turns; ++turn) {
            floor += comparison.measure([&] {
                sender.send(comparison.traffic);
                comparison.runFloor(client);
            });
            library += comparison.measure([&] {
                stack.sender.send(comparison.traffic);
                comparison.runLibrary(stack);
            });
        }
    }
    const auto turns = static_cast<std::size_t>(comparison.turns);
    const std::size_t expected = turns * (comparison.traffic.signals + 1);
    if (client.taken() != expected || client.stamped() != expected || client.strengths() >= 0) {
        state.SkipWithError("signals were lost");
    }
    if (client.answered() != (comparison.traffic.callsMonitor ? turns * comparison.traffic.signals : 0)) {
        state.SkipWithError("calls were not answered");
    }
    const auto& live = stack.manager->liveBeacons();
    const bool isEachHeard =
        std::ranges::all_of(live, [&](const auto& beacon) { return beacon->timestamp() >= start; });
    if (live.size() != beacons || !isEachHeard) state.SkipWithError("a beacon was not heard");
    state.counters["floor"] = floor / static_cast<double>(expected);
    state.counters["library"] = library / static_cast<double>(expected);
}

// As fast as they can be taken.
const Comparison flood{.traffic = {.signals = 4000}, .turns = 10};
BENCHMARK_CAPTURE(takeInTurns, flood, flood)->Name("Flood")->Arg(32)->Arg(1000)->Iterations(1);

// 200 beacons, each of which sends ten in a second, or one.
constexpr int crowd = 200;
constexpr Traffic steady{.signals = 2000, .interval = std::chrono::microseconds(500)};
constexpr Traffic sparse{.signals = 400, .interval = std::chrono::milliseconds(5)};

constexpr Traffic withCalls(Traffic traffic) {
    traffic.callsMonitor = true;
    return traffic;
}

BENCHMARK_CAPTURE(takeInTurns, steady, Comparison{steady})->Name("Steady")->Arg(crowd)->Iterations(1);
BENCHMARK_CAPTURE(takeInTurns, steadyLinked, Comparison{.traffic = steady, .isLinked = true})
    ->Name("SteadyLinked")
    ->Arg(crowd)
    ->Iterations(1);
BENCHMARK_CAPTURE(takeInTurns, steadyMonitor, Comparison{withCalls(steady)})
    ->Name("SteadyMonitor")
    ->Arg(crowd)
    ->Iterations(1);
BENCHMARK_CAPTURE(takeInTurns, sparse, Comparison{sparse})
    ->Name("Sparse")
    ->Arg(crowd)
    ->Iterations(1)
    ->Repetitions(7);
BENCHMARK_CAPTURE(takeInTurns, sparseLinked, Comparison{.traffic = sparse, .isLinked = true})
    ->Name("SparseLinked")
    ->Arg(crowd)
    ->Iterations(1)
    ->Repetitions(7);
BENCHMARK_CAPTURE(takeInTurns, sparseMonitor, Comparison{withCalls(sparse)})
    ->Name("SparseMonitor")
    ->Arg(crowd)
    ->Iterations(1)
    ->Repetitions(7);

#ifdef ZOBI_HAS_GLIB
BENCHMARK_CAPTURE(takeInTurns, glib,
                  Comparison{
                      .traffic = steady, .runFloor = &takeAllUnderGLib, .runLibrary = &takeAllUnderGLib})
    ->Name("GLib")
    ->Arg(crowd)
    ->Iterations(1);
#endif

// As fast as they come through a message bus.
const Comparison throughDaemon{.traffic = {.signals = 50000}, .route = Route::daemon, .measure = &realTime};
BENCHMARK_CAPTURE(takeInTurns, daemon, throughDaemon)
    ->Name("Daemon")
    ->Arg(crowd)
    ->Iterations(1)
    ->Repetitions(5);

void button(benchmark::State& state, Traffic traffic) {
    // No divisor of what gathers between two looks, so that the presses fall on all moments between them.
    traffic.pressEvery = 19;
    const std::size_t count = traffic.signals / traffic.pressEvery;
    Stack stack(crowd);
    nanoseconds longest{};
    for ([[maybe_unused]] auto _ : state) {
        stack.listener->pressesTold.clear();
        stack.sender.send(traffic);
        stack.takeAll();
        const auto sent = stack.sender.pressTimes(count);
        const auto& told = stack.listener->pressesTold;
        if (told.size() != count) return state.SkipWithError("a pressed button was not told of");
        for (std::size_t i = 0; i < count; ++i) longest = std::max(longest, told[i] - sent[i]);
    }
    state.counters["presses"] = static_cast<double>(count);
    state.counters["longest_latency"] = std::chrono::duration<double>(longest).count();
}
BENCHMARK_CAPTURE(button, steady, {.signals = 4000, .interval = steady.interval})
    ->Name("Button/2000")
    ->Iterations(1)
    ->Repetitions(3);
BENCHMARK_CAPTURE(button, sparse, {.signals = 1600, .interval = sparse.interval})
    ->Name("Button/200")
    ->Iterations(1)
    ->Repetitions(3);

void idle(benchmark::State& state) {
    constexpr double seconds = 10;
    Stack stack(0);
    for ([[maybe_unused]] auto _ : state) stack.platform.runLoop().runFor(seconds);
    state.counters["cpu_per_second"] = benchmark::Counter(
        seconds, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    if (!stack.manager->centralManager()->isScanning() || stack.listener->reports < 9) {
        state.SkipWithError("it did not monitor");
    }
}
BENCHMARK(idle)->Name("Idle")->Iterations(1)->Repetitions(2)->MeasureProcessCPUTime();

/// In MiB; nothing when the process has ended.
std::optional<double> peakMemoryOf(const std::string& process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string word; status >> word;) {
        double kibibytes = 0;
        if (word == "VmHWM:" && status >> kibibytes) return kibibytes / 1024;
    }
    return std::nullopt;
}

/// The memory of the tool, in which 1,000 beacons are live.
void memory(benchmark::State& state, const std::string& format) {
    const auto tool = std::filesystem::read_symlink("/proc/self/exe").replace_filename("zobiconnect");
    double peak = 0;
    bool areAllLive = false;
    for ([[maybe_unused]] auto _ : state) {
        const Sender sender(1000, Route::daemon);
        ::close(sender.clientSocket());
        const std::string command = "echo $$; DBUS_SYSTEM_BUS_ADDRESS=" + sender.busAddress() + " exec " +
                                    tool.string() + " monitor --for 12 --format " + format;
        // NOLINTNEXTLINE(cert-env33-c): the shell tells the number of the process
        std::FILE* const output = ::popen(command.c_str(), "r");
        if (!output) return state.SkipWithError("the shell does not start");
        std::array<char, 4096> line{};
        std::string process;
        bool isTold = false;
        while (std::fgets(line.data(), static_cast<int>(line.size()), output)) {
            const std::string_view text(line.data());
            if (process.empty()) {
                process = text.substr(0, text.find('\n'));
            } else if (!std::exchange(isTold, true)) {
                sender.announce();
                sender.send({.signals = 20'000, .interval = steady.interval});
            }
            peak = peakMemoryOf(process).value_or(peak);
            areAllLive = text.find(": 1000 beacons") != std::string_view::npos ||
                         text.find(":1000,") != std::string_view::npos;
        }
        ::pclose(output);
    }
    state.counters["peak_memory"] = peak;
    if (!areAllLive) state.SkipWithError("not all beacons were live in the tool at the end");
}
BENCHMARK_CAPTURE(memory, json, "json")->Name("Memory/json")->Iterations(1)->Repetitions(1);
BENCHMARK_CAPTURE(memory, table, "table")->Name("Memory/table")->Iterations(1)->Repetitions(1);

}  // namespace

}  // namespace zobi::bench

int main(int argc, char** argv) {
    // From a program's second thread on, references are counted with atomic operations.
    std::thread([] {}).join();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
