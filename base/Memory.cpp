#include <zeb/Memory.h>

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

// Size-class pools. Blocks of one class are carved from 1 MiB chunks aligned to their size, so the
// chunk of a block is found by masking its address. Each chunk counts its live blocks and keeps its
// own free list. A chunk whose last block comes back, and a large block given back, are kept for
// the next request up to a budget (128 MiB: a scene of some 150k frames): rebuilding a table of
// the same size then reuses memory that the system has already mapped, instead of paying a page
// fault for every 4 KiB of it again, which costs more than everything else the build does.

namespace {

const size_t kGranule = 16;
const size_t kLargestPooled = 1024;
const unsigned kClassCount = kLargestPooled / kGranule;
const size_t kChunkBytes = size_t(1) << 20;
const size_t kRetainedBudget = size_t(128) << 20;
const size_t kSmallestCachedLarge = size_t(64) << 10;
const unsigned kLargeCacheSlots = 16;

struct FreeBlock {
    FreeBlock* next;
};

struct Chunk {
    void* reservation;   // what VirtualAlloc returned: the chunk lies inside it
    Chunk* previous;     // neighbours in the class's list of chunks with room
    Chunk* next;
    FreeBlock* freeBlocks;
    char* unused;        // blocks never handed out start here
    char* end;
    size_t blockBytes;
    unsigned live;
    bool listed;
};

struct SizeClass {
    Chunk* withRoom = nullptr;
};

struct CachedLarge {
    void* block;
    size_t bytes;
};

SizeClass g_classes[kClassCount];
Chunk* g_emptyChunks = nullptr;  // linked through `next`, of any class
CachedLarge g_largeCache[kLargeCacheSlots];
size_t g_retainedBytes = 0;
std::atomic_flag g_lock = ATOMIC_FLAG_INIT;

// The library is driven from one thread, but the process may hold zeb containers elsewhere too:
// a spin lock costs little when it is never contended.
class PoolLock {
public:
    PoolLock() {
        while (g_lock.test_and_set(std::memory_order_acquire)) YieldProcessor();
    }
    ~PoolLock() { g_lock.clear(std::memory_order_release); }
};

size_t headerBytes() { return (sizeof(Chunk) + kGranule - 1) / kGranule * kGranule; }

Chunk* chunkOf(void* block) {
    return reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(block) & ~(uintptr_t(kChunkBytes) - 1));
}

void resetChunk(Chunk* chunk, size_t blockBytes) {
    chunk->blockBytes = blockBytes;
    chunk->freeBlocks = nullptr;
    chunk->unused = reinterpret_cast<char*>(chunk) + headerBytes();
    chunk->live = 0;
}

// Brings fresh pages in with one call rather than one page fault per page as they are first written.
void prefault(void* start, size_t bytes) {
    if (VirtualLock(start, bytes)) VirtualUnlock(start, bytes);
}

