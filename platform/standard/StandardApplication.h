#pragma once

#include "platform/Export.h"
#include "platform/NSNotificationCenter.h"
#include "platform/UIApplication.h"

namespace platform {

/// An application whose state is what its program declares.
class ZOK_EXPORT StandardApplication final : public UIApplication {
public:
    /// @param notificationCenter where transitions are broadcast; must outlive the application.
    explicit StandardApplication(NSNotificationCenter& notificationCenter);

    UIApplicationState applicationState() const override;
    void setApplicationState(UIApplicationState state) override;

private:
    NSNotificationCenter& notificationCenter_;
    UIApplicationState state_ = UIApplicationState::active;
};

}  // namespace platform
