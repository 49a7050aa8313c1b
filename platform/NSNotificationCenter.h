#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/Export.h"
#include "platform/NSNumber.h"

namespace platform {

/// A notification's payload: a dictionary of one entry, or an empty one.
class NSUserInfo {
public:
    using Value = std::variant<NSNumber, std::string>;

    /// An empty dictionary.
    NSUserInfo() = default;
    /// @param key must outlive the payload: a constant.
    NSUserInfo(std::string_view key, Value value) : key_(key), value_(std::move(value)) {}

    std::size_t count() const { return value_ ? 1 : 0; }

    /// The value under `key`, or null. Valid as long as the payload.
    const Value* objectForKey(std::string_view key) const {
        return value_ && key == key_ ? &*value_ : nullptr;
    }

private:
    std::string_view key_;
    std::optional<Value> value_;
};

/// A broadcast.
struct NSNotification {
    /// Valid for the length of the observer's call.
    std::string_view name;
    /// The object concerned, its type erased: `std::static_pointer_cast` to the type it was posted as gives
    /// it back. May be null. Objects are the same when their addresses are, so post and observe an object of
    /// a class with several bases as one and the same type.
    std::shared_ptr<void> object;
    NSUserInfo userInfo;
};

/// Broadcasts to whoever asked for them.
///
/// Observers are called at once, on the posting thread, in the order in which they were added. An observer
/// may add and remove observers, itself included, and may post: one that is removed is not called again,
/// one that is added hears of later notifications. An exception that leaves an observer leaves the posting
/// call, and the observers after it are not called. Posting belongs to the main thread; observers may be
/// added and removed from any.
class ZOK_EXPORT NSNotificationCenter {
public:
    using Block = std::function<void(const NSNotification&)>;

    /// Names one registration, to remove it by.
    class Observer {
    public:
        virtual ~Observer() = default;
    };
    using Token = std::shared_ptr<Observer>;

    virtual ~NSNotificationCenter() = default;

    /// Calls `block` for each notification named `name` about `object`, until it is removed or the centre
    /// dies. The centre keeps the block; the token may be dropped.
    /// @param object compared by identity; null means about any object.
    virtual Token addObserverForNameObjectUsingBlock(std::string_view name, std::shared_ptr<void> object,
                                                     Block block) = 0;

    /// Ends a registration. Harmless when repeated.
    virtual void removeObserver(const Token& observer) = 0;

    /// Calls the observers of `name` and `object`.
    virtual void postNotificationNameObjectUserInfo(std::string_view name, std::shared_ptr<void> object,
                                                    NSUserInfo userInfo) = 0;
};

}  // namespace platform
