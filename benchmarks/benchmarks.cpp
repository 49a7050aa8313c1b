#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "Floor.h"
#include "HeapUse.h"
#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

using zobi::BeaconDescription;
using zobi::platform::simulation::SimulatedPlatform;
using Payload = std::vector<std::uint8_t>;
using Peripheral = std::shared_ptr<zobi::platform::CBPeripheral>;
using Time = zobi::platform::StandardPlatform::Time;

namespace {

/// Beacons of different numbers differ in address and minor.
BeaconDescription numberedBeacon(std::size_t number) {
    const auto high = static_cast<std::uint8_t>(number >> 8);
    const auto low = static_cast<std::uint8_t>(number & 0xFF);
    return {.macAddress = {0xC4, 0xBE, 0x84, 0x01, high, low},
            .major = 1,
            .minor = static_cast<std::uint16_t>(number)};
}

Payload payloadOf(std::size_t number) {
    return zobi::encodePayload(numberedBeacon(number));
}

/// A delegate that only counts.
struct Listener final : ZOKManagerDelegate {
    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        ++reports;
        beaconsReported = beacons.size();
    }
    void zobiConnectManagerDidBatteryValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int /*level*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) override {
        ++values;
    }
    void zobiConnectManagerDidTemperatureValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, std::uint16_t /*temperature*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) override {
        ++values;
    }
    void zobiConnectManagerDidButtonActionChangedForBeacon(
        const std::shared_ptr<ZOKManager>& /*manager*/, int /*action*/,
        const std::shared_ptr<ZOKBeacon>& /*beacon*/) override {
        ++values;
    }

    std::size_t reports = 0;
    std::size_t beaconsReported = 0;
    std::size_t values = 0;
};

/// A simulated radio, and a manager that monitors with the log off.
struct Stack {
    explicit Stack(Time time) : platform(time) {
        platform.log().setSink(nullptr);
        manager->setDelegate(listener);
        platform.runLoop().processPending();
        manager->startMonitoring();
        platform.runLoop().processPending();
    }

    SimulatedPlatform platform;
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
};

/// A stack with live beacons: so many, or as many as the benchmark's argument tells.
struct FullStack : Stack {
    FullStack(Time time, const benchmark::State& state)
        : FullStack(time, static_cast<std::size_t>(state.range(0))) {}
    FullStack(Time time, std::size_t beacons) : Stack(time), count(beacons) {
        for (std::size_t i = 0; i < count; ++i) {
            zobi::addBeacon(platform.world(), numberedBeacon(i)).comeIntoRange();
        }
        while (manager->liveBeacons().size() < count) platform.runLoop().runFor(0.001);
    }

    const Peripheral& peripheral(std::size_t number) const {
        return manager->liveBeacons()[number]->peripheral();
    }

    std::size_t count;
};

/// A stack in virtual time with one beacon to be connected; it no longer monitors.
struct LinkStack : FullStack {
    LinkStack() : FullStack(Time::virtualTime, 1) { manager->stopMonitoring(); }

    /// Returns when the beacon is connected, all of it discovered.
    void connect() {
        manager->connectBeaconWithCompletion(beacon, stopping);
        platform.runLoop().run();
    }
    void disconnect() {
        manager->disconnectBeaconWithCompletion(beacon, stopping);
        platform.runLoop().run();
    }

    std::shared_ptr<ZOKBeacon> beacon = manager->liveBeacons().front();
    std::int64_t successes = 0;
    ZOKBeaconCompletion stopping = [this](const auto& /*manager*/, const auto& /*beacon*/,
                                          const auto* error) {
        successes += error == nullptr;
        platform.runLoop().stop();
    };
};

void everyCount(benchmark::internal::Benchmark* benchmark) {
    benchmark->RangeMultiplier(8)->Range(1, 4096);
}

void decodeFloor(benchmark::State& state) {
    const Payload payload = payloadOf(1);
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(zobi::floor_work::decode(payload));
}
BENCHMARK(decodeFloor)->Name("Decode/floor");

