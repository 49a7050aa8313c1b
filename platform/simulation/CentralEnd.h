#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/standard/DiscoveredServices.h"

namespace zobi::platform::simulation {

/// The central's end of a link to a simulated device, or of an attempt to connect to one: what the device
/// tells it. Main thread only.
class ZOBI_EXPORT CentralEnd {
public:
    CentralEnd() = default;
    virtual ~CentralEnd();
    CentralEnd(const CentralEnd&) = delete;
    CentralEnd& operator=(const CentralEnd&) = delete;

    /// To an attempt: the device is in range and has no link. The attempt proceeds.
    virtual void deviceBecameFree() = 0;
    /// To an attempt: the device is out of range or has a link. The attempt waits.
    virtual void deviceCeasedToBeFree() = 0;

    /// To a link: the device is out of range. It answers no requests.
    virtual void deviceFellSilent() = 0;
    /// To a link: the device is in range again.
    virtual void deviceIsHeardAgain() = 0;
    /// To a link: the device ends it.
    /// @param error what the central reports; absent for an end as if the application had asked for it.
    virtual void deviceEndedLink(const std::optional<NSError>& error) = 0;
    /// To a link: a value was set or generated. The central is notified if it has subscribed to it.
    /// @param place where the characteristic is among the services of the device.
    /// @param value the bytes, valid during the call.
    virtual void valueChanged(GATTPlace place, std::span<const std::uint8_t> value) = 0;

    /// To a link and to an attempt: the device is being destroyed. Nobody is told.
    virtual void deviceIsGone() = 0;
};

}  // namespace zobi::platform::simulation
