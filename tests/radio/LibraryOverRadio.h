#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ManagerRecorder.h"
#include "RadioBench.h"

/// The library over each radio under test: an application that monitors whenever Bluetooth is on.
class LibraryOverRadio : public ::testing::TestWithParam<RadioUnderTest> {
protected:
    LibraryOverRadio() { application->monitors = true; }

    bool heard(const std::string& event, std::size_t count = 1);
    Events takeEvents() { return application->takeEvents(); }
    /// Waits until the beacon is live.
    std::shared_ptr<ZOKBeacon> range();
    /// Waits until the beacon is live and connected.
    std::shared_ptr<ZOKBeacon> connect();

    std::unique_ptr<RadioBench> bench = GetParam().makeBench();
    zobi::platform::Platform& platform = bench->platform();
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
    std::shared_ptr<ManagerRecorder> application = ManagerRecorder::of(manager, &platform);
};