void decodeLibrary(benchmark::State& state) {
    Stack stack(Time::real);
    const Payload payload = payloadOf(1);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(ZOKProtocolUtils::beaconFromDataOnPlatform(payload, stack.platform));
    }
}
BENCHMARK(decodeLibrary)->Name("Decode/library");

/// Takes in an advertisement of each beacon, then times those of one in the middle of the list. The stack
/// stands there for its peripherals alone: floor and library each fill a list of their own in the same way,
/// so that the records of both lie in memory alike.
template <typename Take>
void timeIntake(benchmark::State& state, const FullStack& stack, const Take& take) {
    HeapUse live;
    for (std::size_t i = 0; i < stack.count; ++i) {
        const Payload payload = payloadOf(i);
        live.bytes += heapUseOf([&] { take(payload, stack.peripheral(i)); }).bytes;
    }
    const std::size_t repeated = stack.count / 2;
    const Payload payload = payloadOf(repeated);
    const Peripheral& peripheral = stack.peripheral(repeated);
    const HeapUse again = heapUseOf([&] { take(payload, peripheral); });
    for ([[maybe_unused]] auto _ : state) {
        take(payload, peripheral);
        benchmark::ClobberMemory();
    }
    state.counters["heap_per_live_beacon"] =
        static_cast<double>(live.bytes) / static_cast<double>(stack.count);
    state.counters["allocations"] = static_cast<double>(again.allocations);
}

void intakeFloor(benchmark::State& state) {
    const FullStack stack(Time::real, state);
    zobi::floor_work::Records live;
    timeIntake(state, stack, [&](const Payload& payload, const Peripheral& peripheral) {
        zobi::floor_work::takeIn(payload, peripheral.get(), live);
    });
    if (live.size() != stack.count) state.SkipWithError("a live beacon was taken for a new one");
}
BENCHMARK(intakeFloor)->Name("Intake/floor")->Apply(everyCount);

void intakeLibrary(benchmark::State& state) {
    FullStack stack(Time::real, state);
    const auto manager = ZOKManager::managerOnPlatform(stack.platform);
    // As a radio has it.
    zobi::platform::CBCentralManagerDelegate& events = *manager;
    const auto deviceInformation = zobi::platform::CBUUID::UUIDWithString("180A");
    timeIntake(state, stack, [&](const Payload& payload, const Peripheral& peripheral) {
        const std::array serviceData{zobi::platform::CBServiceData{deviceInformation, payload}};
        events.centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
            *manager->centralManager(), peripheral, {"morvane", serviceData},
            zobi::platform::NSNumber::numberWithInt(-60));
    });
    if (manager->liveBeacons().size() != stack.count) {
        state.SkipWithError("a live beacon was taken for a new one");
    }
}
BENCHMARK(intakeLibrary)->Name("Intake/library")->Apply(everyCount);

// The timers' actions, in virtual time: it stands still here, so that no beacon falls silent.

void report(benchmark::State& state) {
    const FullStack stack(Time::virtualTime, state);
    for ([[maybe_unused]] auto _ : state) stack.manager->updateRangedBeaconsTimerFired(nullptr);
    if (stack.listener->beaconsReported != stack.count) state.SkipWithError("a beacon was not reported");
}
BENCHMARK(report)->Name("Report")->Apply(everyCount);

void expiry(benchmark::State& state) {
    const FullStack stack(Time::virtualTime, state);
    for ([[maybe_unused]] auto _ : state) stack.manager->checkRangedBeaconsTimerFired(nullptr);
    if (stack.manager->liveBeacons().size() != stack.count) state.SkipWithError("a live beacon was dropped");
}
BENCHMARK(expiry)->Name("Expiry")->Apply(everyCount);

// A connection, in virtual time too.

