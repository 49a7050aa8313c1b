#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSNumber.h"
#include "zobi/platform/standard/DiscoveredServices.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform {

/// The part of a GATT client that all radios share: it queues the requests, has one of them in progress at a
/// time, answers each exactly once, and keeps what was discovered. A radio derives its peripheral from it and
/// sends the requests. Main thread only.
///
/// The radio calls `linkCameUp`, and later `linkEnded` or `dropLink`. In between, `scheduleNextRequest` is
/// called whenever a request is waiting. The radio then calls `sendNextRequest` from a task or timer, and
/// that calls one of the functions from `listServices` to `readSignalStrength`, which returns the outcome or
/// calls its completion.
class ZOBI_EXPORT StandardPeripheral : public CBPeripheral,
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
    /// The outcome of a request: its error; absent for success.
    using Outcome = std::optional<NSError>;
    /// The UUIDs of all services or all characteristics, in the order of the peripheral.
    using UUIDs = std::vector<CBUUID>;

    /// @name Requests, which the radio sends
    ///
    /// The radio calls the completion once, at once or later, on the main thread. A completion does nothing
    /// when it is called again, or after the end of the link.
    /// @{

    /// Receives the outcome of a request.
    using Completion = std::function<void(const Outcome&)>;
    /// Receives the outcome of a read; without an error, the value, which is copied.
    using ReadCompletion = std::function<void(const Outcome&, std::span<const std::uint8_t> value)>;
    /// Receives the outcome of a reading of the signal strength; without an error, its value in dBm.
    using RSSICompletion = std::function<void(const Outcome&, NSNumber rssi)>;

    /// Appends the UUIDs of all services to `table`, which is empty.
    virtual Outcome listServices(UUIDs& table) = 0;
    /// Appends the UUIDs of all characteristics of the service at this index to `table`, which is empty.
    virtual Outcome listCharacteristics(std::size_t service, UUIDs& table) = 0;
    /// Reads the whole value of a characteristic.
    virtual void read(GATTPlace place, ReadCompletion completion) = 0;
    /// Writes a value. Without response, the completion is called when the next request may be sent.
    virtual void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
                       Completion completion) = 0;
    /// Subscribes to a characteristic, or unsubscribes.
    virtual void setNotify(GATTPlace place, bool enabled, Completion completion) = 0;
    /// Reads the signal strength of the link.
    virtual void readSignalStrength(RSSICompletion completion) = 0;

    /// A request is waiting: calls `sendNextRequest` soon, from the run loop, never from inside this call.
    virtual void scheduleNextRequest() = 0;
    /// Sends the first of the requests. There must be one: see `hasRequests`.
    void sendNextRequest();
    /// Whether a request is waiting or in progress.
    bool hasRequests() const { return !requests_.empty(); }

    /// @}
    /// @name Events of the link, which the radio reports
    /// @{

    /// The link is up: clears what was discovered over the last one, and accepts requests.
    void linkCameUp();
    /// The link has ended: answers all requests with `CBError::notConnected`, and accepts no more. The
    /// exceptions of the delegate are kept in `exceptions`.
    void linkEnded(ExceptionKeeper& exceptions);
    /// The link has ended, but the delegate must not be told: drops the requests without an answer.
    void dropLink();
    /// A value was notified: passes it to the delegate if it is subscribed to the characteristic.
    void deliverNotification(GATTPlace place, std::span<const std::uint8_t> value);
    /// The services and characteristics that were discovered.
    const DiscoveredServices& discovered() const { return discovered_; }

    /// @}

private:
    struct Request {
        std::function<void(const Completion& completion)> send;
        /// Passes the outcome to the delegate; empty for a request without an answer.
        std::function<void(CBPeripheralDelegate&, const NSError*)> report;
        std::uint64_t number = 0;
    };

    void enqueue(Request request);
    void finish(std::uint64_t number, Outcome outcome);
    void answer(const Request& request, const Outcome& outcome);

    std::weak_ptr<CBPeripheralDelegate> delegate_;
    bool isLinked_ = false;
    DiscoveredServices discovered_;
    // The first is in progress, or the next to be sent.
    std::deque<Request> requests_;
    std::uint64_t requestsMade_ = 0;
};

}  // namespace zobi::platform
