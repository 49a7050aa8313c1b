// A running scan follows the application between foreground and background.

#include "ZobiConnectKit/ZobiConnectKit.h"

void ZOKManager::observeApplication() {
    const auto restart = [self = shared_from_this()](const platform::NSNotification& /*notification*/) {
        self->restartMonitoringIfRunning();
    };
    platform::NSNotificationCenter& center = platform_.notificationCenter();
    center.addObserverForNameObjectUsingBlock(platform::UIApplicationDidBecomeActiveNotification, nullptr,
                                              restart);
    center.addObserverForNameObjectUsingBlock(platform::UIApplicationDidEnterBackgroundNotification, nullptr,
                                              restart);
}

void ZOKManager::restartMonitoringIfRunning() {
    if (!monitoring_) return;
    stopMonitoring();
    startMonitoring();
}
