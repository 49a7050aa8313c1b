#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/CBCentralManager.h"
#include "platform/Export.h"
#include "platform/simulation/BeaconDescription.h"

namespace platform::simulation {

/// One advertisement as it stands on the air; it never changes.
class ZOK_EXPORT Advertisement {
public:
    Advertisement(std::optional<std::string> localName, std::vector<ServiceData> serviceData);
    Advertisement(const Advertisement&) = delete;
    Advertisement& operator=(const Advertisement&) = delete;

    /// As a central manager reports it: views, valid as long as the advertisement.
    CBAdvertisementData data() const { return {localName_, views_}; }

private:
    std::optional<std::string> localName_;
    std::vector<ServiceData> serviceData_;
    std::vector<CBServiceData> views_;
};

}  // namespace platform::simulation
