#include "Controller.h"

#include <algorithm>
#include <random>

#include "Air.h"

namespace air {

namespace {

enum PacketType : std::uint8_t { commandPacket = 1, dataPacket = 2, eventPacket = 4 };

constexpr std::uint16_t linkHandle = 0x0040;
constexpr std::uint16_t companyId = 0x05F1;
constexpr std::uint8_t version42 = 0x08;
constexpr std::uint16_t dataLength = 251;
constexpr std::uint8_t dataPackets = 8;
constexpr std::size_t acceptListSize = 16;
constexpr std::size_t advertisementLength = 31;
/// Peripheral-initiated feature exchange, and nothing else.
constexpr std::uint8_t leFeatures = 0x08;

/// The commands below, as bits of the mask that Read Local Supported Commands returns.
Bytes supportedCommands() {
    struct Bit {
        std::size_t octet;
        unsigned bit;
    };
    constexpr auto bits = std::to_array<Bit>(
        {{0, 5},  {2, 7},  {5, 6},  {5, 7},  {10, 2}, {14, 3}, {14, 5}, {14, 7}, {15, 1}, {15, 5}, {22, 2},
         {25, 0}, {25, 1}, {25, 2}, {25, 4}, {25, 5}, {25, 6}, {25, 7}, {26, 0}, {26, 1}, {26, 2}, {26, 3},
         {26, 4}, {26, 5}, {26, 6}, {26, 7}, {27, 0}, {27, 1}, {27, 2}, {27, 5}, {27, 7}, {28, 3}});
    Bytes mask(64);
    for (const auto& [octet, bit] : bits) mask[octet] |= static_cast<std::uint8_t>(1U << bit);
    return mask;
}

/// Everything but advertising while connected as a peripheral: there is one link only.
constexpr std::array<std::uint8_t, 8> supportedStates{0xFF, 0xFF, 0xCF, 0xFF, 0xBF, 0x03, 0x00, 0x00};

Bytes randomBytes(std::size_t count) {
    std::random_device source;
    Bytes bytes(count);
    std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(source()); });
    return bytes;
}

}  // namespace

Identity Controller::identity(std::uint8_t ownAddressType) const {
    const auto type = static_cast<std::uint8_t>(ownAddressType & 1U);
    return {type, type == 0 ? address_ : randomAddress_};
}

void Controller::receive(std::span<const std::uint8_t> packet) {
    if (packet.size() < 4) return;
    if (packet[0] == commandPacket) {
        Reader reader(packet.subspan(1));
        const std::uint16_t opcode = reader.u16();
        receiveCommand(opcode, Reader(packet.subspan(4)));
    } else if (packet[0] == dataPacket) {
        sendData(packet);
    }
}

