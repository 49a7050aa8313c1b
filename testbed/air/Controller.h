#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <tuple>
#include <utility>

#include "Log.h"
#include "Wire.h"

namespace air {

class Air;

/// Reasons and states of a controller, as it tells them.
namespace status {
inline constexpr std::uint8_t success = 0x00;
inline constexpr std::uint8_t unknownCommand = 0x01;
inline constexpr std::uint8_t unknownConnection = 0x02;
inline constexpr std::uint8_t memoryExceeded = 0x07;
inline constexpr std::uint8_t supervisionTimeout = 0x08;
inline constexpr std::uint8_t commandDisallowed = 0x0C;
inline constexpr std::uint8_t endedByLocalHost = 0x16;
inline constexpr std::uint8_t failedToBeEstablished = 0x3E;
}  // namespace status

/// Signal strengths are in dBm; this one means unknown.
inline constexpr int unknownStrength = 127;

/// When a controller counts an advertisement as heard already, if its host asks it to filter.
enum class DuplicateFilter { none, sameAddress, sameData };

/// What is wrong with a controller's radio, or peculiar; set from outside.
struct Radio {
    /// What the other controller measures of it, and how far that goes up and down.
    int strength = -60;
    int jitter = 0;
    /// Between its advertisements; as its host asks for when it is zero.
    std::chrono::milliseconds advertisingInterval{100};
    /// Sends nothing, hears nothing.
    bool isSilent = false;
    /// So many of the links that it makes are not noticed by the other side.
    unsigned unnoticedLinks = 0;
    /// How its next attempt to connect fails.
    std::optional<std::uint8_t> attemptError;
    DuplicateFilter duplicateFilter = DuplicateFilter::none;
    /// Whether its machine has it.
    bool isPlugged = true;
};

/// In units of 1.25 ms, events and 10 ms.
struct LinkParameters {
    std::uint16_t interval = 0;
    std::uint16_t latency = 0;
    std::uint16_t timeout = 0;

    std::chrono::microseconds intervalTime() const { return std::chrono::microseconds(1250) * interval; }
    std::chrono::milliseconds timeoutTime() const { return std::chrono::milliseconds(10) * timeout; }
};

/// A device as an advertisement names it.
struct Identity {
    std::uint8_t type = 0;
    Address address{};
    bool operator==(const Identity&) const = default;
    bool operator<(const Identity& other) const {
        return std::tie(type, address) < std::tie(other.type, other.address);
    }
};

/// What one advertising packet tells.
struct Report {
    std::uint8_t kind = 0;
    Identity sender;
    Bytes data;
    int strength = unknownStrength;
};

/// An LE controller without extensions (Bluetooth 4.2, one link at a time), as its host sees it.
class Controller {
public:
    /// Takes a packet for the host, its type first.
    using Send = std::function<void(const Bytes& packet)>;

    Controller(std::size_t number, const Address& address, Air& air, Send send)
        : number_(number), address_(address), air_(air), send_(std::move(send)) {}

    /// A packet from the host, its type first.
    void receive(std::span<const std::uint8_t> packet);
    /// As after its power came on.
    void reset();

    // For the air.

    struct Advertising {
        bool isOn = false;
        std::uint8_t kind = 0;
        std::uint8_t ownAddressType = 0;
        std::chrono::milliseconds interval{1280};
        Bytes data;
        Bytes scanResponse;
        Time due;

        bool isConnectable() const { return kind == 0 || kind == 1; }
        bool isScannable() const { return kind == 0 || kind == 2; }
    };
    struct Link {
        bool isCentral = false;
        LinkParameters parameters;
        /// Whether the other side was ever heard over it, and since when it is not.
        bool isEstablished = false;
        std::optional<Time> unheardSince;
    };

    std::size_t number() const { return number_; }
    Advertising& advertising() { return advertising_; }
    const Advertising& advertising() const { return advertising_; }
    std::optional<Link>& link() { return link_; }
    const std::optional<Link>& link() const { return link_; }
    Identity identity(std::uint8_t ownAddressType) const;
    std::uint8_t initiatorAddressType() const { return initiating_.ownAddressType; }
    LinkParameters wantedParameters() const { return initiating_.parameters; }

    /// Tells the host, if it scans, and has not heard it before as far as the filter can tell.
    void hear(const Report& report);
    bool scansActively() const { return scanning_.isOn && scanning_.isActive; }
    bool initiatesTo(const Identity& advertiser) const;
    /// The attempt to connect has an outcome.
    void attemptFails(std::uint8_t error, const Identity& peer);
    void linkComesUp(bool isCentral, const LinkParameters& parameters, const Identity& peer);
    void linkEnds(std::uint8_t reason);
    void parametersChange(const LinkParameters& parameters);
    void receiveData(const Bytes& packet) { send_(packet); }

    Radio radio;

private:
    struct Scanning {
        bool isOn = false;
        bool isActive = false;
        bool filtersDuplicates = false;
        bool acceptListOnly = false;
        std::set<std::pair<std::pair<Identity, std::uint8_t>, Bytes>> heard;
    };
    struct Initiating {
        bool isOn = false;
        bool acceptListOnly = false;
        Identity peer;
        std::uint8_t ownAddressType = 0;
        LinkParameters parameters;
    };

    void receiveCommand(std::uint16_t opcode, Reader parameters);
    void sendData(std::span<const std::uint8_t> packet);
    void createConnection(std::uint16_t opcode, Reader parameters);
    void cancelConnection(std::uint16_t opcode);
    void disconnect(std::uint16_t opcode, std::uint8_t reason);
    void updateConnection(std::uint16_t opcode, Reader parameters);

    void event(std::uint8_t code, const Bytes& parameters);
    void leEvent(std::uint8_t code, Writer parameters);
    /// The answers to a command: complete with what it returns, or begun with an event to come.
    void complete(std::uint16_t opcode, Bytes returned = {status::success});
    void begin(std::uint16_t opcode, std::uint8_t result = status::success);
    /// Begins a command about the link; answers with an error, and false, if there is none.
    bool beginOnLink(std::uint16_t opcode);
    void connectionComplete(std::uint8_t result, bool isCentral, const LinkParameters& parameters,
                            const Identity& peer);

    std::size_t number_;
    Address address_;
    Address randomAddress_{};
    Air& air_;
    Send send_;
    Advertising advertising_;
    Scanning scanning_;
    Initiating initiating_;
    std::set<Identity> acceptList_;
    std::optional<Link> link_;
};

}  // namespace air
