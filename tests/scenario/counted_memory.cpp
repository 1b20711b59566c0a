#include "tests/scenario/counted_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

// The library's own allocations are counted too: it resolves operator new to this program's,
// as it does the platform's functions.

namespace {

std::atomic<long> blocks{0};

void* counted(void* block) {
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++blocks;
    return block;
}

void release(void* block) {
    if (block != nullptr) {
        --blocks;
        std::free(block);
    }
}

}  // namespace

long blocksInUse() {
    return blocks;
}

void* operator new(std::size_t size) {
    return counted(std::malloc(size == 0 ? 1 : size));
}
void* operator new[](std::size_t size) {
    return counted(std::malloc(size == 0 ? 1 : size));
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
