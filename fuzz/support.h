#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

inline void require(bool holds) {
    if (!holds) std::abort();
}

/// The fuzzer's bytes, taken from the front. After their end come zeros.
class Input {
public:
    Input(const std::uint8_t* bytes, std::size_t size) : rest_(bytes, size) {}

    bool isAtEnd() const { return rest_.empty(); }
    std::uint8_t byte() {
        const auto taken = bytes(1);
        return taken.empty() ? 0 : taken[0];
    }
    /// So many, or as many as there are.
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

private:
    std::span<const std::uint8_t> rest_;
};