void Controller::receiveCommand(std::uint16_t opcode, Reader parameters) {
    switch (opcode) {
        case 0x0406:  // Disconnect
            parameters.skip(2);
            return disconnect(opcode, parameters.u8());
        case 0x041D:  // Read Remote Version Information
            if (beginOnLink(opcode) && air_.carriesLink()) {
                event(0x0C, Writer().u8(0).u16(linkHandle).u8(version42).u16(companyId).u16(0).take());
            }
            return;
        case 0x0C01:  // Set Event Mask
        case 0x0C63:  // Set Event Mask Page 2
        case 0x2001:  // LE Set Event Mask
            return complete(opcode);
        case 0x0C03:
            reset();
            return complete(opcode);
        case 0x0C2D: {  // Read Transmit Power Level
            parameters.skip(2);
            const unsigned level = parameters.u8() == 0 ? 0 : 4;
            return complete(opcode, Writer().u8(0).u16(linkHandle).u8(level).take());
        }
        case 0x1001:  // Read Local Version Information
            return complete(opcode,
                            Writer().u8(0).u8(version42).u16(0).u8(version42).u16(companyId).u16(0).take());
        case 0x1002:  // Read Local Supported Commands
            return complete(opcode, Writer().u8(0).append(supportedCommands()).take());
        case 0x1003:  // Read Local Supported Features: LE and not the older kind
            return complete(opcode, Writer().u8(0).u16(0).u16(0).u16(0x60).u16(0).take());
        case 0x1005:  // Read Buffer Size: only the one for LE
            return complete(opcode, Writer().u8(0).u16(0).u8(0).u16(0).u16(0).take());
        case 0x1009:  // Read Address
            return complete(opcode, Writer().u8(0).append(address_).take());
        case 0x1405: {  // Read RSSI
            const unsigned result = link_ ? status::success : status::unknownConnection;
            const auto strength = static_cast<unsigned>(Air::strengthOf(air_.peerOf(*this)));
            return complete(opcode, Writer().u8(result).u16(linkHandle).u8(strength).take());
        }
        case 0x2002:  // LE Read Buffer Size
            return complete(opcode, Writer().u8(0).u16(dataLength).u8(dataPackets).take());
        case 0x2003:  // LE Read Local Supported Features
            return complete(opcode, Writer().u8(0).u16(leFeatures).u16(0).u16(0).u16(0).take());
        case 0x2005:
            randomAddress_ = parameters.address();
            return complete(opcode);
        case 0x2006:  // LE Set Advertising Parameters, the interval in units of 0.625 ms
            advertising_.interval = std::chrono::milliseconds(parameters.u16() * 5 / 8);
            parameters.skip(2);
            advertising_.kind = parameters.u8();
            advertising_.ownAddressType = parameters.u8();
            return complete(opcode);
        case 0x2007:  // LE Read Advertising Channel Tx Power
            return complete(opcode, {status::success, 0});
        case 0x2008:
        case 0x2009: {
            Bytes& data = opcode == 0x2008 ? advertising_.data : advertising_.scanResponse;
            data = parameters.bytes(std::min<std::size_t>(parameters.u8(), advertisementLength));
            return complete(opcode);
        }
        case 0x200A:
            advertising_.isOn = parameters.u8() != 0;
            advertising_.due = Clock::now();
            log("controller ", number_, " advertising ", advertising_.isOn ? "on" : "off");
            return complete(opcode);
        case 0x200B:  // LE Set Scan Parameters
            scanning_.isActive = parameters.u8() != 0;
            parameters.skip(5);
            scanning_.acceptListOnly = (parameters.u8() & 1U) != 0;
            return complete(opcode);
        case 0x200C:
            scanning_.isOn = parameters.u8() != 0;
            scanning_.filtersDuplicates = parameters.u8() != 0;
            scanning_.heard.clear();
            log("controller ", number_, " scan ", scanning_.isOn ? "on, " : "off, ",
                scanning_.isActive ? "active" : "passive", scanning_.acceptListOnly ? ", accept list" : "");
            return complete(opcode);
        case 0x200D:
            return createConnection(opcode, parameters);
        case 0x200E:
            return cancelConnection(opcode);
        case 0x200F:
            return complete(opcode, {status::success, acceptListSize});
        case 0x2010:
            acceptList_.clear();
            return complete(opcode);
        case 0x2011: {
            if (acceptList_.size() >= acceptListSize) return complete(opcode, {status::memoryExceeded});
            const std::uint8_t type = parameters.u8();
            acceptList_.insert({type, parameters.address()});
            return complete(opcode);
        }
        case 0x2012: {
            const std::uint8_t type = parameters.u8();
            acceptList_.erase({type, parameters.address()});
            return complete(opcode);
        }
        case 0x2013:
            return updateConnection(opcode, parameters);
        case 0x2016:  // LE Read Remote Features
            if (beginOnLink(opcode) && air_.carriesLink()) {
                leEvent(0x04, Writer().u8(0).u16(linkHandle).u16(leFeatures).u16(0).u16(0).u16(0));
            }
            return;
        case 0x2018:  // LE Rand
            return complete(opcode, Writer().u8(0).append(randomBytes(8)).take());
        case 0x201C:
            return complete(opcode, Writer().u8(0).append(supportedStates).take());
        default:
            log("controller ", number_, " has no command ", hex(opcode));
            return complete(opcode, {status::unknownCommand});
    }
}

void Controller::reset() {
    log("controller ", number_, " is reset");
    advertising_ = {};
    scanning_ = {};
    initiating_ = {};
    acceptList_.clear();
    link_.reset();
}

void Controller::createConnection(std::uint16_t opcode, Reader parameters) {
    if (initiating_.isOn || link_) return begin(opcode, status::commandDisallowed);
    parameters.skip(4);
    initiating_.acceptListOnly = parameters.u8() != 0;
    initiating_.peer.type = parameters.u8() & 1U;
    initiating_.peer.address = parameters.address();
    initiating_.ownAddressType = parameters.u8();
    initiating_.parameters.interval = parameters.u16();
    parameters.skip(2);
    initiating_.parameters.latency = parameters.u16();
    initiating_.parameters.timeout = parameters.u16();
    initiating_.isOn = true;
    log("controller ", number_, " starts to connect");
    begin(opcode);
}

void Controller::cancelConnection(std::uint16_t opcode) {
    if (!initiating_.isOn) return complete(opcode, {status::commandDisallowed});
    log("controller ", number_, " no longer connects");
    complete(opcode);
    attemptFails(status::unknownConnection, initiating_.peer);
}

