#pragma once

#include "ScriptedService.h"
#include "platform/bluez/RadioContext.h"
#include "platform/bluez/controller/ControllerChannel.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {

/// Knows of each link what a test tells it. It is opened again each time the radio is turned on.
class ScriptedChannel final : public ControllerChannel {
public:
    explicit ScriptedChannel(RunLoop& runLoop) : runLoop_(runLoop) {}

    bool isOpen() const override { return false; }
    LowEnergy lowEnergy() const override { return energy; }
    void watchLink(const DeviceAddress& device) override { ends_.erase(device); }
    std::optional<LinkEnd> takeLinkEnd(const DeviceAddress& device) override;
    std::optional<bool> isIncomingLink(const DeviceAddress& device) const override;
    std::optional<unsigned> scanSwitches() const override { return countScanSwitches(); }
    void readRSSI(const DeviceAddress& device, std::function<void(std::optional<int>)> answer) override;

    void tellLinkEnd(const std::string& address, std::uint8_t reason, bool isRandom = false);

    LowEnergy energy = LowEnergy::on;
    std::function<std::optional<unsigned>()> countScanSwitches = [] { return std::nullopt; };
    bool answersRSSI = true;
    std::optional<int> rssi = -61;
    /// Whose signal strength was asked for last.
    std::string measured;
    /// Answers the last request for a signal strength, also once more.
    std::function<void()> answerRSSI;
    /// Who asked for links, as far as that is known.
    std::map<std::string, bool> incomingLinks;

private:
    RunLoop& runLoop_;
    std::map<DeviceAddress, LinkEnd> ends_;
};

/// Writes down which monitors a process has in the kernel.
class ScriptedMonitors final : public MonitorPlace {
public:
    ScriptedMonitors(std::vector<std::string>& events, std::optional<MonitorUse> use)
        : events_(events), use_(std::move(use)) {}

    void add(const std::vector<AdvertisementPattern>& patterns, Placed placed) override;
    void remove() override { events_.emplace_back("removed"); }
    std::optional<MonitorUse> use() override { return use_; }

    /// Tells that they are there, or why not.
    Placed tell;

private:
    std::vector<std::string>& events_;
    std::optional<MonitorUse> use_;
};

/// A machine without hardware: its bus, its Bluetooth service and its controller are played, its time is
/// virtual.
class ScriptedPlatform : public StandardPlatform {
    std::shared_ptr<ServiceFaults> faults_ = std::make_shared<ServiceFaults>();

public:
    ScriptedPlatform();
    ~ScriptedPlatform() override { clear(); }

    /// What a radio of this machine stands on.
    /// @param adapter which adapter it is to use; empty for any.
    RadioContext context(const std::string& adapter = {});
    /// Which adapter the next central managers are to use; empty for any.
    std::string chosenAdapter;
    std::shared_ptr<ForeignLinks> foreignLinks = std::make_shared<ForeignLinks>();

    /// The way to the controller; null for none.
    std::shared_ptr<ScriptedChannel> channel = std::make_shared<ScriptedChannel>(runLoop());
    /// Whether the kernel takes monitors of this process, those that came last, and what became of all.
    bool mayPlaceMonitors = true;
    std::weak_ptr<ScriptedMonitors> monitors;
    std::vector<std::string> monitorEvents;
    std::optional<MonitorUse> monitorUse = MonitorUse{.most = 32};
    /// When the controller tells why a link has ended, in seconds after the service has told that it has.
    double reasonDelay = 0;
    /// Whether discovery can be started past the service, and how often it was.
    bool mayAdminister = false;
    int kernelDiscoveries = 0;
    /// What is logged.
    std::vector<std::string> lines;
    /// How many lines with this text were logged.
    std::ptrdiff_t linesWith(const std::string& text) const {
        return std::ranges::count_if(lines, [&](auto& line) { return line.find(text) != line.npos; });
    }
    ScriptedService service{runLoop(), clock()};

protected:
    std::shared_ptr<StandardCentral> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
};

}  // namespace zobi::platform::bluez
