// A running scan follows the application between foreground and background.

#include "ZobiConnectKit/ZobiConnectKit.h"

void ZOKManager::observeApplication() {
    const auto restart = [self = shared_from_this()](const zobi::platform::NSNotification& /*notification*/) {
        self->restartMonitoringIfRunning();
    };
    zobi::platform::NSNotificationCenter& center = platform_.notificationCenter();
    center.addObserverForNameObjectUsingBlock(zobi::platform::UIApplicationDidBecomeActiveNotification,
                                              nullptr, restart);
    center.addObserverForNameObjectUsingBlock(zobi::platform::UIApplicationDidEnterBackgroundNotification,
                                              nullptr, restart);
}

void ZOKManager::restartMonitoringIfRunning() {
    if (!monitoring_) return;
    stopMonitoring();
    startMonitoring();
}
