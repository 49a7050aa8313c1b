#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/MainQueue.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/NSNumber.h"
#include "zobi/platform/standard/DiscoveredServices.h"

namespace zobi::platform {

/// What all radios' peripherals share: the attempt to connect, the link, and the requests over it. It keeps
/// the promises of `CBPeripheral` and, together with `StandardCentral`, those of `CBCentralManager`. A radio
/// derives its peripheral from it, carries out what the hooks ask for, and tells what happens. Main thread
/// only.
///
/// The requests are queued, and one of them is in progress at a time: `sendNextRequest` calls one of the
/// functions from `listServices` to `readSignalStrength`, which returns the outcome or calls its completion.
/// A hook does not throw.
class ZOBI_EXPORT StandardPeripheral : public CBPeripheral,
                                       public std::enable_shared_from_this<StandardPeripheral> {
public:
    /// The outcome of a request, or the end of a link: its error; absent for success, and for an end that
    /// this central manager has asked for.
    using Outcome = std::optional<NSError>;

    CBPeripheralState state() const override;
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

    /// @name Events, which the radio tells
    ///
    /// Each is told from a task or a timer of the run loop, or from inside a hook. One that no longer fits is
    /// ignored: the end of a link that has ended, for example.
    /// @{

    /// The attempt has succeeded: a link is up. Clears what was discovered over the last one, and accepts
    /// requests.
    void linkCameUp();
    /// The attempt has failed.
    void attemptFailed(const NSError& error);
    /// The link has ended: answers all requests with `CBError::notConnected`, and then reports the end. One
    /// that the application has asked for is reported without the error.
    void linkEnded(const Outcome& error);
    /// The link is ending, and `linkEnded` will follow: nothing more is sent. For a radio that hears of the
    /// end first and of its reason later.
    void linkIsEnding();
    /// A value was notified: passes it to the delegate if it is subscribed to the characteristic.
    void deliverNotification(GATTPlace place, std::span<const std::uint8_t> value);
    /// The peripheral, or the system, has ended the subscription to the characteristic: tells so, if there
    /// was one. Not for one that ends with the link.
    void subscriptionEnded(GATTPlace place, const NSError& error);
    /// The device is gone together with all that would be told of it: with a simulated world, for example.
    /// Nobody is told of the end of the attempt or the link.
    void abandon();

    /// @}
    /// @name What the central manager does
    /// @{

    /// Belongs to `central` from now on, whose delegate is `delegate` and whose turns are tasks of `queue`.
    void adopt(std::weak_ptr<CBCentralManager> central, std::weak_ptr<CBCentralManagerDelegate> delegate,
               MainQueue& queue);
    /// Whether it belongs to `central`.
    bool belongsTo(const CBCentralManager& central) const { return central_.lock().get() == &central; }
    /// A request to connect is on its way to `connect` or `refuseConnect`.
    void announceConnect() { ++announcedConnects_; }
    /// Begins an attempt, joins the one that is pending, or reports the link that is up once more.
    /// @param order sequence number of the request: at power-off, attempts and links end in this order.
    void connect(std::uint64_t order);
    /// The attempt fails before it has begun.
    void refuseConnect(const NSError& error);
    /// Ends the attempt or the link, if there is one.
    void cancel();
    /// The radio is off: the attempt fails, or the link ends.
    void loseRadio(const NSError& error);
    /// Whether there is neither an attempt nor a link.
    bool isIdle() const { return phase_ == Phase::idle; }
    /// What is asked for in a turn.
    using Turn = std::function<void(StandardPeripheral& self)>;
    /// Calls `turn` in a task of its own, after the turns that were asked for before. While a link is ending,
    /// turns wait.
    void takeTurn(Turn turn);
    /// The sequence number of the last attempt.
    std::uint64_t order() const { return order_; }
    /// Whether it was reported in this scan.
    bool wasReportedIn(std::uint64_t scan) const { return lastReportedInScan_ == scan; }
    /// It is being reported in this scan.
    void noteReport(std::uint64_t scan) { lastReportedInScan_ = scan; }
    /// Its last report does not count: the next one is the first of its scan.
    void forgetReport() { lastReportedInScan_ = 0; }
    /// What the log calls the device: its address.
    virtual std::string addressText() const = 0;

    /// @}

protected:
    /// The UUIDs of all services or all characteristics, in the order of the peripheral.
    using UUIDs = std::vector<CBUUID>;

    /// @name The attempt and the link, which the radio makes and ends
    /// @{

    /// Tries to connect, for as long as it takes, until `linkCameUp` or `attemptFailed` is called, or
    /// `dropConnection` calls it off.
    virtual void beginAttempt() = 0;
    /// Ends the attempt or the link at once, as far as there is still something to end: the attempt was
    /// cancelled, the radio is off, or the central manager is gone. No event of it may follow later.
    virtual void dropConnection() = 0;
    /// Ends the link, as it was cancelled; `linkEnded` is to follow. A radio whose links
    /// are down at once need not override this: `dropConnection` is called, and the end is told.
    virtual void endLink();

    /// @}
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

    /// A request is waiting. Calls `sendNextRequest` from a task of its own; a radio that sends it later,
    /// from a timer, overrides this.
    virtual void scheduleNextRequest();
    /// Sends the first of the requests. Does nothing if none is waiting, or the link is ending.
    void sendNextRequest();
    /// Whether a request is waiting or in progress.
    bool hasRequests() const { return !requests_.empty(); }
    /// The services and characteristics that were discovered.
    const DiscoveredServices& discovered() const { return discovered_; }

    /// @}

private:
    /// Ending: the end of the link was asked for or heard of. Ended: it is being told.
    enum class Phase : std::uint8_t { idle, pending, linked, ending, ended };

    class Finish;
    struct Request {
        std::function<void(const Finish& finish)> send;
        /// Passes the outcome to the delegate; empty for a request without an answer.
        std::function<void(CBPeripheralDelegate&, const NSError*)> report;
        std::uint64_t number = 0;
        bool isSent = false;
    };

    bool isLinked() const { return phase_ == Phase::linked || phase_ == Phase::ending; }
    void reportConnection();
    void reportFailure(const NSError& error);
    void reportEnd(const Outcome& error);
    void finishLink(const Outcome& error);
    void scheduleTurn();
    void takeNextTurn();
    void takeWaitingTurns();
    void stopNotifying();
    void enqueue(Request request);
    bool isAwaited(std::uint64_t number) const;
    void finish(Outcome outcome);
    void answer(const Request& request, const NSError* error);

    std::weak_ptr<CBCentralManager> central_;
    std::weak_ptr<CBCentralManagerDelegate> centralDelegate_;
    MainQueue* queue_ = nullptr;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    Phase phase_ = Phase::idle;
    /// The application has asked for the end of the link.
    bool isEndWanted_ = false;
    std::size_t announcedConnects_ = 0;
    std::uint64_t order_ = 0;
    std::uint64_t lastReportedInScan_ = 0;
    std::deque<Turn> turns_;
    DiscoveredServices discovered_;
    // The first is in progress, or the next to be sent.
    std::deque<Request> requests_;
    std::uint64_t requestsMade_ = 0;
};

}  // namespace zobi::platform
