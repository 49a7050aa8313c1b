#include "platform/bluez/peripheral-role/PeripheralErrors.h"

#include <array>
#include <cstdio>
#include <string>

#include "platform/bluez/bus/ATTCodes.h"
#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/peripheral-role/LocalObjects.h"

namespace zobi::platform::bluez {

namespace {

// Those that profiles give a meaning of their own.
constexpr int firstApplicationError = 0x80;
constexpr int lastApplicationError = 0x9F;

const char* nameOf(int code) {
    switch (code) {
        case static_cast<int>(CBATTError::readNotPermitted):
        case static_cast<int>(CBATTError::writeNotPermitted):
            return "org.bluez.Error.NotPermitted";
        case static_cast<int>(CBATTError::requestNotSupported):
            return "org.bluez.Error.NotSupported";
        case invalidOffset:
            return "org.bluez.Error.InvalidOffset";
        case insufficientAuthorization:
            return "org.bluez.Error.NotAuthorized";
        case static_cast<int>(CBATTError::invalidAttributeValueLength):
            return "org.bluez.Error.InvalidValueLength";
        default:
            // Any name that the service does not know becomes "unlikely error".
            return "org.bluez.Error.Unlikely";
    }
}

/// What the service, the bus or the machine has against us, whatever was asked for; empty for anything else.
std::string generalReason(const BusError& error) {
    if (error.name == accessDeniedError) {
        return "The policy of the system bus does not let this user do it. Add the user to the group "
               "bluetooth, or run as root.";
    }
    if (error.name == unknownMethodError || error.name == unknownObjectError ||
        error.name == "org.bluez.Error.NotSupported") {
        return "This adapter cannot be a peripheral: it has no Bluetooth LE, or not this part of it. Choose "
               "another one: bluetoothctl list";
    }
    return {};
}

NSError refused(const BusError& error) {
    return {CBError::unknown,
            "The Bluetooth service refuses: " + (error.message.empty() ? error.name : error.message) +
                ". It tells more in its log: journalctl -u bluetooth"};
}

}  // namespace

BusError busErrorOf(const NSError& error) {
    const int code = error.domain() == CBATTErrorDomain ? error.code() : 0;
    if (code < firstApplicationError || code > lastApplicationError) {
        return {nameOf(code), error.localizedDescription()};
    }
    // The service reads the code from the text.
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "0x%02x", static_cast<unsigned>(code));
    return {"org.bluez.Error.Failed", text.data()};
}

BusError invalidArgumentsError() {
    return {"org.bluez.Error.InvalidArguments", "This is no request."};
}

NSError invalidOffsetError() {
    return {std::string(CBATTErrorDomain), invalidOffset, "The value has no such part."};
}

NSError errorOfServing(const BusError& error) {
    if (const std::string reason = generalReason(error); !reason.empty()) return {CBError::unknown, reason};
    return refused(error);
}

NSError errorOfAdvertising(const BusError& error, const LocalAdvertisement& advertisement) {
    const std::size_t size = sizeOf(advertisement);
    if (const std::string reason = generalReason(error); !reason.empty()) return {CBError::unknown, reason};
    if (error.name == "org.bluez.Error.NotPermitted") {
        return {CBError::unknown,
                "The adapter sends as many advertisements as it can already. End another program that "
                "advertises."};
    }
    if (size > packetSize) {
        return {CBError::unknown, "What is advertised beside the name takes " + std::to_string(size) +
                                      " bytes, and an advertisement has " + std::to_string(packetSize) +
                                      ". Leave something out."};
    }
    return refused(error);
}

}  // namespace zobi::platform::bluez
