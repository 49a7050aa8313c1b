#pragma once

#include <string_view>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// The state of an application.
enum class UIApplicationState : int {
    active = 0,      ///< In the foreground, and the user can use it.
    inactive = 1,    ///< In the foreground, but on its way to or from the background.
    background = 2,  ///< In the background.
};

/// Posted when the application has become active. Without object and user info.
inline constexpr std::string_view UIApplicationDidBecomeActiveNotification =
    "UIApplicationDidBecomeActiveNotification";
/// Posted when the application has entered the background. Without object and user info.
inline constexpr std::string_view UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";

/// The application's state. It starts active. Main thread only.
class ZOBI_EXPORT UIApplication {
public:
    virtual ~UIApplication();

    /// The state that was last set.
    virtual UIApplicationState applicationState() const = 0;

    /// Sets the state, and then posts the notification of it, if it has one. The program calls this, as the
    /// system does not know such states. Setting the same state again does nothing.
    virtual void setApplicationState(UIApplicationState state) = 0;
};

}  // namespace zobi::platform
