#include "zobi/platform/RadioCondition.h"

namespace zobi::platform {

RadioCondition RadioCondition::ofState(CBManagerState state) {
    switch (state) {
        case CBManagerState::poweredOn:
            return {.kind = Kind::poweredOn};
        case CBManagerState::poweredOff:
            return {Kind::poweredOff, "Bluetooth is off.", "Turn it on."};
        case CBManagerState::unsupported:
            return {Kind::noAdapter, "There is no Bluetooth that can be used.", "Connect an adapter."};
        case CBManagerState::unauthorized:
            return {Kind::unauthorized, "This program may not use Bluetooth.",
                    "Give it, or its user, the permission."};
        case CBManagerState::resetting:
            return {Kind::resetting, "Bluetooth is gone, or does not answer.", "Wait for its return."};
        case CBManagerState::unknown:
            break;
    }
    return {};
}

}  // namespace zobi::platform
