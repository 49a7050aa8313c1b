#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "ScriptedBus.h"
#include "ZobiConnectKit/simulation/BeaconDescription.h"
#include "zobi/platform/Clock.h"
#include "zobi/platform/simulation/ServiceDescription.h"

namespace zobi::platform::bluez {

inline const std::string firstAdapter = "/org/bluez/hci0";

/// A UUID as the service writes it.
std::string longForm(const CBUUID& uuid);

/// What becomes of the attempts to connect to a device in range.
enum class Attempts : std::uint8_t {
    succeed,
    /// The link comes up and fails to be established.
    breakOff,
    /// The controller's failure is lost on the way: the service waits for its own time limit.
    areSwallowed,
    succeedWithoutLink,
    areNeverResolved,
    areResolvedEmpty,
    /// They succeed, and the service forgets to tell that the device is connected.
    areNotTold,
};

/// A link of a device, or an attempt at one.
struct ScriptedLink {
    ScriptedBus::Call connect;
    /// When the controller finds the device at the earliest.
    std::chrono::nanoseconds from{};
    bool isUp = false;
    bool isResolved = false;
    std::vector<ScriptedBus::Call> disconnects = {};
    std::vector<ScriptedBus::Call> operations = {};
};

/// A device on the air, and how the service gets on with it.
struct ScriptedDevice {
    std::string address = "00:00:5E:00:53:02";
    std::string adapter = firstAdapter;
    /// The advertised name, and the one that is read over a link.
    std::string name = "morvane";
    std::string gapName = "Beacon 7";
    std::vector<std::string> uuids = {longForm(CBUUID::UUIDWithString("1320"))};
    Properties serviceData = {};
    std::int16_t rssi = -60;
    std::vector<simulation::ServiceDescription> services = zobi::beaconServices();
    bool isInRange = false;
    Attempts attempts = Attempts::succeed;
    // Kept by the service.
    std::shared_ptr<ScriptedLink> link = {};
    std::chrono::nanoseconds lastSeen = {};

    /// A characteristic as the service shows it.
    struct Shown {
        simulation::CharacteristicDescription& it;
        std::string path;
        CBUUID service;
        std::string servicePath;
    };

    std::string path() const;
    std::vector<Shown> characteristics();
    /// The first one with this UUID.
    Shown characteristic(const CBUUID& uuid);
    bool isLinked() const { return link && link->isUp; }
    bool isResolved() const { return link && link->isResolved; }
};

/// The value that has the name, or null.
template <typename Named>
auto* named(Named& all, std::string_view name) {
    const auto found = std::ranges::find_if(all, [&](const auto& entry) { return entry.first == name; });
    return found == all.end() ? nullptr : &found->second;
}

/// Plays the message bus and the Bluetooth service on it. It does what a real service does, in the order and
/// with the words of a real one, as long as no script says otherwise.
class ScriptedService final : public ScriptedBus {
public:
    using Interfaces = std::vector<std::pair<std::string, Properties>>;

    ScriptedService(RunLoop& runLoop, const Clock& clock);

    /// A version that tells why links end, and answers `Disconnect` when they have.
    bool isRecent = false;
    /// Somebody else discovers too, without any filter.
    bool othersDiscover = false;
    /// Told of the end of each link, with the controller's reason, before the service tells it.
    std::function<void(const ScriptedDevice&, std::uint8_t reason)> onLinkEnd = [](auto&, auto) {};
    Properties lastFilter;
    /// It lost the news that its scan has ended, and believes that it scans.
    bool believesThatItScans = false;
    /// It crashes at the first device that a filter with services lets through.
    bool endsAtServices = false;
    /// Keys of filters that its version does not know.
    std::vector<std::string> unknownKeys;
    /// How often its controller has begun or ended a scan.
    unsigned scanSwitches = 0;

    /// @name Its life
    /// @{

    void start();
    /// It ends in good order.
    void stop();
    void crash();

    /// @}
    /// @name Its objects
    /// @{

    void addObject(const std::string& path, Interfaces interfaces);
    /// With what is below it.
    void removeObjects(const std::string& path);
    /// Changes properties, and tells so.
    void change(const std::string& path, const std::string& interface, const Properties& changed,
                const std::vector<std::string>& invalidated = {});
    /// Its adapter takes advertisement monitors.
    void offerMonitors();
    void addAdapter(const std::string& path, const std::string& address);
    void removeAdapter(const std::string& path);
    void setPowered(bool isOn, const std::string& adapter = firstAdapter);
    bool isDiscovering(const std::string& adapter) const;
    /// Nothing is reported to anybody before the next start of a scan.
    void losesScan() {
        for (Client& client : clients_) client.isDeaf = true;
    }

    /// @}
    /// @name Devices
    /// @{

    /// It advertises each second when it is in range.
    ScriptedDevice& add(ScriptedDevice device);
    /// Another program connects to it.
    void connectByOther(ScriptedDevice& device);
    void endLink(ScriptedDevice& device, std::uint8_t reason);
    /// Somebody removes the device.
    void forget(ScriptedDevice& device);
    void setValue(ScriptedDevice& device, const CBUUID& uuid, const Bytes& value);

    /// @}

private:
    void perform(Client& client, const Call& call) override;
    void clientDidLeave(const Client& client) override;
    Properties* find(const std::string& path, const std::string& interface);

    bool isPowered(const std::string& adapter);
    void startDiscovery(Client& client, const Call& call);
    void discoveryEnded(const std::string& adapter);
    void report(ScriptedDevice& device);

    void beat(ScriptedDevice& device);
    void connect(ScriptedDevice& device, const Call& call);
    void disconnect(ScriptedDevice& device, const Call& call);
    void loseAttempt(ScriptedDevice& device, const char* why);
    void linkUp(ScriptedDevice& device);
    void resolve(ScriptedDevice& device);

    void operate(Client& client, ScriptedDevice& device, const Call& call);

    const Clock& clock_;
    std::map<std::string, Interfaces> tree_;
    std::list<ScriptedDevice> devices_;
    /// Of the last scan, whichever client's.
    Properties scanFilter_;
};

}  // namespace zobi::platform::bluez
