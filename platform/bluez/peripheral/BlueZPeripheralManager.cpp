#include "platform/bluez/peripheral/BlueZPeripheralManager.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <variant>

#include "platform/bluez/dbus/BlueZNames.h"
#include "platform/bluez/peripheral/PeripheralErrors.h"

namespace platform::bluez {

namespace {

// The service asks for our objects before it answers; a busy machine takes longer.
constexpr double answerDeadline = 10;
// The service takes 2 s to end a link.
constexpr double endDeadline = 5;

/// "00:00:5E:00:53:01" for ".../dev_00_00_5E_00_53_01".
std::string addressIn(std::string_view devicePath) {
    constexpr std::string_view prefix = "/dev_";
    const auto position = devicePath.rfind(prefix);
    if (position == std::string_view::npos) return {};
    std::string address(devicePath.substr(position + prefix.size()));
    std::ranges::replace(address, '_', ':');
    return address;
}

template <typename T>
T option(const Properties& options, std::string_view name, T otherwise) {
    const auto found = std::ranges::find(options, name, &Properties::value_type::first);
    const T* const value = found == options.end() ? nullptr : found->second.get<T>();
    return value ? *value : otherwise;
}

/// Whether the service went away instead of answering; that is told by itself.
bool tellsEndOfService(const BusError& error) {
    static constexpr std::array names{
        "org.freedesktop.DBus.Error.NoReply", "org.freedesktop.DBus.Error.ServiceUnknown",
        "org.freedesktop.DBus.Error.NameHasNoOwner", "org.freedesktop.DBus.Error.Disconnected"};
    return std::ranges::find(names, error.name) != names.end();
}

bool tellsThatItExists(const BusError& error) {
    return error.name == "org.bluez.Error.AlreadyExists";
}

}  // namespace

BlueZPeripheralManager::BlueZPeripheralManager(RadioContext context, std::vector<LocalService> services,
                                               std::weak_ptr<PeripheralManagerDelegate> delegate)
    : context_(std::move(context)), objects_(std::move(services)), delegate_(std::move(delegate)) {}

BlueZPeripheralManager::~BlueZPeripheralManager() {
    for (const auto& timer : {callTimer_, endTimer_}) {
        if (timer) timer->invalidate();
    }
}

void BlueZPeripheralManager::start() {
    const auto context = std::make_shared<RadioContext>(context_);
    context->openBus = [weakSelf = weak_from_this(), open = context_.openBus](const auto& busContext) {
        auto bus = open(busContext);
        bus->setCallee(weakSelf);
        if (const auto self = weakSelf.lock()) self->bus_ = bus;
        return bus;
    };
    service_ = std::make_shared<BlueZService>(context, weak_from_this());
    service_->start();
}

CBManagerState BlueZPeripheralManager::state() const {
    return service_ ? stateOf(service_->availability()) : CBManagerState::unknown;
}

std::string BlueZPeripheralManager::advice() const {
    return service_ ? adviceFor(service_->availability(), context_.adapter) : std::string();
}

void BlueZPeripheralManager::serviceDidChangeAvailability() {
    const Availability availability = service_->availability();
    isAnnounced_ = false;
    if (availability == Availability::poweredOn) {
        // The application outlives the power, and so may the advertisement.
        told_.reset();
        isRefused_ = false;
    } else {
        calling_.reset();
        isCalling_ = false;
        if (callTimer_) callTimer_->invalidate();
        centralsAreGone();
        const bool isOff = availability == Availability::poweredOff || availability == Availability::blocked;
        if (!isOff) forgetRegistrations();
    }
    if (const auto delegate = delegate_.lock()) delegate->peripheralManagerDidUpdateState(*this);
    proceed();
}

void BlueZPeripheralManager::forgetRegistrations() {
    hasApplication_ = false;
    hasAdvertisement_ = false;
    const auto subscribed = std::exchange(subscribed_, {});
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    for (const std::string& path : subscribed) {
        delegate->peripheralManagerDidChangeSubscription(*this, *objects_.place(path), false);
    }
}

// Advertising

void BlueZPeripheralManager::startAdvertising(LocalAdvertisement advertisement) {
    wanted_ = std::move(advertisement);
    isRefused_ = false;
    proceedSoon();
}

void BlueZPeripheralManager::stopAdvertising() {
    wanted_.reset();
    isAnnounced_ = false;
    proceedSoon();
}

bool BlueZPeripheralManager::isAdvertising() const {
    return isAnnounced_;
}

void BlueZPeripheralManager::proceedSoon() {
    context_.runLoop.dispatchAsync([weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->proceed();
    });
}

void BlueZPeripheralManager::proceed() {
    if (isCalling_) return;
    if (!isPoweredOn()) return endIfDone();
    if (!wanted_ || isRefused_) {
        if (hasAdvertisement_) return unregisterAdvertisement();
        return endIfDone();
    }
    if (!hasApplication_ && !objects_.isEmpty()) return registerApplication();
    if (!hasAdvertisement_) return registerAdvertisement();
    if (told_ != wanted_ && !changeAdvertisement()) return unregisterAdvertisement();
    const auto delegate = delegate_.lock();
    if (!std::exchange(isAnnounced_, true) && delegate) {
        delegate->peripheralManagerDidStartAdvertising(*this, nullptr);
    }
}

bool BlueZPeripheralManager::changeAdvertisement() {
    // The service tells of a failure only when an advertisement is registered.
    if (!told_ || told_->interval != wanted_->interval || sizeOf(*wanted_) > packetSize) return false;
    const Properties before = propertiesOf(*told_);
    const Properties after = propertiesOf(*wanted_);
    using Property = Properties::value_type;
    if (!std::ranges::equal(before, after, {}, &Property::first, &Property::first)) return false;
    Properties changed;
    std::ranges::copy_if(after, std::back_inserter(changed), [&](const Property& property) {
        return std::ranges::find(before, property) == before.end();
    });
    told_ = wanted_;
    emitChange(advertisementPath, advertisementInterface, changed);
    return true;
}

void BlueZPeripheralManager::registerApplication() {
    callManager(gattManagerInterface, "RegisterApplication", applicationPath, true,
                &BlueZPeripheralManager::applicationRegistered);
}

void BlueZPeripheralManager::registerAdvertisement() {
    told_ = wanted_;
    callManager(advertisingManagerInterface, "RegisterAdvertisement", advertisementPath, true,
                &BlueZPeripheralManager::advertisementRegistered);
}

void BlueZPeripheralManager::unregisterAdvertisement() {
    callManager(advertisingManagerInterface, "UnregisterAdvertisement", advertisementPath, false,
                &BlueZPeripheralManager::advertisementUnregistered);
}

void BlueZPeripheralManager::callManager(const char* interface, const char* member, const char* path,
                                         bool hasOptions, Done done) {
    const auto finish = [weakSelf = weak_from_this(), done](const BusError* error) {
        const auto self = weakSelf.lock();
        if (!self) return;
        self->callTimer_->invalidate();
        self->calling_.reset();
        self->isCalling_ = false;
        (self.get()->*done)(error);
        self->proceed();
    };
    isCalling_ = true;
    callTimer_ = context_.runLoop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        answerDeadline,
        [finish](const auto& /*timer*/) {
            const BusError error{"", "It gives no answer"};
            finish(&error);
        },
        nullptr, false);
    calling_ = service_->call(
        "/org/bluez/" + service_->adapterName(), interface, member,
        [&](Message& message) {
            message.objectPath(path);
            if (hasOptions) message.properties({});
        },
        [finish](MessageReader& /*reply*/, const BusError* error) { finish(error); });
}

