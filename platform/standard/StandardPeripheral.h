#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/CBPeripheral.h"
#include "platform/Export.h"
#include "platform/NSNumber.h"
#include "platform/standard/DiscoveredServices.h"
#include "platform/standard/ExceptionKeeper.h"

namespace platform {

/// The client side of GATT as the radios here share it: the order of requests, one in flight at a time and
/// exactly one answer to each, and what was discovered. A radio derives its handles from it and says how a
/// request is carried out. Main thread only.
class ZOK_EXPORT StandardPeripheral : public CBPeripheral,
                                      public std::enable_shared_from_this<StandardPeripheral> {
public:
    std::shared_ptr<CBPeripheralDelegate> delegate() const override { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        delegate_ = std::move(delegate);
    }
    const std::optional<std::vector<std::shared_ptr<CBService>>>& services() const override {
        return discovered_.services();
    }
    void discoverServices(std::span<const CBUUID> serviceUUIDs) override;
    void discoverCharacteristicsForService(std::span<const CBUUID> characteristicUUIDs,
                                           const std::shared_ptr<CBService>& service) override;
    void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) override;
    void writeValueForCharacteristicType(std::span<const std::uint8_t> value,
                                         const std::shared_ptr<CBCharacteristic>& characteristic,
                                         CBCharacteristicWriteType type) override;
    void setNotifyValueForCharacteristic(bool enabled,
                                         const std::shared_ptr<CBCharacteristic>& characteristic) override;
    void readRSSI() override;

protected:
    /// What went wrong with a request, if anything did.
    using Outcome = std::optional<NSError>;
    using UUIDs = std::vector<CBUUID>;

    // How the radio carries out requests. Each gives its outcome through `done`, at once or later. After the
    // end of the link, and when it has been called, `done` does nothing.

    using Done = std::function<void(const Outcome&)>;
    using ReadDone = std::function<void(const Outcome&, std::span<const std::uint8_t> value)>;
    using RSSIDone = std::function<void(const Outcome&, NSNumber rssi)>;

    /// The table of the peripheral's services.
    virtual Outcome listServices(UUIDs& table) = 0;
    /// The table of a service's characteristics.
    virtual Outcome listCharacteristics(std::size_t service, UUIDs& table) = 0;
    virtual void read(GATTPlace place, ReadDone done) = 0;
    virtual void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
                       Done done) = 0;
    virtual void setNotify(GATTPlace place, bool enabled, Done done) = 0;
    virtual void readSignalStrength(RSSIDone done) = 0;

    /// There is a request to be carried out next: calls `carryOutNext`, soon and through the run loop.
    virtual void prepareNext() = 0;
    void carryOutNext();
    bool hasRequests() const { return !requests_.empty(); }

    // What the radio tells of its link

    void linkCameUp();
    /// What is outstanding is answered. Requests that are made from now on have no answer.
    void linkEnded(ExceptionKeeper& exceptions);
    /// The link is gone, and nobody is told.
    void linkVanished();
    /// The value was notified: tells it if there is a subscription.
    void tellNotifiedValue(GATTPlace place, std::span<const std::uint8_t> value);
    const DiscoveredServices& discovered() const { return discovered_; }

private:
    struct Request {
        std::function<void(const Done& done)> carryOut;
        /// Tells the delegate the outcome; empty for a request without an answer.
        std::function<void(CBPeripheralDelegate&, const NSError*)> tell;
        std::uint64_t number = 0;
    };

    void send(Request request);
    void finish(std::uint64_t number, Outcome outcome);
    void answer(const Request& request, const Outcome& outcome);

    std::weak_ptr<CBPeripheralDelegate> delegate_;
    bool isLinked_ = false;
    DiscoveredServices discovered_;
    // The first is the one that is, or is next to be, carried out.
    std::deque<Request> requests_;
    std::uint64_t requestsMade_ = 0;
};

}  // namespace platform
