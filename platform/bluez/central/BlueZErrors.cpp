#include "platform/bluez/central/BlueZErrors.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/bluez/bus/ATTCodes.h"
#include "platform/bluez/bus/BlueZNames.h"

namespace zobi::platform::bluez {

namespace {

NSError attError(int code, const BusError& error) {
    return {std::string(CBATTErrorDomain), code, error.message.empty() ? error.name : error.message};
}

NSError attError(CBATTError code, const BusError& error) {
    return attError(static_cast<int>(code), error);
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// The code at the end of "Operation failed with ATT error: 0x0e".
std::optional<int> attCodeIn(std::string_view text) {
    constexpr std::string_view lead = "ATT error: 0x";
    const auto position = text.find(lead);
    if (position == std::string_view::npos) return std::nullopt;
    const std::string_view digits = text.substr(position + lead.size());
    int code = 0;
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (failure != std::errc() || code <= 0 || code > 0xFF) return std::nullopt;
    return code;
}

}  // namespace

NSError errorOfOperation(GATTOperation operation, const BusError& error) {
    constexpr std::string_view prefix = "org.bluez.Error.";
    const std::string_view name =
        error.name.starts_with(prefix) ? std::string_view(error.name).substr(prefix.size()) : "";
    if (name == "NotPermitted") {
        if (contains(error.message, "Not paired")) return attError(insufficientAuthentication, error);
        if (operation == GATTOperation::read) return attError(CBATTError::readNotPermitted, error);
        if (operation == GATTOperation::write) return attError(CBATTError::writeNotPermitted, error);
        return attError(CBATTError::requestNotSupported, error);
    }
    if (name == "NotSupported") return attError(CBATTError::requestNotSupported, error);
    if (name == "NotAuthorized") return attError(insufficientAuthorization, error);
    if (name == "InvalidOffset") return attError(invalidOffset, error);
    if (name == "InvalidValueLength" || name == "InvalidArguments") {
        return attError(CBATTError::invalidAttributeValueLength, error);
    }
    if (const auto code = attCodeIn(error.message)) return attError(*code, error);
    if (contains(error.message, "Not connected")) return {CBError::notConnected, error.message};
    if (error.name == unknownObjectError || error.name == unknownMethodError) {
        return {CBError::invalidHandle, "The Bluetooth service no longer has it."};
    }
    return {CBError::unknown, error.message.empty() ? "The operation failed." : error.message};
}

bool mayTellLinkEnd(const NSError& error) {
    if (error.domain() == CBErrorDomain) return error.code() == static_cast<int>(CBError::notConnected);
    return error.code() == static_cast<int>(CBATTError::unlikelyError);
}

ConnectRefusal refusalOf(const BusError& error) {
    const auto isOneOf = [&](const auto& parts) {
        return std::ranges::any_of(parts, [&](const char* part) {
            return contains(error.name, part) || contains(error.message, part);
        });
    };
    // By another client of the service, or by an attempt of ours that it has not yet ended.
    static constexpr std::array open{"Operation already in progress", "InProgress", "AlreadyConnected"};
    if (isOneOf(open)) return ConnectRefusal::open;
    // The service forgot the device, or the adapter went off: it tells so by itself.
    static constexpr std::array waits{"UnknownObject", "UnknownMethod", "NotReady", "adapter-not-powered"};
    if (isOneOf(waits)) return ConnectRefusal::waits;
    static constexpr std::array final{"not-supported", "invalid-arguments", "bad-socket",   "create-socket",
                                      "key-missing",   "AccessDenied",      "NotAuthorized"};
    return isOneOf(final) ? ConnectRefusal::final : ConnectRefusal::failed;
}

NSError errorOfLinkEnd(const LinkEnd& end) {
    switch (end.cause) {
        case LinkEnd::Cause::timeout:
            return {CBError::connectionTimeout, end.text};
        case LinkEnd::Cause::peer:
            return {CBError::peripheralDisconnected, end.text};
        case LinkEnd::Cause::local:
        case LinkEnd::Cause::other:
            break;
    }
    return {CBError::unknown, end.text};
}

}  // namespace zobi::platform::bluez
