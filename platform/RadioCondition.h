#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Whether the radio of a platform can be used, and if not, why, and what a person can do about it.
struct ZOBI_EXPORT RadioCondition {
    /// What it comes down to. A radio may report another value.
    enum class Kind : std::uint8_t {
        unknown,       ///< Not known yet.
        poweredOn,     ///< The radio can be used.
        poweredOff,    ///< It is off.
        blocked,       ///< It is off, and a switch of the machine or of its software keeps it so.
        noAdapter,     ///< There is no radio that can be used.
        noService,     ///< What gives programs the radio, a Bluetooth service for example, is not there.
        unauthorized,  ///< The program may not use the radio.
        resetting,     ///< The radio is gone or does not answer; it may come back by itself.
        deaf,          ///< The radio is on but hears nothing, and the program cannot mend that.
    };

    /// What it comes down to.
    Kind kind = Kind::unknown;
    /// Why the radio cannot be used: a whole sentence. Empty while it can be, or nothing is known.
    std::string text = {};
    /// What a person can do about it, in whole sentences. Empty like `text`.
    std::string remedy = {};

    /// Both, one after the other; empty like `text`.
    std::string advice() const { return text.empty() ? text : text + ' ' + remedy; }

    /// The condition of a radio of which nothing but the state is known.
    static RadioCondition ofState(CBManagerState state);

    /// Equal when all members are.
    friend bool operator==(const RadioCondition&, const RadioCondition&) = default;
};

/// Posted when `Platform::radioCondition` has changed, or is known for the first time. Without object and
/// user info. It is posted on the main thread, from a task of the run loop of its own, after the central
/// manager that found it has reported a state that changed with it; others may report later. In all of these
/// reports the condition is the new one.
inline constexpr std::string_view RadioConditionDidChangeNotification = "RadioConditionDidChangeNotification";

}  // namespace zobi::platform
