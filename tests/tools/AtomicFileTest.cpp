// Output files appear whole or not at all.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "AtomicFile.h"
#include "TempDir.h"
#include "ToolError.h"
#include "ToolTestSupport.h"

namespace {

using dtmtool::AtomicFile;
using tool_test::FolderEntries;
using tool_test::ReadText;
using tool_test::WriteText;
using Names = std::vector<std::string>;

// The message of the ToolError that @p action throws, or "" when it throws none.
template <class Action>
std::string ErrorOf(Action action) {
    try {
        action();
    } catch (const dtmtool::ToolError& error) {
        return error.what();
    }
    return "";
}

bool IsLink(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

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
    // A folder that appears in the target's place while the content is written cannot be
    // replaced by a file: the rename fails after the content was written.
    const std::string path = folder.File("target");
    {
        AtomicFile file(path);
        file.Stream() << "content";
        ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
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

TEST(AtomicFileTest, ALinkIsWrittenThroughToItsTargetAndStays) {
    dtm_test::TempDir folder;
    const std::string target = folder.File("target.txt");
    const std::string link = folder.File("link.dtm");
    WriteText(target, "old");
    ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
    ASSERT_EQ(::symlink("target.txt", link.c_str()), 0);
    dtmtool::WriteFileAtomically(link, "new", 3);
    EXPECT_TRUE(IsLink(link));
    EXPECT_EQ(ReadText(target), "new");
    struct stat info;
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"link.dtm", "target.txt"}));
}

TEST(AtomicFileTest, AChainOfLinksIntoAnotherFolderIsFollowedAndTheTemporaryLivesThere) {
    dtm_test::TempDir folder;
    ASSERT_EQ(::mkdir(folder.File("a").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(folder.File("b").c_str(), 0755), 0);
    // a/first -> second -> ../b/missing.txt, which the write creates.
    ASSERT_EQ(::symlink("second", folder.File("a/first").c_str()), 0);
    ASSERT_EQ(::symlink("../b/missing.txt", folder.File("a/second").c_str()), 0);
    {
        AtomicFile file(folder.File("a/first"));
        file.Stream() << "content";
        EXPECT_EQ(FolderEntries(folder.File("a")), (Names{"first", "second"}));
        ASSERT_EQ(FolderEntries(folder.File("b")).size(), 1u);
        EXPECT_EQ(FolderEntries(folder.File("b"))[0].rfind(".dtm-", 0), 0u);
        file.Commit();
    }
    EXPECT_TRUE(IsLink(folder.File("a/first")));
    EXPECT_TRUE(IsLink(folder.File("a/second")));
    EXPECT_EQ(ReadText(folder.File("b/missing.txt")), "content");
    EXPECT_EQ(FolderEntries(folder.File("b")), Names{"missing.txt"});
}

TEST(AtomicFileTest, ALinkThatLeadsToItselfIsReported) {
    dtm_test::TempDir folder;
    const std::string loop = folder.File("loop");
    ASSERT_EQ(::symlink("loop", loop.c_str()), 0);
    EXPECT_EQ(ErrorOf([&] { AtomicFile file(loop); }),
              loop + ": cannot be written: Too many levels of symbolic links");
    EXPECT_EQ(FolderEntries(folder.Path()), Names{"loop"});
}

TEST(AtomicFileTest, WhatIsNotARegularFileIsRefusedAndLeftAlone) {
    dtm_test::TempDir folder;
    const std::string sub = folder.File("sub");
    const std::string pipe = folder.File("pipe");
    const std::string link = folder.File("link");
    ASSERT_EQ(::mkdir(sub.c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
    ASSERT_EQ(::symlink("pipe", link.c_str()), 0);
    EXPECT_EQ(ErrorOf([&] { AtomicFile file(sub); }),
              sub + ": is a folder, not a regular file; choose another output");
    EXPECT_EQ(ErrorOf([&] { AtomicFile file(pipe); }),
              pipe + ": is a pipe, not a regular file; choose another output");
    EXPECT_EQ(ErrorOf([&] { dtmtool::WriteFileAtomically(link, "x", 1); }),
              link + ": is a pipe, not a regular file; choose another output");
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"link", "pipe", "sub"}));
    EXPECT_TRUE(FolderEntries(sub).empty());
    EXPECT_TRUE(IsLink(link));
}

TEST(AtomicFileTest, AHyphenIsNotTakenForStandardOutputNorForAFileName) {
    EXPECT_EQ(ErrorOf([] { dtmtool::CheckOutputKind("-"); }),
              "-: the output cannot be standard output; name a file (./- for a file called -)");
    dtm_test::TempDir folder;
    dtmtool::WriteFileAtomically(folder.File("-"), "x", 1);
    EXPECT_EQ(ReadText(folder.File("-")), "x");
}

TEST(AtomicFileTest, ANameAsLongAsTheFileSystemAllowsCanBeWritten) {
    dtm_test::TempDir folder;
    const std::string path = folder.File(std::string(250, 'n'));
    dtmtool::WriteFileAtomically(path, "x", 1);
    EXPECT_EQ(ReadText(path), "x");
    EXPECT_EQ(FolderEntries(folder.Path()), Names{std::string(250, 'n')});
}

TEST(AtomicFileTest, TheOutputMayNotBeTheInputHoweverItIsNamed) {
    dtm_test::TempDir folder;
    const std::string input = folder.File("in.xml");
    WriteText(input, "input");
    ASSERT_EQ(::symlink("in.xml", folder.File("soft.xml").c_str()), 0);
    ASSERT_EQ(::link(input.c_str(), folder.File("hard.xml").c_str()), 0);
    for (const std::string& output :
         {input, folder.Path() + "/./in.xml", folder.File("soft.xml"), folder.File("hard.xml")})
        EXPECT_EQ(ErrorOf([&] { dtmtool::CheckOutput(input, output); }),
                  output + ": is the input file; choose another output");
    WriteText(folder.File("other.xml"), "input");
    EXPECT_EQ(ErrorOf([&] { dtmtool::CheckOutput(input, folder.File("other.xml")); }), "");
    EXPECT_EQ(ErrorOf([&] { dtmtool::CheckOutput(input, folder.File("new.xml")); }), "");
    EXPECT_EQ(ErrorOf([&] { dtmtool::CheckOutput(folder.File("missing.xml"), input); }), "");
    EXPECT_EQ(ErrorOf([&] { dtmtool::CheckOutput(input, folder.Path()); }),
              folder.Path() + ": is a folder, not a regular file; choose another output");
    EXPECT_EQ(ReadText(input), "input");
}

}  // namespace
