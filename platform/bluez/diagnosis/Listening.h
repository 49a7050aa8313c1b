#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZCentral.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/bluez/Diagnosis.h"

namespace zobi::platform::bluez {

/// What the figures of a hearing, which are complete, amount to.
Hearing::Verdict verdictOn(const Hearing& hearing);

/// The same for people, with the figures, and a finding for each linked device.
std::vector<Finding> findingsOf(const Hearing& hearing);

/// Scans for a time, and counts what the service signals of any device. Main thread only.
///
/// A central manager of this radio scans, so that the scan is that of a program. What is heard is counted
/// before its filters, over a connection to the bus of its own.
class Listening final : public BlueZServiceDelegate,
                        public CBCentralManagerDelegate,
                        public std::enable_shared_from_this<Listening> {
public:
    /// @param context what it refers to must outlive every call, though not the object.
    /// @param onEnd called once, after so many seconds of scanning, or when the radio cannot be used.
    Listening(const RadioContext& context, double seconds, std::function<void()> onEnd)
        : context_(std::make_shared<const RadioContext>(context)),
          seconds_(seconds),
          onEnd_(std::move(onEnd)) {}

    void start();
    /// What was heard until now.
    Hearing hearing() const;

    void serviceDidChangeCondition() override { conditionChanged(); }
    void deviceDidAppear(const Device& device) override;
    void deviceDidChange(const Device& device, const DeviceChange& change) override;
    void deviceDidVanish(const Device& device) override;
    void centralManagerDidUpdateState(CBCentralManager& /*central*/) override { conditionChanged(); }

private:
    using Time = std::chrono::nanoseconds;

    /// A device that was heard.
    struct Heard {
        std::string name;
        std::uint64_t advertisements = 0;
        Time first{};
        Time last{};
        Time longestGap{};
        std::optional<int> rssi;
    };

    Time now() const { return context_->clock.monotonicTime(); }
    std::optional<unsigned> scanSwitches() const;
    void conditionChanged();
    void beginScan();
    void end();

    std::shared_ptr<const RadioContext> context_;
    double seconds_;
    std::function<void()> onEnd_;
    std::shared_ptr<BlueZService> service_;
    std::shared_ptr<BlueZCentral> central_;
    std::shared_ptr<ControllerChannel> channel_;
    std::shared_ptr<NSTimer> timer_;
    /// When the scan began, and ended; nothing before.
    std::optional<Time> begun_;
    std::optional<Time> ended_;
    /// Of any device; at first, when the scan began.
    Time lastHeard_{};
    std::optional<unsigned> switchesWhenHeard_;
    std::optional<unsigned> switchesWhenBegun_;
    /// By the text of the address.
    std::map<std::string, Heard> heard_;
    std::map<std::string, std::string> linked_;
};

}  // namespace zobi::platform::bluez
