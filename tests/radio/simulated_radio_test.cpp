// The suite over the simulated radio, in virtual time: directly, with layers in between, which change
// nothing, and with the port of docs/porting.md in between.

#include <algorithm>
#include <array>
#include <utility>

#include "Layers.h"
#include "LibraryOverRadio.h"
#include "RadioTest.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "examples/port/RadioPlatform.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using namespace zobi::platform;

/// Where a driver that is opened has its radio.
struct Air {
    simulation::World* world = nullptr;
    Log* log = nullptr;
} air;

/// Drives a simulated radio with one device on its air.
class SimulatedDriver final : public Driver,
                              public CBCentralManagerDelegate,
                              public CBPeripheralDelegate,
                              public std::enable_shared_from_this<SimulatedDriver> {
    using Address = std::uint64_t;
    using Bytes = std::span<const std::uint8_t>;
    using Central = CBCentralManager;
    using Peripheral = const std::shared_ptr<CBPeripheral>&;
    using Characteristic = const std::shared_ptr<CBCharacteristic>&;
    using Error = const NSError*;

public:
    explicit SimulatedDriver(std::weak_ptr<DriverEvents> events) : events_(std::move(events)) {}

    void open() { central_ = air.world->makeCentralManager(*air.log, shared_from_this()); }
    void scan(bool isOn) override {
        if (!isOn) return central_->stopScan();
        central_->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
    }
    void connect(Address, std::weak_ptr<ConnectionEvents> events) override {
        connection_ = std::move(events);
        central_->connectPeripheral(peripheral_);
    }
    void disconnect(Address) override {
        if (!isUp_) connection_.reset();
        central_->cancelPeripheralConnection(peripheral_);
    }
    void read(Address, GATTPlace place, Answer answer) override {
        answerAgain();
        reading_ = std::move(answer);
        peripheral_->readValueForCharacteristic(at(place));
    }
    void write(Address, GATTPlace place, Bytes value, bool isAnswered, Answer answer) override {
        using enum CBCharacteristicWriteType;
        answerAgain();
        const auto type = isAnswered ? withResponse : withoutResponse;
        peripheral_->writeValueForCharacteristicType(value, at(place), type);
        if (!isAnswered) return answer(0, {});
        answer_ = std::move(answer);
    }
    void subscribe(Address, GATTPlace place, bool enabled, Answer answer) override {
        answerAgain();
        answer_ = std::move(answer);
        peripheral_->setNotifyValueForCharacteristic(enabled, at(place));
    }
    void readRSSI(Address, std::function<void(int dBm)> answer) override {
        answerAgain();
        answer_ = [answer](int, Bytes value) { answer(static_cast<std::int8_t>(value[0])); };
        peripheral_->readRSSI();
    }

private:
    void centralManagerDidUpdateState(Central& central) override {
        const auto events = events_.lock();
        if (events) events->powerChanged(central.state() == CBManagerState::poweredOn);
    }
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(Central&, Peripheral peripheral,
                                                                  const CBAdvertisementData& data,
                                                                  NSNumber rssi) override {
        peripheral_ = peripheral;
        const auto& services = air.world->devices()[0]->description().advertisedServices;
        if (const auto events = events_.lock()) events->heard(1, services, data, rssi.integerValue());
    }
    void centralManagerDidConnectPeripheral(Central&, Peripheral) override {
        peripheral_->setDelegate(weak_from_this());
        peripheral_->discoverServices(ZOKGATTProfile::requestedServices);
    }
    void peripheralDidDiscoverServices(Peripheral, Error) override {
        for (const auto& [service, characteristics] : ZOKGATTProfile::characteristicRequests) {
            const auto found = std::ranges::find(*peripheral_->services(), service, &CBService::UUID);
            peripheral_->discoverCharacteristicsForService(characteristics, *found);
        }
    }
    void peripheralDidDiscoverCharacteristicsForServiceError(Peripheral, const std::shared_ptr<CBService>&,
                                                             Error) override {
        std::vector<Service> table;
        for (const auto& service : *peripheral_->services()) {
            if (!service->characteristics()) return;
            table.push_back({service->UUID(), {}});
            for (const auto& each : *service->characteristics()) {
                table.back().characteristics.push_back(each->UUID());
            }
        }
        isUp_ = true;
        if (const auto events = connection_.lock()) events->connected(std::move(table));
    }
    void centralManagerDidFailToConnectPeripheralError(Central&, Peripheral, Error) override {
        if (const auto events = connection_.lock()) events->connectionFailed();
    }
    void centralManagerDidDisconnectPeripheralError(Central&, Peripheral, Error error) override {
        isUp_ = false;
        const auto events = connection_.lock();
        if (!events) return;
        // Of an end that this side has asked for it tells the worst.
        const bool isEndOfPeer = error && error->code() == static_cast<int>(CBError::peripheralDisconnected);
        events->disconnected(isEndOfPeer ? LinkEnd::peer : LinkEnd::timeout);
    }
    void peripheralDidUpdateValueForCharacteristicError(Peripheral, Characteristic of, Error error) override {
        const auto value = of->value().value_or(Bytes());
        if (reading_) return tell(std::exchange(reading_, nullptr), error, value);
        const auto place = dynamic_cast<DiscoveredCharacteristic&>(*of).place();
        if (const auto events = connection_.lock()) events->notified(place, value);
    }
    void peripheralDidWriteValueForCharacteristicError(Peripheral, Characteristic, Error error) override {
        tell(answer_, error);
    }
    void peripheralDidUpdateNotificationStateForCharacteristicError(Peripheral, Characteristic,
                                                                    Error error) override {
        tell(answer_, error);
    }
    void peripheralDidReadRSSIError(Peripheral, NSNumber rssi, Error error) override {
        tell(answer_, error, std::array{static_cast<std::uint8_t>(rssi.integerValue())});
    }

    std::shared_ptr<CBCharacteristic> at(GATTPlace place) const {
        return (*(*peripheral_->services())[place.service]->characteristics())[place.characteristic];
    }
    void tell(const Answer& answer, Error error, Bytes value = {}) {
        given_.push_back(answer);
        if (!error || error->domain() == CBATTErrorDomain) answer(error ? error->code() : 0, value);
    }
    /// All answers come again with each request, over the next links too, and those that the end of a link
    /// left open come then: too late.
    void answerAgain() const {
        for (const Answer& answer : given_) answer(0, std::array<std::uint8_t, 1>{0xEE});
    }

    std::weak_ptr<DriverEvents> events_;
    std::weak_ptr<ConnectionEvents> connection_;
    std::shared_ptr<CBCentralManager> central_;
    std::shared_ptr<CBPeripheral> peripheral_;
    Answer answer_;
    Answer reading_;
    std::vector<Answer> given_;
    bool isUp_ = false;
};

