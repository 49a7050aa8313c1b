#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/bus/Bus.h"
#include "platform/bluez/controller/ControllerChannel.h"
#include "platform/bluez/service/AdapterChoice.h"
#include "platform/bluez/service/GATTObjects.h"
#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RadioCondition.h"

namespace zobi::platform::bluez {

/// A UUID as the service writes it; nothing for a text that is none.
std::optional<CBUUID> parseUUID(std::string_view text);

/// What the service says of a device on the air of our adapter.
struct Device {
    std::string path;
    /// The one in its path, by which it was first heard.
    DeviceAddress address;
    /// The one by which kernel and controller know its link: of a device that hides its address, the one that
    /// it tells when it is bonded.
    DeviceAddress linkAddress;
    /// The one that the service shows: advertised, or read over a connection.
    std::string name;
    bool isConnected = false;
    bool servicesResolved = false;
    /// It has two kinds of Bluetooth, and may be connected over the other one.
    bool mayUseOtherBearer = false;
    /// Nothing while it is not known, as the service has replaced them by those that it found over a link.
    std::optional<std::vector<CBUUID>> advertisedServices;
};

/// What one signal told of a device, after the device itself was brought up to date. Views, valid for the
/// length of the event.
struct DeviceChange {
    /// In dBm; 127 when the controller could not tell.
    std::optional<std::int16_t> rssi;
    /// Present when the signal had any: then the device was heard with it.
    std::optional<std::span<const CBServiceData>> serviceData;
    std::optional<std::string_view> name;
    bool hasConnected = false;
    bool hasServicesResolved = false;

    /// Whether the device was heard: a remembered property never comes in a signal with one of these.
    bool isSighting() const { return rssi || serviceData; }
};

/// Told of what happens at the Bluetooth service, through the run loop.
class BlueZServiceDelegate {
public:
    virtual ~BlueZServiceDelegate() = default;

    /// Devices, and with them every link, are gone unless it is powered on.
    virtual void serviceDidChangeCondition() = 0;
    /// See `BlueZService::isDiscovering`.
    virtual void discoveringDidChange() {}
    virtual void deviceDidAppear(const Device& device) = 0;
    virtual void deviceDidChange(const Device& device, const DeviceChange& change) = 0;
    /// BlueZ has forgotten the device.
    virtual void deviceDidVanish(const Device& device) = 0;
    /// The service tells why the link to a device ends, which newer versions do just before it does.
    virtual void deviceDidTellLinkEnd(const Device& /*device*/, const LinkEnd& /*end*/) {}
    virtual void characteristicDidChange(const Device& /*device*/, std::string_view /*path*/,
                                         std::span<const std::uint8_t> /*value*/) {}
    /// The service has no client left that is subscribed to the characteristic.
    virtual void characteristicDidStopNotifying(const Device& /*device*/, std::string_view /*path*/) {}
    /// BlueZ calls an object of this side. By default, the call is answered that there is none.
    virtual void serviceDidCall(const IncomingCall& call) { Bus::replyNoObject(call); }
};

/// The Bluetooth service as one client has it: the connection to the bus, the life of service and adapter,
/// and a mirror of the adapter's devices. It goes on looking for what is missing until it dies. Main thread
/// only.
class BlueZService final : public BusDelegate, public std::enable_shared_from_this<BlueZService> {
public:
    BlueZService(std::shared_ptr<const RadioContext> context, std::weak_ptr<BlueZServiceDelegate> delegate)
        : context_(std::move(context)), delegate_(std::move(delegate)) {}

    void start();

    const RadioCondition& condition() const { return condition_; }
    bool isPoweredOn() const { return condition_.kind == RadioCondition::Kind::poweredOn; }
    /// "hci0", for example; empty while there is no adapter.
    std::string adapterName() const;
    /// Whether the adapter scans, for whatever program.
    bool isDiscovering() const;
    /// Whether the service is not there, though the bus is.
    bool hasLeft() const { return bus_ && owner_.empty(); }
    /// The service's own name on the bus; empty while it does not run.
    const std::string& owner() const { return owner_; }
    /// Whether the service takes advertisement monitors for the adapter.
    bool takesMonitors() const;

    /// The device with this address; null while the service has none.
    const Device* device(const DeviceAddress& address) const;

    /// Calls an operation of the adapter, or of an object below it. Nothing happens without an adapter.
    [[nodiscard]] Slot callAdapter(const char* member, const std::function<void(Message&)>& append,
                                   Bus::Answer answer);
    [[nodiscard]] Slot call(const std::string& path, const char* interface, const char* member,
                            const std::function<void(Message&)>& append, Bus::Answer answer);
    /// The same, without an interest in the answer.
    void send(const std::string& path, const char* interface, const char* member);

