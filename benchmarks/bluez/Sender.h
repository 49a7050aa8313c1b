#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ZobiConnectKit/simulation/BeaconDescription.h"

namespace zobi::bench {

/// Beacons of different numbers differ in address and minor.
zobi::BeaconDescription numberedBeacon(std::size_t number);

/// The codes of the button in what is sent.
inline constexpr int pressCode = 1;
inline constexpr int lastCode = 3;

/// The client's object that is called for each advertisement, where one is.
inline constexpr const char* monitorPath = "/monitor";

/// What is to be sent: signals of advertisements, of all beacons in turn.
struct Traffic {
    std::size_t signals;
    /// From one to the next; zero for full speed.
    std::chrono::nanoseconds interval{};
    /// Each so many-th has a pressed button; zero for none.
    std::size_t pressEvery = 0;
    /// Before each of them the service calls the client's object, as it does for one with a monitor of
    /// advertisements, and each call must be answered. Not at full speed.
    bool callsMonitor = false;
};

/// How signals get to the client.
enum class Route {
    /// From a process that plays the message bus too.
    direct,
    /// Through a message bus of their own.
    daemon,
};

/// A process of its own that plays the Bluetooth service for one client, so that what sending takes is not
/// the client's. Its signals are those of the service for a scan that reports each advertisement. It links
/// each beacon that it is asked to, with a GATT table of one service.
class Sender {
public:
    /// With so many beacons in range, which it does not tell of yet.
    explicit Sender(std::size_t beacons, Route route = Route::direct);
    /// Ends the process, and that of the message bus.
    ~Sender();
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    /// The client's end of the connection to the bus, for the client to close.
    int clientSocket() const { return bus_[0]; }
    /// Where other clients find the message bus, if it has one of its own.
    std::string busAddress() const { return "unix:path=" + path_; }

    /// Begins to tell of the beacons, each as a device that was just found.
    void announce() const { send({0}); }
    /// Begins to send. One more signal follows at the end, with a pressed button of `lastCode`.
    /// @throws std::system_error when the process is gone.
    void send(const Traffic& traffic) const;
    /// When the signals of so many pressed buttons were sent, on the monotonic clock. Waits for the end.
    std::vector<std::chrono::nanoseconds> pressTimes(std::size_t presses) const;

private:
    // Of each connection, the first end is this process's, and the second the other one's.
    std::array<int, 2> bus_{-1, -1};
    std::array<int, 2> control_;
    std::string path_;
    pid_t daemon_ = 0;
    pid_t process_ = 0;
};

}  // namespace zobi::bench
