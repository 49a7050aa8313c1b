// The suite over the simulated radio, in virtual time.

#include <utility>

#include "LibraryOverRadio.h"
#include "RadioTest.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

namespace {

using namespace zobi::platform;

class SimulatedBench final : public RadioBench {
public:
    SimulatedBench() { platform_.log().setSink(nullptr); }

    Platform& platform() override { return platform_; }
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
        platform_.world().setRadioState(isOn ? CBManagerState::poweredOn : CBManagerState::poweredOff);
    }

private:
    simulation::SimulatedPlatform platform_{StandardPlatform::Time::virtualTime};
    simulation::SimulatedBeacon& beacon_ = platform_.world().addBeacon({.major = 1, .minor = 7});
};

const auto simulatedRadio =
    ::testing::Values(RadioUnderTest{"Simulated", [] { return std::make_unique<SimulatedBench>(); }});

INSTANTIATE_TEST_SUITE_P(Simulated, RadioPromises, simulatedRadio);
INSTANTIATE_TEST_SUITE_P(Simulated, LibraryOverRadio, simulatedRadio);

}  // namespace
