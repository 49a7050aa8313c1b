#include "zobi/platform/standard/StandardPeripheral.h"

#include <utility>

#include "platform/ThreadCheck.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform {

namespace {

NSError foreignAttribute() {
    return {CBError::invalidHandle, "It was not discovered over this link."};
}

}  // namespace

/// Finishes a request with its outcome, if it still awaits that.
class StandardPeripheral::Finish {
public:
    Finish(std::weak_ptr<StandardPeripheral> peripheral, std::uint64_t number)
        : peripheral_(std::move(peripheral)), number_(number) {}

    bool isAwaited() const {
        const auto peripheral = peripheral_.lock();
        return peripheral && peripheral->isAwaited(number_);
    }
    void operator()(const Outcome& outcome) const {
        const auto peripheral = peripheral_.lock();
        if (peripheral && peripheral->isAwaited(number_)) peripheral->finish(outcome);
    }

private:
    std::weak_ptr<StandardPeripheral> peripheral_;
    std::uint64_t number_;
};

void StandardPeripheral::discoverServices(std::span<const CBUUID> serviceUUIDs) {
    checkThread(*queue_);
    enqueue({[this, wanted = UUIDs(serviceUUIDs.begin(), serviceUUIDs.end())](const Finish& finish) {
                 UUIDs table;
                 const Outcome outcome = listServices(table);
                 if (!outcome) discovered_.discover(table, wanted);
                 finish(outcome);
             },
             [this](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidDiscoverServices(shared_from_this(), error);
             }});
}

void StandardPeripheral::discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                                           const std::shared_ptr<CBService>& service) {
    checkThread(*queue_);
    if (!service) return;
    enqueue({[this, service,
              wanted = UUIDs(characteristicUUIDs.begin(), characteristicUUIDs.end())](const Finish& finish) {
                 const auto known = discovered_.find(service);
                 if (!known) return finish(foreignAttribute());
                 UUIDs table;
                 const Outcome outcome = listCharacteristics(known->place(), table);
                 if (!outcome) known->discover(table, wanted);
                 finish(outcome);
             },
             [this, service](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidDiscoverCharacteristicsForServiceError(shared_from_this(), service,
                                                                              error);
             }});
}

void StandardPeripheral::readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) {
    checkThread(*queue_);
    if (!characteristic) return;
    enqueue({[this, characteristic](const Finish& finish) {
                 const auto known = discovered_.find(characteristic);
                 if (!known) return finish(foreignAttribute());
                 read(known->place(),
                      [known, finish](const Outcome& outcome, std::span<const std::uint8_t> value) {
                          if (!finish.isAwaited()) return;
                          if (!outcome) known->setValue({value.begin(), value.end()});
                          finish(outcome);
                      });
             },
             [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic,
                                                                         error);
             }});
}

void StandardPeripheral::writeValueForCharacteristicType(
    std::span<const std::uint8_t> value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
    checkThread(*queue_);
    if (!characteristic) return;
    Request request{
        [this, characteristic, type, bytes = std::vector(value.begin(), value.end())](const Finish& finish) {
            const auto known = discovered_.find(characteristic);
            if (!known) return finish(foreignAttribute());
            write(known->place(), bytes, type, [finish](const Outcome& outcome) { finish(outcome); });
        },
        [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
            delegate.peripheralDidWriteValueForCharacteristicError(shared_from_this(), characteristic, error);
        }};
    if (type == CBCharacteristicWriteType::withoutResponse) request.report = nullptr;
    enqueue(std::move(request));
}

void StandardPeripheral::setNotifyValueForCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
    checkThread(*queue_);
    if (!characteristic) return;
    enqueue({[this, characteristic, enabled](const Finish& finish) {
                 const auto known = discovered_.find(characteristic);
                 if (!known) return finish(foreignAttribute());
                 setNotify(known->place(), enabled, [known, enabled, finish](const Outcome& outcome) {
                     if (!finish.isAwaited()) return;
                     if (!outcome) known->setNotifying(enabled);
                     finish(outcome);
                 });
             },
             [this, characteristic](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidUpdateNotificationStateForCharacteristicError(shared_from_this(),
                                                                                     characteristic, error);
             }});
}

