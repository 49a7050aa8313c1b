#include "HeapUse.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

HeapUse counted;
bool isCounting = false;

}  // namespace

HeapUse heapUseOf(const std::function<void()>& work) {
    counted = {};
    isCounting = true;
    work();
    isCounting = false;
    return counted;
}

// These are the whole program's. The other forms of new and delete come down to them, but for over-aligned
// blocks, of which there are none here.

void* operator new(std::size_t size) {
    void* const block = std::malloc(size > 0 ? size : 1);  // NOLINT(cppcoreguidelines-no-malloc)
    if (block == nullptr) throw std::bad_alloc();
    if (isCounting) {
        ++counted.allocations;
        counted.bytes += static_cast<std::ptrdiff_t>(malloc_usable_size(block));
    }
    return block;
}

void operator delete(void* block) noexcept {
    if (isCounting) counted.bytes -= static_cast<std::ptrdiff_t>(malloc_usable_size(block));
    std::free(block);  // NOLINT(cppcoreguidelines-no-malloc)
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}