Chunk* mapChunk(size_t blockBytes) {
    // Twice the size reserved, so that an aligned chunk fits inside; only touched pages cost memory.
    void* reservation = VirtualAlloc(nullptr, kChunkBytes * 2, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (!reservation) return nullptr;
    uintptr_t aligned = (reinterpret_cast<uintptr_t>(reservation) + kChunkBytes - 1) & ~(uintptr_t(kChunkBytes) - 1);
    prefault(reinterpret_cast<void*>(aligned), kChunkBytes);
    Chunk* chunk = reinterpret_cast<Chunk*>(aligned);
    chunk->reservation = reservation;
    chunk->previous = chunk->next = nullptr;
    chunk->end = reinterpret_cast<char*>(chunk) + kChunkBytes;
    chunk->listed = false;
    resetChunk(chunk, blockBytes);
    return chunk;
}

Chunk* takeChunk(size_t blockBytes) {
    Chunk* chunk = g_emptyChunks;
    if (!chunk) return mapChunk(blockBytes);
    g_emptyChunks = chunk->next;
    chunk->next = nullptr;
    g_retainedBytes -= kChunkBytes;
    resetChunk(chunk, blockBytes);
    return chunk;
}

void giveBackChunk(Chunk* chunk) {
    if (g_retainedBytes + kChunkBytes > kRetainedBudget) {
        VirtualFree(chunk->reservation, 0, MEM_RELEASE);
        return;
    }
    chunk->next = g_emptyChunks;
    g_emptyChunks = chunk;
    g_retainedBytes += kChunkBytes;
}

void link(SizeClass& sizeClass, Chunk* chunk) {
    chunk->previous = nullptr;
    chunk->next = sizeClass.withRoom;
    if (chunk->next) chunk->next->previous = chunk;
    sizeClass.withRoom = chunk;
    chunk->listed = true;
}

void unlink(SizeClass& sizeClass, Chunk* chunk) {
    if (chunk->previous) chunk->previous->next = chunk->next;
    else sizeClass.withRoom = chunk->next;
    if (chunk->next) chunk->next->previous = chunk->previous;
    chunk->previous = chunk->next = nullptr;
    chunk->listed = false;
}

bool isFull(const Chunk* chunk) {
    return !chunk->freeBlocks && chunk->unused + chunk->blockBytes > chunk->end;
}

void* allocatePooled(SizeClass& sizeClass, size_t blockBytes) {
    Chunk* chunk = sizeClass.withRoom;
    if (!chunk) {
        chunk = takeChunk(blockBytes);
        if (!chunk) return nullptr;
        link(sizeClass, chunk);
    }
    void* block;
    if (chunk->freeBlocks) {
        block = chunk->freeBlocks;
        chunk->freeBlocks = chunk->freeBlocks->next;
    } else {
        block = chunk->unused;
        chunk->unused += blockBytes;
    }
    ++chunk->live;
    if (isFull(chunk)) unlink(sizeClass, chunk);
    return block;
}

void releasePooled(SizeClass& sizeClass, void* block) {
    Chunk* chunk = chunkOf(block);
    FreeBlock* freed = static_cast<FreeBlock*>(block);
    freed->next = chunk->freeBlocks;
    chunk->freeBlocks = freed;
    if (!chunk->listed) link(sizeClass, chunk);
    if (--chunk->live > 0) return;
    unlink(sizeClass, chunk);
    giveBackChunk(chunk);
}

// Large blocks are cached by exact size: arrays and bucket tables grow in powers of two, so a
// table rebuilt at the same size asks for the same sizes again.
void* takeCachedLarge(size_t bytes) {
    for (CachedLarge& slot : g_largeCache) {
        if (slot.block && slot.bytes == bytes) {
            void* block = slot.block;
            slot.block = nullptr;
            g_retainedBytes -= bytes;
            return block;
        }
    }
    return nullptr;
}

bool cacheLarge(void* block, size_t bytes) {
    if (g_retainedBytes + bytes > kRetainedBudget) return false;
    for (CachedLarge& slot : g_largeCache) {
        if (!slot.block) {
            slot = {block, bytes};
            g_retainedBytes += bytes;
            return true;
        }
    }
    return false;
}

unsigned classOf(size_t bytes) { return bytes == 0 ? 0 : static_cast<unsigned>((bytes - 1) / kGranule); }

// Blocks of 64 KiB and more are mapped directly, and brought in at once.
void* mapLarge(size_t bytes) {
    void* block = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (block) prefault(block, bytes);
    return block;
}

}  // namespace

extern "C" void* zebAllocate(size_t bytes) {
    if (bytes > kLargestPooled) {
        if (bytes < kSmallestCachedLarge) return std::malloc(bytes);
        {
            PoolLock lock;
            if (void* cached = takeCachedLarge(bytes)) return cached;
        }
        return mapLarge(bytes);
    }
    unsigned index = classOf(bytes);
    PoolLock lock;
    return allocatePooled(g_classes[index], (index + 1) * kGranule);
}

extern "C" void zebRelease(void* block, size_t bytes) {
    if (!block) return;
    if (bytes > kLargestPooled) {
        if (bytes < kSmallestCachedLarge) {
            std::free(block);
            return;
        }
        {
            PoolLock lock;
            if (cacheLarge(block, bytes)) return;
        }
        VirtualFree(block, 0, MEM_RELEASE);
        return;
    }
    PoolLock lock;
    releasePooled(g_classes[classOf(bytes)], block);
}

namespace zeb {
namespace detail {
NullPointer allocationFailure(const char* what) { return NullPointer(String("Out of memory for ") + what); }
}  // namespace detail
}  // namespace zeb
