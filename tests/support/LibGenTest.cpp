#include <dtm/support/LibGen.h>
#include <dtm/support/Streams.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

/// A host library object that counts the calls reaching its override through the base.
class CountingLib : public CLibGen {
public:
    int modifiedCalls = 0;
    void SetModifiedFlag(bool modified) override {
        ++modifiedCalls;
        CLibGen::SetModifiedFlag(modified);
    }
};

}  // namespace

TEST(LibGenTest, StartsUnmodifiedAndNotAutoSaved) {
    CLibGen lib;
    EXPECT_FALSE(lib.IsModified());
    EXPECT_FALSE(lib.IsAutoSaved());
}

TEST(LibGenTest, AutoSaveKeepsModifiedFlag) {
    CLibGen lib;
    lib.SetModifiedFlag(true);
    EXPECT_TRUE(lib.IsModified());
    lib.SetAutoSaved();
    EXPECT_TRUE(lib.IsAutoSaved());
    // The document still differs from what the user saved.
    EXPECT_TRUE(lib.IsModified());
}

TEST(LibGenTest, NewModificationClearsAutoSaved) {
    CLibGen lib;
    lib.SetAutoSaved();
    lib.SetModifiedFlag(true);
    EXPECT_TRUE(lib.IsModified());
    EXPECT_FALSE(lib.IsAutoSaved());
}

TEST(LibGenTest, ClearingModifiedKeepsAutoSaved) {
    CLibGen lib;
    lib.SetModifiedFlag(true);
    lib.SetAutoSaved();
    lib.SetModifiedFlag(false);
    EXPECT_FALSE(lib.IsModified());
    EXPECT_TRUE(lib.IsAutoSaved());
}

TEST(LibGenTest, OverridesAreReachedThroughTheBase) {
    CountingLib counting;
    CLibGen& base = counting;
    base.SetModifiedFlag(true);
    EXPECT_EQ(counting.modifiedCalls, 1);
    EXPECT_TRUE(base.IsModified());
}

TEST(LibGenTest, BaseSectionWritesAndReadsNothing) {
    CLibGen lib;
    lib.SetModifiedFlag(true);
    std::stringbuf buffer;
    ofpstream out(&buffer, 1502);
    lib.SalvaInFile(out, 1502);
    EXPECT_TRUE(buffer.str().empty());

    std::stringbuf input("abc");
    ifpstream in(&input, 1502);
    lib.LeggeDaFile(in, 1502);
    EXPECT_EQ(in.tellg(), std::streampos(0));
    EXPECT_TRUE(in.good());
    // The flags describe the document, not its content: reading leaves them alone.
    EXPECT_TRUE(lib.IsModified());
}
