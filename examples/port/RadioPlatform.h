#pragma once

#include <array>
#include <cstdio>
#include <utility>

#include "Driver.h"
#include "zobi/platform/standard/StandardCentral.h"
#include "zobi/platform/standard/StandardPlatform.h"

using namespace zobi::platform;

/// A device as one central manager has it: the attempt to connect, the link, and the requests over it.
class RadioPeripheral final : public StandardPeripheral, public ConnectionEvents {
public:
    RadioPeripheral(std::shared_ptr<Driver> driver, std::uint64_t address)
        : driver_(std::move(driver)), address_(address) {}

    std::string addressText() const override {
        std::array<char, 17> text{};
        std::snprintf(text.data(), text.size(), "%012llX", static_cast<unsigned long long>(address_));
        return text.data();
    }

private:
    // What is asked of the radio
    void beginAttempt() override {
        driver_->connect(address_, std::static_pointer_cast<RadioPeripheral>(shared_from_this()));
    }
    void dropConnection() override { driver_->disconnect(address_); }
    void endLink() override { driver_->disconnect(address_); }
    Outcome listServices(UUIDs& table) override {
        for (const Service& service : services_) table.push_back(service.uuid);
        return std::nullopt;
    }
    Outcome listCharacteristics(std::size_t service, UUIDs& table) override {
        table = services_[service].characteristics;
        return std::nullopt;
    }
    void read(GATTPlace place, ReadCompletion completion) override {
        driver_->read(address_, place,
                      [completion](int error, auto value) { completion(outcomeOf(error), value); });
    }
    void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
               Completion completion) override {
        const bool isAnswered = type == CBCharacteristicWriteType::withResponse;
        driver_->write(address_, place, value, isAnswered,
                       [completion](int error, auto) { completion(outcomeOf(error)); });
    }
    void setNotify(GATTPlace place, bool enabled, Completion completion) override {
        driver_->subscribe(address_, place, enabled,
                           [completion](int error, auto) { completion(outcomeOf(error)); });
    }
    void readSignalStrength(RSSICompletion completion) override {
        driver_->readRSSI(address_, [completion](int dBm) { completion({}, NSNumber::numberWithInt(dBm)); });
    }
    static Outcome outcomeOf(int error) {
        if (error == 0) return std::nullopt;
        return NSError(std::string(CBATTErrorDomain), error, "The peripheral refuses.");
    }

    // What the radio tells
    void connected(std::vector<Service> services) override {
        services_ = std::move(services);
        linkCameUp();
    }
    void connectionFailed() override { attemptFailed({CBError::connectionFailed, "It did not answer."}); }
    void disconnected(LinkEnd end) override {
        const bool isLost = end == LinkEnd::timeout;
        linkEnded(
            NSError(isLost ? CBError::connectionTimeout : CBError::peripheralDisconnected, "It ended."));
    }
    void notified(GATTPlace place, std::span<const std::uint8_t> value) override {
        deliverNotification(place, value);
    }

    std::shared_ptr<Driver> driver_;
    std::uint64_t address_;
    std::vector<Service> services_;
};

/// The central manager: the radio's state, and its scan.
class RadioCentral final : public StandardCentral, public DriverEvents {
public:
    using StandardCentral::StandardCentral;

    void start(RunLoop& loop) {
        driver_ = openDriver(loop, std::static_pointer_cast<RadioCentral>(shared_from_this()));
    }

private:
    void beginScan() override { driver_->scan(true); }
    void endScan() override { driver_->scan(false); }

    void powerChanged(bool isOn) override {
        enterState(isOn ? CBManagerState::poweredOn : CBManagerState::poweredOff);
    }
    void heard(std::uint64_t address, std::span<const CBUUID> advertisedServices,
               const CBAdvertisementData& data, std::optional<int> rssi) override {
        if (!isSought(advertisedServices)) return;
        hear(peripheral<RadioPeripheral>(address, driver_, address), data,
             rssi ? NSNumber::numberWithInt(*rssi) : NSNumber());
    }

    std::shared_ptr<Driver> driver_;
};

class RadioPlatform final : public StandardPlatform {
public:
    using StandardPlatform::StandardPlatform;
    ~RadioPlatform() override { clear(); }

private:
    std::shared_ptr<StandardCentral> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        auto central = std::make_shared<RadioCentral>(runLoop(), log(), std::move(delegate));
        runLoop().dispatchAsync([this, central] { central->start(runLoop()); });
        return central;
    }
};
