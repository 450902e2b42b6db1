// The slab pool behind CTri's operator new: slots are distinct, aligned and stable, come from
// the front of a slab one after the other, and slabs go back once empty (one kept in reserve).

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/RefCounter.h>

#include "network/CTriPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

namespace {

using dtm::detail::CTriPool;

constexpr std::size_t kSlotSize = 32;

std::uintptr_t Address(const void* p) {
    return reinterpret_cast<std::uintptr_t>(p);
}

std::uintptr_t SlabOf(const void* p) {
    return Address(p) & ~(std::uintptr_t{CTriPool::kSlabBytes} - 1);
}

TEST(CTriPool, SlotsAreDistinctAlignedAndFollowOneAnotherInASlab) {
    CTriPool pool(kSlotSize);
    EXPECT_EQ(pool.GetSlotSize(), kSlotSize);
    std::vector<void*> slots;
    for (int i = 0; i < 100; ++i) slots.push_back(pool.Allocate());
    for (std::size_t i = 0; i < slots.size(); ++i) {
        EXPECT_EQ(Address(slots[i]) % alignof(std::max_align_t), 0u);
        if (i > 0) {
            EXPECT_EQ(Address(slots[i]), Address(slots[i - 1]) + kSlotSize);
        }
    }
    EXPECT_EQ(pool.GetLiveCount(), 100u);
    EXPECT_EQ(pool.GetSlabCount(), 1u);
    for (void* slot : slots) pool.Release(slot);
    EXPECT_EQ(pool.GetLiveCount(), 0u);
}

TEST(CTriPool, ReleasedSlotsAreReusedBeforeNewOnes) {
    CTriPool pool(kSlotSize);
    void* a = pool.Allocate();
    void* b = pool.Allocate();
    pool.Release(a);
    EXPECT_EQ(pool.Allocate(), a);
    pool.Release(a);
    pool.Release(b);
}

TEST(CTriPool, SlabsGoBackWhenEmptyKeepingOneInReserve) {
    CTriPool pool(kSlotSize);
    const std::size_t perSlab = (CTriPool::kSlabBytes - 64) / kSlotSize;
    std::vector<void*> slots;
    for (std::size_t i = 0; i < 3 * perSlab + 5; ++i) slots.push_back(pool.Allocate());
    EXPECT_EQ(pool.GetSlabCount(), 4u);
    std::set<std::uintptr_t> slabs;
    for (void* slot : slots) slabs.insert(SlabOf(slot));
    EXPECT_EQ(slabs.size(), 4u);
    for (void* slot : slots) pool.Release(slot);
    EXPECT_EQ(pool.GetLiveCount(), 0u);
    EXPECT_EQ(pool.GetSlabCount(), 1u);
    // The reserve serves the next allocation without a new slab.
    void* again = pool.Allocate();
    EXPECT_EQ(pool.GetSlabCount(), 1u);
    pool.Release(again);
}

TEST(CTriPool, RandomAllocationsAndReleasesNeverShareMemory) {
    CTriPool pool(24);  // rounded up to 32
    ASSERT_EQ(pool.GetSlotSize(), 32u);
    std::mt19937 random(1);
    struct Live {
        unsigned char* slot;
        unsigned char fill;
    };
    std::vector<Live> live;
    for (int step = 0; step < 200000; ++step) {
        if (live.empty() || random() % 3 != 0) {
            auto* slot = static_cast<unsigned char*>(pool.Allocate());
            const auto fill = static_cast<unsigned char>(random());
            std::memset(slot, fill, pool.GetSlotSize());
            live.push_back({slot, fill});
        } else {
            const std::size_t pick = random() % live.size();
            const Live gone = live[pick];
            for (std::size_t k = 0; k < pool.GetSlotSize(); ++k)
                ASSERT_EQ(gone.slot[k], gone.fill) << "slot overwritten, step " << step;
            pool.Release(gone.slot);
            live[pick] = live.back();
            live.pop_back();
        }
    }
    EXPECT_EQ(pool.GetLiveCount(), live.size());
    for (const Live& slot : live) {
        for (std::size_t k = 0; k < pool.GetSlotSize(); ++k) ASSERT_EQ(slot.slot[k], slot.fill);
        pool.Release(slot.slot);
    }
    EXPECT_EQ(pool.GetSlabCount(), 1u);
}

TEST(CTriPool, TrianglesComeFromThePoolOutsideAddressSanitizerBuilds) {
    if (!CTriPool::UsesPoolForTriangles()) GTEST_SKIP() << "heap triangles under the sanitizer";
    CTriPool& pool = CTriPool::ForTriangles();
    const std::size_t before = pool.GetLiveCount();
    auto first = kor::CRefPtr<CTri>::Adopt(new CTri(1, 0, 1, 2));
    auto second = kor::CRefPtr<CTri>::Adopt(new CTri(2, 3, 4, 5));
    EXPECT_EQ(pool.GetLiveCount(), before + 2);
    EXPECT_EQ(second->GetColor(), 2);
    first.Reset();
    second.Reset();
    EXPECT_EQ(pool.GetLiveCount(), before);
}

// A host's triangle with state of its own is larger than CTri and served by the global heap.
class CTaggedTri : public CTri {
public:
    CTaggedTri() : CTri(7, 0, 1, 2) {}
    double tag[4] = {1.0, 2.0, 3.0, 4.0};
};

TEST(CTriPool, DerivedTrianglesOfAnotherSizeUseTheGlobalHeap) {
    const std::size_t before =
        CTriPool::UsesPoolForTriangles() ? CTriPool::ForTriangles().GetLiveCount() : 0;
    auto tagged = kor::CRefPtr<CTaggedTri>::Adopt(new CTaggedTri);
    EXPECT_EQ(tagged->tag[3], 4.0);
    EXPECT_EQ(tagged->GetColor(), 7);
    if (CTriPool::UsesPoolForTriangles()) {
        EXPECT_EQ(CTriPool::ForTriangles().GetLiveCount(), before);
    }
    tagged.Reset();
}

TEST(CTriPool, ANetworkReleasesItsTrianglesWhenDestroyed) {
    if (!CTriPool::UsesPoolForTriangles()) GTEST_SKIP() << "heap triangles under the sanitizer";
    const std::size_t before = CTriPool::ForTriangles().GetLiveCount();
    {
        auto prj = kor::CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Pool", true, false));
        CTris& tris = *prj->GetTris();
        for (int i = 0; i < 30; ++i) tris.AddTriVrt(kor::geom::PNT_3D(i, i % 7, 0.0));
        for (int i = 0; i + 2 < 30; ++i) tris.AddNewTri(1, i, i + 1, i + 2);
        EXPECT_EQ(CTriPool::ForTriangles().GetLiveCount(), before + 28);
    }
    EXPECT_EQ(CTriPool::ForTriangles().GetLiveCount(), before);
}

}  // namespace
