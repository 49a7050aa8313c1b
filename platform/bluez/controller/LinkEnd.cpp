#include "platform/bluez/controller/LinkEnd.h"

#include "platform/bluez/controller/HCI.h"

namespace zobi::platform::bluez {

namespace {

LinkEnd timeout() {
    return {LinkEnd::Cause::timeout, "The connection has timed out."};
}

LinkEnd peer() {
    return {LinkEnd::Cause::peer, "The peripheral has ended the link."};
}

LinkEnd local() {
    return {LinkEnd::Cause::local,
            "Another program of this machine, or Bluetooth itself, has ended the link."};
}

}  // namespace

LinkEnd linkEndFromHCIReason(std::uint8_t reason) {
    switch (DisconnectionReason{reason}) {
        case DisconnectionReason::connectionTimeout:
            return timeout();
        case DisconnectionReason::integrityCheckFailed:
            return {LinkEnd::Cause::timeout, "The encrypted link was lost."};
        case DisconnectionReason::remoteUserTerminated:
        case DisconnectionReason::remoteLowResources:
        case DisconnectionReason::remotePowerOff:
            return peer();
        case DisconnectionReason::localHostTerminated:
            return local();
    }
    return {LinkEnd::Cause::other, "The link has ended, for reason " + std::to_string(reason) +
                                       " of the Host Controller Interface."};
}

LinkEnd linkEndFromManagementReason(std::uint8_t reason) {
    switch (reason) {
        case 1:
            return timeout();
        case 2:
        case 5:  // before the machine sleeps
            return local();
        case 3:
            return peer();
        default:
            return {LinkEnd::Cause::other, "The link has ended, for a reason that the kernel does not tell."};
    }
}

}  // namespace zobi::platform::bluez
