#include "Air.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

namespace air {

namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t connectableKind = 0;
constexpr std::uint8_t scanResponseKind = 4;
constexpr int beaconStrength = -60;

// Each advertisement comes up to so much late on purpose, so that two devices do not stay in step.
constexpr int mostDelay = 10;

int randomFrom(int least, int most) {
    static std::minstd_rand generator(1);
    return std::uniform_int_distribution<int>(least, most)(generator);
}

}  // namespace

Air::Air(Controller::Send toFirstHost, Controller::Send toSecondHost)
    : controllers_{Controller(0, {0x01, 0x53, 0x00, 0x5E, 0x00, 0x00}, *this, std::move(toFirstHost)),
                   Controller(1, {0x02, 0x53, 0x00, 0x5E, 0x00, 0x00}, *this, std::move(toSecondHost))} {}

void Air::run(Time now) {
    for (Controller& controller : controllers_) supervise(controller, now);
    for (Controller& controller : controllers_) {
        if (controller.advertising().isOn && controller.advertising().due <= now) advertise(controller, now);
    }
    for (auto& [address, beacon] : beacons) {
        if (beacon.due <= now) advertise(address, beacon, now);
    }
}

Time Air::due() const {
    Time next = Time::max();
    for (const Controller& controller : controllers_) {
        if (controller.advertising().isOn) next = std::min(next, controller.advertising().due);
        if (controller.link() && controller.link()->unheardSince) {
            next = std::min(next, supervisionEnd(*controller.link()));
        }
    }
    for (const auto& [address, beacon] : beacons) next = std::min(next, beacon.due);
    return next;
}

bool Air::carries() const {
    return !controllers_[0].radio.isSilent && !controllers_[1].radio.isSilent;
}

bool Air::carriesLink() const {
    return carries() && controllers_[0].link() && controllers_[1].link();
}

int Air::strengthOf(const Controller& controller) {
    const Radio& radio = controller.radio;
    if (radio.strength == unknownStrength) return unknownStrength;
    return radio.strength + randomFrom(-radio.jitter, radio.jitter);
}

void Air::advertise(Controller& advertiser, Time now) {
    const auto& advertising = advertiser.advertising();
    const auto own = advertiser.radio.advertisingInterval;
    advertiser.advertising().due =
        now + (own == 0ms ? advertising.interval : own) + std::chrono::milliseconds(randomFrom(0, mostDelay));
    if (!carries()) return;

    Controller& listener = peerOf(advertiser);
    const Identity sender = advertiser.identity(advertising.ownAddressType);
    listener.hear({advertising.kind, sender, advertising.data, strengthOf(advertiser)});
    if (listener.scansActively() && advertising.isScannable()) {
        listener.hear({scanResponseKind, sender, advertising.scanResponse, strengthOf(advertiser)});
    }
    if (advertising.isConnectable() && listener.initiatesTo(sender)) connect(listener, advertiser);
}

void Air::advertise(const Address& address, Beacon& beacon, Time now) {
    beacon.due = now + beacon.interval + std::chrono::milliseconds(randomFrom(0, mostDelay));
    const Identity sender{0, address};
    for (Controller& listener : controllers_) {
        if (listener.radio.isSilent) continue;
        listener.hear({connectableKind, sender, now < beacon.pressedUntil ? beacon.pressedData : beacon.data,
                       beaconStrength});
        if (!listener.scansActively()) continue;
        listener.hear({scanResponseKind, sender, beacon.scanResponse, beaconStrength});
    }
}

void Air::connect(Controller& initiator, Controller& advertiser) {
    const Identity peer = advertiser.identity(advertiser.advertising().ownAddressType);
    if (const auto error = std::exchange(initiator.radio.attemptError, std::nullopt)) {
        log("the attempt of controller ", initiator.number(), " fails: ", hex(*error));
        return initiator.attemptFails(*error, peer);
    }
    const LinkParameters parameters = initiator.wantedParameters();
    const bool isNoticed = initiator.radio.unnoticedLinks == 0;
    log("link up, from controller ", initiator.number(), ", supervised for ",
        parameters.timeoutTime().count(), " ms", isNoticed ? "" : ", not noticed by the other");
    initiator.linkComesUp(true, parameters, peer);
    if (isNoticed) {
        advertiser.linkComesUp(false, parameters, initiator.identity(initiator.initiatorAddressType()));
    } else {
        --initiator.radio.unnoticedLinks;
    }
}

void Air::supervise(Controller& controller, Time now) const {
    auto& link = controller.link();
    if (!link) return;
    if (carriesLink()) {
        link->isEstablished = true;
        link->unheardSince.reset();
    } else if (!link->unheardSince) {
        link->unheardSince = now;
    } else if (supervisionEnd(*link) <= now) {
        controller.linkEnds(link->isEstablished ? status::supervisionTimeout : status::failedToBeEstablished);
    }
}

Time Air::supervisionEnd(const Controller::Link& link) {
    // A link over which nothing was ever heard is given up after six intervals.
    if (!link.isEstablished) return *link.unheardSince + 6 * link.parameters.intervalTime();
    return *link.unheardSince + link.parameters.timeoutTime();
}

}  // namespace air
