#include "zobi/platform/standard/StandardNotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

namespace zobi::platform {

struct StandardNotificationCenter::Registration final : public Observer {
    Registration(std::string_view observedName, std::shared_ptr<void> observedObject, Block observingBlock)
        : name(observedName), object(std::move(observedObject)), block(std::move(observingBlock)) {}
    ~Registration() override;
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    bool concerns(std::string_view postedName, const std::shared_ptr<void>& postedObject) const {
        return !isRemoved && name == postedName && (object == nullptr || object == postedObject);
    }

    const std::string name;
    const std::shared_ptr<void> object;
    const Block block;
    std::atomic<bool> isRemoved = false;
};

StandardNotificationCenter::Registration::~Registration() = default;

StandardNotificationCenter::~StandardNotificationCenter() {
    clear();
}

NSNotificationCenter::Token StandardNotificationCenter::addObserverForNameObjectUsingBlock(
    std::string_view name, std::shared_ptr<void> object, Block block) {
    auto registration = std::make_shared<Registration>(name, std::move(object), std::move(block));
    const std::lock_guard lock(mutex_);
    auto changed = std::make_shared<Registrations>(*registrations_);
    changed->push_back(registration);
    registrations_ = std::move(changed);
    return registration;
}

void StandardNotificationCenter::removeObserver(const Token& observer) {
    // Dies after the lock is released: what the block holds may come back here when it goes.
    std::shared_ptr<const Registrations> previous;
    const std::lock_guard lock(mutex_);
    auto changed = std::make_shared<Registrations>();
    for (const auto& registration : *registrations_) {
        if (registration == observer) {
            registration->isRemoved = true;
        } else {
            changed->push_back(registration);
        }
    }
    previous = std::exchange(registrations_, std::move(changed));
}

void StandardNotificationCenter::postNotificationNameObjectUserInfo(std::string_view name,
                                                                    std::shared_ptr<void> object,
                                                                    NSUserInfo userInfo) {
    const std::shared_ptr<const Registrations> registrations = [&] {
        const std::lock_guard lock(mutex_);
        return registrations_;
    }();
    const NSNotification notification{name, std::move(object), std::move(userInfo)};
    for (const auto& registration : *registrations) {
        if (registration->concerns(name, notification.object)) registration->block(notification);
    }
}

void StandardNotificationCenter::clear() {
    std::shared_ptr<const Registrations> dropped = std::make_shared<Registrations>();
    const std::lock_guard lock(mutex_);
    for (const auto& registration : *registrations_) registration->isRemoved = true;
    registrations_.swap(dropped);
}

}  // namespace zobi::platform