void BlueZPeripheralManager::applicationRegistered(const BusError* error) {
    hasApplication_ = !error || tellsThatItExists(*error);
    if (hasApplication_) return;
    isRefused_ = true;
    if (!tellsEndOfService(*error)) advertisingFailed(errorOfServing(*error));
}

void BlueZPeripheralManager::advertisementRegistered(const BusError* error) {
    hasAdvertisement_ = !error || tellsThatItExists(*error);
    if (!error) return;
    const bool isStillWanted = told_ == wanted_;
    const LocalAdvertisement refused = *std::exchange(told_, std::nullopt);
    if (hasAdvertisement_ || !isStillWanted) return;
    isRefused_ = true;
    if (!tellsEndOfService(*error)) advertisingFailed(errorOfAdvertising(*error, refused));
}

void BlueZPeripheralManager::advertisementUnregistered(const BusError* error) {
    hasAdvertisement_ = false;
    told_.reset();
    // If the service has none, all the better. Otherwise it would refuse another one too.
    if (!error || error->name == "org.bluez.Error.DoesNotExist" || !wanted_ || isRefused_) return;
    isRefused_ = true;
    if (!tellsEndOfService(*error)) advertisingFailed(errorOfServing(*error));
}

void BlueZPeripheralManager::advertisingFailed(const NSError& error) {
    isAnnounced_ = false;
    if (const auto delegate = delegate_.lock()) delegate->peripheralManagerDidStartAdvertising(*this, &error);
}

