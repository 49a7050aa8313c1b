#pragma once

#include <cstddef>
#include <functional>

/// What was allocated on the heap with `new`, shared libraries included.
struct HeapUse {
    std::size_t allocations = 0;
    /// Of the blocks allocated, as large as the allocator made them, less those released.
    std::ptrdiff_t bytes = 0;
};

/// What `work` allocates. Outside it nothing is counted, to keep the counting out of what is timed.
HeapUse heapUseOf(const std::function<void()>& work);
