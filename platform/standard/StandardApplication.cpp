#include "zobi/platform/standard/StandardApplication.h"

#include <utility>

namespace zobi::platform {

StandardApplication::StandardApplication(NSNotificationCenter& notificationCenter)
    : notificationCenter_(notificationCenter) {}

UIApplicationState StandardApplication::applicationState() const {
    return state_;
}

void StandardApplication::setApplicationState(UIApplicationState state) {
    if (std::exchange(state_, state) == state) return;
    if (state == UIApplicationState::active) {
        notificationCenter_.postNotificationNameObjectUserInfo(UIApplicationDidBecomeActiveNotification,
                                                               nullptr, {});
    } else if (state == UIApplicationState::background) {
        notificationCenter_.postNotificationNameObjectUserInfo(UIApplicationDidEnterBackgroundNotification,
                                                               nullptr, {});
    }
}

}  // namespace zobi::platform
