#include "platform/bluez/service/Availability.h"

namespace zobi::platform::bluez {

CBManagerState stateOf(Availability availability) {
    switch (availability) {
        case Availability::starting:
            return CBManagerState::unknown;
        case Availability::noBus:
        case Availability::noService:
        case Availability::noAdapter:
            return CBManagerState::unsupported;
        case Availability::refused:
            return CBManagerState::unauthorized;
        case Availability::poweredOff:
        case Availability::blocked:
            return CBManagerState::poweredOff;
        case Availability::poweredOn:
            return CBManagerState::poweredOn;
        case Availability::restarting:
            return CBManagerState::resetting;
    }
    return CBManagerState::unknown;
}

std::string troubleOf(Availability availability, const std::string& adapter) {
    switch (availability) {
        case Availability::noBus:
            return "The system bus cannot be reached.";
        case Availability::noService:
            return "The Bluetooth service does not run.";
        case Availability::refused:
            return "The policy of the system bus does not let this user reach the Bluetooth service.";
        case Availability::noAdapter:
            return "There is no Bluetooth adapter" + (adapter.empty() ? "" : ' ' + adapter) + '.';
        case Availability::poweredOff:
            return "The Bluetooth adapter is off.";
        case Availability::blocked:
            return "The Bluetooth adapter is blocked.";
        case Availability::restarting:
            return "The Bluetooth service or the adapter is gone, or does not answer.";
        case Availability::starting:
        case Availability::poweredOn:
            break;
    }
    return {};
}

std::string remedyFor(Availability availability, const std::string& adapter) {
    switch (availability) {
        case Availability::noBus:
            return "See that D-Bus runs and lets this user in; in a container, share "
                   "/run/dbus/system_bus_socket.";
        case Availability::noService:
            return "Install the package bluez and start it: systemctl start bluetooth";
        case Availability::refused:
            return "Add the user to the group bluetooth and log in anew, or run as root.";
        case Availability::noAdapter:
            return adapter.empty()
                       ? "Plug one in, or look for its driver and firmware: dmesg | grep -i bluetooth"
                       : "Those that there are: bluetoothctl list";
        case Availability::poweredOff:
            return "Turn it on: bluetoothctl power on";
        case Availability::blocked:
            return "Unblock it: rfkill unblock bluetooth, or the machine's own switch.";
        case Availability::restarting:
            return "Waiting for its return.";
        case Availability::starting:
        case Availability::poweredOn:
            break;
    }
    return {};
}

std::string adviceFor(Availability availability, const std::string& adapter) {
    const std::string trouble = troubleOf(availability, adapter);
    return trouble.empty() ? trouble : trouble + ' ' + remedyFor(availability, adapter);
}

}  // namespace zobi::platform::bluez
