#include "platform/simulation/SimulatedCentral.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "zobi/platform/NSData.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

namespace {

NSError radioIsOff() {
    return {CBError::operationCancelled, "Bluetooth is off."};
}

std::string addressText(const SimulatedDevice& device) {
    std::string text;
    for (const std::uint8_t byte : device.description().address) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 0xF];
    }
    return text;
}

}  // namespace

SimulatedCentral::SimulatedCentral(RunLoop& runLoop, Log& log,
                                   std::weak_ptr<CBCentralManagerDelegate> delegate)
    : runLoop_(runLoop), log_(log), delegate_(std::move(delegate)) {}

SimulatedCentral::~SimulatedCentral() {
    // The application may keep the handles.
    for (const Sighted& sighted : sighted_) {
        if (sighted.peripheral) sighted.peripheral->abandon();
    }
}

void SimulatedCentral::scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                                             CBScanOptions options) {
    if (state_ != CBManagerState::poweredOn) return;
    serviceFilter_.assign(services.begin(), services.end());
    options_ = options;
    isScanning_ = true;
    ++scansStarted_;
}

void SimulatedCentral::stopScan() {
    isScanning_ = false;
}

// Connecting and cancelling each take a turn of their own, so that they happen in the order in which they
// were asked for, and what was asked of a link before stays outstanding until it ends.

void SimulatedCentral::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) {
    const auto connected = ownPeripheral(peripheral);
    if (!connected) return;
    connected->announceConnect();
    runLoop_.dispatchAsync([self = shared_from_this(), connected] {
        if (self->state_ == CBManagerState::poweredOn) {
            connected->connect(++self->attemptsStarted_);
        } else {
            connected->refuseConnect(radioIsOff());
        }
    });
}

void SimulatedCentral::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
    if (const auto cancelled = ownPeripheral(peripheral)) {
        runLoop_.dispatchAsync([self = shared_from_this(), cancelled] { cancelled->cancel(); });
    }
}

std::shared_ptr<SimulatedPeripheral> SimulatedCentral::ownPeripheral(
    const std::shared_ptr<CBPeripheral>& peripheral) const {
    const auto found = std::ranges::find(sighted_, peripheral, &Sighted::peripheral);
    return peripheral && found != sighted_.end() ? found->peripheral : nullptr;
}

void SimulatedCentral::enterState(CBManagerState state) {
    state_ = state;
    const auto reportState = [this] {
        if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(*this);
    };
    if (state == CBManagerState::poweredOn) return reportState();
    stopScan();
    std::vector<std::shared_ptr<SimulatedPeripheral>> ended;
    for (const Sighted& sighted : sighted_) {
        if (sighted.peripheral && !sighted.peripheral->isIdle()) ended.push_back(sighted.peripheral);
    }
    std::ranges::sort(ended, {}, &SimulatedPeripheral::order);
    ExceptionKeeper exceptions;
    exceptions.run(reportState);
    for (const auto& peripheral : ended) {
        exceptions.run([&] { peripheral->loseRadio(radioIsOff()); });
    }
    exceptions.rethrow();
}

void SimulatedCentral::reportConnection(const std::shared_ptr<SimulatedPeripheral>& peripheral) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidConnectPeripheral(*this, peripheral);
    }
}

void SimulatedCentral::reportFailure(const std::shared_ptr<SimulatedPeripheral>& peripheral,
                                     const NSError& error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidFailToConnectPeripheralError(*this, peripheral, &error);
    }
}

void SimulatedCentral::reportDisconnection(const std::shared_ptr<SimulatedPeripheral>& peripheral,
                                           const NSError* error) {
    if (const auto delegate = delegate_.lock()) {
        delegate->centralManagerDidDisconnectPeripheralError(*this, peripheral, error);
    }
}

void SimulatedCentral::hear(SimulatedDevice& device, const Advertisement& advertisement, int signalStrength) {
    if (!isScanning_ || !passesServiceFilter(device)) return;
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    if (sighted_.size() <= device.index()) sighted_.resize(device.index() + 1);
    Sighted& sighted = sighted_[device.index()];
    if (!sighted.peripheral) {
        sighted.peripheral =
            std::make_shared<SimulatedPeripheral>(runLoop_, weak_from_this(), device.weak_from_this());
    }
    const bool isRepeated = std::exchange(sighted.lastReportedInScan, scansStarted_) == scansStarted_;
    if (isRepeated && !options_.allowDuplicates) return;
    try {
        delegate->centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
            *this, sighted.peripheral, advertisement.data(), NSNumber::numberWithInt(signalStrength));
    } catch (const DataRangeError& error) {
        log_.log("Advertisement from %@ dropped: %@", addressText(device), error.what());
    }
}

bool SimulatedCentral::passesServiceFilter(const SimulatedDevice& device) const {
    const auto& advertised = device.description().advertisedServices;
    return serviceFilter_.empty() ||
           std::ranges::find_first_of(advertised, serviceFilter_) != advertised.end();
}

}  // namespace zobi::platform::simulation
