#pragma once

#include "zobi/platform/Export.h"
#include "zobi/platform/NSNotificationCenter.h"
#include "zobi/platform/UIApplication.h"

namespace zobi::platform {

/// An application state that the program sets. It is active at first.
class ZOBI_EXPORT StandardApplication final : public UIApplication {
public:
    /// @param notificationCenter where the changes are posted; must outlive this object.
    explicit StandardApplication(NSNotificationCenter& notificationCenter);

    UIApplicationState applicationState() const override;
    void setApplicationState(UIApplicationState state) override;

private:
    NSNotificationCenter& notificationCenter_;
    UIApplicationState state_ = UIApplicationState::active;
};

}  // namespace zobi::platform
