#include "platform/bluez/central/BlueZPeripheral.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/central/BlueZCentral.h"

namespace zobi::platform::bluez {

namespace {

// From the link to the end of the service's own discovery: some dozens of requests, each of which a slow
// peripheral answers in a tenth of a second.
constexpr double resolvingDeadline = 20;
// The service may say that services are resolved just before it shows them.
constexpr double tableRetryDelay = 0.5;
// A device that is heard and lost again so often is not one that is passing by.
constexpr int failuresAtMost = 3;
constexpr std::chrono::nanoseconds failuresInARow = std::chrono::minutes(1);
// The service takes two seconds to end a link.
constexpr double endDeadline = 5;
constexpr double disconnectedDelay = 1;
// Reasons come by other ways than the end itself, and the adapter's going off may be told after it.
constexpr double reasonDeadline = 0.3;
// The Attribute Protocol itself gives up after 30 s, and the service ends the link then.
constexpr double operationDeadline = 40;
// An operation that fails with a link is told before the end of the link is.
constexpr double linkEndDelay = 0.5;
// The controller measures at once.
constexpr double signalDeadline = 3;

}  // namespace

Device* BlueZPeripheral::device() const {
    const auto central = central_.lock();
    return central ? central->service().device(address_) : nullptr;
}

/// Whatever was awaited in the phase before is not awaited any more.
void BlueZPeripheral::enter(Phase phase) {
    phase_ = phase;
    phaseCall_.reset();
    for (const auto& timer : {phaseTimer_, tableTimer_}) {
        if (timer) timer->invalidate();
    }
    if (const auto central = central_.lock()) central->peripheralDidChangePhase();
}

void BlueZPeripheral::after(double seconds, void (BlueZPeripheral::*action)()) {
    if (phaseTimer_) phaseTimer_->invalidate();
    phaseTimer_ = context_->after(seconds, self(), action);
}

// Sightings

void BlueZPeripheral::rememberName(std::string_view name) {
    if (!advertisedName_ && !name.empty()) advertisedName_ = name;
}

void BlueZPeripheral::hearName(std::string_view name) {
    // What was reported under another one, which the service remembered, has to be reported anew.
    if (!std::exchange(isNameHeard_, true) && advertisedName_ != name) forgetReport();
    advertisedName_ = name;
}

void BlueZPeripheral::keepUntilNamed(std::span<const CBServiceData> serviceData, NSNumber rssi) {
    unnamed_ = Unnamed{rssi, {}};
    for (const auto& [service, data] : serviceData) {
        unnamed_->serviceData.emplace_back(service, std::vector(data.begin(), data.end()));
    }
}

// The attempt

void BlueZPeripheral::beginAttempt() {
    failures_ = 0;
    waitForTurn();
    if (const auto central = central_.lock()) central->discoverAnew();
}

void BlueZPeripheral::waitForTurn() {
    enter(Phase::waiting);
    const Device* const known = device();
    // By another client of the service; a link that is being ended is none.
    if (known && known->isConnected && !isDisconnecting_) return linkIsUp(*known);
    if (const auto central = central_.lock()) central->attempts().add(self());
}

void BlueZPeripheral::leaveTurn() {
    if (const auto central = central_.lock()) central->attempts().remove(*this);
}

void BlueZPeripheral::takeTurn() {
    const auto central = central_.lock();
    const Device* const known = device();
    if (!central || !known) {
        leaveTurn();
        return waitForTurn();
    }
    enter(Phase::connecting);
    isDisconnecting_ = false;
    isLeftBehind_ = false;
    phaseCall_ = central->service().call(
        known->path, deviceInterface, "Connect", nullptr,
        [weakSelf = weak_from_this()](MessageReader& /*reply*/, const BusError* error) {
            const auto self = weakSelf.lock();
            if (self) static_cast<BlueZPeripheral&>(*self).connectWasAnswered(error);
        });
}

void BlueZPeripheral::connectWasAnswered(const BusError* error) {
    const auto central = central_.lock();
    const Device* const known = device();
    if (phase_ != Phase::connecting || !central || !known) return;
    if (!error) {
        // Success need not be a link yet, nor ever: the property tells.
        phaseCall_ = central->service().checkConnected(*known);
        return;
    }
    const ConnectRefusal refusal = refusalOf(*error);
    if (refusal == ConnectRefusal::open) {
        phaseCall_ = central->service().checkConnected(*known);
        return;
    }
    leaveTurn();
    switch (refusal) {
        case ConnectRefusal::open:
        case ConnectRefusal::waits:
            return waitForTurn();
        case ConnectRefusal::failed:
            return failAttempt(error->message);
        case ConnectRefusal::final:
            return fail(error->message);
    }
}

void BlueZPeripheral::attemptWasGivenUp() {
    // Discovery may have taken the whole turn to pause.
    if (phase_ == Phase::connecting) disconnect();
    waitForTurn();
}

void BlueZPeripheral::linkIsUp(const Device& device) {
    leaveTurn();
    enter(Phase::resolving);
    toldLinkEnd_.reset();
    const auto central = central_.lock();
    if (central && central->channel()) central->channel()->watchLink(device.address);
    after(resolvingDeadline, &BlueZPeripheral::resolvingTookTooLong);
    if (device.servicesResolved) readTable();
}

void BlueZPeripheral::readTable() {
    const auto central = central_.lock();
    const Device* const known = device();
    if (phase_ != Phase::resolving || !central || !known) return;
    phaseCall_ = central->service().readServices(
        *known, [weakSelf = weak_from_this()](std::vector<RemoteService> table) {
            if (const auto self = weakSelf.lock()) {
                static_cast<BlueZPeripheral&>(*self).tableWasRead(std::move(table));
            }
        });
}

void BlueZPeripheral::tableWasRead(std::vector<RemoteService> table) {
    if (phase_ != Phase::resolving) return;
    if (table.empty()) {
        // Either it follows, or reading it failed: the deadline tells.
        tableTimer_ = context_->after(tableRetryDelay, self(), &BlueZPeripheral::readTable);
        return;
    }
    enter(Phase::linked);
    table_ = std::move(table);
    linkCameUp();
}

void BlueZPeripheral::resolvingTookTooLong() {
    disconnect();
    failAttempt("The services of the peripheral could not be read.");
}

void BlueZPeripheral::failAttempt(const std::string& why) {
    const auto now = context_->clock.monotonicTime();
    // An attempt may wait for days: only failures in a row count.
    if (now - std::exchange(lastFailure_, now) > failuresInARow) failures_ = 0;
    if (++failures_ < failuresAtMost) return waitForTurn();
    fail(why);
}

void BlueZPeripheral::fail(const std::string& why) {
    enter(Phase::idle);
    attemptFailed(NSError(CBError::connectionFailed, why.empty() ? "The link could not be made." : why));
}

void BlueZPeripheral::disconnect() {
    const auto central = central_.lock();
    const Device* const known = device();
    if (!central || !known) return;
    isDisconnecting_ = true;
    disconnectCall_ = central->service().call(
        known->path, deviceInterface, "Disconnect", nullptr,
        [weakSelf = weak_from_this()](MessageReader& /*reply*/, const BusError* /*error*/) {
            if (const auto self = weakSelf.lock()) {
                static_cast<BlueZPeripheral&>(*self).disconnectWasAnswered();
            }
        });
}

void BlueZPeripheral::disconnectWasAnswered() {
    // Most versions answer just before they tell the end of the link. Where there was none, nothing is told.
    context_->after(disconnectedDelay, self(), &BlueZPeripheral::disconnectingIsOver);
}

void BlueZPeripheral::disconnectingIsOver() {
    isDisconnecting_ = false;
    const Device* const known = device();
    if (phase_ == Phase::waiting && known && known->isConnected) linkIsUp(*known);
}

void BlueZPeripheral::dropConnection() {
    const auto central = central_.lock();
    const bool isAttempting = phase_ == Phase::connecting || phase_ == Phase::resolving;
    if (isAttempting && central && central->state() == CBManagerState::poweredOn) disconnect();
    leaveTurn();
    releaseLink();
}

void BlueZPeripheral::endLink() {
    enter(Phase::ending);
    disconnect();
    after(endDeadline, &BlueZPeripheral::endTookTooLong);
}

void BlueZPeripheral::radioIsLost(bool serviceMayGoOn) {
    if (!isIdle()) isLeftBehind_ = serviceMayGoOn && isBusy();
}

// What the service tells

void BlueZPeripheral::deviceDidAppear() {
    // What the service goes on with, be it a link or an attempt, is for nobody any more.
    if (std::exchange(isLeftBehind_, false) && !isBusy()) disconnect();
}

void BlueZPeripheral::deviceDidChange(const Device& device, const DeviceChange& change) {
    // Over a connection, the service replaces the advertised name by one that it reads from the peripheral.
    // The end of a link and what is heard after it may come in one signal.
    const bool isUnlinked = phase_ == Phase::idle || phase_ == Phase::waiting;
    if (change.name && !device.isConnected && (isUnlinked || change.rssi)) hearName(*change.name);
    if (change.hasConnected) {
        if (!device.isConnected) {
            isDisconnecting_ = false;
            isLeftBehind_ = false;
            return linkIsDown();
        }
        const bool isAwaited = phase_ == Phase::waiting || phase_ == Phase::connecting;
        if (isAwaited && !isDisconnecting_) return linkIsUp(device);
    }
    if (change.hasServicesResolved && device.servicesResolved) readTable();
}

void BlueZPeripheral::deviceDidVanish() {
    isDisconnecting_ = false;
    if (phase_ != Phase::connecting) return linkIsDown();
    // The call to connect will not be answered.
    leaveTurn();
    waitForTurn();
}

void BlueZPeripheral::linkEndWasTold(const LinkEnd& end) {
    toldLinkEnd_ = end;
}

void BlueZPeripheral::linkIsDown() {
    switch (phase_) {
        case Phase::resolving:
            return failAttempt("The link was lost before the services of the peripheral could be read.");
        case Phase::linked:
            enter(Phase::lost);
            linkIsEnding();
            after(reasonDeadline, &BlueZPeripheral::tellLostLink);
            return lookForLinkEnd();
        case Phase::ending:
            return tellEnd(std::nullopt);
        case Phase::idle:
        case Phase::waiting:
        case Phase::connecting:
        case Phase::lost:
            return;
    }
}

std::optional<LinkEnd> BlueZPeripheral::knownLinkEnd() {
    const auto central = central_.lock();
    if (!toldLinkEnd_ && central && central->channel()) {
        toldLinkEnd_ = central->channel()->takeLinkEnd(address_);
    }
    return toldLinkEnd_;
}

void BlueZPeripheral::lookForLinkEnd() {
    if (phase_ != Phase::lost) return;
    const auto end = knownLinkEnd();
    // This machine may have ended it because the adapter goes off, of which the news is then on its way.
    if (end && end->cause != LinkEnd::Cause::local) tellLostLink();
}

void BlueZPeripheral::tellLostLink() {
    tellEnd(errorOfLinkEnd(
        knownLinkEnd().value_or(LinkEnd{LinkEnd::Cause::other, "The link has ended, it is not known why."})));
}

void BlueZPeripheral::endTookTooLong() {
    context_->log.log("Bluetooth: the service does not tell the end of the link to %@", textOf(address_));
    tellEnd(std::nullopt);
}

void BlueZPeripheral::releaseLink() {
    const auto stopNotifying = [central = central_.lock()](const std::string& path) {
        if (central) central->service().send(path, gattCharacteristicInterface, "StopNotify");
    };
    // The service would subscribe again at the next link.
    for (const auto& characteristic : discovered().notifyingCharacteristics()) {
        stopNotifying(pathOf(characteristic->place()));
    }
    if (!subscribingPath_.empty()) stopNotifying(std::exchange(subscribingPath_, {}));
    operationCall_.reset();
    if (operationTimer_) operationTimer_->invalidate();
    readPath_.clear();
    heldValues_.clear();
    enter(Phase::idle);
}

void BlueZPeripheral::tellEnd(const Outcome& error) {
    releaseLink();
    linkEnded(error);
}

// Requests

StandardPeripheral::Outcome BlueZPeripheral::listServices(UUIDs& table) {
    for (const RemoteService& service : table_) table.push_back(service.uuid);
    return std::nullopt;
}

StandardPeripheral::Outcome BlueZPeripheral::listCharacteristics(std::size_t service, UUIDs& table) {
    for (const auto& characteristic : table_[service].characteristics) table.push_back(characteristic.uuid);
    return std::nullopt;
}

const std::string& BlueZPeripheral::pathOf(GATTPlace place) const {
    return table_[place.service].characteristics[place.characteristic].path;
}

std::optional<GATTPlace> BlueZPeripheral::placeOf(std::string_view path) const {
    for (std::size_t s = 0; s < table_.size(); ++s) {
        const auto& characteristics = table_[s].characteristics;
        const auto found = std::ranges::find(characteristics, path, &RemoteCharacteristic::path);
        if (found == characteristics.end()) continue;
        return GATTPlace{s, static_cast<std::size_t>(found - characteristics.begin())};
    }
    return std::nullopt;
}

void BlueZPeripheral::operate(const std::string& path, const char* member,
                              const std::function<void(Message&)>& append,
                              std::function<void(MessageReader&, const BusError*)> answered) {
    const auto central = central_.lock();
    if (!central) return;
    const auto finish = [weakSelf = weak_from_this(), answered = std::move(answered)](MessageReader& reply,
                                                                                      const BusError* error) {
        const auto self = weakSelf.lock();
        if (!self) return;
        auto& peripheral = static_cast<BlueZPeripheral&>(*self);
        peripheral.operationTimer_->invalidate();
        peripheral.operationCall_.reset();
        answered(reply, error);
    };
    operationTimer_ = context_->runLoop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        operationDeadline,
        [finish](const auto& /*timer*/) {
            const BusError error{"", "The Bluetooth service does not answer."};
            MessageReader nothing(nullptr);
            finish(nothing, &error);
        },
        nullptr, false);
    operationCall_ = central->service().call(path, gattCharacteristicInterface, member, append, finish);
}