/// The simulated radio itself.
struct SimulatedAir {
    simulation::SimulatedPlatform platform{StandardPlatform::Time::virtualTime};
    simulation::World& world = platform.world();
    Platform& used = platform;
};

/// The same in layers.
struct LayeredAir {
    std::unique_ptr<simulation::SimulatedPlatform> made =
        std::make_unique<simulation::SimulatedPlatform>(StandardPlatform::Time::virtualTime);
    simulation::SimulatedPlatform& platform = *made;
    simulation::World& world = platform.world();
    std::unique_ptr<Platform> layers = inLayers(std::move(made));
    Platform& used = *layers;
};

/// The radio of the guide to porting, with a driver that drives the simulated one.
struct PortedAir {
    PortedAir() { air = {&world, &platform.log()}; }

    RadioPlatform platform{StandardPlatform::Time::virtualTime, std::make_unique<ConditionVariableWaiting>()};
    simulation::World world{platform.runLoop(), 0};
    Platform& used = platform;
};

template <typename Air>
class SimulatedBench final : public RadioBench {
public:
    SimulatedBench() { air_.platform.log().setSink(nullptr); }

    Platform& platform() override { return air_.used; }
    void beaconComesIntoRange() override { beacon_.comeIntoRange(); }
    void beaconFallsSilent() override { beacon_.goOutOfRange(); }
    void beaconEndsLink() override {
        beacon_.endLink(NSError(CBError::peripheralDisconnected, "The beacon has ended the link."));
    }
    void makeAttemptsFail(bool fail) override {
        const NSError error(CBError::connectionFailed, "The beacon refuses.");
        beacon_.setConnectionError(fail ? std::optional(error) : std::nullopt);
    }
    void setValue(const CBUUID& characteristic, std::vector<std::uint8_t> value) override {
        beacon_.gatt().setValue(characteristic, value);
    }
    std::vector<std::uint8_t> value(const CBUUID& characteristic) override {
        const auto value = beacon_.gatt().value(characteristic);
        return {value->begin(), value->end()};
    }
    void setRadioPower(bool isOn) override {
        air_.world.setRadioState(isOn ? CBManagerState::poweredOn : CBManagerState::poweredOff);
    }

private:
    Air air_;
    zobi::SimulatedBeacon& beacon_ = zobi::addBeacon(air_.world, {.major = 1, .minor = 7});
};

template <typename Air>
RadioUnderTest radioOver(std::string name) {
    return {std::move(name), [] { return std::make_unique<SimulatedBench<Air>>(); }};
}

const RadioUnderTest layered = radioOver<LayeredAir>("Layered");
const RadioUnderTest ported = radioOver<PortedAir>("Ported");
const auto simulatedRadios = ::testing::Values(radioOver<SimulatedAir>("Simulated"), layered, ported);
const auto nameOf = [](const auto& radio) { return radio.param.name; };

