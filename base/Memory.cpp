#include <zeb/Memory.h>

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

// Size-class pools. Blocks of one class are carved from 1 MiB chunks aligned to their size, so the
// chunk of a block is found by masking its address. Each chunk counts its live blocks and keeps its
// own free list; a chunk whose last block comes back is returned to the system, except one spare
// per class, which keeps a loop that makes and drops one object from mapping a chunk every time.

namespace {

const size_t kGranule = 16;
const size_t kLargestPooled = 1024;
const unsigned kClassCount = kLargestPooled / kGranule;
const size_t kChunkBytes = size_t(1) << 20;

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
    Chunk* spare = nullptr;
};

SizeClass g_classes[kClassCount];
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

void resetChunk(Chunk* chunk) {
    chunk->freeBlocks = nullptr;
    chunk->unused = reinterpret_cast<char*>(chunk) + headerBytes();
    chunk->live = 0;
}

Chunk* mapChunk(size_t blockBytes) {
    // Twice the size reserved, so that an aligned chunk fits inside; only touched pages cost memory.
    void* reservation = VirtualAlloc(nullptr, kChunkBytes * 2, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (!reservation) return nullptr;
    uintptr_t aligned = (reinterpret_cast<uintptr_t>(reservation) + kChunkBytes - 1) & ~(uintptr_t(kChunkBytes) - 1);
    Chunk* chunk = reinterpret_cast<Chunk*>(aligned);
    chunk->reservation = reservation;
    chunk->previous = chunk->next = nullptr;
    chunk->end = reinterpret_cast<char*>(chunk) + kChunkBytes;
    chunk->blockBytes = blockBytes;
    chunk->listed = false;
    resetChunk(chunk);
    return chunk;
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
        chunk = sizeClass.spare ? sizeClass.spare : mapChunk(blockBytes);
        if (!chunk) return nullptr;
        sizeClass.spare = nullptr;
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
    if (!sizeClass.spare) {
        resetChunk(chunk);
        sizeClass.spare = chunk;
    } else {
        VirtualFree(chunk->reservation, 0, MEM_RELEASE);
    }
}

unsigned classOf(size_t bytes) { return bytes == 0 ? 0 : static_cast<unsigned>((bytes - 1) / kGranule); }

}  // namespace

extern "C" void* zebAllocate(size_t bytes) {
    if (bytes > kLargestPooled) return std::malloc(bytes);
    unsigned index = classOf(bytes);
    PoolLock lock;
    return allocatePooled(g_classes[index], (index + 1) * kGranule);
}

extern "C" void zebRelease(void* block, size_t bytes) {
    if (!block) return;
    if (bytes > kLargestPooled) {
        std::free(block);
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