void BlueZPeripheral::failOperation(GATTOperation operation, const BusError& busError,
                                    const Completion& completion) {
    const NSError error = errorOfOperation(operation, busError);
    if (!mayTellLinkEnd(error)) return completion(error);
    operationTimer_ = context_->runLoop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        linkEndDelay, [completion, error](const auto& /*timer*/) { completion(error); }, nullptr, false);
}

void BlueZPeripheral::read(GATTPlace place, ReadCompletion completion) {
    readPath_ = pathOf(place);
    operate(
        readPath_, "ReadValue", [](Message& message) { message.properties({}); },
        [this, completion = std::move(completion)](MessageReader& reply, const BusError* error) {
            const auto value = error ? std::span<const std::uint8_t>() : reply.bytes();
            // The service signals what was read before it answers: that is not told twice.
            if (!error && !heldValues_.empty() && std::ranges::equal(heldValues_.back(), value)) {
                heldValues_.pop_back();
            }
            ExceptionKeeper exceptions;
            tellHeldValues(exceptions);
            exceptions.run([&] {
                if (!error) return completion(std::nullopt, value);
                failOperation(GATTOperation::read, *error,
                              [completion](const Outcome& outcome) { completion(outcome, {}); });
            });
            exceptions.rethrow();
        });
}