void StandardPeripheral::readRSSI() {
    checkThread(*queue_);
    const auto reading = std::make_shared<NSNumber>();
    enqueue({[this, reading](const Finish& finish) {
                 readSignalStrength([reading, finish](const Outcome& outcome, NSNumber rssi) {
                     if (!finish.isAwaited()) return;
                     *reading = rssi;
                     finish(outcome);
                 });
             },
             [this, reading](CBPeripheralDelegate& delegate, const NSError* error) {
                 delegate.peripheralDidReadRSSIError(shared_from_this(), *reading, error);
             }});
}

void StandardPeripheral::enqueue(Request request) {
    if (!isLinked()) return;
    request.number = ++requestsMade_;
    requests_.push_back(std::move(request));
    if (requests_.size() == 1) scheduleNextRequest();
}

void StandardPeripheral::scheduleNextRequest() {
    queue_->dispatchAsync([weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->sendNextRequest();
    });
}

void StandardPeripheral::sendNextRequest() {
    // A link that is ending sends nothing: its end is the answer.
    if (phase_ != Phase::linked || requests_.empty() || requests_.front().isSent) return;
    Request& request = requests_.front();
    request.isSent = true;
    // A copy, as the request may end, and go, while it is carried out.
    const auto send = request.send;
    send(Finish(weak_from_this(), request.number));
}

bool StandardPeripheral::isAwaited(std::uint64_t number) const {
    return !requests_.empty() && requests_.front().number == number;
}

// The outcome is a copy, as what it came from may change while it is told.
void StandardPeripheral::finish(Outcome outcome) {  // NOLINT(performance-unnecessary-value-param)
    const Request request = std::move(requests_.front());
    requests_.pop_front();
    // First, so that the others are served though a delegate throws.
    if (!requests_.empty()) scheduleNextRequest();
    answer(request, outcome ? &*outcome : nullptr);
}

void StandardPeripheral::answer(const Request& request, const NSError* error) {
    const auto delegate = delegate_.lock();
    if (delegate && request.report) request.report(*delegate, error);
}

void StandardPeripheral::deliverNotification(GATTPlace place, std::span<const std::uint8_t> value) {
    const auto characteristic = discovered_.characteristic(place);
    if (!characteristic || !characteristic->isNotifying()) return;
    characteristic->setValue({value.begin(), value.end()});
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidUpdateValueForCharacteristicError(shared_from_this(), characteristic, nullptr);
    }
}

void StandardPeripheral::subscriptionEnded(GATTPlace place, const NSError& error) {
    const auto characteristic = discovered_.characteristic(place);
    if (phase_ != Phase::linked || !characteristic || !characteristic->isNotifying()) return;
    characteristic->setNotifying(false);
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralDidUpdateNotificationStateForCharacteristicError(shared_from_this(),
                                                                             characteristic, &error);
    }
}

// The attempt and the link

CBPeripheralState StandardPeripheral::state() const {
    switch (phase_) {
        case Phase::linked:
        case Phase::ending:
        case Phase::ended:
            return CBPeripheralState::connected;
        case Phase::pending:
            return CBPeripheralState::connecting;
        case Phase::idle:
            break;
    }
    const bool isConnecting = announcedConnects_ > 0 && !central_.expired();
    return isConnecting ? CBPeripheralState::connecting : CBPeripheralState::disconnected;
}

void StandardPeripheral::adopt(std::weak_ptr<CBCentralManager> central,
                               std::weak_ptr<CBCentralManagerDelegate> delegate, MainQueue& queue) {
    central_ = std::move(central);
    centralDelegate_ = std::move(delegate);
    queue_ = &queue;
}

void StandardPeripheral::connect(std::uint64_t order) {
    --announcedConnects_;
    if (phase_ == Phase::linked) return reportConnection();
    if (phase_ == Phase::pending) return;
    order_ = order;
    phase_ = Phase::pending;
    beginAttempt();
}

void StandardPeripheral::refuseConnect(const NSError& error) {
    --announcedConnects_;
    reportFailure(error);
}