// Centrals

void BlueZPeripheralManager::deviceDidChange(Device& device, const DeviceChange& change) {
    if (!change.hasConnected) return;
    if (!device.isConnected) return centralIsGone(device.path);
    if (hasAdvertisement_) centralIsThere(device.path);
}

void BlueZPeripheralManager::deviceDidVanish(Device& device) {
    centralIsGone(device.path);
}

const std::string& BlueZPeripheralManager::centralIsThere(const std::string& path) {
    const auto [central, isNew] = centrals_.emplace(path, addressIn(path));
    const auto delegate = delegate_.lock();
    if (isNew && delegate) delegate->peripheralManagerDidConnectCentral(*this, central->second);
    return central->second;
}

void BlueZPeripheralManager::centralIsGone(const std::string& path) {
    const auto node = centrals_.extract(path);
    if (node.empty()) return;
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralManagerDidDisconnectCentral(*this, node.mapped());
    }
    endIfDone();
}

void BlueZPeripheralManager::centralsAreGone() {
    while (!centrals_.empty()) centralIsGone(std::string(centrals_.begin()->first));
}

void BlueZPeripheralManager::disconnectCentrals() {
    for (const auto& [path, address] : centrals_) service_->send(path, deviceInterface, "Disconnect");
}

void BlueZPeripheralManager::notify(GATTPlace place, std::span<const std::uint8_t> value) {
    const std::string path = LocalObjects::characteristicPath(place);
    if (!subscribed_.contains(path)) return;
    emitChange(path, gattCharacteristicInterface, {{"Value", Bytes(value.begin(), value.end())}});
}

// The end

void BlueZPeripheralManager::end(std::function<void()> ended) {
    ended_ = std::move(ended);
    disconnectCentrals();
    stopAdvertising();
    endTimer_ = context_.runLoop.scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        endDeadline,
        [weakSelf = weak_from_this()](const auto& /*timer*/) {
            const auto self = weakSelf.lock();
            if (self && self->ended_) std::exchange(self->ended_, nullptr)();
        },
        nullptr, false);
}

void BlueZPeripheralManager::endIfDone() {
    const bool isDone = !isPoweredOn() || (!isCalling_ && !hasAdvertisement_ && centrals_.empty());
    if (!ended_ || wanted_ || !isDone) return;
    endTimer_->invalidate();
    std::exchange(ended_, nullptr)();
}

// Calls

