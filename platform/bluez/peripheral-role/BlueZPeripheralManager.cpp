#include "platform/bluez/peripheral-role/BlueZPeripheralManager.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <variant>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/diagnosis/Conditions.h"
#include "platform/bluez/peripheral-role/PeripheralErrors.h"
#include "zobi/platform/bluez/BlueZPlatform.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::bluez {

namespace {

// The service asks for our objects before it answers; a busy machine takes longer.
constexpr double answerDeadline = 10;
// The service takes 2 s to end a link.
constexpr double endDeadline = 5;
// What makes BlueZ release an advertisement may make it release the next one too.
constexpr double rest = 5;

// In seconds.
constexpr double shortestInterval = 0.02;
constexpr double longestInterval = 10;

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

/// Whether BlueZ has ended, of which the change of the radio's condition tells.
bool tellsEndOfService(const BusError& error) {
    static constexpr std::array names{
        "org.freedesktop.DBus.Error.NoReply", "org.freedesktop.DBus.Error.ServiceUnknown",
        "org.freedesktop.DBus.Error.NameHasNoOwner", "org.freedesktop.DBus.Error.Disconnected"};
    return std::ranges::find(names, error.name) != names.end();
}

/// Whether there was no answer: BlueZ may have done what it was asked for, or may yet do it.
bool tellsNothing(const BusError& error) {
    return error.name.empty();
}

bool tellsThatItExists(const BusError& error) {
    return error.name == "org.bluez.Error.AlreadyExists";
}

void stop(std::shared_ptr<NSTimer>& timer) {
    if (const auto stopped = std::exchange(timer, nullptr)) stopped->invalidate();
}

void check(const LocalAdvertisement& advertisement) {
    if (advertisement.localName && !canBeSent(*advertisement.localName)) {
        throw std::invalid_argument("the name to advertise is no text");
    }
    const auto& interval = advertisement.interval;
    // Refuses an interval that is not a number, too.
    if (interval && !(*interval >= shortestInterval && *interval <= longestInterval)) {
        throw std::invalid_argument("nothing is advertised each " + std::to_string(*interval) + " s");
    }
}

}  // namespace

std::shared_ptr<PeripheralManager> PeripheralManager::makeOnPlatform(
    BlueZPlatform& platform, std::vector<LocalService> services,
    std::weak_ptr<PeripheralManagerDelegate> delegate) {
    auto manager = std::make_shared<BlueZPeripheralManager>(platform.context(), std::move(services),
                                                            std::move(delegate));
    platform.runLoop().dispatchAsync([manager] { manager->start(); });
    return manager;
}

BlueZPeripheralManager::BlueZPeripheralManager(RadioContext context, std::vector<LocalService> services,
                                               std::weak_ptr<PeripheralManagerDelegate> delegate)
    : context_(std::move(context)), objects_(std::move(services)), delegate_(std::move(delegate)) {}

BlueZPeripheralManager::~BlueZPeripheralManager() {
    for (auto* const timer : {&restTimer_, &shutDownTimer_}) stop(*timer);
}

void BlueZPeripheralManager::start() {
    service_ =
        std::make_shared<BlueZService>(std::make_shared<const RadioContext>(context_), weak_from_this());
    service_->start();
}

CBManagerState BlueZPeripheralManager::state() const {
    return service_ ? stateOf(service_->condition().kind) : CBManagerState::unknown;
}

std::string BlueZPeripheralManager::advice() const {
    return service_ ? service_->condition().advice() : std::string();
}

void BlueZPeripheralManager::serviceDidChangeCondition() {
    using Kind = RadioCondition::Kind;
    const Kind radio = service_->condition().kind;
    isAnnounced_ = false;
    stop(restTimer_);
    isSilent_ = false;
    probe_.reset();
    std::map<std::string, Link> ended;
    const auto end = [&](bool isKept) {
        for (auto link = links_.begin(); link != links_.end();) {
            const auto next = std::next(link);
            if (!isKept || link->second.isUncertain) ended.insert(links_.extract(link));
            link = next;
        }
    };
    if (radio == Kind::poweredOn) {
        // BlueZ keeps the application while the power is off, and perhaps the advertisement.
        told_.reset();
        isRefused_ = false;
        end(true);
    } else {
        call_.cancel();
        if (radio == Kind::resetting) {
            // They may outlast a service that is killed, and what this side loses of it.
            for (auto& [path, link] : links_) link.isUncertain = true;
        } else {
            end(false);
        }
        const bool isOff = radio == Kind::poweredOff || radio == Kind::blocked;
        isApplicationRegistered_ = isApplicationRegistered_ && isOff;
    }
    proceedSoon();
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    ExceptionKeeper exceptions;
    for (const auto& [path, link] : ended) {
        if (!link.isCentral) continue;
        const std::string central = addressIn(path);
        exceptions.run([&] { delegate->peripheralManagerDidDisconnectCentral(*this, central); });
    }
    exceptions.run([&] { delegate->peripheralManagerDidUpdateState(*this); });
    exceptions.rethrow();
}

