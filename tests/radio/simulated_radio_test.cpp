// The suite over the simulated radio, in virtual time; also with layers in between, which change nothing.

#include <utility>

#include "Layers.h"
#include "LibraryOverRadio.h"
#include "RadioTest.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using namespace zobi::platform;

class SimulatedBench final : public RadioBench {
public:
    explicit SimulatedBench(bool isInLayers) {
        simulated_.log().setSink(nullptr);
        if (isInLayers) platform_ = inLayers(std::move(platform_));
    }

    Platform& platform() override { return *platform_; }
    void beaconComesIntoRange() override { beacon_.comeIntoRange(); }
    void beaconFallsSilent() override { beacon_.goOutOfRange(); }
    void beaconEndsLink() override {
        beacon_.endLink(NSError(CBError::peripheralDisconnected, "The beacon has ended the link."));
    }
    bool makeAttemptsFail(bool fail) override {
        const NSError error(CBError::connectionFailed, "The beacon refuses.");
        beacon_.setConnectionError(fail ? std::optional(error) : std::nullopt);
        return true;
    }
    void setValue(const CBUUID& characteristic, std::vector<std::uint8_t> value) override {
        beacon_.gatt().setValue(characteristic, value);
    }
    std::vector<std::uint8_t> value(const CBUUID& characteristic) override {
        const auto value = beacon_.gatt().value(characteristic);
        return {value->begin(), value->end()};
    }
    void setRadioPower(bool isOn) override {
        simulated_.world().setRadioState(isOn ? CBManagerState::poweredOn : CBManagerState::poweredOff);
    }

private:
    std::unique_ptr<Platform> platform_ =
        std::make_unique<simulation::SimulatedPlatform>(StandardPlatform::Time::virtualTime);
    simulation::SimulatedPlatform& simulated_ = dynamic_cast<simulation::SimulatedPlatform&>(*platform_);
    zobi::SimulatedBeacon& beacon_ = zobi::addBeacon(simulated_.world(), {.major = 1, .minor = 7});
};

const RadioUnderTest plain{"Simulated", [] { return std::make_unique<SimulatedBench>(false); }};
const RadioUnderTest layered{"InLayers", [] { return std::make_unique<SimulatedBench>(true); }};

INSTANTIATE_TEST_SUITE_P(Simulated, RadioPromises, ::testing::Values(plain, layered));
INSTANTIATE_TEST_SUITE_P(Simulated, LibraryOverRadio, ::testing::Values(plain, layered));

class Layers : public RadioTest {};
INSTANTIATE_TEST_SUITE_P(Simulated, Layers, ::testing::Values(layered));

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
    const std::weak_ptr<Listener> delegate = listener;
    listener->onSighting = [&] { listener.reset(); };
    EXPECT_TRUE(bench->runUntil([&] { return delegate.expired(); }));
    bench->runUntil([] { return false; }, RadioBench::aWhile);
    EXPECT_TRUE(central->isScanning());
}

TEST_P(Layers, OutliveWhatTheyStandOn) {
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
