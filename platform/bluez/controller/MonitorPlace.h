#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluez/controller/AdvertisementPattern.h"

namespace zobi::platform::bluez {

/// The monitors that the kernel has for a controller, of all programs, by their handles.
struct MonitorUse {
    /// How many there can be.
    std::size_t most = 0;
    std::vector<std::uint16_t> handles = {};
    /// Those that no living process has recorded, as far as this one can see.
    std::vector<std::uint16_t> unrecorded = {};
};

/// Where the kernel holds the advertisement monitors of one scan. Main thread only.
class MonitorPlace {
public:
    MonitorPlace() = default;
    virtual ~MonitorPlace() = default;
    MonitorPlace(const MonitorPlace&) = delete;
    MonitorPlace& operator=(const MonitorPlace&) = delete;

    /// Why the monitors are not there; empty if they are.
    using Placed = std::function<void(const std::string& trouble)>;

    /// Adds monitors, as many as the kernel takes. Called once.
    /// @param placed called through the run loop, unless `remove` is called before.
    virtual void add(const std::vector<AdvertisementPattern>& patterns, Placed placed) = 0;
    /// Removes them. What the kernel does not remove at once is removed while the run loop runs.
    virtual void remove() = 0;
    /// Asks what there is already, before `add`, and waits for the answer. Nothing if the kernel does not
    /// tell within 200 ms.
    virtual std::optional<MonitorUse> use() = 0;
};

/// A place for monitors in the kernel, or why there is none.
struct OpenedPlace {
    /// Null for none.
    std::shared_ptr<MonitorPlace> place = nullptr;
    /// The end of a sentence.
    std::string why = "the kernel takes none of this process";
};

}  // namespace zobi::platform::bluez
