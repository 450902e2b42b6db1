#include <dtm/support/IdRemap.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/RefCounter.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <vector>

namespace {

struct Linked : kor::IRefCounter {
    int tag = 0;
};

std::int64_t Address(const void* object) {
    return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(object));
}

/// How a section carries a stored identifier in place of a pointer.
kor::IRefCounter* Carried(std::int32_t id) {
    return reinterpret_cast<kor::IRefCounter*>(static_cast<std::intptr_t>(id));
}

}  // namespace

TEST(IdRemapTest, NullPointerIsAlwaysZero) {
    kor::CPtr64Mapper mapper;
    EXPECT_EQ(mapper.GetPointer32(0), 0);
    int object = 0;
    EXPECT_NE(mapper.GetPointer32(Address(&object)), 0);
    EXPECT_EQ(mapper.GetPointer32(0), 0);
}

TEST(IdRemapTest, IdentifiersAreStableAndDistinct) {
    kor::CPtr64Mapper mapper;
    int objects[5] = {};
    std::vector<std::int32_t> first;
    for (const int& object : objects) first.push_back(mapper.GetPointer32(Address(&object)));
    EXPECT_EQ(std::set<std::int32_t>(first.begin(), first.end()).size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_GT(first[i], 0);
        EXPECT_EQ(mapper.GetPointer32(Address(&objects[i])), first[i]);
    }
}

TEST(IdRemapTest, HostSetIdentifiersAreHonouredAndReplaceable) {
    kor::CPtr64Mapper mapper;
    int a = 0;
    int b = 0;
    mapper.SetId(&a, 40);
    EXPECT_EQ(mapper.GetPointer32(Address(&a)), 40);
    mapper.SetId(&a, 41);
    EXPECT_EQ(mapper.GetPointer32(Address(&a)), 41);
    // An identifier handed out later lies above every identifier the host chose.
    EXPECT_GT(mapper.GetPointer32(Address(&b)), 41);
}

TEST(IdRemapTest, NewIdentifiersNeverCollideWithHostOnes) {
    const unsigned seed = 99;
    std::mt19937 random(seed);
    kor::CPtr64Mapper mapper;
    std::vector<std::unique_ptr<int>> objects;
    std::set<std::int32_t> used;
    for (int step = 0; step < 500; ++step) {
        objects.push_back(std::make_unique<int>(step));
        const void* object = objects.back().get();
        std::int32_t id = 0;
        if (random() % 3 == 0) {
            // The host picks a number it has not used, anywhere in a wide range.
            do {
                id = static_cast<std::int32_t>(random() % 100000 + 1);
            } while (used.count(id) != 0);
            mapper.SetId(object, id);
            ASSERT_EQ(mapper.GetPointer32(Address(object)), id)
                << "seed " << seed << " step " << step;
        } else {
            id = mapper.GetPointer32(Address(object));
        }
        ASSERT_TRUE(used.insert(id).second)
            << "seed " << seed << " step " << step << ": identifier " << id << " given twice";
    }
    for (std::size_t i = 0; i < objects.size(); ++i)
        EXPECT_EQ(used.count(mapper.GetPointer32(Address(objects[i].get()))), 1u);
}

TEST(IdRemapTest, RemapperFindsObjectsByIntegerAndByCarriedIdentifier) {
    kor::CRefObjIdRemapper remapper;
    kor::CRefPtr<Linked> first = kor::CRefPtr<Linked>::Adopt(new Linked);
    kor::CRefPtr<Linked> second = kor::CRefPtr<Linked>::Adopt(new Linked);
    remapper.AddId(7, first.Get());
    remapper.AddId(-3, second.Get());
    EXPECT_EQ(remapper.FindId(7), first.Get());
    EXPECT_EQ(remapper.FindId(-3), second.Get());
    EXPECT_EQ(remapper.FindId(Carried(7)), first.Get());
    EXPECT_EQ(remapper.FindId(Carried(-3)), second.Get());
    // Borrowed: looking up takes no reference.
    EXPECT_EQ(first->GetReferenceCount(), 1);
}

TEST(IdRemapTest, UnknownIdentifiersAreNull) {
    kor::CRefObjIdRemapper remapper;
    kor::CRefPtr<Linked> object = kor::CRefPtr<Linked>::Adopt(new Linked);
    remapper.AddId(5, object.Get());
    EXPECT_EQ(remapper.FindId(6), nullptr);
    EXPECT_EQ(remapper.FindId(Carried(6)), nullptr);
    EXPECT_EQ(remapper.FindId(0), nullptr);
    EXPECT_EQ(remapper.FindId(nullptr), nullptr);
    EXPECT_EQ(kor::CRefObjIdRemapper().FindId(5), nullptr);
}

TEST(IdRemapTest, LaterRegistrationReplacesEarlierOne) {
    kor::CRefObjIdRemapper remapper;
    kor::CRefPtr<Linked> first = kor::CRefPtr<Linked>::Adopt(new Linked);
    kor::CRefPtr<Linked> second = kor::CRefPtr<Linked>::Adopt(new Linked);
    remapper.AddId(1, first.Get());
    remapper.AddId(1, second.Get());
    EXPECT_EQ(remapper.FindId(1), second.Get());
}

TEST(IdRemapTest, WriterAndReaderAgreeThroughAStream) {
    // Writing side: each object's pointer becomes the identifier the host gives it.
    std::vector<kor::CRefPtr<Linked>> written;
    kor::CPtr64Mapper mapper;
    std::stringstream document;
    for (int i = 0; i < 4; ++i) {
        written.push_back(kor::CRefPtr<Linked>::Adopt(new Linked));
        written.back()->tag = i;
        dtm::io::WriteRaw<std::int32_t>(document,
                                        mapper.GetPointer32(Address(written.back().Get())));
    }
    dtm::io::WriteRaw<std::int32_t>(document, mapper.GetPointer32(0));

    // Reading side: the host registers the objects it read under the same identifiers.
    kor::CRefObjIdRemapper remapper;
    for (const auto& object : written)
        remapper.AddId(mapper.GetPointer32(Address(object.Get())), object.Get());
    for (int i = 0; i < 4; ++i) {
        std::int32_t id = 0;
        ASSERT_TRUE(dtm::io::ReadRaw(document, id));
        auto* found = static_cast<Linked*>(remapper.FindId(Carried(id)));
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->tag, i);
    }
    std::int32_t nullId = -1;
    ASSERT_TRUE(dtm::io::ReadRaw(document, nullId));
    EXPECT_EQ(remapper.FindId(Carried(nullId)), nullptr);
}

namespace {

TEST(Ptr64MapperLimits, ZeroIsRefusedAndTheLastIdentifierIsHandedOutOnce) {
    kor::CPtr64Mapper mapper;
    int a = 0, b = 0, c = 0;
    EXPECT_THROW(mapper.SetId(&a, 0), std::invalid_argument);
    mapper.SetId(&a, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(mapper.GetPointer32(reinterpret_cast<std::intptr_t>(&a)),
              std::numeric_limits<std::int32_t>::max());
    EXPECT_THROW(mapper.GetPointer32(reinterpret_cast<std::intptr_t>(&b)), std::overflow_error);
    (void)c;
}

}  // namespace