// Advertising

void BlueZPeripheralManager::startAdvertising(LocalAdvertisement advertisement) {
    check(advertisement);
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
    if (call_.isPending() || isSilent_) return;
    if (!isPoweredOn()) return finishShutDownIfDone();
    if (!wanted_ || isRefused_) {
        if (isAdvertisementRegistered_) return unregisterAdvertisement();
        return finishShutDownIfDone();
    }
    if (!isApplicationRegistered_ && !objects_.isEmpty()) return registerApplication();
    if (!isAdvertisementRegistered_) {
        if (!restTimer_) registerAdvertisement();
        return;
    }
    if (told_ != wanted_ && !changeAdvertisement()) return unregisterAdvertisement();
    const auto delegate = delegate_.lock();
    if (!std::exchange(isAnnounced_, true) && delegate) {
        delegate->peripheralManagerDidStartAdvertising(*this, nullptr);
    }
}

bool BlueZPeripheralManager::changeAdvertisement() {
    // BlueZ reports a failure only when an advertisement is registered.
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
    service_->emitChange(advertisementPath, advertisementInterface, changed);
    return true;
}

void BlueZPeripheralManager::registerApplication() {
    callManager(gattManagerInterface, "RegisterApplication", applicationPath, true,
                &BlueZPeripheralManager::applicationRegistered);
}

void BlueZPeripheralManager::registerAdvertisement() {
    told_ = wanted_;
    isAdvertisementRegistered_ = true;
    callManager(advertisingManagerInterface, "RegisterAdvertisement", advertisementPath, true,
                &BlueZPeripheralManager::advertisementRegistered);
}

void BlueZPeripheralManager::unregisterAdvertisement() {
    callManager(advertisingManagerInterface, "UnregisterAdvertisement", advertisementPath, false,
                &BlueZPeripheralManager::advertisementUnregistered);
}

void BlueZPeripheralManager::callManager(const char* interface, const char* member, const char* path,
                                         bool hasOptions, Done done) {
    call_.start(
        shared_from_this(), context_.runLoop, answerDeadline, "It gives no answer",
        [this, done](MessageReader& /*reply*/, const BusError* error) {
            if (error && tellsNothing(*error)) {
                waitForAnswer();
            } else {
                proceedSoon();
            }
            (this->*done)(error);
        },
        [&](Bus::Answer answer) {
            return service_->call(
                adapterPath(), interface, member,
                [&](Message& message) {
                    message.objectPath(path);
                    if (hasOptions) message.properties({});
                },
                std::move(answer));
        });
}

/// Asks for nothing more until the service answers something. Then it is tried again.
void BlueZPeripheralManager::waitForAnswer() {
    isSilent_ = true;
    probe_ = service_->call(
        adapterPath(), propertiesInterface, "Get",
        [](Message& message) { message.string(adapterInterface).string("Powered"); },
        [this](MessageReader& /*reply*/, const BusError* /*error*/) {
            isSilent_ = false;
            isRefused_ = false;
            proceedSoon();
        });
}

void BlueZPeripheralManager::applicationRegistered(const BusError* error) {
    isApplicationRegistered_ = !error || tellsThatItExists(*error);
    if (!isApplicationRegistered_) {
        isRefused_ = true;
        if (!tellsEndOfService(*error)) advertisingFailed(errorOfServing(*error));
        return;
    }
    // If BlueZ still has the application, it has the subscriptions too.
    if (error) return;
    const auto subscribed = std::exchange(subscribed_, {});
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    ExceptionKeeper exceptions;
    for (const std::string& path : subscribed) {
        exceptions.run(
            [&] { delegate->peripheralManagerDidChangeSubscription(*this, *objects_.place(path), false); });
    }
    exceptions.rethrow();
}

