#include "platform/bluez/diagnosis/Conditions.h"

#include <algorithm>
#include <array>
#include <vector>

#include "platform/bluez/diagnosis/Surroundings.h"

namespace zobi::platform::bluez {

namespace {

using Kind = RadioCondition::Kind;

constexpr const char* adapterRemedy =
    "Plug one in, or look for its driver and firmware: dmesg | grep -i bluetooth";

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
    return all;
}

}  // namespace

RadioCondition busIsMissing() {
    return {Kind::noService, "The system bus cannot be reached.",
            "See that D-Bus runs and lets this user in; in a container, share "
            "/run/dbus/system_bus_socket."};
}

RadioCondition serviceIsMissing(bool canBeStarted) {
    if (!canBeStarted && !hasServiceInstalled()) {
        return {Kind::noService, "The Bluetooth service is not installed.",
                "Install the package bluez, on the machine whose system bus this is."};
    }
    if (!hasKernelBluetooth()) {
        return {
            Kind::noAdapter,
            "The Bluetooth service does not run, and the kernel has not met an adapter, for which it waits.",
            adapterRemedy};
    }
    return {Kind::noService, "The Bluetooth service is installed but does not run.",
            "Start it, now and with the machine: systemctl enable --now bluetooth"};
}

RadioCondition accessIsRefused(const std::string& message) {
    // Groups are for the bus's own policy, which each kind of bus words as it likes.
    static constexpr std::array otherPolicies{"AppArmor", "SELinux"};
    const bool isOfBus = std::ranges::none_of(
        otherPolicies, [&](const char* policy) { return message.find(policy) != std::string::npos; });
    if (!isOfBus) {
        return {Kind::unauthorized,
                "A policy does not let this user reach the Bluetooth service: " + message + '.',
                "Have that policy allow it."};
    }
    return {Kind::unauthorized,
            "The policy of the system bus does not let this user reach the Bluetooth service.",
            "Add the user to the group bluetooth and log in anew, or run as root."};
}

RadioCondition serviceIsSilent() {
    return {Kind::resetting, "The Bluetooth service does not list its objects.",
            "Look at its log, and restart it: systemctl restart bluetooth"};
}

RadioCondition controllerDoesNotScan() {
    return {Kind::deaf, "The Bluetooth service says that it scans, and the controller does not.",
            "Restart the service: systemctl restart bluetooth"};
}

RadioCondition radioIsGone() {
    return {Kind::resetting, "The Bluetooth service or the adapter is gone, or does not answer.",
            "Waiting for its return."};
}

RadioCondition adapterIsMissing(const Adapters& adapters, const std::string& wanted) {
    std::vector<std::string> others;
    for (const auto& [path, adapter] : adapters) {
        others.push_back(std::string(adapterName(path)) + " (" + adapter.address + ')');
    }
    if (!others.empty()) {
        return {Kind::noAdapter, "There is no Bluetooth adapter " + wanted + '.',
                "Choose among those that there are: " + joined(others) + '.'};
    }
    const std::vector<std::string> inKernel = kernelAdapters();
    if (!inKernel.empty()) {
        return {
            Kind::noAdapter, "The kernel has " + joined(inKernel) + ", the Bluetooth service has no adapter.",
            "Look for another program that holds it for itself, for firmware that it lacks (dmesg | grep -i "
            "bluetooth), and for ControllerMode = bredr in /etc/bluetooth/main.conf."};
    }
    // Many switches of laptops take the adapter off its bus.
    const BlockSwitch blockSwitch = readBlockSwitchOfMachine();
    if (blockSwitch != BlockSwitch::open) {
        return {Kind::noAdapter, "There is no Bluetooth adapter, and a switch of the machine blocks it.",
                adapterIsBlocked("", blockSwitch).remedy};
    }
    return {Kind::noAdapter, "There is no Bluetooth adapter.", adapterRemedy};
}

RadioCondition adapterIsBlocked(const std::string& name, BlockSwitch blockSwitch) {
    if (blockSwitch == BlockSwitch::soft) {
        return {Kind::blocked, name + " is blocked by software.", "Unblock it: rfkill unblock bluetooth"};
    }
    return {Kind::blocked, name + " is blocked by a switch of the machine.",
            "Look for a switch or a key with an aeroplane or a Bluetooth sign, or for a setting of the "
            "firmware."};
}

RadioCondition lowEnergyIsMissing(const std::string& name, bool isOff) {
    if (!isOff) {
        return {Kind::noAdapter, name + " cannot listen to Low Energy devices.", "Use another adapter."};
    }
    return {
        Kind::noAdapter, name + " could listen to Low Energy devices, which is switched off.",
        "In /etc/bluetooth/main.conf, set ControllerMode = dual in place of bredr, or take the line away; "
        "then restart the service: systemctl restart bluetooth"};
}

BlockSwitch blockSwitchOf(const Adapter& adapter, const std::string& name) {
    const BlockSwitch blockSwitch = readBlockSwitch(name);
    return blockSwitch == BlockSwitch::open && adapter.isBlocked ? BlockSwitch::soft : blockSwitch;
}

RadioCondition conditionOfAdapter(const Adapters& adapters, std::string_view path) {
    const Adapter& adapter = adapters.find(path)->second;
    if (adapter.isPowered) return {.kind = Kind::poweredOn};
    const std::string name(adapterName(path));
    const BlockSwitch blockSwitch = blockSwitchOf(adapter, name);
    if (blockSwitch != BlockSwitch::open) return adapterIsBlocked(name, blockSwitch);
    // Among several, bluetoothctl chooses by itself.
    return {Kind::poweredOff, "The Bluetooth adapter is off.",
            adapters.size() == 1 ? "Turn it on: bluetoothctl power on"
                                 : "Turn it on: busctl set-property org.bluez " + std::string(path) +
                                       " org.bluez.Adapter1 Powered b true"};
}

CBManagerState stateOf(RadioCondition::Kind kind) {
    switch (kind) {
        case Kind::noService:
        case Kind::noAdapter:
            return CBManagerState::unsupported;
        case Kind::unauthorized:
            return CBManagerState::unauthorized;
        case Kind::poweredOff:
        case Kind::blocked:
            return CBManagerState::poweredOff;
        case Kind::poweredOn:
        case Kind::deaf:
            return CBManagerState::poweredOn;
        case Kind::resetting:
            return CBManagerState::resetting;
        case Kind::unknown:
            break;
    }
    return CBManagerState::unknown;
}

}  // namespace zobi::platform::bluez
