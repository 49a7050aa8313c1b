#include "zobi/platform/standard/StandardCentral.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/ThreadCheck.h"
#include "zobi/platform/NSData.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform {

namespace {

NSError radioIsOff() {
    return {CBError::operationCancelled, "Bluetooth is off."};
}

NSError radioIsShutDown() {
    return {CBError::operationCancelled, "Bluetooth is not used any more."};
}

/// The elements, each with an address.
std::vector<CBServiceData> withAddresses(std::span<const CBServiceData> elements) {
    static constexpr std::uint8_t anywhere = 0;
    std::vector<CBServiceData> result(elements.begin(), elements.end());
    for (CBServiceData& element : result) {
        if (!element.data.data()) element.data = {&anywhere, 0};
    }
    return result;
}

/// Whether it is idle, and nobody else holds it.
bool isUnused(const std::shared_ptr<StandardPeripheral>& peripheral) {
    return peripheral->isIdle() && peripheral.use_count() == 1;
}

}  // namespace

StandardCentral::StandardCentral(MainQueue& queue, Log& log, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : queue_(queue), log_(log), delegate_(std::move(delegate)) {}

StandardCentral::~StandardCentral() {
    // The application may keep the handles.
    for (const auto& peripheral : activePeripherals()) peripheral->abandon();
}

// Scanning

void StandardCentral::scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                            CBScanOptions options) {
    checkThread(queue_);
    if (state_ != CBManagerState::poweredOn || isShutDown_) return;
    serviceFilter_.assign(services.begin(), services.end());
    options_ = options;
    isScanning_ = true;
    ++scansStarted_;
    forgetUnused();
    forgotten_ = {};
    isForgettingTold_ = false;
    beginScan();
}

void StandardCentral::stopScan() {
    checkThread(queue_);
    if (std::exchange(isScanning_, false)) endScan();
}

bool StandardCentral::isSought(std::span<const CBUUID> advertisedServices) const {
    return isScanning_ &&
           (serviceFilter_.empty() ||
            std::ranges::find_first_of(advertisedServices, serviceFilter_) != advertisedServices.end());
}

void StandardCentral::hear(StandardPeripheral& peripheral, const CBAdvertisementData& data, NSNumber rssi) {
    const bool isRepeated = peripheral.wasReportedIn(scansStarted_);
    if (!isScanning_ || (isRepeated && !options_.allowDuplicates)) return;
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto hasNoAddress = [](const CBServiceData& element) { return !element.data.data(); };
    if (std::ranges::any_of(data.serviceData, hasNoAddress)) {
        const auto elements = withAddresses(data.serviceData);
        return hear(peripheral, {.localName = data.localName, .serviceData = elements}, rssi);
    }
    const auto handle = peripheral.shared_from_this();
    peripheral.noteReport(scansStarted_);
    try {
        delegate->centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(*this, handle, data, rssi);
    } catch (const DataRangeError& error) {
        if (!data.isMalformedBy(error)) throw;
        peripheral.forgetReport();
        log_.log("Advertisement from %@ dropped: %@", peripheral.addressText(), error.what());
    }
}

// Handles

StandardPeripheral& StandardCentral::keep(Key key, std::shared_ptr<StandardPeripheral> made) {
    if (forgotten_.contains(key)) made->noteReport(scansStarted_);
    // So that it costs little for each peripheral that is made.
    if (peripherals_.size() >= manyPeripherals_) {
        constexpr std::size_t few = 64;
        forgetUnused();
        manyPeripherals_ = 2 * peripherals_.size() + few;
    }
    return *peripherals_.emplace(key, std::move(made)).first->second;
}

void StandardCentral::forget(Key key) {
    const auto known = peripherals_.find(key);
    if (known != peripherals_.end() && isUnused(known->second)) forgetUnused(known);
}

void StandardCentral::forgetUnused() {
    for (auto it = peripherals_.begin(); it != peripherals_.end();) {
        it = isUnused(it->second) ? forgetUnused(it) : std::next(it);
    }
}

StandardCentral::Peripherals::iterator StandardCentral::forgetUnused(Peripherals::iterator known) {
    const auto& [key, peripheral] = *known;
    const bool mustBeKnown =
        isScanning_ && !options_.allowDuplicates && peripheral->wasReportedIn(scansStarted_);
    if (mustBeKnown && forgotten_.add(key) && !std::exchange(isForgettingTold_, true)) {
        log_.message(
            "More than %lu devices were reported in this scan: the first of them may be reported again.",
            RecentKeys::capacity);
    }
    return peripherals_.erase(known);
}

// Connecting

// Connecting and cancelling each take a turn of their own, so that they happen in the order in which they
// were asked for, and what was asked of a link before stays outstanding until it ends.

void StandardCentral::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) {
    checkThread(queue_);
    const auto connected = ownPeripheral(peripheral);
    if (!connected) return;
    connected->announceConnect();
    const bool isPoweredOn = state_ == CBManagerState::poweredOn;
    connected->takeTurn(
        [weakSelf = weak_from_this(), isPoweredOn, losses = powerLosses_](StandardPeripheral& own) {
            const auto self = weakSelf.lock();
            if (!self) return;
            // Power that comes and goes before the turn does not count.
            if (!isPoweredOn || self->powerLosses_ != losses) return own.refuseConnect(radioIsOff());
            if (self->isShutDown_) return own.refuseConnect(radioIsShutDown());
            own.connect(++self->attemptsStarted_);
        });
}

void StandardCentral::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
    checkThread(queue_);
    if (const auto cancelled = ownPeripheral(peripheral)) {
        cancelled->takeTurn([](StandardPeripheral& own) { own.cancel(); });
    }
}

std::shared_ptr<StandardPeripheral> StandardCentral::ownPeripheral(
    const std::shared_ptr<CBPeripheral>& peripheral) const {
    auto own = std::dynamic_pointer_cast<StandardPeripheral>(peripheral);
    return own && own->belongsTo(*this) ? own : nullptr;
}

// The end

void StandardCentral::shutDown() {
    isShutDown_ = true;
    stopScan();
    for (const auto& peripheral : activePeripherals()) cancelPeripheralConnection(peripheral);
}

// Power

void StandardCentral::enterState(CBManagerState state) {
    state_ = state;
    const auto reportState = [this] {
        if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(*this);
    };
    if (state == CBManagerState::poweredOn) return reportState();
    ++powerLosses_;
    stopScan();
    const auto ended = activePeripherals();
    ExceptionKeeper exceptions;
    exceptions.run(reportState);
    for (const auto& peripheral : ended) {
        exceptions.run([&] { peripheral->loseRadio(radioIsOff()); });
    }
    exceptions.rethrow();
}

/// Those with an attempt or a link, in the order of the requests.
std::vector<std::shared_ptr<StandardPeripheral>> StandardCentral::activePeripherals() const {
    std::vector<std::shared_ptr<StandardPeripheral>> active;
    for (const auto& [key, peripheral] : peripherals_) {
        if (!peripheral->isIdle()) active.push_back(peripheral);
    }
    std::ranges::sort(active, {}, &StandardPeripheral::order);
    return active;
}

}  // namespace zobi::platform
