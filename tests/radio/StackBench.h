#pragma once

#include "RadioBench.h"
#include "zobi/platform/bluez/BlueZPlatform.h"

/// Asks a part of the test bed, which answers when it is done: see testbed/README.md.
std::string ask(const std::string& part, const std::string& line);

/// In hexadecimal, two for each byte.
std::string digitsOf(const std::vector<std::uint8_t>& bytes);

/// The number in a variable of the environment, or another one.
double numberIn(const char* variable, double otherwise);

/// The radio of Linux in the virtual machine of testbed/.
class StackBench final : public RadioBench {
public:
    /// @param duplicateFilter how the controller filters what it heard already.
    explicit StackBench(const std::string& duplicateFilter = "none");

    zobi::platform::Platform& platform() override { return platform_; }
    void beaconComesIntoRange() override { ask("air", "silent 1 off"); }
    void beaconFallsSilent() override;
    void beaconEndsLink() override { ask("beacon", "drop"); }
    void makeAttemptsFail(bool fail) override { ask("air", fail ? "estfail 0 1000000" : "estfail 0 0"); }
    void setValue(const zobi::platform::CBUUID& characteristic, std::vector<std::uint8_t> value) override;
    std::vector<std::uint8_t> value(const zobi::platform::CBUUID& characteristic) override;
    void setRadioPower(bool isOn) override { ask("stack", isOn ? "power 0 on" : "power 0 off"); }

private:
    // Nothing of the test before is left when the platform is made.
    const std::string fresh_;
    zobi::platform::bluez::BlueZPlatform platform_{{.adapter = "hci0"}};
};

inline const RadioUnderTest stackRadio{"Stack", [] { return std::make_unique<StackBench>(); }};