void lookup(benchmark::State& state) {
    LinkStack stack;
    stack.connect();
    for (const auto& [service, characteristics] : ZOKGATTProfile::characteristicRequests) {
        for (const auto& characteristic : characteristics) {
            if (!ZOKManager::characteristicFromServiceAndPeripheral(characteristic, service,
                                                                    stack.beacon->peripheral())) {
                state.SkipWithError("a characteristic was not found");
            }
        }
    }
    for ([[maybe_unused]] auto _ : state) {
        for (const auto& [service, characteristics] : ZOKGATTProfile::characteristicRequests) {
            for (const auto& characteristic : characteristics) {
                benchmark::DoNotOptimize(ZOKManager::characteristicFromServiceAndPeripheral(
                    characteristic, service, stack.beacon->peripheral()));
            }
        }
    }
}
BENCHMARK(lookup)->Name("Lookup");

void connectCycle(benchmark::State& state) {
    LinkStack stack;
    for ([[maybe_unused]] auto _ : state) {
        stack.connect();
        stack.disconnect();
    }
    if (stack.successes != 2 * state.iterations()) state.SkipWithError("a link was not made as it should be");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(connectCycle)->Name("ConnectCycle")->Unit(benchmark::kMicrosecond);

/// A value that a connected beacon sends, and how the library tells of it.
struct ValueCase {
    zobi::platform::CBUUID service;
    zobi::platform::CBUUID characteristic;
    bool reachesDelegate;
    std::string_view notification;
};

constexpr ValueCase battery{
    ZOKGATTProfile::batteryService, ZOKGATTProfile::batteryLevelCharacteristic, true, {}};
constexpr ValueCase buttonAction{
    ZOKGATTProfile::buttonService, ZOKGATTProfile::buttonActionCharacteristic, true, {}};
constexpr ValueCase temperature{ZOKGATTProfile::temperatureService, ZOKGATTProfile::temperatureCharacteristic,
                                true, ZOKBeaconDidTemperatureChangeNotification};
constexpr ValueCase axisX{ZOKGATTProfile::accelerometerService, ZOKGATTProfile::accelerometerXCharacteristic,
                          false, ZOKBeaconDidAccelerometerAxisXChangeNotification};
constexpr ValueCase axisY{ZOKGATTProfile::accelerometerService, ZOKGATTProfile::accelerometerYCharacteristic,
                          false, ZOKBeaconDidAccelerometerAxisYChangeNotification};
constexpr ValueCase axisZ{ZOKGATTProfile::accelerometerService, ZOKGATTProfile::accelerometerZCharacteristic,
                          false, ZOKBeaconDidAccelerometerAxisZChangeNotification};
constexpr ValueCase buttonMode{ZOKGATTProfile::configurationService, ZOKGATTProfile::buttonModeCharacteristic,
                               false, ZOKBeaconButtonModeNotification};
constexpr ValueCase firmware{ZOKGATTProfile::deviceInformationService,
                             ZOKGATTProfile::firmwareRevisionCharacteristic, false,
                             ZOKBeaconFirmwareVersionNotification};

/// Reads the characteristic over a link, then times the taking of the value that it has since, with one
/// observer of what is posted.
template <typename Take>
void timeValue(benchmark::State& state, LinkStack& stack, const ValueCase& value, const Take& take) {
    stack.connect();
    const Peripheral peripheral = stack.beacon->peripheral();
    const auto characteristic =
        ZOKManager::characteristicFromServiceAndPeripheral(value.characteristic, value.service, peripheral);
    peripheral->readValueForCharacteristic(characteristic);
    stack.platform.runLoop().runFor(1);
    std::int64_t posted = 0;
    if (!value.notification.empty()) {
        stack.platform.notificationCenter().addObserverForNameObjectUsingBlock(
            value.notification, nullptr, [&](const auto& /*notification*/) { ++posted; });
    }
    stack.listener->values = 0;
    for ([[maybe_unused]] auto _ : state) {
        take(peripheral, characteristic);
        benchmark::ClobberMemory();
    }
    const auto told = static_cast<std::int64_t>(stack.listener->values);
    if (told != (value.reachesDelegate ? state.iterations() : 0) ||
        posted != (value.notification.empty() ? 0 : state.iterations())) {
        state.SkipWithError("a value was not told of as it should be");
    }
}

void valueFloor(benchmark::State& state, const ValueCase& value) {
    LinkStack stack;
    const std::vector live = stack.manager->liveBeacons();
    const std::weak_ptr<ZOKManagerDelegate> delegate = stack.listener;
    const zobi::floor_work::Audience audience{delegate, stack.platform.notificationCenter(), stack.manager,
                                              live};
    timeValue(state, stack, value, [&](const Peripheral& peripheral, const auto& characteristic) {
        zobi::floor_work::takeValue(*peripheral, *characteristic, audience);
    });
}

void valueLibrary(benchmark::State& state, const ValueCase& value) {
    LinkStack stack;
    // As a radio has it.
    zobi::platform::CBPeripheralDelegate& events = *stack.manager;
    timeValue(state, stack, value, [&](const Peripheral& peripheral, const auto& characteristic) {
        events.peripheralDidUpdateValueForCharacteristicError(peripheral, characteristic, nullptr);
    });
}

BENCHMARK_CAPTURE(valueFloor, battery, battery)->Name("ValueUpdate/floor/battery");
BENCHMARK_CAPTURE(valueFloor, buttonAction, buttonAction)->Name("ValueUpdate/floor/buttonAction");
BENCHMARK_CAPTURE(valueFloor, temperature, temperature)->Name("ValueUpdate/floor/temperature");
BENCHMARK_CAPTURE(valueFloor, axisX, axisX)->Name("ValueUpdate/floor/axisX");
BENCHMARK_CAPTURE(valueFloor, axisY, axisY)->Name("ValueUpdate/floor/axisY");
BENCHMARK_CAPTURE(valueFloor, axisZ, axisZ)->Name("ValueUpdate/floor/axisZ");
BENCHMARK_CAPTURE(valueFloor, buttonMode, buttonMode)->Name("ValueUpdate/floor/buttonMode");
BENCHMARK_CAPTURE(valueFloor, firmware, firmware)->Name("ValueUpdate/floor/firmware");
BENCHMARK_CAPTURE(valueLibrary, battery, battery)->Name("ValueUpdate/library/battery");
BENCHMARK_CAPTURE(valueLibrary, buttonAction, buttonAction)->Name("ValueUpdate/library/buttonAction");
BENCHMARK_CAPTURE(valueLibrary, temperature, temperature)->Name("ValueUpdate/library/temperature");
BENCHMARK_CAPTURE(valueLibrary, axisX, axisX)->Name("ValueUpdate/library/axisX");
BENCHMARK_CAPTURE(valueLibrary, axisY, axisY)->Name("ValueUpdate/library/axisY");
BENCHMARK_CAPTURE(valueLibrary, axisZ, axisZ)->Name("ValueUpdate/library/axisZ");
BENCHMARK_CAPTURE(valueLibrary, buttonMode, buttonMode)->Name("ValueUpdate/library/buttonMode");
BENCHMARK_CAPTURE(valueLibrary, firmware, firmware)->Name("ValueUpdate/library/firmware");

void virtualHour(benchmark::State& state) {
    constexpr std::size_t beacons = 100;
    constexpr std::size_t seconds = 3600;
    std::chrono::duration<double> taken{};
    for ([[maybe_unused]] auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        Stack stack(Time::virtualTime);
        for (std::size_t i = 0; i < beacons; ++i) {
            auto beacon = numberedBeacon(i);
            // 0.1 s on the average, with the random delay.
            beacon.advertisingJitter = 0.01;
            beacon.advertisingInterval = 0.095;
            zobi::addBeacon(stack.platform.world(), beacon).comeIntoRange();
        }
        stack.platform.runLoop().runFor(seconds);
        taken += std::chrono::steady_clock::now() - start;
        if (stack.listener->reports != seconds || stack.listener->beaconsReported != beacons) {
            state.SkipWithError("the beacons were not reported each second");
        }
    }
    state.counters["times_real_time"] =
        static_cast<double>(seconds) * static_cast<double>(state.iterations()) / taken.count();
}
BENCHMARK(virtualHour)->Name("VirtualHour")->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // Who has a radio has threads, and from a program's second thread on, references are counted with atomic
    // operations.
    std::thread([] {}).join();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