void BlueZPeripheralManager::advertisementRegistered(const BusError* error) {
    if (!error) return;
    const bool isThere = tellsThatItExists(*error);
    isAdvertisementRegistered_ = isThere || tellsNothing(*error);
    const bool isStillWanted = told_ == wanted_;
    const LocalAdvertisement refused = *std::exchange(told_, std::nullopt);
    if (isThere || !isStillWanted) return;
    isRefused_ = true;
    if (!tellsEndOfService(*error)) advertisingFailed(errorOfAdvertising(*error, refused));
}

void BlueZPeripheralManager::advertisementUnregistered(const BusError* error) {
    isAdvertisementRegistered_ = error && tellsNothing(*error);
    told_.reset();
    // BlueZ that has none can register the next one. After any other error it would refuse that one too.
    if (!error || error->name == "org.bluez.Error.DoesNotExist" || !wanted_ || isRefused_) return;
    isRefused_ = true;
    if (!tellsEndOfService(*error)) advertisingFailed(errorOfServing(*error));
}

void BlueZPeripheralManager::advertisingFailed(const NSError& error) {
    isAnnounced_ = false;
    if (const auto delegate = delegate_.lock()) delegate->peripheralManagerDidStartAdvertising(*this, &error);
}

void BlueZPeripheralManager::advertisementReleased() {
    // A release during a call is about an advertisement that the call replaces.
    if (call_.isPending() || !isAdvertisementRegistered_) return;
    isAdvertisementRegistered_ = false;
    told_.reset();
    isAnnounced_ = false;
    stop(restTimer_);
    restTimer_ = context_.after(rest, shared_from_this(), &BlueZPeripheralManager::restIsOver);
    proceedSoon();
}

void BlueZPeripheralManager::restIsOver() {
    restTimer_.reset();
    proceed();
}

// Centrals

void BlueZPeripheralManager::deviceDidAppear(const Device& device) {
    // Links that were up before the state is powered on are not incoming, unless they were known as such.
    if (device.isConnected && !isPoweredOn()) links_[device.path].isUncertain = false;
}

void BlueZPeripheralManager::deviceDidChange(const Device& device, const DeviceChange& change) {
    if (!change.hasConnected) return;
    if (device.isConnected) return linkIsThere(device);
    linkIsGone(device.path);
}

void BlueZPeripheralManager::deviceDidVanish(const Device& device) {
    linkIsGone(device.path);
}

void BlueZPeripheralManager::linkIsThere(const Device& device) {
    const auto [link, isNew] = links_.try_emplace(device.path);
    if (!isNew || !isAdvertisementRegistered_) return;
    const auto channel = context_.openChannel(service_->adapterName());
    const auto isIncoming = channel ? channel->isIncomingLink(device.address) : std::nullopt;
    link->second.isIncoming = isIncoming.value_or(true);
    if (isIncoming == true) centralIsThere(device.path);
}

void BlueZPeripheralManager::linkIsGone(const std::string& path) {
    const auto node = links_.extract(path);
    if (node.empty() || !node.mapped().isCentral) return;
    proceedSoon();
    if (const auto delegate = delegate_.lock()) {
        delegate->peripheralManagerDidDisconnectCentral(*this, addressIn(path));
    }
}

std::string BlueZPeripheralManager::centralIsThere(const std::string& path) {
    std::string address = addressIn(path);
    const bool isNew = !std::exchange(links_[path].isCentral, true);
    // The central connected while the advertisement was being stopped.
    if (isNew && shutDownCompletion_ && links_[path].isOurs())
        service_->send(path, deviceInterface, "Disconnect");
    const auto delegate = delegate_.lock();
    if (isNew && delegate) delegate->peripheralManagerDidConnectCentral(*this, address);
    return address;
}

void BlueZPeripheralManager::disconnectCentrals() {
    for (const auto& [path, link] : links_) {
        if (link.isOurs()) service_->send(path, deviceInterface, "Disconnect");
    }
}

void BlueZPeripheralManager::notify(GATTPlace place, std::span<const std::uint8_t> value) {
    const std::string path = LocalObjects::characteristicPath(place);
    if (!isApplicationRegistered_ || !subscribed_.contains(path)) return;
    service_->emitChange(path, gattCharacteristicInterface, {{"Value", Bytes(value.begin(), value.end())}});
}

// The end

void BlueZPeripheralManager::shutDown(std::function<void()> completion) {
    shutDownCompletion_ = std::move(completion);
    disconnectCentrals();
    stopAdvertising();
    stop(shutDownTimer_);
    shutDownTimer_ = context_.after(endDeadline, shared_from_this(), &BlueZPeripheralManager::finishShutDown);
}

