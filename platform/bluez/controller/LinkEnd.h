#pragma once

#include <cstdint>
#include <string>

namespace zobi::platform::bluez {

/// Why a link ended.
struct LinkEnd {
    enum class Cause : std::uint8_t {
        /// Nothing was heard for the supervision timeout, or over an encrypted link nothing that fits.
        timeout,
        /// The peripheral ended it.
        peer,
        /// This machine ended it.
        local,
        /// Another reason, or none that is known: see the text.
        other,
    };

    Cause cause = Cause::other;
    /// For people: a whole sentence.
    std::string text;
};

/// From the reason in an event of the Host Controller Interface.
LinkEnd linkEndFromHCIReason(std::uint8_t reason);

/// From the reason in an event of the kernel's management socket.
LinkEnd linkEndFromManagementReason(std::uint8_t reason);

}  // namespace zobi::platform::bluez