void BlueZPeripheralManager::busDidReceiveCall(IncomingCall call) {
    if (call.interface == objectManagerInterface && call.path == applicationPath) return answerObjects(call);
    if (call.interface == propertiesInterface && call.member == "GetAll") return answerProperties(call);
    if (call.interface == advertisementInterface && call.path == advertisementPath) {
        // The service is about to end, or its adapter is. What follows tells by itself when it is back.
        hasAdvertisement_ = false;
        return reply(Bus::makeReply(call));
    }
    const auto place = objects_.place(call.path);
    if (place && call.interface == gattCharacteristicInterface) {
        if (call.member == "ReadValue") return answerRead(call, *place);
        if (call.member == "WriteValue") return answerWrite(call, *place);
        if (call.member == "StartNotify") return changeSubscription(call, *place, true);
        if (call.member == "StopNotify") return changeSubscription(call, *place, false);
    }
    Bus::replyError(call, {unknownMethodError, "There is no such operation."});
}

void BlueZPeripheralManager::answerObjects(const IncomingCall& call) const {
    Message message = Bus::makeReply(call);
    reply(message.objects(objects_.objects()));
}

void BlueZPeripheralManager::answerProperties(const IncomingCall& call) const {
    Properties properties;
    const ManagedObject* const object = objects_.find(call.path);
    if (object) properties = object->interfaces.front().second;
    if (call.path == advertisementPath && told_) properties = propertiesOf(*told_);
    Message message = Bus::makeReply(call);
    reply(message.properties(properties));
}

void BlueZPeripheralManager::answerRead(const IncomingCall& call, GATTPlace place) {
    const Properties options = MessageReader(call.message.get()).properties();
    const std::string central = centralIn(options);
    const std::size_t offset = option<std::uint16_t>(options, "offset", 0);
    const auto delegate = delegate_.lock();
    if (!delegate) return Bus::replyError(call, busErrorOf({CBATTError::unlikelyError, "Nobody answers."}));
    const auto answer = delegate->peripheralManagerDidReceiveRead(*this, place, central);
    if (const auto* const error = std::get_if<NSError>(&answer))
        return Bus::replyError(call, busErrorOf(*error));
    const auto& value = std::get<Bytes>(answer);
    if (offset > value.size()) return Bus::replyError(call, busErrorOf(invalidOffsetError()));
    Message message = Bus::makeReply(call);
    reply(message.bytes(std::span(value).subspan(offset)));
}

void BlueZPeripheralManager::answerWrite(const IncomingCall& call, GATTPlace place) {
    MessageReader body(call.message.get());
    const auto value = body.bytes();
    const Properties options = body.properties();
    const std::string central = centralIn(options);
    if (option<std::uint16_t>(options, "offset", 0) > 0) {
        return Bus::replyError(call, busErrorOf(invalidOffsetError()));
    }
    const auto delegate = delegate_.lock();
    if (!delegate) return Bus::replyError(call, busErrorOf({CBATTError::unlikelyError, "Nobody answers."}));
    const auto error = delegate->peripheralManagerDidReceiveWrite(*this, place, value, central);
    if (error) return Bus::replyError(call, busErrorOf(*error));
    reply(Bus::makeReply(call));
}

void BlueZPeripheralManager::changeSubscription(const IncomingCall& call, GATTPlace place,
                                                bool isSubscribed) {
    reply(Bus::makeReply(call));
    const bool hasChanged =
        isSubscribed ? subscribed_.emplace(call.path).second : subscribed_.erase(std::string(call.path)) > 0;
    const auto delegate = delegate_.lock();
    if (hasChanged && delegate) {
        delegate->peripheralManagerDidChangeSubscription(*this, place, isSubscribed);
    }
}

std::string BlueZPeripheralManager::centralIn(const Properties& options) {
    const auto path = option<ObjectPath>(options, "device", {});
    // A link that was there before is told of by the first request over it.
    return path.text.empty() ? std::string() : centralIsThere(path.text);
}

void BlueZPeripheralManager::emitChange(const std::string& path, const char* interface,
                                        const Properties& changed) {
    const auto bus = bus_.lock();
    if (!bus) return;
    Message message = bus->makeSignal(path, propertiesInterface, "PropertiesChanged");
    bus->send(message.string(interface).properties(changed).strings({}));
}

void BlueZPeripheralManager::reply(const Message& message) const {
    if (const auto bus = bus_.lock()) bus->send(message);
}

}  // namespace platform::bluez