void BlueZPeripheralManager::finishShutDownIfDone() {
    const bool hasCentrals =
        std::ranges::any_of(links_, [](const auto& entry) { return entry.second.isOurs(); });
    if (!wanted_ && (!isPoweredOn() || !hasCentrals)) finishShutDown();
}

void BlueZPeripheralManager::finishShutDown() {
    stop(shutDownTimer_);
    if (const auto completion = std::exchange(shutDownCompletion_, nullptr)) completion();
}

// Calls

void BlueZPeripheralManager::serviceDidCall(const IncomingCall& call) {
    if (call.interface == objectManagerInterface && call.path == applicationPath) return answerObjects(call);
    if (call.interface == propertiesInterface && call.member == "GetAll") return answerProperties(call);
    if (call.interface == advertisementInterface && call.path == advertisementPath &&
        call.member == "Release") {
        service_->send(Bus::makeReply(call));
        return advertisementReleased();
    }
    const auto place = objects_.place(call.path);
    if (place && call.interface == gattCharacteristicInterface) {
        if (call.member == "ReadValue" || call.member == "WriteValue") return answerRequest(call, *place);
        if (call.member == "StartNotify") return changeSubscription(call, *place, true);
        if (call.member == "StopNotify") return changeSubscription(call, *place, false);
    }
    Bus::replyError(call, {unknownMethodError, "There is no such operation."});
}

void BlueZPeripheralManager::answerObjects(const IncomingCall& call) const {
    Message message = Bus::makeReply(call);
    service_->send(message.objects(objects_.objects()));
}

void BlueZPeripheralManager::answerProperties(const IncomingCall& call) const {
    Properties properties;
    const ManagedObject* const object = objects_.find(call.path);
    if (object) properties = object->interfaces.front().second;
    if (call.path == advertisementPath && told_) properties = propertiesOf(*told_);
    Message message = Bus::makeReply(call);
    service_->send(message.properties(properties));
}

void BlueZPeripheralManager::answerRequest(const IncomingCall& call, GATTPlace place) {
    try {
        call.member == "ReadValue" ? answerRead(call, place) : answerWrite(call, place);
    } catch (...) {
        Bus::replyError(call, busErrorOf({CBATTError::unlikelyError, "It failed."}));
        throw;
    }
}

void BlueZPeripheralManager::answerRead(const IncomingCall& call, GATTPlace place) {
    MessageReader body = call.arguments;
    const Properties options = body.properties();
    if (!body.isGood()) return Bus::replyError(call, invalidArgumentsError());
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
    service_->send(message.bytes(std::span(value).subspan(offset)));
}

void BlueZPeripheralManager::answerWrite(const IncomingCall& call, GATTPlace place) {
    MessageReader body = call.arguments;
    const auto value = body.bytes();
    const Properties options = body.properties();
    if (!body.isGood()) return Bus::replyError(call, invalidArgumentsError());
    const std::string central = centralIn(options);
    if (option<std::uint16_t>(options, "offset", 0) > 0) {
        return Bus::replyError(call, busErrorOf(invalidOffsetError()));
    }
    const auto delegate = delegate_.lock();
    if (!delegate) return Bus::replyError(call, busErrorOf({CBATTError::unlikelyError, "Nobody answers."}));
    const auto error = delegate->peripheralManagerDidReceiveWrite(*this, place, value, central);
    if (error) return Bus::replyError(call, busErrorOf(*error));
    service_->send(Bus::makeReply(call));
}

void BlueZPeripheralManager::changeSubscription(const IncomingCall& call, GATTPlace place,
                                                bool isSubscribed) {
    service_->send(Bus::makeReply(call));
    const bool hasChanged =
        isSubscribed ? subscribed_.emplace(call.path).second : subscribed_.erase(std::string(call.path)) > 0;
    const auto delegate = delegate_.lock();
    if (hasChanged && delegate) {
        delegate->peripheralManagerDidChangeSubscription(*this, place, isSubscribed);
    }
}

std::string BlueZPeripheralManager::centralIn(const Properties& options) {
    const auto path = option<ObjectPath>(options, "device", {});
    // The first request over a link that was up before reports its central.
    return path.text.empty() ? std::string() : centralIsThere(path.text);
}

}  // namespace zobi::platform::bluez