void StandardPeripheral::cancel() {
    if (phase_ == Phase::pending) {
        phase_ = Phase::idle;
        dropConnection();
        reportEnd(std::nullopt);
    } else if (phase_ == Phase::linked) {
        phase_ = Phase::ending;
        isEndWanted_ = true;
        endLink();
    }
}

void StandardPeripheral::loseRadio(const NSError& error) {
    if (phase_ == Phase::pending) {
        phase_ = Phase::idle;
        dropConnection();
        reportFailure(error);
    } else if (isLinked()) {
        phase_ = Phase::ended;
        dropConnection();
        finishLink(error);
    }
}

void StandardPeripheral::endLink() {
    dropConnection();
    linkEnded(std::nullopt);
}

void StandardPeripheral::linkCameUp() {
    if (phase_ != Phase::pending) return;
    phase_ = Phase::linked;
    isEndWanted_ = false;
    discovered_.clear();
    reportConnection();
}

void StandardPeripheral::attemptFailed(const NSError& error) {
    if (phase_ != Phase::pending) return;
    phase_ = Phase::idle;
    reportFailure(error);
}

void StandardPeripheral::linkIsEnding() {
    if (phase_ == Phase::linked) phase_ = Phase::ending;
}

void StandardPeripheral::linkEnded(const Outcome& error) {
    if (!isLinked()) return;
    phase_ = Phase::ended;
    // Whatever the radio says of it: a lost link is connected again.
    finishLink(isEndWanted_ ? std::nullopt : error);
}

void StandardPeripheral::finishLink(const Outcome& error) {
    const auto self = shared_from_this();
    stopNotifying();
    const NSError linkEnd(CBError::notConnected, "The link has ended.");
    ExceptionKeeper exceptions;
    for (const Request& request : std::exchange(requests_, {})) {
        exceptions.run([&] { answer(request, &linkEnd); });
    }
    phase_ = Phase::idle;
    takeWaitingTurns();
    exceptions.run([&] { reportEnd(error); });
    exceptions.rethrow();
}

void StandardPeripheral::abandon() {
    const bool isActive = phase_ == Phase::pending || isLinked();
    phase_ = Phase::idle;
    if (isActive) dropConnection();
    requests_.clear();
    stopNotifying();
    takeWaitingTurns();
}

void StandardPeripheral::takeTurn(Turn turn) {
    turns_.push_back(std::move(turn));
    scheduleTurn();
}

void StandardPeripheral::scheduleTurn() {
    queue_->dispatchAsync([central = central_.lock(), self = shared_from_this()] { self->takeNextTurn(); });
}

void StandardPeripheral::takeNextTurn() {
    if (phase_ == Phase::ending || turns_.empty()) return;
    const Turn turn = std::move(turns_.front());
    turns_.pop_front();
    turn(*this);
}

void StandardPeripheral::takeWaitingTurns() {
    // Their own tasks may have run while the link was ending. A task too many finds no turn.
    for (std::size_t i = 0; i < turns_.size(); ++i) scheduleTurn();
}

/// What was discovered stays, but no longer notifies.
void StandardPeripheral::stopNotifying() {
    for (const auto& characteristic : discovered_.notifyingCharacteristics())
        characteristic->setNotifying(false);
}

void StandardPeripheral::reportConnection() {
    const auto central = central_.lock();
    const auto delegate = centralDelegate_.lock();
    if (central && delegate) delegate->centralManagerDidConnectPeripheral(*central, shared_from_this());
}

void StandardPeripheral::reportFailure(const NSError& error) {
    const auto central = central_.lock();
    const auto delegate = centralDelegate_.lock();
    if (!central || !delegate) return;
    delegate->centralManagerDidFailToConnectPeripheralError(*central, shared_from_this(), &error);
}

void StandardPeripheral::reportEnd(const Outcome& error) {
    const auto central = central_.lock();
    const auto delegate = centralDelegate_.lock();
    if (!central || !delegate) return;
    delegate->centralManagerDidDisconnectPeripheralError(*central, shared_from_this(),
                                                         error ? &*error : nullptr);
}

}  // namespace zobi::platform
