#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "zobi/platform/Platform.h"

/// A radio under test, and one beacon on its air that can be steered from outside: an ordinary one, with the
/// seven services, that is out of range at first. Each call returns when it has taken effect: what is sent to
/// a silent beacon then is not answered, a value that was set is the one that is read. A bench may run the
/// loop meanwhile.
class RadioBench {
public:
    virtual ~RadioBench() = default;

    /// Its radio is powered on.
    virtual zobi::platform::Platform& platform() = 0;

    virtual void beaconComesIntoRange() = 0;
    /// Says nothing any more, so that a link runs into its supervision timeout.
    virtual void beaconFallsSilent() = 0;
    virtual void beaconEndsLink() = 0;
    /// Makes attempts to connect fail, or succeed again.
    virtual void makeAttemptsFail(bool fail) = 0;
    /// Gives a characteristic a value, which a subscriber is notified of.
    virtual void setValue(const zobi::platform::CBUUID& characteristic, std::vector<std::uint8_t> value) = 0;
    /// The value of a characteristic, as the beacon has it.
    virtual std::vector<std::uint8_t> value(const zobi::platform::CBUUID& characteristic) = 0;
    virtual void setRadioPower(bool isOn) = 0;

    /// How long what should happen may take, and how long to look on where nothing should happen: seconds of
    /// the platform's time.
    static constexpr double patience = 60;
    static constexpr double aWhile = 5;

    /// Runs the loop until the condition holds. False if it does not in time.
    bool runUntil(const std::function<bool()>& condition, double seconds = patience) {
        return runUntil(platform(), condition, seconds);
    }
    /// The same with another platform.
    static bool runUntil(zobi::platform::Platform& platform, const std::function<bool()>& condition,
                         double seconds = patience);
};

/// A kind of radio that the suite runs over.
struct RadioUnderTest {
    std::string name;
    std::function<std::unique_ptr<RadioBench>()> makeBench;

    friend std::ostream& operator<<(std::ostream& out, const RadioUnderTest& radio) {
        return out << radio.name;
    }
};