    /// Has the device connected over Low Energy from then on.
    void preferLowEnergy(const Device& device);

    /// Asks whether the device is connected. If it is, which the service sometimes forgets to tell, that is a
    /// change of the device.
    [[nodiscard]] Slot checkConnected(const Device& device);

    /// Passes the GATT table of a connected device, in the order of its handles, to `answer`; an empty one if
    /// BlueZ exports none. BlueZ signals that services are resolved before it signals their objects; the
    /// answer comes after all of them.
    [[nodiscard]] Slot readTable(const Device& device,
                                 std::function<void(std::vector<RemoteService>)> answer);

    /// Sends the reply to a call of `serviceDidCall`.
    void send(const Message& reply);
    /// Signals to BlueZ that properties of an object of this side have changed. Nothing happens without a
    /// bus.
    void emitChange(const std::string& path, const char* interface, const Properties& changed);

    /// From now on, advertisements may gather before they are read: see `Bus::setLongestRest`. A pressed
    /// button is told within 50 ms all the same.
    void gatherAdvertisements();
    /// While somebody holds the result, they gather for a shorter time: what comes over a link comes among
    /// them.
    [[nodiscard]] std::shared_ptr<void> stayPrompt();

    void busDidReceiveSignal(const Signal& signal) override;
    void busDidReceiveCall(IncomingCall call) override;
    void busDidClose(const std::string& reason) override;

private:
    void openBus();
    void loseBus(const std::string& reason);
    double timeToReturn() const;
    void serviceHasGone();
    [[nodiscard]] Slot askBus(const char* member, const char* argument, Bus::Answer answer);
    void updateGathering();
    /// An answer may drop the last reference to this.
    Bus::Answer whileThisLives(Bus::Answer answer);
    void ownerIs(const std::string& owner);
    void reload();
    void load(MessageReader& objects);
    void loadingFailed(const std::string& why);
    void chooseAdapter();
    bool isChoiceDue() const;
    bool chooseAgain();
    void loseAdapter();
    void adapterChanged();
    void adapterStaysAway();
    void forgetObjects();
    void enter(const RadioCondition& condition);
    /// Calls `action` unless it is scheduled anew before.
    void afterDelay(double seconds, void (BlueZService::*action)());
    void answerIsLate();
    void askHowToStart();

    void interfacesAdded(MessageReader& body);
    void interfacesRemoved(MessageReader& body);
    void propertiesChanged(std::string_view path, MessageReader& body);
    void linkEndTold(Device& device, MessageReader& body);
    /// Reads the properties of an interface of a GATT object. Any other interface is passed over.
    void readGATTObject(std::string_view path, std::string_view interface, MessageReader& body);
    static bool readAdapter(Adapter& adapter, MessageReader& body);
    static void readMonitorManager(Adapter& adapter, MessageReader& body);
    DeviceChange readDevice(Device& device, MessageReader& body);
    void readServiceData(MessageReader& body);
    /// Null for a path that is no device's.
    Device* addDevice(std::string_view path);
    Device* deviceAt(std::string_view path);
    /// The one that the object at `path` belongs to.
    Device* deviceAbove(std::string_view path);

    [[nodiscard]] Slot getProperty(const Device& device, const char* name, Bus::Answer answer);

    // So that a text that is a view finds its device.
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    std::shared_ptr<const RadioContext> context_;
    std::weak_ptr<BlueZServiceDelegate> delegate_;
    std::shared_ptr<Bus> bus_;
    bool isGathering_ = false;
    std::weak_ptr<void> promptness_;
    RadioCondition condition_;
    /// The service's own name on the bus; empty while it does not run.
    std::string owner_;
    Adapters adapters_;
    /// The path of the one that is used; empty while there is none.
    std::string adapter_;
    std::string devicePrefix_;
    /// The path of the one that was used last.
    std::string lastAdapter_;
    std::unordered_map<std::string, Device, Hash, std::equal_to<>> devices_;
    GATTObjects gattObjects_;
    // Kept, so that reading a signal allocates nothing.
    std::vector<CBServiceData> serviceData_;
    std::vector<CBUUID> listedServices_;
    std::vector<Slot> opening_;
    bool isOpening_ = false;
    std::chrono::nanoseconds returnsUntil_{};
    Slot loading_;
    bool isLoading_ = false;
    std::string loadingTrouble_;
    std::shared_ptr<NSTimer> timer_;
};

}  // namespace zobi::platform::bluez
