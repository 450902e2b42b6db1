// Output files appear whole or not at all.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <stdexcept>

#include "AtomicFile.h"
#include "TempDir.h"
#include "ToolError.h"
#include "ToolTestSupport.h"

namespace {

using dtmtool::AtomicFile;
using tool_test::FolderEntries;
using tool_test::ReadText;
using tool_test::WriteText;

TEST(AtomicFileTest, CommitReplacesThePreviousContent) {
    dtm_test::TempDir folder;
    const std::string path = folder.File("out.txt");
    WriteText(path, "old");
    AtomicFile file(path);
    file.Stream() << "new content";
    file.Commit();
    EXPECT_EQ(ReadText(path), "new content");
    EXPECT_EQ(FolderEntries(folder.Path()), std::vector<std::string>{"out.txt"});
}

TEST(AtomicFileTest, AWriterThatFailsLeavesThePreviousFileAndNoTemporary) {
    dtm_test::TempDir folder;
    const std::string path = folder.File("out.txt");
    WriteText(path, "old");
    try {
        AtomicFile file(path);
        file.Stream() << "half of it";
        throw std::runtime_error("the writer failed");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(ReadText(path), "old");
    EXPECT_EQ(FolderEntries(folder.Path()), std::vector<std::string>{"out.txt"});
}

TEST(AtomicFileTest, AMissingFolderIsReportedWithThePath) {
    dtm_test::TempDir folder;
    const std::string path = folder.File("no/such/folder/out.txt");
    try {
        AtomicFile file(path);
        FAIL() << "no error";
    } catch (const dtmtool::ToolError& error) {
        EXPECT_EQ(std::string(error.what()).rfind(path + ": cannot be written", 0), 0u)
            << error.what();
    }
}

TEST(AtomicFileTest, ARenameThatFailsLeavesTheTargetAndNoTemporary) {
    dtm_test::TempDir folder;
    // A folder cannot be replaced by a file: the rename fails after the content was written.
    const std::string path = folder.File("target");
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
    {
        AtomicFile file(path);
        file.Stream() << "content";
        EXPECT_THROW(file.Commit(), dtmtool::ToolError);
    }
    struct stat info;
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(FolderEntries(folder.Path()), std::vector<std::string>{"target"});
}

TEST(AtomicFileTest, ANewFileGetsTheUsualPermissionsAndAReplacedOneKeepsItsOwn) {
    dtm_test::TempDir folder;
    const std::string fresh = folder.File("fresh.txt");
    const mode_t mask = ::umask(022);
    dtmtool::WriteFileAtomically(fresh, "x", 1);
    ::umask(mask);
    struct stat info;
    ASSERT_EQ(::stat(fresh.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);

    const std::string kept = folder.File("kept.txt");
    WriteText(kept, "old");
    ASSERT_EQ(::chmod(kept.c_str(), 0600), 0);
    dtmtool::WriteFileAtomically(kept, "new", 3);
    ASSERT_EQ(::stat(kept.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

}  // namespace
