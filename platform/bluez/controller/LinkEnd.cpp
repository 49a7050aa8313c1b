#include "platform/bluez/controller/LinkEnd.h"

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
    switch (reason) {
        case 0x08:  // connection timeout
            return timeout();
        case 0x13:  // remote user terminated connection
        case 0x14:  // low resources
        case 0x15:  // power off
            return peer();
        case 0x16:  // terminated by local host
            return local();
        default:
            return {LinkEnd::Cause::other, "The link has ended, for reason " + std::to_string(reason) +
                                               " of the Host Controller Interface."};
    }
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
