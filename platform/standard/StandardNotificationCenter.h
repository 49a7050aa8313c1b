#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "platform/Export.h"
#include "platform/NSNotificationCenter.h"

namespace platform {

/// A notification centre within the process.
class ZOK_EXPORT StandardNotificationCenter final : public NSNotificationCenter {
public:
    StandardNotificationCenter() = default;
    ~StandardNotificationCenter() override;
    StandardNotificationCenter(const StandardNotificationCenter&) = delete;
    StandardNotificationCenter& operator=(const StandardNotificationCenter&) = delete;

    Token addObserverForNameObjectUsingBlock(std::string_view name, std::shared_ptr<void> object,
                                             Block block) override;
    void removeObserver(const Token& observer) override;
    void postNotificationNameObjectUserInfo(std::string_view name, std::shared_ptr<void> object,
                                            NSUserInfo userInfo) override;

    /// Removes all observers and lets go of what their blocks hold.
    void clear();

private:
    struct Registration;
    using Registrations = std::vector<std::shared_ptr<Registration>>;

    // Guards the list against managers that register from other threads. A list is never changed once it
    // stands here: whoever posts walks the one that stood at the start.
    std::mutex mutex_;
    std::shared_ptr<const Registrations> registrations_ = std::make_shared<Registrations>();
};

}  // namespace platform
