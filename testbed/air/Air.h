#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <string>

#include "Controller.h"

namespace air {

/// A beacon without a controller, which advertises and cannot be connected to.
struct Beacon {
    std::chrono::milliseconds interval{};
    Bytes scanResponse;
    /// What it advertises, and what it does while it is pressed.
    Bytes data;
    Bytes pressedData = {};
    Time pressedUntil = {};
    Time due = {};
};

/// What is between two controllers: each hears the other, and there is at most one link. Both hear the
/// beacons.
class Air {
public:
    Air(Controller::Send toFirstHost, Controller::Send toSecondHost);
    // The controllers refer to it.
    Air(const Air&) = delete;
    Air& operator=(const Air&) = delete;

    Controller& controller(std::size_t number) { return controllers_.at(number); }
    Controller& peerOf(const Controller& controller) { return controllers_.at(1 - controller.number()); }

    /// Does everything that is due.
    void run(Time now);
    /// When something will be due next, if nothing changes until then.
    Time due() const;

    /// Whether what is sent over the link arrives: the upkeep of the link, and data.
    bool carriesLink() const;
    bool carriesData() const { return carriesLink() && isDataCarried; }
    /// The strength at which a controller is heard.
    static int strengthOf(const Controller& controller);

    bool isDataCarried = true;
    /// By their addresses, which are public.
    std::map<Address, Beacon> beacons;

private:
    bool carries() const;
    void advertise(Controller& advertiser, Time now);
    void advertise(const Address& address, Beacon& beacon, Time now);
    static void connect(Controller& initiator, Controller& advertiser);
    void supervise(Controller& controller, Time now) const;
    static Time supervisionEnd(const Controller::Link& link);

    std::array<Controller, 2> controllers_;
};

}  // namespace air
