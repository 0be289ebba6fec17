#pragma once
#include <zeb/Exception.h>
#include <zeb/Export.h>
#include <cstddef>

// Blocks of the zeb containers and holders. Small blocks come from size-class pools, so that
// building a table of a million entries costs no heap call per entry; larger ones come from the
// C heap. Both return null when memory is exhausted; a block is given back with the size it was
// asked for.
extern "C" {
ZEB_API void* zebAllocate(size_t bytes);
ZEB_API void zebRelease(void* block, size_t bytes);
}

namespace zeb {

namespace detail {
// The exception for an allocation of `what` that failed.
ZEB_API NullPointer allocationFailure(const char* what);
}  // namespace detail

// zebAllocate that throws zeb::NullPointer naming `what` instead of returning null.
inline void* allocateOrThrow(size_t bytes, const char* what) {
    void* block = zebAllocate(bytes);
    if (!block) throw detail::allocationFailure(what);
    return block;
}

// Class-wide operator new/delete of zeb's own small heap objects (hash-table nodes, the shared
// holder's destroyer): pooled, and failures throw zeb::NullPointer.
#define ZEB_POOLED_OBJECT(what)                                                                         \
    static void* operator new(std::size_t bytes) { return ::zeb::allocateOrThrow(bytes, what); }        \
    static void operator delete(void* block, std::size_t bytes) { zebRelease(block, bytes); }

}  // namespace zeb
