#include "zobi/platform/simulation/Advertisement.h"

#include <utility>

namespace zobi::platform::simulation {

Advertisement::Advertisement(std::optional<std::string> localName, std::vector<ServiceData> serviceData)
    : localName_(std::move(localName)), serviceData_(std::move(serviceData)) {
    views_.reserve(serviceData_.size());
    for (const ServiceData& element : serviceData_) views_.push_back({element.service, element.data});
}

}  // namespace zobi::platform::simulation
