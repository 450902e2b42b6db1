#pragma once

// A slab allocator for objects of one size, which backs the class-specific operator new and
// delete of CTri. Private to the library.

#include <cstddef>

namespace dtm {
namespace detail {

/// Hands out slots of one fixed size from large aligned slabs, and returns a slab to the system
/// as soon as its last slot is released (one empty slab is kept in reserve, so that a program
/// that creates and destroys one object at a time does not allocate a slab each time).
///
/// Why: a network holds millions of triangles, each a small object of its own (its identity
/// is its address: the change context, the undo commands and the host keep triangle pointers).
/// From the general heap each one costs its size rounded up plus a chunk header, about half as
/// much again as the object, and the triangles of one network end up scattered among other
/// allocations. Slabs store them back to back, so a network read from a file also has its
/// triangles in memory in the order of its array.
///
/// A slab is @c kSlabBytes long and aligned to its own size, so the slab of a slot is found by
/// masking the slot's address; the slab's header sits at its start. Slots of a slab that were
/// never handed out are not touched, so they cost address space but no resident memory.
///
/// Not thread-safe: the library is single-threaded (every call comes from the host's thread).
class CTriPool {
public:
    /// Bytes of one slab, and its alignment.
    static constexpr std::size_t kSlabBytes = std::size_t{1} << 20;

    /// A pool of slots of @p slotSize bytes (rounded up to the alignment of a pointer).
    explicit CTriPool(std::size_t slotSize);
    /// Returns every slab. Slots still in use become invalid: the owner of the pool must have
    /// released them all (the triangle pool lives as long as the program).
    ~CTriPool();
    CTriPool(const CTriPool&) = delete;
    CTriPool& operator=(const CTriPool&) = delete;

    /// A slot (uninitialised memory of the pool's slot size); std::bad_alloc when no slab can be
    /// had.
    void* Allocate();
    /// Gives @p slot, which Allocate of this pool returned, back.
    void Release(void* slot) noexcept;

    /// The slot size in bytes.
    std::size_t GetSlotSize() const noexcept { return m_slotSize; }
    /// Slots handed out and not yet released.
    std::size_t GetLiveCount() const noexcept { return m_liveCount; }
    /// Slabs held, the reserve included.
    std::size_t GetSlabCount() const noexcept { return m_slabCount; }

    /// The pool behind CTri's operator new (one for the process). It is used only when
    /// UsesPoolForTriangles() is true.
    static CTriPool& ForTriangles();
    /// False in builds with AddressSanitizer: there each triangle comes from the general heap, so
    /// that the sanitizer keeps reporting a leaked or released-and-used triangle, which it could
    /// not see inside a slab.
    static constexpr bool UsesPoolForTriangles() noexcept {
#if defined(__SANITIZE_ADDRESS__)
        return false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
        return false;
#else
        return true;
#endif
#else
        return true;
#endif
    }

private:
    struct Slab;
    struct FreeSlot;

    Slab* NewSlab();
    void Unlink(Slab* slab) noexcept;
    void LinkFront(Slab* slab) noexcept;

    std::size_t m_slotSize;
    // Where a slab's first slot starts: after the header, rounded up to a whole slot.
    std::size_t m_firstSlot;
    std::size_t m_slotsPerSlab;
    // Slabs that have a free slot, most recently used first. Full slabs are in no list: a slot
    // released from one brings it back.
    Slab* m_open = nullptr;
    // An empty slab kept for the next allocation instead of being returned at once.
    Slab* m_reserve = nullptr;
    std::size_t m_liveCount = 0;
    std::size_t m_slabCount = 0;
};

}  // namespace detail
}  // namespace dtm
