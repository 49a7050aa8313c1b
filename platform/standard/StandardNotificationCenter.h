#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSNotificationCenter.h"

namespace zobi::platform {

/// A notification center within the process.
class ZOBI_EXPORT StandardNotificationCenter final : public NSNotificationCenter {
public:
    /// A center without observers.
    StandardNotificationCenter() = default;
    ~StandardNotificationCenter() override;
    StandardNotificationCenter(const StandardNotificationCenter&) = delete;
    StandardNotificationCenter& operator=(const StandardNotificationCenter&) = delete;

    Token addObserverForNameObjectUsingBlock(std::string_view name, std::shared_ptr<void> object,
                                             Block block) override;
    void removeObserver(const Token& observer) override;
    void postNotificationNameObjectUserInfo(std::string_view name, std::shared_ptr<void> object,
                                            NSUserInfo userInfo) override;

    /// Removes all observers and destroys their blocks.
    void clear();

private:
    struct Registration;
    using Registrations = std::vector<std::shared_ptr<Registration>>;

    // Guards the pointer, as managers are made on any thread and then add observers. The list itself never
    // changes, so a post iterates without a lock over the one that was current when it began.
    std::mutex mutex_;
    std::shared_ptr<const Registrations> registrations_ = std::make_shared<Registrations>();
};

}  // namespace zobi::platform