void BlueZPeripheral::tellHeldValues(ExceptionKeeper& exceptions) {
    const auto place = placeOf(std::exchange(readPath_, {}));
    if (!place) return;
    for (const Bytes& value : std::exchange(heldValues_, {})) {
        exceptions.run([&] { deliverNotification(*place, value); });
    }
}

void BlueZPeripheral::characteristicDidChange(std::string_view path, std::span<const std::uint8_t> value) {
    if (phase_ != Phase::linked && phase_ != Phase::ending) return;
    if (path == readPath_) {
        heldValues_.emplace_back(value.begin(), value.end());
    } else if (const auto place = placeOf(path)) {
        deliverNotification(*place, value);
    }
}

void BlueZPeripheral::write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
                            Completion completion) {
    const char* const kind = type == CBCharacteristicWriteType::withResponse ? "request" : "command";
    operate(
        pathOf(place), "WriteValue",
        [&](Message& message) {
            message.bytes(value).properties({{"type", kind}});
        },
        [this, completion = std::move(completion)](MessageReader& /*reply*/, const BusError* error) {
            if (!error) return completion(std::nullopt);
            failOperation(GATTOperation::write, *error, completion);
        });
}

void BlueZPeripheral::setNotify(GATTPlace place, bool enabled, Completion completion) {
    if (enabled) subscribingPath_ = pathOf(place);
    operate(
        pathOf(place), enabled ? "StartNotify" : "StopNotify", nullptr,
        [this, enabled, completion = std::move(completion)](MessageReader& /*reply*/, const BusError* error) {
            subscribingPath_.clear();
            // Where there is no subscription, none is to be ended.
            if (!error || (!enabled && error->message == "No notify session started")) {
                return completion(std::nullopt);
            }
            failOperation(GATTOperation::notify, *error, completion);
        });
}

void BlueZPeripheral::readSignalStrength(RSSICompletion completion) {
    const auto central = central_.lock();
    ControllerChannel* const channel = central ? central->channel() : nullptr;
    const auto fail = [completion](const char* why) { completion(NSError(CBError::unknown, why), {}); };
    if (!channel) return fail("This user cannot ask the controller for the signal strength of a link.");
    operationTimer_ = context_->runLoop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        signalDeadline, [fail](const auto& /*timer*/) { fail("The controller does not answer."); }, nullptr,
        false);
    channel->readRSSI(address_, [timer = operationTimer_, completion, fail](std::optional<int> rssi) {
        timer->invalidate();
        if (!rssi) return fail("The controller does not tell the signal strength of the link.");
        completion(std::nullopt, NSNumber::numberWithInt(*rssi));
    });
}

}  // namespace zobi::platform::bluez
