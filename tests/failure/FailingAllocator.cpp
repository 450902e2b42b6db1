#include "FailingAllocator.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

// The sanitizers' stack printer, when the program is built with one: setting the environment
// variable DTM_TRACE_FAILED_ALLOCATION prints where each failed allocation was made.
extern "C" void __sanitizer_print_stack_trace() __attribute__((weak));

namespace {

// Counted down by each allocation while positive; the allocation that brings it to zero fails.
std::atomic<std::int64_t> g_countdown{0};
std::atomic<std::int64_t> g_served{0};
std::atomic<bool> g_failed{false};
std::atomic<std::int64_t> g_live{0};

// True when this allocation is the one to fail.
bool ShouldFail() noexcept {
    g_served.fetch_add(1, std::memory_order_relaxed);
    if (g_countdown.load(std::memory_order_relaxed) <= 0) return false;
    if (g_countdown.fetch_sub(1, std::memory_order_relaxed) != 1) return false;
    g_failed.store(true, std::memory_order_relaxed);
    static const bool trace = std::getenv("DTM_TRACE_FAILED_ALLOCATION") != nullptr;
    if (trace && __sanitizer_print_stack_trace) __sanitizer_print_stack_trace();
    return true;
}

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
    if (ShouldFail()) return nullptr;
    // Every allocation gets a block of its own, also of size 0, as operator new requires.
    if (size == 0) size = 1;
    // malloc's alignment serves every type of the program without an extended alignment;
    // aligned_alloc wants a size that is a multiple of the alignment.
    void* block =
        alignment <= alignof(std::max_align_t)
            ? std::malloc(size)
            : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (block) g_live.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
    void* block = Allocate(size, alignment);
    if (!block) throw std::bad_alloc();
    return block;
}

void Free(void* block) noexcept {
    if (!block) return;
    g_live.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
}

constexpr std::size_t kPlain = alignof(std::max_align_t);

}  // namespace

namespace dtm_test {

void FailAllocationAt(std::int64_t n) noexcept {
    g_served.store(0, std::memory_order_relaxed);
    g_failed.store(false, std::memory_order_relaxed);
    g_countdown.store(n, std::memory_order_relaxed);
}

void StopFailingAllocations() noexcept {
    g_countdown.store(0, std::memory_order_relaxed);
}

bool AllocationFailed() noexcept {
    return g_failed.load(std::memory_order_relaxed);
}

std::int64_t AllocationsSinceArmed() noexcept {
    return g_served.load(std::memory_order_relaxed);
}

std::int64_t LiveAllocations() noexcept {
    return g_live.load(std::memory_order_relaxed);
}

}  // namespace dtm_test

// The replaceable global allocation functions (every form, so that no block is allocated by
// one allocator and freed by another).

void* operator new(std::size_t size) {
    return AllocateOrThrow(size, kPlain);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size, kPlain);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, kPlain);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, kPlain);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    Free(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    Free(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    Free(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    Free(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    Free(block);
}
