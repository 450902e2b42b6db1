#pragma once

// A replacement of the global operator new of this test program that counts the allocations it
// serves and, when armed, throws std::bad_alloc at exactly the Nth one (the nothrow forms
// answer null instead). It also counts the blocks alive, so that a test can tell that
// everything allocated inside a window was freed again.
//
// The replacement affects the whole program, which is why these tests have a program of their
// own.

#include <cstdint>

namespace dtm_test {

/// Arms the allocator: the @p n th allocation from now (1 is the next one) fails; every other
/// one succeeds. Arming again replaces the earlier setting.
void FailAllocationAt(std::int64_t n) noexcept;
/// Disarms the allocator.
void StopFailingAllocations() noexcept;
/// True when the armed failure has happened since the last FailAllocationAt.
bool AllocationFailed() noexcept;
/// Allocations served (failed ones included) since the last FailAllocationAt.
std::int64_t AllocationsSinceArmed() noexcept;
/// Blocks allocated through operator new and not yet freed, over the whole program.
std::int64_t LiveAllocations() noexcept;

}  // namespace dtm_test
