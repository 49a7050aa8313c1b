#pragma once

#include <string_view>

#include "platform/Export.h"

namespace platform {

/// Where an application stands before its user.
enum class UIApplicationState : int {
    /// In the foreground and receiving events.
    active = 0,
    /// In the foreground, but passing to or from the background.
    inactive = 1,
    background = 2,
};

/// Broadcasts of the application's transitions, with no object and no payload.
inline constexpr std::string_view UIApplicationDidBecomeActiveNotification =
    "UIApplicationDidBecomeActiveNotification";
inline constexpr std::string_view UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";

/// The application's state. It starts active. Main thread only.
class ZOK_EXPORT UIApplication {
public:
    virtual ~UIApplication() = default;

    virtual UIApplicationState applicationState() const = 0;

    /// Declares the state, which on a system without such states only the program itself knows. The state
    /// changes first; then becoming active and entering the background are broadcast. Declaring the state
    /// that already holds does nothing.
    virtual void setApplicationState(UIApplicationState state) = 0;
};

}  // namespace platform
