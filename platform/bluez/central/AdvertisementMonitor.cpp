#include "platform/bluez/central/AdvertisementMonitor.h"

#include <cstdint>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/controller/AdvertisementPattern.h"
#include "platform/bluez/service/ReportRate.h"

namespace zobi::platform::bluez {

namespace {

constexpr const char* monitorsPath = "/monitors";

// The kernel takes 32, of all programs together. A service of 16 bits needs 5.
constexpr std::size_t mostMonitors = 16;

constexpr double answerDeadline = 10;
// What was refused or released is tried again after so long.
constexpr double rest = 60;

std::vector<ManagedObject> objectsFor(const std::vector<CBUUID>& services) {
    std::vector<ManagedObject> objects;
    for (auto& patterns : monitorsOf(patternsOf(services), mostMonitors)) {
        // Without thresholds, BlueZ calls the object for reports between two scans alone. The sampling period
        // is for controllers that hold monitors themselves: each advertisement.
        const Properties properties{{"Type", monitorType},
                                    {"RSSISamplingPeriod", std::uint16_t{0}},
                                    {"Patterns", std::move(patterns)}};
        const std::string path = std::string(monitorsPath) + '/' + std::to_string(objects.size());
        objects.push_back({path, {{monitorInterface, properties}}});
    }
    return objects;
}

}  // namespace

AdvertisementMonitor::~AdvertisementMonitor() {
    removeFromKernel();
}

void AdvertisementMonitor::start(const std::vector<CBUUID>& services) {
    wanted_ = services;
    advance();
}

void AdvertisementMonitor::stop() {
    wanted_.reset();
    advance();
}

void AdvertisementMonitor::forget() {
    wanted_.reset();
    isRegistered_ = false;
    call_.cancel();
    removeFromKernel();
    if (rest_) std::exchange(rest_, nullptr)->invalidate();
}

void AdvertisementMonitor::advance() {
    if (call_.isPending()) return;
    if (isPlaced() && wanted_ != services_) {
        removeFromKernel();
        if (isRegistered_) return unregisterObjects();
    }
    if (!wanted_ || isPlaced() || rest_) return;
    services_ = *wanted_;
    if (service_->takesMonitors()) return registerObjects();
    askKernel("the service takes no advertisement monitors");
}

// At BlueZ

void AdvertisementMonitor::callManager(const char* member, Bus::Answer answer) {
    call_.start(shared_from_this(), context_->runLoop, answerDeadline, "it does not answer",
                std::move(answer), [&](Bus::Answer answered) {
                    return service_->call(
                        "/org/bluez/" + service_->adapterName(), monitorManagerInterface, member,
                        [](Message& message) { message.objectPath(monitorsPath); }, std::move(answered));
                });
}

void AdvertisementMonitor::registerObjects() {
    objects_ = objectsFor(services_);
    standing_ = objects_.size();
    isActive_ = false;
    // BlueZ calls the objects before it answers.
    isRegistered_ = true;
    callManager("RegisterMonitor",
                [this](MessageReader& /*reply*/, const BusError* error) { registered(error); });
}

void AdvertisementMonitor::registered(const BusError* error) {
    if (error && error->name == "org.bluez.Error.AlreadyExists") return unregisterObjects();
    if (error) {
        // Without an answer, they may be there.
        isRegistered_ = error->name.empty();
        if (!isRegistered_ && wanted_) {
            return askKernel("the service refuses advertisement monitors (" + error->message + ')');
        }
    }
    advance();
}

void AdvertisementMonitor::unregisterObjects() {
    // BlueZ releases them now.
    standing_ = 0;
    callManager("UnregisterMonitor", [this](MessageReader& /*reply*/, const BusError* error) {
        isRegistered_ = false;
        if (error && wanted_) restAndRetry();
        advance();
    });
}

void AdvertisementMonitor::serviceDidCall(const IncomingCall& call) {
    const bool isForMonitor = call.interface == monitorInterface;
    if (call.interface == objectManagerInterface && call.path == monitorsPath) {
        Message message = Bus::makeReply(call);
        return service_->send(message.objects(objects_));
    }
    if (!isForMonitor) return Bus::replyNoObject(call);
    // BlueZ asks for no reply, at each device that it finds.
    if (Bus::expectsReply(call)) service_->send(Bus::makeReply(call));
    if (call.member == "Release") wasReleased();
    if (call.member == "Activate" && !std::exchange(isActive_, true)) onActive_();
}

void AdvertisementMonitor::wasReleased() {
    if (standing_ > 0 && --standing_ == 0) restAndRetry();
}

// In the kernel

void AdvertisementMonitor::askKernel(const std::string& why) {
    place_ = context_->openMonitorPlace(service_->adapterName(), service_->owner());
    if (!place_) return tellRate(why + ", and this process lacks the capability CAP_NET_ADMIN");
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
    if (const auto place = std::exchange(place_, nullptr)) place->remove();
}

// Without them

void AdvertisementMonitor::restAndRetry() {
    rest_ = context_->after(rest, shared_from_this(), &AdvertisementMonitor::restIsOver);
}

void AdvertisementMonitor::restIsOver() {
    rest_ = nullptr;
    // BlueZ keeps the path of objects that it has released.
    if (isRegistered_ && standing_ == 0 && !call_.isPending()) return unregisterObjects();
    advance();
}

void AdvertisementMonitor::tellRate(const std::string& why) {
    const std::string text = limitedRateText(why) + ' ' + remedyForRate();
    if (std::exchange(told_, service_->adapterName() + text) == service_->adapterName() + text) return;
    context_->log.message("Bluetooth: %@", text);
}

}  // namespace zobi::platform::bluez