void Controller::disconnect(std::uint16_t opcode, std::uint8_t reason) {
    if (!beginOnLink(opcode)) return;
    // The other side hears of it, or finds out by itself.
    if (air_.carriesLink()) air_.peerOf(*this).linkEnds(reason);
    linkEnds(status::endedByLocalHost);
}

void Controller::updateConnection(std::uint16_t opcode, Reader parameters) {
    if (!beginOnLink(opcode)) return;
    parameters.skip(4);
    LinkParameters wanted;
    wanted.interval = parameters.u16();
    wanted.latency = parameters.u16();
    wanted.timeout = parameters.u16();
    if (!air_.carriesLink()) return;
    parametersChange(wanted);
    air_.peerOf(*this).parametersChange(wanted);
}

void Controller::sendData(std::span<const std::uint8_t> packet) {
    // What is not carried is not acknowledged either.
    if (!air_.carriesData()) return;
    event(0x13, Writer().u8(1).u16(linkHandle).u16(1).take());
    Bytes received(packet.begin(), packet.end());
    // The beginning of a message has one mark on the way to the controller and another on the way from it.
    if ((received[2] & 0x30U) == 0) received[2] |= 0x20U;
    air_.peerOf(*this).receiveData(received);
}

void Controller::hear(const Report& report) {
    if (!scanning_.isOn) return;
    if (scanning_.acceptListOnly && !acceptList_.contains(report.sender)) return;
    const bool isByData = radio.duplicateFilter == DuplicateFilter::sameData;
    const bool isNew =
        scanning_.heard.insert({{report.sender, report.kind}, isByData ? report.data : Bytes()}).second;
    if (!isNew && scanning_.filtersDuplicates && radio.duplicateFilter != DuplicateFilter::none) return;
    leEvent(0x02, Writer()
                      .u8(1)
                      .u8(report.kind)
                      .u8(report.sender.type)
                      .append(report.sender.address)
                      .u8(static_cast<unsigned>(report.data.size()))
                      .append(report.data)
                      .u8(static_cast<unsigned>(report.strength)));
}

bool Controller::initiatesTo(const Identity& advertiser) const {
    if (!initiating_.isOn || link_) return false;
    return initiating_.acceptListOnly ? acceptList_.contains(advertiser) : initiating_.peer == advertiser;
}

void Controller::attemptFails(std::uint8_t error, const Identity& peer) {
    initiating_.isOn = false;
    connectionComplete(error, true, initiating_.parameters, peer);
}

void Controller::linkComesUp(bool isCentral, const LinkParameters& parameters, const Identity& peer) {
    if (isCentral) initiating_.isOn = false;
    advertising_.isOn = false;
    link_ =
        Link{.isCentral = isCentral, .parameters = parameters, .isEstablished = false, .unheardSince = {}};
    connectionComplete(status::success, isCentral, parameters, peer);
}

void Controller::linkEnds(std::uint8_t reason) {
    if (!link_) return;
    log("controller ", number_, " link ends: ", hex(reason));
    link_.reset();
    event(0x05, Writer().u8(0).u16(linkHandle).u8(reason).take());
}

void Controller::parametersChange(const LinkParameters& parameters) {
    link_->parameters = parameters;
    leEvent(0x03, Writer()
                      .u8(0)
                      .u16(linkHandle)
                      .u16(parameters.interval)
                      .u16(parameters.latency)
                      .u16(parameters.timeout));
}

void Controller::connectionComplete(std::uint8_t result, bool isCentral, const LinkParameters& parameters,
                                    const Identity& peer) {
    leEvent(0x01, Writer()
                      .u8(result)
                      .u16(linkHandle)
                      .u8(isCentral ? 0 : 1)
                      .u8(peer.type)
                      .append(peer.address)
                      .u16(parameters.interval)
                      .u16(parameters.latency)
                      .u16(parameters.timeout)
                      .u8(0));
}

void Controller::event(std::uint8_t code, const Bytes& parameters) {
    send_(Writer()
              .u8(eventPacket)
              .u8(code)
              .u8(static_cast<unsigned>(parameters.size()))
              .append(parameters)
              .take());
}

void Controller::leEvent(std::uint8_t code, Writer parameters) {
    event(0x3E, Writer().u8(code).append(parameters.take()).take());
}

void Controller::complete(std::uint16_t opcode, Bytes returned) {
    event(0x0E, Writer().u8(1).u16(opcode).append(returned).take());
}

void Controller::begin(std::uint16_t opcode, std::uint8_t result) {
    event(0x0F, Writer().u8(result).u8(1).u16(opcode).take());
}

bool Controller::beginOnLink(std::uint16_t opcode) {
    begin(opcode, link_ ? status::success : status::unknownConnection);
    return link_.has_value();
}

}  // namespace air
