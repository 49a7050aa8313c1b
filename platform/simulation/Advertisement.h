#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/simulation/DeviceDescription.h"

namespace zobi::platform::simulation {

/// The contents of one advertisement that a simulated device sends.
class ZOBI_EXPORT Advertisement {
public:
    /// An advertisement with this local name, if any, and these service data elements, in this order.
    Advertisement(std::optional<std::string> localName, std::vector<ServiceData> serviceData);
    Advertisement(const Advertisement&) = delete;
    Advertisement& operator=(const Advertisement&) = delete;

    /// The contents as a central manager reports them. The views are valid as long as this object.
    CBAdvertisementData data() const { return {localName_, views_}; }

private:
    std::optional<std::string> localName_;
    std::vector<ServiceData> serviceData_;
    std::vector<CBServiceData> views_;
};

}  // namespace zobi::platform::simulation
