// The reference count every shared object carries: an object goes exactly once, when its last
// reference is released, also when its holders release them from different threads at once.

#include <dtm/support/RefCounter.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

// Counts its destructions in a counter the test owns.
class CCounted : public kor::IRefCounter {
public:
    explicit CCounted(std::atomic<int>& destroyed) : m_destroyed(destroyed) {}

protected:
    ~CCounted() override { m_destroyed.fetch_add(1); }

private:
    std::atomic<int>& m_destroyed;
};

TEST(RefCounter, ANewObjectHoldsOneReferenceAndGoesWithIt) {
    std::atomic<int> destroyed{0};
    auto* object = new CCounted(destroyed);
    EXPECT_EQ(object->GetReferenceCount(), 1);
    object->SubReference();
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(RefCounter, OnlyTheLastReleaseDestroys) {
    std::atomic<int> destroyed{0};
    auto* object = new CCounted(destroyed);
    object->AddReference();
    object->AddReference();
    EXPECT_EQ(object->GetReferenceCount(), 3);
    object->SubReference();
    EXPECT_EQ(object->GetReferenceCount(), 2);
    object->SubReference();
    EXPECT_EQ(object->GetReferenceCount(), 1);
    EXPECT_EQ(destroyed.load(), 0);
    object->SubReference();
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(RefCounter, CopiesStartWithTheirOwnSingleReference) {
    std::atomic<int> destroyed{0};
    auto* original = new CCounted(destroyed);
    original->AddReference();
    auto* copy = new CCounted(*original);
    EXPECT_EQ(copy->GetReferenceCount(), 1);
    copy->SubReference();
    EXPECT_EQ(destroyed.load(), 1);
    original->SubReference();
    original->SubReference();
    EXPECT_EQ(destroyed.load(), 2);
}

// Four holders of each object release their references at the same time, from four threads:
// whatever the interleaving, exactly one of them destroys it (a second destruction would be
// reported by the address sanitizer, a missing one by the count and the leak checker).
TEST(RefCounter, HoldersReleasingFromSeveralThreadsDestroyEachObjectOnce) {
    constexpr int kThreads = 4;
    constexpr int kObjects = 20000;
    std::atomic<int> destroyed{0};
    std::vector<CCounted*> objects;
    for (int i = 0; i < kObjects; ++i) {
        auto* object = new CCounted(destroyed);
        for (int holder = 1; holder < kThreads; ++holder) object->AddReference();
        objects.push_back(object);
    }
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&objects, &ready, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) {
            }
            // Each thread walks the objects in its own order, so that releases meet at
            // different points of the count.
            for (int k = 0; k < kObjects; ++k) {
                const int i = t % 2 == 0 ? k : kObjects - 1 - k;
                objects[static_cast<std::size_t>(i)]->SubReference();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(destroyed.load(), kObjects);
}

}  // namespace
