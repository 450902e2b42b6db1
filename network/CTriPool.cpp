#include "network/CTriPool.h"

#include <dtm/network/CTri.h>

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace dtm {
namespace detail {

// A released slot holds the link to the next free slot of its slab.
struct CTriPool::FreeSlot {
    FreeSlot* next;
};

// The header at the start of every slab.
struct CTriPool::Slab {
    Slab* prev;
    Slab* next;
    FreeSlot* freeSlots;    // released slots, reused first
    std::size_t untouched;  // slots from this position on were never handed out
    std::size_t used;       // slots handed out and not released
};

namespace {

std::size_t RoundUp(std::size_t value, std::size_t multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

}  // namespace

CTriPool::CTriPool(std::size_t slotSize)
    : m_slotSize(RoundUp(slotSize < sizeof(FreeSlot) ? sizeof(FreeSlot) : slotSize,
                         alignof(std::max_align_t))),
      m_firstSlot(RoundUp(sizeof(Slab), m_slotSize)),
      m_slotsPerSlab((kSlabBytes - m_firstSlot) / m_slotSize) {
    assert(m_slotsPerSlab > 0);
}

CTriPool::~CTriPool() {
    for (Slab* slab = m_open; slab != nullptr;) {
        Slab* next = slab->next;
        std::free(slab);
        slab = next;
    }
    std::free(m_reserve);
}

CTriPool::Slab* CTriPool::NewSlab() {
    void* memory = std::aligned_alloc(kSlabBytes, kSlabBytes);
    if (!memory) throw std::bad_alloc();
    ++m_slabCount;
    return new (memory) Slab{nullptr, nullptr, nullptr, 0, 0};
}

void CTriPool::Unlink(Slab* slab) noexcept {
    if (slab->prev) slab->prev->next = slab->next;
    if (slab->next) slab->next->prev = slab->prev;
    if (m_open == slab) m_open = slab->next;
    slab->prev = slab->next = nullptr;
}

void CTriPool::LinkFront(Slab* slab) noexcept {
    slab->prev = nullptr;
    slab->next = m_open;
    if (m_open) m_open->prev = slab;
    m_open = slab;
}

void* CTriPool::Allocate() {
    if (!m_open) {
        Slab* slab = m_reserve ? m_reserve : NewSlab();
        m_reserve = nullptr;
        LinkFront(slab);
    }
    Slab* slab = m_open;
    void* slot;
    if (slab->freeSlots) {
        slot = slab->freeSlots;
        slab->freeSlots = slab->freeSlots->next;
    } else {
        // Slots are handed out from the front of a fresh slab, so objects made one after the
        // other lie one after the other.
        slot = reinterpret_cast<unsigned char*>(slab) + m_firstSlot + slab->untouched * m_slotSize;
        ++slab->untouched;
    }
    ++slab->used;
    ++m_liveCount;
    if (slab->used == m_slotsPerSlab) Unlink(slab);
    return slot;
}

void CTriPool::Release(void* slot) noexcept {
    if (!slot) return;
    const auto address = reinterpret_cast<std::uintptr_t>(slot);
    auto* slab = reinterpret_cast<Slab*>(address & ~(std::uintptr_t{kSlabBytes} - 1));
    const bool wasFull = slab->used == m_slotsPerSlab;
    auto* freed = static_cast<FreeSlot*>(slot);
    freed->next = slab->freeSlots;
    slab->freeSlots = freed;
    --slab->used;
    --m_liveCount;
    if (wasFull) LinkFront(slab);
    if (slab->used != 0) return;

    // The slab is empty: keep it as the reserve, starting afresh, or return it.
    Unlink(slab);
    if (!m_reserve) {
        slab->freeSlots = nullptr;
        slab->untouched = 0;
        m_reserve = slab;
        return;
    }
    --m_slabCount;
    std::free(slab);
}

CTriPool& CTriPool::ForTriangles() {
    // Never destroyed: a triangle may outlive every static object (a host may keep one until
    // its own statics go), and its slab must stay valid until it is released.
    static CTriPool* const pool = new CTriPool(sizeof(CTri));
    return *pool;
}

}  // namespace detail
}  // namespace dtm
