#include "BlueZRadio.h"

#include <malloc.h>

#include "platform/bluez/diagnosis/Examination.h"

// The sanitizers have a heap of their own.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();  // NOLINT

namespace zobi::platform::bluez {

using namespace ::testing;

std::ptrdiff_t heapInUse() {
    return static_cast<std::ptrdiff_t>(__sanitizer_get_current_allocated_bytes
                                           ? __sanitizer_get_current_allocated_bytes()
                                           : mallinfo2().uordblks);
}

std::vector<Finding> findingsOf(ScriptedPlatform& machine, const std::string& adapter) {
    int ends = 0;
    const auto examination = std::make_shared<Examination>(machine.context(adapter), [&] { ++ends; });
    examination->start();
    machine.runLoop().runFor(20);
    EXPECT_EQ(ends, 1);
    return examination->findings();
}

Events BlueZRadio::eventsIn(double seconds) {
    pass(seconds);
    return takeEvents();
}

std::ptrdiff_t BlueZRadio::callsOf(const std::string& operation) const {
    return std::ranges::count_if(service.calls, [&](auto& it) { return it.starts_with(operation + ' '); });
}

std::shared_ptr<CBPeripheral> BlueZRadio::reach(int phase) {
    if (phase >= linked) {
        auto peripheral = link();
        discover(peripheral);
        peripheral->setNotifyValueForCharacteristic(
            true, find(peripheral, ZOKGATTProfile::batteryLevelCharacteristic));
        peripheral->readRSSI();
        EXPECT_THAT(eventsIn(0.5), ElementsAre("notifying 2A19", "rssi"));
        if (phase == ending) central->cancelPeripheralConnection(peripheral);
        pass(0.5);
        return peripheral;
    }
    beacon.isInRange = true;
    auto peripheral = sight();
    beacon.isInRange = phase != waiting;
    beacon.attempts = phase == connecting ? Attempts::areSwallowed : Attempts::areNeverResolved;
    if (phase == waiting) pass(5);
    service.calls.clear();
    connect(peripheral);
    if (phase == waiting) {
        pass(60);
        EXPECT_GT(callsOf("StopDiscovery"), 0) << "all devices are to be reported again";
    }
    EXPECT_EQ(bench->runUntil([&] { return callsOf("Connect") > 0; }, 5), phase != waiting)
        << "an attempt is made when the beacon was heard";
    pass(1.5);
    return peripheral;
}

void BlueZRadio::signal(const Properties& changed, const std::string& sender) {
    const auto body = [&](Message& it) { it.string(deviceInterface).properties(changed).strings({}); };
    const std::string from = sender.empty() ? service.owner() : sender;
    service.emitFrom(from, beacon.path(), propertiesInterface, "PropertiesChanged", body);
}

void BlueZRadio::cyclePower() {
    takeEvents();
    service.setPowered(false);
    ASSERT_TRUE(heard("state 4"));
    service.setPowered(true);
    eventsUntil("state 5");
}

void BlueZRadio::linkByOther() {
    service.connectByOther(beacon);
    pass(2);
    service.endLink(beacon, 0x13);
}

BlueZRadio::Watched BlueZRadio::watch(ScriptedPlatform& platform, const std::string& adapter) {
    Watched watched;
    watched.listener->describe = [](const auto& data, NSNumber rssi) {
        std::string text(data.localName.value_or("nameless"));
        for (const auto& [itsService, bytes] : data.serviceData) {
            text += ' ' + itsService.UUIDString() + ':' + std::to_string(bytes.size());
        }
        return text + ' ' + rssi.description();
    };
    platform.chosenAdapter = adapter;
    watched.central = platform.makeCentralManager(watched.listener);
    platform.runLoop().runFor(1);
    return watched;
}

}  // namespace zobi::platform::bluez
