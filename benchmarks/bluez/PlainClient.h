#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>

#include "benchmarks/Floor.h"

namespace zobi::bench {

/// The least that takes advertisements from the bus to a list: what the radio and the library are measured
/// against. A program of sd-bus alone, with one match rule and one object. It reads the signal strength and
/// the service data, and passes once over as many records as there are beacons, stamping those of equal
/// numbers.
class PlainClient {
public:
    /// @param socket a connection to a bus, which it takes over.
    PlainClient(int socket, std::size_t beacons);
    ~PlainClient();
    PlainClient(const PlainClient&) = delete;
    PlainClient& operator=(const PlainClient&) = delete;

    /// Takes in what comes until a payload has `lastCode`.
    /// @throws std::system_error when the connection ends before, or a message is not what it should be.
    void takeAll();
    /// Takes in what is there, without waiting.
    /// @returns whether a payload with `lastCode` was.
    bool takeWhatIsThere();
    /// What is readable when there is more.
    int descriptor() const { return sd_bus_get_fd(bus_); }

    std::size_t taken() const { return taken_; }
    /// How many records were stamped, each as often as it was.
    std::size_t stamped() const { return stamped_; }
    /// How many calls to its monitor of advertisements were answered.
    std::size_t answered() const { return answered_; }
    /// The sum of the signal strengths.
    std::int64_t strengths() const { return strengths_; }

private:
    static int signalCame(sd_bus_message* message, void* self, sd_bus_error* error) noexcept;
    static int monitorWasCalled(sd_bus_message* call, void* self, sd_bus_error* error) noexcept;
    void take(sd_bus_message* message);
    void takePayload(std::span<const std::uint8_t> payload);

    sd_bus* bus_ = nullptr;
    zobi::floor_work::Records records_;
    std::size_t taken_ = 0;
    std::size_t stamped_ = 0;
    std::size_t answered_ = 0;
    std::int64_t strengths_ = 0;
    bool isOver_ = false;
    /// What went wrong while a message was read: nothing can be thrown through the bus's library.
    std::exception_ptr failure_;
};

}  // namespace zobi::bench