INSTANTIATE_TEST_SUITE_P(Simulated, RadioPromises, simulatedRadios, nameOf);
INSTANTIATE_TEST_SUITE_P(Simulated, LibraryOverRadio, simulatedRadios, nameOf);

class Port : public RadioTest {};
INSTANTIATE_TEST_SUITE_P(Simulated, Port, ::testing::Values(ported), nameOf);

TEST_P(Port, NeedNotMindAnswersThatComeLateOrTwice) {
    for (const std::uint8_t level : std::array<std::uint8_t, 2>{40, 41}) {
        const auto peripheral = link();
        discover(peripheral);
        const auto battery = find(peripheral, ZOKGATTProfile::batteryLevelCharacteristic);
        bench->setValue(battery->UUID(), {level});
        peripheral->readValueForCharacteristic(battery);
        ASSERT_TRUE(heard("value 2A19"));
        EXPECT_EQ(battery->value()->front(), level);
        peripheral->setNotifyValueForCharacteristic(true, battery);
        central->cancelPeripheralConnection(peripheral);
        ASSERT_TRUE(heard("disconnected"));
        EXPECT_FALSE(battery->isNotifying());
        takeEvents();
    }
}

TEST_P(Port, ConnectsAndCancelsInTheOrderInWhichItIsAskedAlsoAroundTheEndOfALink) {
    const auto peripheral = link();
    discover(peripheral);
    listener->onEvent = [&](const std::string& event) {
        if (event.ends_with("error 3")) central->cancelPeripheralConnection(peripheral);
    };
    peripheral->readValueForCharacteristic(find(peripheral, ZOKGATTProfile::batteryLevelCharacteristic));
    central->cancelPeripheralConnection(peripheral);
    central->connectPeripheral(peripheral);
    EXPECT_TRUE(heard("disconnected", 2));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);
}

class Layers : public RadioTest {};
INSTANTIATE_TEST_SUITE_P(Simulated, Layers, ::testing::Values(layered), nameOf);

TEST_P(Layers, ForgetAPeripheralAtAScanWhenItIsDisconnectedAndNobodyHoldsIt) {
    auto holder = link();
    const std::weak_ptr<CBPeripheral> peripheral = holder;
    const auto letGo = [&] {
        listener->sightings.clear();
        holder.reset();
    };
    letGo();
    scan();
    ASSERT_FALSE(peripheral.expired()) << "its link is up";
    central->cancelPeripheralConnection(peripheral.lock());
    ASSERT_TRUE(heard("disconnected"));
    holder = peripheral.lock();
    ASSERT_TRUE(holder);
    EXPECT_EQ(sight(), holder);
    letGo();
    EXPECT_FALSE(peripheral.expired()) << "the scan goes on";
    scan();
    EXPECT_TRUE(peripheral.expired());
    EXPECT_EQ(link()->state(), CBPeripheralState::connected);
}

TEST_P(Layers, LetGoOfADelegateInsideItsOwnCallback) {
    bench->beaconComesIntoRange();
    scan();
    const std::weak_ptr<RadioRecorder> delegate = listener;
    listener->onSighting = [&](const auto& /*data*/) { listener.reset(); };
    EXPECT_TRUE(bench->runUntil([&] { return delegate.expired(); }));
    bench->runUntil([] { return false; }, RadioBench::aWhile);
    EXPECT_TRUE(central->isScanning());
}

TEST_P(Layers, OutliveWhatTheyStandOn) {
    bench->beaconComesIntoRange();
    const auto awaited = sight();
    bench->beaconFallsSilent();
    connect(awaited);
    EXPECT_TRUE(heardNoMoreThan(0));
    central.reset();
    EXPECT_EQ(awaited->state(), CBPeripheralState::disconnected);
    central = platform.makeCentralManager(listener);
    ASSERT_TRUE(heard("state 5"));

    const auto peripheral = link();
    discover(peripheral);
    peripheral->readRSSI();
    central.reset();
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);
    peripheral->readRSSI();
    EXPECT_TRUE(heardNoMoreThan(0));
    central = platform.makeCentralManager(listener);
    ASSERT_TRUE(heard("state 5"));
    const auto linked = link();
    bench.reset();
    EXPECT_EQ(peripheral->services()->size(), ZOKGATTProfile::requestedServices.size());
    EXPECT_NE(linked, peripheral);
}

}  // namespace

std::shared_ptr<Driver> openDriver(RunLoop& /*loop*/, std::weak_ptr<DriverEvents> events) {
    auto driver = std::make_shared<SimulatedDriver>(std::move(events));
    driver->open();
    return driver;
}
