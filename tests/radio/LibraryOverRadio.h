#pragma once

#include "ManagerRecorder.h"
#include "RadioFixture.h"

/// The library over each radio under test: an application that monitors whenever Bluetooth is on.
class LibraryOverRadio : public RadioFixture {
protected:
    LibraryOverRadio() { application->monitors = true; }

    Events takeEvents() override { return application->takeEvents(); }
    const Events& events() const override { return application->events; }
    /// Waits until the beacon is live.
    std::shared_ptr<ZOKBeacon> range();
    /// Waits until the beacon is live and connected.
    std::shared_ptr<ZOKBeacon> connect();

    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
    std::shared_ptr<ManagerRecorder> application = ManagerRecorder::of(manager, &platform);
};
