#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::platform {

/// The user info of a notification: a dictionary with one entry or none.
class NSUserInfo {
public:
    /// A value in the dictionary.
    using Value = std::variant<NSNumber, std::string>;

    /// An empty dictionary.
    NSUserInfo() = default;
    /// A dictionary with `value` under `key`, whose text must outlive the dictionary: use a constant.
    NSUserInfo(std::string_view key, Value value) : key_(key), value_(std::move(value)) {}

    /// The number of entries: 0 or 1.
    std::size_t count() const { return value_ ? 1 : 0; }

    /// The value under `key`; null if there is none. Valid as long as the dictionary.
    const Value* objectForKey(std::string_view key) const {
        return value_ && key == key_ ? &*value_ : nullptr;
    }

private:
    std::string_view key_;
    std::optional<Value> value_;
};

/// A notification that was posted.
struct NSNotification {
    /// Its name. Valid until the observer returns.
    std::string_view name;
    /// The object that the notification is about; may be null. `std::static_pointer_cast` to the type as
    /// which it was posted restores its type. Objects are compared by address: post and observe an object of
    /// a class with several bases as the same type.
    std::shared_ptr<void> object;
    /// Its value, if it has one.
    NSUserInfo userInfo;
};

/// Delivers notifications to their observers.
///
/// A notification is posted on the main thread. The call that posts it calls the observers in the order in
/// which they were added. An observer may post, and may add and remove observers, itself included: a removed
/// one is not called again, and an added one receives only later notifications. An exception of an observer
/// leaves the call that posted, and the observers after it are not called. Observers may be added and removed
/// from any thread.
class ZOBI_EXPORT NSNotificationCenter {
public:
    /// The function that an observer is called by.
    using Block = std::function<void(const NSNotification&)>;

    /// A registration; the center makes it.
    class Observer {
    public:
        virtual ~Observer();
    };
    /// Identifies a registration in `removeObserver`.
    using Token = std::shared_ptr<Observer>;

    virtual ~NSNotificationCenter();

    /// Calls `block` for each notification with this name and object, until the observer is removed or the
    /// center is destroyed. The center owns the block, and the returned token may be discarded. `object` is
    /// compared by address; null stands for every object.
    virtual Token addObserverForNameObjectUsingBlock(std::string_view name, std::shared_ptr<void> object,
                                                     Block block) = 0;

    /// Removes an observer. Does nothing if it was removed before.
    virtual void removeObserver(const Token& observer) = 0;

    /// Posts a notification: calls its observers before it returns.
    virtual void postNotificationNameObjectUserInfo(std::string_view name, std::shared_ptr<void> object,
                                                    NSUserInfo userInfo) = 0;
};

}  // namespace zobi::platform
