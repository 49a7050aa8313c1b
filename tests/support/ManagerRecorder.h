#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"

using Events = std::vector<std::string>;

/// Writes down what the library tells, in its order: delegate, broadcasts and completions. It makes sure that
/// the manager passes itself along.
class ManagerRecorder : public ZOKManagerDelegate {
public:
    using Beacon = std::shared_ptr<ZOKBeacon>;

    /// Becomes the manager's delegate, and hears the broadcasts of the platform, if there is one.
    static std::shared_ptr<ManagerRecorder> of(const std::shared_ptr<ZOKManager>& manager,
                                               zobi::platform::Platform* platform = nullptr);

    /// Whether it monitors whenever Bluetooth is turned on.
    bool monitors = false;
    /// All but the reports of ranged beacons.
    Events events;
    std::vector<std::vector<Beacon>> reports;
    /// The actions among the events, each with its record.
    std::vector<std::pair<int, Beacon>> buttons;
    /// The record of the last event, and the last signal strength.
    std::weak_ptr<ZOKBeacon> lastRecord;
    zobi::platform::NSNumber lastSignal;
    /// Called at each event, before it is written down.
    std::function<void(const std::string& event)> onEvent = [](const auto& /*event*/) {};
    /// Called before the report is kept, to show whether it is a snapshot.
    std::function<void()> onReport = [] {};

    /// The events since the last call. Reports and actions go too.
    Events takeEvents();
    /// A completion that writes down that it was called.
    ZOKBeaconCompletion completion(const std::string& name);

protected:
    ManagerRecorder() = default;
    void note(const std::string& event, const Beacon& beacon);
    void noteEnd(const std::string& event, const Beacon& beacon, const zobi::platform::NSError* error);
};
