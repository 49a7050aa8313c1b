#include "platform/bluez/central/BlueZLink.h"

#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/central/BlueZErrors.h"

namespace zobi::platform::bluez {

namespace {

// From the link to the end of the discovery of services by BlueZ: some dozens of requests, each of which a
// slow peripheral answers in a tenth of a second.
constexpr double resolvingDeadline = 20;
// Some versions of BlueZ export the objects only some time after they say that services are resolved.
constexpr double tableRetryDelay = 0.5;
// A device that is heard and lost again so often is not one that is passing by.
constexpr int failuresAtMost = 3;
constexpr std::chrono::nanoseconds failuresInARow = std::chrono::minutes(1);
// BlueZ takes two seconds to end a link.
constexpr double endDeadline = 5;
constexpr double disconnectedDelay = 1;
// The reason of an end comes separately. If the adapter was turned off, that may be signalled after the end.
constexpr double reasonDeadline = 0.3;

}  // namespace

/// Whatever was awaited in the phase before is not awaited any more.
void BlueZLink::enter(CentralContext& context, Phase phase) {
    phase_ = phase;
    phaseCall_.reset();
    for (const auto& timer : {phaseTimer_, tableTimer_}) {
        if (timer) timer->invalidate();
    }
    promptness_ = isUnlinked() ? nullptr : context.service->stayPrompt();
    if (!isUnlinked()) context.radio->foreignLinks->claim(address_);
}

std::shared_ptr<NSTimer> BlueZLink::schedule(CentralContext& context, double seconds, Action action) {
    return context.radio->runLoop.after(
        seconds, [this, weakOwner = peripheral_.weak_from_this(), weakContext = context_, action] {
            const auto owner = weakOwner.lock();
            const auto known = weakContext.lock();
            if (owner && known) (this->*action)(*known);
        });
}

void BlueZLink::after(CentralContext& context, double seconds, Action action) {
    if (phaseTimer_) phaseTimer_->invalidate();
    phaseTimer_ = schedule(context, seconds, action);
}

Slot BlueZLink::call(CentralContext& context, const Device& device, const char* member, Answered answered) {
    return context.service->call(device.path, deviceInterface, member, nullptr,
                                 [this, weakOwner = peripheral_.weak_from_this(), weakContext = context_,
                                  answered](MessageReader& /*reply*/, const BusError* error) {
                                     const auto owner = weakOwner.lock();
                                     const auto known = weakContext.lock();
                                     if (owner && known) (this->*answered)(*known, error);
                                 });
}

// The attempt

void BlueZLink::begin() {
    const auto context = context_.lock();
    if (!context) return;
    failures_ = 0;
    waitForTurn(*context);
    // A controller with duplicate filtering would not report the device again soon.
    if (!context->attempts->waiting().empty()) context->discovery->restart();
}

void BlueZLink::waitForTurn(CentralContext& context) {
    enter(context, Phase::waiting);
    const Device* const known = device(context);
    // Another client of BlueZ may have connected it. A link that is being ended does not count.
    if (known && known->isConnected && !isDisconnecting_) return deviceIsConnected(context, *known);
    context.attempts->add({peripheral_.shared_from_this(), this});
}

void BlueZLink::turnDidBegin() {
    const auto context = context_.lock();
    if (!context) return;
    const Device* const known = device(*context);
    if (!known) {
        context->attempts->remove(*this);
        return waitForTurn(*context);
    }
    enter(*context, Phase::connecting);
    isDisconnecting_ = false;
    mayBeOrphaned_ = false;
    if (known->mayUseOtherBearer) context->service->preferLowEnergy(*known);
    phaseCall_ = call(*context, *known, "Connect", &BlueZLink::connectWasAnswered);
}

void BlueZLink::connectWasAnswered(CentralContext& context, const BusError* error) {
    const Device* const known = device(context);
    if (phase_ != Phase::connecting || !known) return;
    const ConnectRefusal refusal = error ? refusalOf(*error) : ConnectRefusal::open;
    if (refusal == ConnectRefusal::open) {
        // BlueZ may answer before the link is up, or though it never will be: the property tells.
        phaseCall_ = context.service->checkConnected(*known);
        return;
    }
    context.attempts->remove(*this);
    switch (refusal) {
        case ConnectRefusal::open:
        case ConnectRefusal::waits:
            return waitForTurn(context);
        case ConnectRefusal::failed:
            return failAttempt(context, error->message);
        case ConnectRefusal::final:
            return fail(context, error->message);
    }
}

void BlueZLink::turnEnds() {
    const auto context = context_.lock();
    if (!context) return;
    // Discovery may have taken the whole turn to pause.
    if (phase_ == Phase::connecting) {
        disconnect(*context);
    } else {
        context->attempts->attemptWasGivenUp(*this);
    }
    waitForTurn(*context);
}

void BlueZLink::deviceIsConnected(CentralContext& context, const Device& device) {
    context.attempts->remove(*this);
    enter(context, Phase::resolving);
    toldLinkEnd_.reset();
    watchEnd(context, device);
    after(context, resolvingDeadline, &BlueZLink::resolvingTookTooLong);
    if (device.servicesResolved) readTable(context);
}

void BlueZLink::watchEnd(CentralContext& context, const Device& device) {
    linkAddress_ = device.linkAddress;
    if (context.channel) context.channel->watchLink(linkAddress_);
}

void BlueZLink::readTable(CentralContext& context) {
    const Device* const known = device(context);
    if (phase_ != Phase::resolving || !known) return;
    phaseCall_ =
        context.service->readTable(*known, [this, weakOwner = peripheral_.weak_from_this(),
                                            weakContext = context_](std::vector<RemoteService> table) {
            const auto owner = weakOwner.lock();
            const auto stillThere = weakContext.lock();
            if (owner && stillThere) tableWasRead(*stillThere, std::move(table));
        });
}

void BlueZLink::tableWasRead(CentralContext& context, std::vector<RemoteService> table) {
    if (phase_ != Phase::resolving) return;
    if (table.empty()) {
        // Either it follows, or reading it failed: the deadline tells.
        tableTimer_ = schedule(context, tableRetryDelay, &BlueZLink::readTable);
        return;
    }
    enter(context, Phase::linked);
    operations_.begin(std::move(table));
    peripheral_.linkCameUp();
}

void BlueZLink::resolvingTookTooLong(CentralContext& context) {
    disconnect(context);
    failAttempt(context, "The services of the peripheral could not be read.");
}

void BlueZLink::failAttempt(CentralContext& context, const std::string& why) {
    const auto now = context.radio->clock.monotonicTime();
    // An attempt may wait for days: only failures in a row count.
    if (now - std::exchange(lastFailure_, now) > failuresInARow) failures_ = 0;
    if (++failures_ < failuresAtMost) return waitForTurn(context);
    fail(context, why);
}

void BlueZLink::fail(CentralContext& context, const std::string& why) {
    enter(context, Phase::idle);
    peripheral_.attemptFailed({CBError::connectionFailed, why.empty() ? "The link could not be made." : why});
}

void BlueZLink::disconnect(CentralContext& context) {
    const Device* const known = device(context);
    if (!known) return;
    isDisconnecting_ = true;
    disconnectCall_ = call(context, *known, "Disconnect", &BlueZLink::disconnectWasAnswered);
}

void BlueZLink::disconnectWasAnswered(CentralContext& context, const BusError* /*error*/) {
    context.attempts->attemptWasGivenUp(*this);
    // Most versions answer just before they signal the end of the link. Where there was none, they signal
    // nothing.
    schedule(context, disconnectedDelay, &BlueZLink::disconnectingIsOver);
}

void BlueZLink::disconnectingIsOver(CentralContext& context) {
    isDisconnecting_ = false;
    const Device* const known = device(context);
    if (phase_ == Phase::waiting && known && known->isConnected) deviceIsConnected(context, *known);
}

void BlueZLink::drop() {
    const auto context = context_.lock();
    if (!context) return;
    const auto radio = context->service->condition().kind;
    if (radio != RadioCondition::Kind::poweredOn) {
        // It may be the connection to BlueZ alone that is lost.
        mayBeOrphaned_ = radio == RadioCondition::Kind::resetting && !isUnlinked();
    } else if (!isUnlinked()) {
        disconnect(*context);
    }
    if (isDisconnecting_ && phase_ == Phase::connecting) {
        context->attempts->giveUp(*this);
    } else {
        context->attempts->remove(*this);
    }
    operations_.end();
    enter(*context, Phase::idle);
}

// What BlueZ tells

void BlueZLink::deviceDidAppear() {
    const auto context = context_.lock();
    // No one waits for the attempt, or has the link, with which BlueZ has gone on.
    if (context && std::exchange(mayBeOrphaned_, false) && isUnlinked()) disconnect(*context);
}

void BlueZLink::deviceDidChange(const Device& device, const DeviceChange& change) {
    const auto context = context_.lock();
    if (!context) return;
    // Over a link, a device may tell the address behind the one that it advertises.
    const bool isLinked = phase_ == Phase::resolving || isUp();
    if (isLinked && device.isConnected && device.linkAddress != linkAddress_) watchEnd(*context, device);
    if (change.hasConnected) {
        if (!device.isConnected) {
            isDisconnecting_ = false;
            mayBeOrphaned_ = false;
            return deviceIsDisconnected(*context);
        }
        const bool isAwaited = phase_ == Phase::waiting || phase_ == Phase::connecting;
        if (isAwaited && !isDisconnecting_) return deviceIsConnected(*context, device);
    }
    if (change.hasServicesResolved && device.servicesResolved) readTable(*context);
}

void BlueZLink::deviceDidVanish() {
    const auto context = context_.lock();
    if (!context) return;
    isDisconnecting_ = false;
    if (phase_ != Phase::connecting) return deviceIsDisconnected(*context);
    // The call to `Connect` will not be answered.
    context->attempts->remove(*this);
    waitForTurn(*context);
}

void BlueZLink::deviceIsDisconnected(CentralContext& context) {
    switch (phase_) {
        case Phase::resolving:
            return failAttempt(context,
                               "The link was lost before the services of the peripheral could be read.");
        case Phase::linked:
            enter(context, Phase::lost);
            peripheral_.linkIsEnding();
            after(context, reasonDeadline, &BlueZLink::tellLostLink);
            return lookForLinkEnd();
        case Phase::ending:
            return tellEnd(context, std::nullopt);
        case Phase::idle:
        case Phase::waiting:
        case Phase::connecting:
        case Phase::lost:
            return;
    }
}

// The end of the link

std::optional<LinkEnd> BlueZLink::knownLinkEnd(CentralContext& context) {
    // BlueZ has no word for some, as that the encrypted data no longer fitted; the controller has.
    const bool isKnown = toldLinkEnd_ && toldLinkEnd_->cause != LinkEnd::Cause::other;
    if (!isKnown && context.channel) {
        if (auto exact = context.channel->takeLinkEnd(linkAddress_)) toldLinkEnd_ = std::move(exact);
    }
    return toldLinkEnd_;
}

void BlueZLink::lookForLinkEnd() {
    const auto context = context_.lock();
    if (!context || phase_ != Phase::lost) return;
    const auto end = knownLinkEnd(*context);
    // This machine may have ended it because the adapter goes off, of which the news is then on its way.
    if (end && end->cause != LinkEnd::Cause::local) tellLostLink(*context);
}

void BlueZLink::tellLostLink(CentralContext& context) {
    const LinkEnd unknown{LinkEnd::Cause::other, "The link has ended, it is not known why."};
    tellEnd(context, errorOfLinkEnd(knownLinkEnd(context).value_or(unknown)));
}

void BlueZLink::end() {
    const auto context = context_.lock();
    if (!context) return;
    enter(*context, Phase::ending);
    disconnect(*context);
    after(*context, endDeadline, &BlueZLink::endTookTooLong);
}

void BlueZLink::endTookTooLong(CentralContext& context) {
    context.radio->log.message("Bluetooth: the service does not tell the end of the link to %@",
                               textOf(address_));
    tellEnd(context, std::nullopt);
}

void BlueZLink::tellEnd(CentralContext& context, const StandardPeripheral::Outcome& error) {
    operations_.end();
    enter(context, Phase::idle);
    peripheral_.linkEnded(error);
}

}  // namespace zobi::platform::bluez
