#include "platform/bluez/central/AdvertisementMonitor.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/controller/AdvertisementPattern.h"
#include "platform/bluez/service/ReportRate.h"

namespace zobi::platform::bluez {

namespace {

// The kernel takes 32, of all programs together. A service of 16 bits needs 5.
constexpr std::size_t mostMonitors = 16;

constexpr double answerDeadline = 10;
// The library restarts its scan within milliseconds.
constexpr double lingering = 1.5;
// What was refused or released is tried again after so long, and later and later if it does not last.
constexpr double shortestRest = 2;
constexpr double longestRest = 60;

std::vector<ManagedObject> objectsFor(const std::vector<CBUUID>& services, const std::string& parent) {
    std::vector<ManagedObject> objects;
    for (auto& patterns : monitorsOf(patternsOf(services), mostMonitors)) {
        // Without thresholds, BlueZ calls the object for reports between two scans alone. The sampling period
        // is for controllers that hold monitors themselves: each advertisement.
        const Properties properties{{"Type", monitorType},
                                    {"RSSISamplingPeriod", std::uint16_t{0}},
                                    {"Patterns", std::move(patterns)}};
        const std::string path = parent + '/' + std::to_string(objects.size());
        objects.push_back({path, {{monitorInterface, properties}}});
    }
    return objects;
}

}  // namespace

AdvertisementMonitor::~AdvertisementMonitor() {
    removeFromKernel();
}

void AdvertisementMonitor::start(const std::vector<CBUUID>& services) {
    cancel(rest_);
    resume(services);
}

void AdvertisementMonitor::resume(const std::vector<CBUUID>& services) {
    cancel(linger_);
    wanted_ = services;
    advance();
}

void AdvertisementMonitor::stop() {
    cancel(linger_);
    wanted_.reset();
    advance();
}

void AdvertisementMonitor::stopSoon() {
    if (!wanted_ || linger_) return;
    linger_ = context_->after(lingering, shared_from_this(), &AdvertisementMonitor::stop);
}

void AdvertisementMonitor::forget() {
    wanted_.reset();
    cancel(linger_);
    cancel(rest_);
    delay_ = 0;
    // A service that lives on would keep them at the adapter.
    if (std::exchange(isRegistered_, false)) callManager("UnregisterMonitor", nullptr);
    call_.cancel();
    removeFromKernel();
}

bool AdvertisementMonitor::isIdle() const {
    return !place_ && std::ranges::all_of(leaving_, [](const auto& place) { return place.expired(); });
}

void AdvertisementMonitor::cancel(std::shared_ptr<NSTimer>& timer) {
    if (timer) std::exchange(timer, nullptr)->invalidate();
}

void AdvertisementMonitor::advance() {
    if (call_.isPending()) return;
    const bool isReleased = isRegistered_ && !isStanding_;
    if (isPlaced() && (wanted_ != services_ || (isReleased && !rest_))) {
        removeFromKernel();
        if (isRegistered_) return unregisterObjects();
    }
    if (!wanted_ || linger_ || isPlaced() || rest_) return;
    services_ = *wanted_;
    placedAt_ = context_->clock.monotonicTime();
    if (service_->takesMonitors()) return registerObjects();
    askKernel("the service takes no advertisement monitors");
}

// At BlueZ

void AdvertisementMonitor::callManager(const char* member, Bus::Answer answer) {
    call_.start(shared_from_this(), context_->runLoop, answerDeadline, "it does not answer",
                std::move(answer), [&](Bus::Answer answered) {
                    return service_->call(
                        "/org/bluez/" + adapter_, monitorManagerInterface, member,
                        [this](Message& message) { message.objectPath(path_); }, std::move(answered));
                });
}

void AdvertisementMonitor::registerObjects() {
    adapter_ = service_->adapterName();
    path_ = "/monitors/" + adapter_;
    objects_ = objectsFor(services_, path_);
    isActive_ = false;
    // BlueZ calls the objects before it answers.
    isRegistered_ = isStanding_ = true;
    callManager("RegisterMonitor",
                [this](MessageReader& /*reply*/, const BusError* error) { registered(error); });
}

void AdvertisementMonitor::registered(const BusError* error) {
    if (error && error->name == "org.bluez.Error.AlreadyExists") return unregisterObjects();
    // Without an answer, they may be there.
    if (error) isRegistered_ = error->name.empty();
    // The scan may have become another meanwhile, or ended.
    if (!error || isRegistered_ || wanted_ != services_ || linger_) return advance();
    askKernel("the service refuses advertisement monitors (" + error->message + ')');
    if (!place_) restAndRetry();
}

void AdvertisementMonitor::unregisterObjects() {
    // BlueZ releases them now.
    isStanding_ = false;
    callManager("UnregisterMonitor", [this](MessageReader& /*reply*/, const BusError* error) {
        isRegistered_ = false;
        if (error && wanted_) restAndRetry();
        advance();
    });
}

void AdvertisementMonitor::serviceDidCall(const IncomingCall& call) {
    if (call.interface == objectManagerInterface && call.path == path_) {
        Message message = Bus::makeReply(call);
        return service_->send(message.objects(objects_));
    }
    if (call.interface != monitorInterface) return Bus::replyNoObject(call);
    // BlueZ asks for no reply, at each device that it finds.
    if (Bus::expectsReply(call)) service_->send(Bus::makeReply(call));
    // Those at an adapter that was used before are released late.
    if (call.path.substr(0, call.path.rfind('/')) != path_) return;
    if (call.member == "Release" && std::exchange(isStanding_, false)) {
        restAndRetry();
        if (delay_ > shortestRest)
            tellRate("the service releases its advertisement monitors again and again");
    }
    if (call.member == "Activate" && !std::exchange(isActive_, true)) onActive_();
}

// In the kernel

void AdvertisementMonitor::askKernel(const std::string& why) {
    auto [opened, obstacle] = context_->openMonitorPlace(service_->adapterName(), service_->owner());
    place_ = std::move(opened);
    if (!place_) return tellRate(why + ", and " + obstacle);
    place_->add(patternsOf(services_),
                [weakSelf = weak_from_this(), place = place_.get()](const std::string& trouble) {
                    const auto self = weakSelf.lock();
                    if (self && self->place_.get() == place) self->placed(trouble);
                });
}

void AdvertisementMonitor::placed(const std::string& trouble) {
    if (trouble.empty()) return onActive_();
    tellRate(trouble);
    removeFromKernel();
    restAndRetry();
}

void AdvertisementMonitor::removeFromKernel() {
    const auto place = std::exchange(place_, nullptr);
    if (!place) return;
    place->remove();
    std::erase_if(leaving_, [](const auto& former) { return former.expired(); });
    leaving_.push_back(place);
}

// Without them

void AdvertisementMonitor::restAndRetry() {
    // What has stood for long is not what fails each time.
    const std::chrono::duration<double> stood = context_->clock.monotonicTime() - placedAt_;
    if (stood.count() > longestRest) delay_ = 0;
    delay_ = std::clamp(2 * delay_, shortestRest, longestRest);
    cancel(rest_);
    rest_ = context_->after(delay_, shared_from_this(), &AdvertisementMonitor::restIsOver);
}

void AdvertisementMonitor::restIsOver() {
    rest_ = nullptr;
    advance();
}

void AdvertisementMonitor::tellRate(const std::string& why) {
    const std::string text = limitedRateText(why) + ' ' + remedyForRate();
    if (std::exchange(told_, service_->adapterName() + text) == service_->adapterName() + text) return;
    context_->log.message("Bluetooth: %@", text);
}

}  // namespace zobi::platform::bluez
