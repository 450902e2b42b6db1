// The document file: the framing around the library's sections, read back exactly, and every
// way a file can be damaged turned into a message.

#include <dtm/dtm.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "ContourLines.h"
#include "Crc32.h"
#include "Document.h"
#include "SurfaceProject.h"
#include "TempDir.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "ToolTestSupport.h"
#include "Workspace.h"

namespace {

using dtmtool::ParseDocument;
using dtmtool::SerializeDocument;
using dtmtool::ToolError;
using dtmtool::Workspace;
using tool_test::PNT_3D;

const std::string kFile = "test.dtm";

// A small project with something in every section: a network, an outer ring, a hole, a
// breakline, contour lines with labels, and options that differ from the defaults.
void AddSmallProject(Workspace& workspace, const std::string& name, double slope) {
    dtmtool::TinSurface surface = tool_test::GridSurface(
        4, 3, 10.0, 100.0, 200.0, [slope](double x, double y) { return slope * x + 0.5 * y; }, 0.2,
        7);
    surface.name = name;
    surface.externalBoundaries.push_back(
        {{100, 200, 1}, {140, 200, 2}, {140, 230, 3}, {100, 230, 4}});
    surface.internalBoundaries.push_back({{115, 210, 5}, {125, 210, 6}, {120, 218, 7}});
    surface.breaklines.push_back({{100, 200, 1}, {110, 210, 2}, {120, 220, 3}});
    CDtmPrj& prj = *dtmtool::AddSurfaceProject(workspace, surface);
    dtmtool::ContourSettings settings;
    settings.interval = 2.0;
    settings.labelEvery = 2;
    settings.textHeight = 0.8;
    dtmtool::MakeContourLines(prj, settings);
}

// Two small projects, "First" hidden and "Second" locked and active.
void FillSmallWorkspace(Workspace& workspace) {
    AddSmallProject(workspace, "First", 0.3);
    AddSmallProject(workspace, "Second", -0.2);
    workspace.Library().GetPrj(1)->SetLocked(true);
    workspace.Library().GetPrj(0)->SetVisible(false);
    workspace.Library().SetActive(workspace.Library().GetPrj(1), false);
}

std::vector<char> SmallDocument() {
    Workspace workspace;
    FillSmallWorkspace(workspace);
    return SerializeDocument(workspace.Library());
}

// The message of the ToolError that parsing @p bytes throws, or "" when it parses; with
// @p records, survey records are read (else skipped).
enum class Records { Skipped, Read };

std::string ParseError(const std::vector<char>& bytes, Records records = Records::Skipped) {
    Workspace workspace;
    try {
        ParseDocument(workspace.Library(), bytes.data(), bytes.size(), kFile,
                      records == Records::Read ? &workspace.Surveys() : nullptr);
    } catch (const ToolError& error) {
        return error.what();
    }
    return "";
}

// The message of parsing only the first @p size bytes of @p bytes.
std::string ParseErrorOfFirst(const std::vector<char>& bytes, std::size_t size) {
    return ParseError(std::vector<char>(bytes.begin(), bytes.begin() + size));
}

template <class T>
T Get(const std::vector<char>& bytes, std::size_t at) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof(T));
    return value;
}
template <class T>
void Put(std::vector<char>& bytes, std::size_t at, T value) {
    std::memcpy(bytes.data() + at, &value, sizeof(T));
}

// Where the framing's blocks lie, found independently of the reader: after the 8-byte magic
// and the 2-byte version, each block is tag (4), length (8), checksum (4), payload.
struct Block {
    std::size_t at;
    std::string tag;
    std::uint64_t length;
    std::size_t payload() const { return at + 16; }
};

std::vector<Block> Blocks(const std::vector<char>& bytes) {
    std::vector<Block> blocks;
    std::size_t at = 10;
    while (at < bytes.size()) {
        Block block{at, std::string(bytes.data() + at, 4), Get<std::uint64_t>(bytes, at + 4)};
        blocks.push_back(block);
        at = block.payload() + static_cast<std::size_t>(block.length);
    }
    return blocks;
}

void Reseal(std::vector<char>& bytes, const Block& block) {
    Put<std::uint64_t>(bytes, block.at + 4, block.length);
    Put<std::uint32_t>(bytes, block.at + 12,
                       dtmtool::Crc32(bytes.data() + block.payload(), block.length));
}

TEST(DocumentTest, WritingWhatWasReadGivesTheSameBytes) {
    const std::vector<char> bytes = SmallDocument();
    Workspace workspace;
    const dtmtool::DocumentInfo info =
        ParseDocument(workspace.Library(), bytes.data(), bytes.size(), kFile);
    EXPECT_EQ(info.version, dtmtool::kNewestDocumentVersion);
    EXPECT_EQ(info.bytes, bytes.size());
    EXPECT_EQ(SerializeDocument(workspace.Library()), bytes);
}

TEST(DocumentTest, ProjectsComeBackWithNamesFlagsActiveProjectAndEverySection) {
    Workspace original;
    AddSmallProject(original, "First", 0.3);
    AddSmallProject(original, "Second", -0.2);
    original.Library().GetPrj(1)->SetLocked(true);
    original.Library().GetPrj(0)->SetVisible(false);
    original.Library().SetActive(original.Library().GetPrj(1), false);
    const std::vector<char> bytes = SerializeDocument(original.Library());

    Workspace read;
    ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile);
    ASSERT_EQ(read.Library().GetNoPrj(), 2u);
    for (unsigned i = 0; i < 2; ++i) {
        const CDtmPrj& a = *original.Library().GetPrj(i);
        const CDtmPrj& b = *read.Library().GetPrj(i);
        EXPECT_EQ(b.GetName(), a.GetName());
        EXPECT_EQ(b.IsVisible(), a.IsVisible());
        EXPECT_EQ(b.IsLocked(), a.IsLocked());
        EXPECT_EQ(b.GetTris()->GetPnts().size(), a.GetTris()->GetPnts().size());
        for (std::size_t v = 0; v < a.GetTris()->GetPnts().size(); ++v) {
            EXPECT_EQ(b.GetTris()->GetPnts()[v].x, a.GetTris()->GetPnts()[v].x);
            EXPECT_EQ(b.GetTris()->GetPnts()[v].z, a.GetTris()->GetPnts()[v].z);
        }
        EXPECT_EQ(b.GetTris()->GetNoTris(), a.GetTris()->GetNoTris());
        EXPECT_EQ(b.GetCnts(false)->GetNoCnts(), 1);
        EXPECT_EQ(b.GetCnts(true)->GetNoCnts(), 1);
        EXPECT_EQ(b.GetVncs()->GetNoVncs(), 2);
        ASSERT_EQ(b.GetCvLvs()->GetNoCvLvs(), a.GetCvLvs()->GetNoCvLvs());
        EXPECT_GT(b.GetCvLvs()->GetNoCvLvs(), 0u);
        EXPECT_EQ(b.GetCvLvs()->GetOpzCvLv().GetTextHeight(), 0.8);
        EXPECT_EQ(b.GetTris()->GetOptions().GetColorType(), COpzTri::TRI_COLOR_BY_CLASSES);
    }
    EXPECT_EQ(read.Library().GetActive(), read.Library().GetPrj(1));
}

TEST(DocumentTest, LayoutIsMagicVersionThenTaggedBlocksInSectionOrder) {
    const std::vector<char> bytes = SmallDocument();
    ASSERT_EQ(std::memcmp(bytes.data(),
                          "\x89"
                          "DTM\r\n\x1A\n",
                          8),
              0);
    EXPECT_EQ(Get<std::int16_t>(bytes, 8), 1502);
    const std::vector<Block> blocks = Blocks(bytes);
    std::vector<std::string> tags;
    for (const Block& block : blocks) tags.push_back(block.tag);
    const std::vector<std::string> project = {"PRJ ", "OPTS", "TRIS", "CNTE",
                                              "CNTI", "CVLV", "VNCS"};
    std::vector<std::string> expected = {"DOC "};
    for (int i = 0; i < 2; ++i) expected.insert(expected.end(), project.begin(), project.end());
    EXPECT_EQ(tags, expected);
    // The document header: two projects, the second active.
    EXPECT_EQ(blocks[0].length, 8u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, blocks[0].payload()), 2u);
    EXPECT_EQ(Get<std::int32_t>(bytes, blocks[0].payload() + 4), 1);
    // A project header: the name, the flags (hidden and unlocked: 0), the section count.
    const Block& header = blocks[1];
    EXPECT_EQ(Get<std::uint32_t>(bytes, header.payload()), 5u);
    EXPECT_EQ(std::string(bytes.data() + header.payload() + 4, 5), "First");
    EXPECT_EQ(Get<std::uint32_t>(bytes, header.payload() + 9), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, header.payload() + 13), 6u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, blocks[8].payload() + 10),
              3u);  // "Second": visible, locked
    // Every checksum covers its payload.
    for (const Block& block : blocks)
        EXPECT_EQ(Get<std::uint32_t>(bytes, block.at + 12),
                  dtmtool::Crc32(bytes.data() + block.payload(), block.length))
            << block.tag;
}

TEST(DocumentTest, AProjectWithoutVerticesHasAnEmptyNetworkSectionAndReadsBack) {
    Workspace workspace;
    workspace.AddProject("Empty");
    const std::vector<char> bytes = SerializeDocument(workspace.Library());
    const std::vector<Block> blocks = Blocks(bytes);
    ASSERT_EQ(blocks[3].tag, "TRIS");
    EXPECT_EQ(blocks[3].length, 0u);
    Workspace read;
    ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile);
    ASSERT_EQ(read.Library().GetNoPrj(), 1u);
    EXPECT_EQ(read.Library().GetPrj(0)->GetTris()->GetNoTriVrts(), 0);
    EXPECT_EQ(SerializeDocument(read.Library()), bytes);
}

TEST(DocumentTest, AnEmptyLibraryMakesADocumentWithoutProjects) {
    Workspace workspace;
    const std::vector<char> bytes = SerializeDocument(workspace.Library());
    EXPECT_EQ(bytes.size(), 10u + 16u + 8u);
    EXPECT_EQ(ParseError(bytes), "");
}

// The offsets a damage test visits: every byte of the magic, the version and each block's
// header, where one wrong bit changes the framing itself, and a sample of the payloads, where
// the checksum must catch it (a full sweep of a few kilobytes takes half a minute under the
// sanitizers, each parse building projects that read the INI file).
std::vector<std::size_t> Probes(const std::vector<char>& bytes) {
    std::vector<std::size_t> offsets;
    for (std::size_t at = 0; at < 10; ++at) offsets.push_back(at);
    for (const Block& block : Blocks(bytes)) {
        for (std::size_t at = block.at; at < block.payload(); ++at) offsets.push_back(at);
        constexpr std::size_t kPayloadStride = 29;
        for (std::size_t at = block.payload(); at < block.payload() + block.length;
             at += kPayloadStride)
            offsets.push_back(at);
        if (block.length > 0) offsets.push_back(block.payload() + block.length - 1);
    }
    return offsets;
}

TEST(DocumentTest, TruncationAnywhereIsReportedAsSuch) {
    const std::vector<char> bytes = SmallDocument();
    EXPECT_EQ(ParseError({}), kFile + ": is empty");
    for (const std::size_t size : Probes(bytes)) {
        if (size == 0) continue;
        const std::string message = ParseErrorOfFirst(bytes, size);
        ASSERT_EQ(message.rfind(kFile + ": is truncated: ", 0), 0u) << size << ": " << message;
    }
}

TEST(DocumentTest, DamageAnywhereIsReportedAndNothingIsAccepted) {
    const std::vector<char> bytes = SmallDocument();
    for (const std::size_t at : Probes(bytes)) {
        std::vector<char> damaged = bytes;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        const std::string message = ParseError(damaged);
        ASSERT_EQ(message.rfind(kFile + ": ", 0), 0u) << "byte " << at << ": '" << message << "'";
    }
}

TEST(DocumentTest, ADamagedPayloadNamesItsSectionAndProject) {
    std::vector<char> bytes = SmallDocument();
    const std::vector<Block> blocks = Blocks(bytes);
    ASSERT_EQ(blocks[10].tag, "TRIS");
    bytes[blocks[10].payload() + 30] ^= 1;
    EXPECT_EQ(
        ParseError(bytes),
        kFile + ": is damaged: the checksum of the network of project 'Second' does not match");
}

TEST(DocumentTest, ABlockOfAnotherTagIsNamedByItsTag) {
    const std::vector<char> bytes = SmallDocument();
    const Block network = Blocks(bytes)[10];
    ASSERT_EQ(network.tag, "TRIS");
    const std::string expected =
        kFile + ": is damaged: expected the network of project 'Second', found a block tagged ";
    // The space and the tilde end the printable range; a quote, 0x7F and 0x1F would garble
    // the message, so such a tag comes in hex (its bytes read as a little-endian number).
    const std::vector<std::pair<std::string, std::string>> cases = {{"TRIX", "'TRIX'"},
                                                                    {" R~S", "' R~S'"},
                                                                    {"TR'S", "0x53275254"},
                                                                    {"TR\x7FS", "0x537F5254"},
                                                                    {"TR\x1FS", "0x531F5254"}};
    for (const auto& [tag, shown] : cases) {
        std::vector<char> damaged = bytes;
        std::memcpy(damaged.data() + network.at, tag.data(), 4);
        EXPECT_EQ(ParseError(damaged), expected + shown) << shown;
    }
}

// The two sides of a block header's end: one byte short of it, and the header whole with none
// of its payload. Each block is named once, the headers of the document and of a project too.
TEST(DocumentTest, ADocumentCutAtABlockHeadersEndSaysWhatIsMissing) {
    const std::vector<char> bytes = SmallDocument();
    const std::vector<Block> blocks = Blocks(bytes);
    ASSERT_EQ(blocks[0].tag, "DOC ");
    EXPECT_EQ(ParseErrorOfFirst(bytes, blocks[0].payload() - 1),
              kFile + ": is truncated: the document header is cut short in its block header");
    ASSERT_EQ(blocks[1].tag, "PRJ ");
    EXPECT_EQ(ParseErrorOfFirst(bytes, blocks[1].payload() - 1),
              kFile + ": is truncated: the header of project 1 is cut short in its block header");
    const Block network = blocks[10];
    ASSERT_EQ(network.tag, "TRIS");
    EXPECT_EQ(ParseErrorOfFirst(bytes, network.payload() - 1),
              kFile +
                  ": is truncated: the network of project 'Second' is cut short in its block "
                  "header");
    EXPECT_EQ(ParseErrorOfFirst(bytes, network.payload()),
              kFile + ": is truncated: the network of project 'Second' ends after 0 of " +
                  dtmtool::Counted(network.length, "byte", "bytes"));
}

TEST(DocumentTest, AForeignFileIsNotADocument) {
    const std::string text = "<?xml version=\"1.0\"?><LandXML/>";
    EXPECT_EQ(ParseError(std::vector<char>(text.begin(), text.end())),
              kFile + ": is not a dtm document");
}

// A document copied as text is told as such, however it was mangled after the magic.
TEST(DocumentTest, ADocumentCopiedAsTextIsNamedAsDamagedInTransfer) {
    const std::vector<char> bytes = SmallDocument();
    const auto replaced = [&bytes](const std::string& from, const std::string& to) {
        std::string text(bytes.begin(), bytes.end());
        for (std::size_t at = text.find(from); at != std::string::npos;
             at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
        return std::vector<char>(text.begin(), text.end());
    };
    std::vector<char> sevenBits = bytes;
    for (char& byte : sevenBits) byte = static_cast<char>(byte & 0x7F);
    const std::string lineEnds =
        "its line ends were converted, as a copy in text mode does; copy it again as binary";
    EXPECT_EQ(ParseError(replaced("\r\n", "\n")),
              kFile + ": is a dtm document damaged in transfer: " + lineEnds);
    EXPECT_EQ(ParseError(replaced("\n", "\r\n")),
              kFile + ": is a dtm document damaged in transfer: " + lineEnds);
    EXPECT_EQ(ParseError(sevenBits), kFile +
                                         ": is a dtm document damaged in transfer: its bytes lost "
                                         "their high bit, as a 7-bit channel does; copy it again "
                                         "as binary");
    // Cut within what the damage left of the magic, it is no document anyone can tell.
    EXPECT_EQ(ParseErrorOfFirst(replaced("\r\n", "\n"), 6), kFile + ": is not a dtm document");
}

TEST(DocumentTest, ANewerVersionIsRefusedWithBothVersions) {
    std::vector<char> bytes = SmallDocument();
    Put<std::int16_t>(bytes, 8, 1600);
    EXPECT_EQ(ParseError(bytes), kFile +
                                     ": was written at document version 1600, newer than this "
                                     "program reads (up to 1502)");
}

TEST(DocumentTest, AVersionBelowOneIsDamaged) {
    std::vector<char> bytes = SmallDocument();
    for (const std::int16_t version : {0, -1, -32768}) {
        Put<std::int16_t>(bytes, 8, version);
        EXPECT_EQ(ParseError(bytes), kFile + ": is damaged: document version " +
                                         std::to_string(version) + " is not valid");
    }
}

// The magic takes 8 bytes and the version 2: nine bytes lack the version, ten hold it and lack
// the document header's block.
TEST(DocumentTest, ADocumentCutAroundItsVersionSaysWhatIsMissing) {
    const std::vector<char> bytes = SmallDocument();
    EXPECT_EQ(ParseErrorOfFirst(bytes, 9),
              kFile + ": is truncated: the document version is missing");
    EXPECT_EQ(ParseErrorOfFirst(bytes, 10),
              kFile + ": is truncated: the document header is missing");
}

TEST(DocumentTest, SectionsAddedByANewerWriterAreSkipped) {
    std::vector<char> bytes = SmallDocument();
    std::vector<Block> blocks = Blocks(bytes);
    // Project "First" announces a seventh section, which follows its breaklines.
    Block& header = blocks[1];
    Put<std::uint32_t>(bytes, header.payload() + 13, 7u);
    Reseal(bytes, header);
    const std::size_t insertAt = blocks[8].at;
    const std::string extra = "NEW!";
    std::vector<char> block(16 + 3, 'x');
    std::memcpy(block.data(), extra.data(), 4);
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(insertAt), block.begin(), block.end());
    Reseal(bytes, Block{insertAt, extra, 3});

    Workspace read;
    const dtmtool::DocumentInfo info =
        ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile);
    ASSERT_EQ(read.Library().GetNoPrj(), 2u);
    EXPECT_EQ(SerializeDocument(read.Library()), SmallDocument());
    EXPECT_EQ(info.skipped, (std::vector<std::string>{
                                "section 7 of project 'First' (tagged 'NEW!') is not one this "
                                "program knows; it was left out"}));
}

// The small document with survey records: "First" with units and point ids, "Second" with
// an empty record, so that only the first carries a record block.
struct RecordedDocument {
    std::vector<char> bytes;
    dtmtool::SurveyRecord first;  // the record of "First"
};

RecordedDocument SmallDocumentWithRecords(std::vector<dtmtool::SurveyBoundary> boundaries = {},
                                          std::vector<std::vector<int>> hidden = {}) {
    Workspace workspace;
    FillSmallWorkspace(workspace);
    dtmtool::SurveyRecord& record = workspace.Surveys()[workspace.Library().GetPrj(0)];
    record.units = {"Imperial", {{"linearUnit", "USSurveyFoot"}, {"areaUnit", "squareFoot"}}};
    const int vertices = workspace.Library().GetPrj(0)->GetTris()->GetNoTriVrts();
    for (int i = 0; i < vertices; ++i)
        record.pointIds.push_back(i % 2 == 0 ? 9000000000LL + i : -i);
    record.breaklines = {{{{"name", "Ridge"}, {"brkType", "standard"}}, 2}};
    record.boundaries = std::move(boundaries);
    record.hiddenFaces = std::move(hidden);
    workspace.Surveys()[workspace.Library().GetPrj(1)];
    return {SerializeDocument(workspace.Library(), dtmtool::kNewestDocumentVersion,
                              &workspace.Surveys()),
            record};
}

TEST(DocumentTest, ASurveyRecordFollowsItsProjectsSectionsAndReadsBack) {
    const RecordedDocument document = SmallDocumentWithRecords();
    const std::vector<char>& bytes = document.bytes;
    const std::vector<Block> blocks = Blocks(bytes);
    // DOC, then PRJ + six sections + SRVY for "First", PRJ + six sections for "Second".
    ASSERT_EQ(blocks.size(), 1u + 8u + 7u);
    EXPECT_EQ(blocks[8].tag, "SRVY");
    EXPECT_EQ(Get<std::uint32_t>(bytes, blocks[1].payload() + 13), 7u);
    EXPECT_EQ(blocks[9].tag, "PRJ ");
    EXPECT_EQ(Get<std::uint32_t>(bytes, blocks[9].payload() + 14), 6u);
    // The layout: format 1, the system, its attributes, the ids, the breaklines.
    std::size_t at = blocks[8].payload();
    EXPECT_EQ(Get<std::uint16_t>(bytes, at), 1u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 2), 8u);
    EXPECT_EQ(std::string(bytes.data() + at + 6, 8), "Imperial");
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 14), 2u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 18), 10u);
    EXPECT_EQ(std::string(bytes.data() + at + 22, 10), "linearUnit");
    const dtmtool::SurveyRecord& expected = document.first;
    const std::size_t ids = expected.pointIds.size();
    at += 2 + 4 + 8 + 4 + (4 + 10 + 4 + 12) + (4 + 8 + 4 + 10);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), ids);
    EXPECT_EQ(Get<std::int64_t>(bytes, at + 4), expected.pointIds[0]);
    EXPECT_EQ(Get<std::int64_t>(bytes, at + 12), expected.pointIds[1]);
    at += 4 + 8 * ids;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 1u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4), 2u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 8), 2u);
    EXPECT_EQ(std::string(bytes.data() + at + 16, 4), "name");
    EXPECT_EQ(blocks[8].payload() + blocks[8].length,
              at + 4 + 4 + 4 + (4 + 4 + 4 + 5) + (4 + 7 + 4 + 8));

    Workspace read;
    ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile, &read.Surveys());
    ASSERT_EQ(read.Surveys().size(), 1u);
    const dtmtool::SurveyRecord* record =
        dtmtool::FindSurveyRecord(read.Surveys(), *read.Library().GetPrj(0));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->units, expected.units);
    EXPECT_EQ(record->pointIds, expected.pointIds);
    EXPECT_EQ(record->breaklines, expected.breaklines);
    EXPECT_EQ(SerializeDocument(read.Library(), dtmtool::kNewestDocumentVersion, &read.Surveys()),
              bytes);
}

TEST(DocumentTest, AReaderThatKeepsNoRecordsSkipsThemAsItSkipsNewSections) {
    const std::vector<char> bytes = SmallDocumentWithRecords().bytes;
    Workspace read;
    const dtmtool::DocumentInfo info =
        ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile);
    ASSERT_EQ(read.Library().GetNoPrj(), 2u);
    EXPECT_EQ(SerializeDocument(read.Library()), SmallDocument());
    // It asked for no records: leaving them out is no loss to tell.
    EXPECT_TRUE(info.skipped.empty());
}

TEST(DocumentTest, ARecordOfALaterLayoutIsSkippedAndSaidSo) {
    std::vector<char> bytes = SmallDocumentWithRecords().bytes;
    const Block record = Blocks(bytes)[8];
    Put<std::uint16_t>(bytes, record.payload(), 8);
    Reseal(bytes, record);
    Workspace read;
    const dtmtool::DocumentInfo info =
        ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile, &read.Surveys());
    EXPECT_TRUE(read.Surveys().empty());
    EXPECT_EQ(read.Library().GetNoPrj(), 2u);
    EXPECT_EQ(info.skipped,
              (std::vector<std::string>{
                  "the survey record of project 'First' has layout 8, which this program does "
                  "not know; the survey facts in it (units, coordinate system, point ids, "
                  "surface group, surface, point, breakline and boundary attributes, hidden "
                  "faces, elements kept for export) were left out"}));
}

// The checksum covers a block's payload, not its tag: a record whose tag was damaged reads as a
// block this program does not know, and the reader says what it left out.
TEST(DocumentTest, ARecordWithADamagedTagIsLeftOutAndSaidSo) {
    std::vector<char> bytes = SmallDocumentWithRecords().bytes;
    const Block record = Blocks(bytes)[8];
    bytes[record.at + 3] = static_cast<char>(bytes[record.at + 3] ^ 0x01);  // 'Y' becomes 'X'
    Workspace read;
    const dtmtool::DocumentInfo info =
        ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile, &read.Surveys());
    EXPECT_TRUE(read.Surveys().empty());
    EXPECT_EQ(info.skipped, (std::vector<std::string>{
                                "section 7 of project 'First' (tagged 'SRVX') is not one this "
                                "program knows; it was left out"}));
    bytes[record.at] = '\x01';
    const dtmtool::DocumentInfo unprintable =
        ParseDocument(Workspace().Library(), bytes.data(), bytes.size(), kFile, nullptr);
    ASSERT_EQ(unprintable.skipped.size(), 1u);
    EXPECT_NE(unprintable.skipped[0].find("(tagged 0x58565201)"), std::string::npos)
        << unprintable.skipped[0];
}

TEST(DocumentTest, ARecordWhosePointIdsDoNotFitTheNetworkIsDamaged) {
    RecordedDocument document = SmallDocumentWithRecords();
    std::vector<char>& bytes = document.bytes;
    Block record = Blocks(bytes)[8];
    // Drop the last id and lower the count by one; the ids follow the units.
    const std::size_t vertices = document.first.pointIds.size();
    const std::size_t countAt =
        record.payload() + 2 + 4 + 8 + 4 + (4 + 10 + 4 + 12) + (4 + 8 + 4 + 10);
    ASSERT_EQ(Get<std::uint32_t>(bytes, countAt), vertices);
    const std::size_t lastId = countAt + 4 + 8 * (vertices - 1);
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(lastId),
                bytes.begin() + static_cast<std::ptrdiff_t>(lastId + 8));
    record.length -= 8;
    Put<std::uint32_t>(bytes, countAt, static_cast<std::uint32_t>(vertices - 1));
    Reseal(bytes, record);
    EXPECT_EQ(ParseError(bytes, Records::Read),
              kFile + ": is damaged: the survey record of project 'First' holds " +
                  std::to_string(vertices - 1) + " point ids for " + std::to_string(vertices) +
                  " vertices");
}

TEST(DocumentTest, ARecordBreaklineWithoutASegmentIsDamaged) {
    std::vector<char> bytes = SmallDocumentWithRecords().bytes;
    const Block record = Blocks(bytes)[8];
    // The breakline's segment count follows the breakline count, after the ids.
    const std::size_t at =
        record.payload() + record.length - (4 + (4 + 4 + 4 + 5) + (4 + 7 + 4 + 8)) - 4;
    ASSERT_EQ(Get<std::uint32_t>(bytes, at), 2u);
    Put<std::uint32_t>(bytes, at, 0u);
    Reseal(bytes, record);
    EXPECT_EQ(ParseError(bytes, Records::Read),
              kFile +
                  ": is damaged: the survey record of project 'First' holds breakline 1 "
                  "without a segment");
}

TEST(DocumentTest, ACutShortRecordIsDamaged) {
    std::vector<char> bytes = SmallDocumentWithRecords().bytes;
    Block record = Blocks(bytes)[8];
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(record.payload() + 3),
                bytes.begin() + static_cast<std::ptrdiff_t>(record.payload() + record.length));
    record.length = 3;
    Reseal(bytes, record);
    EXPECT_EQ(ParseError(bytes, Records::Read),
              kFile + ": is damaged: the survey record of project 'First' is too short");
}

// The record of the first project of the document in @p bytes as a reader finds it; writing
// what was read must give the same bytes (checked here).
dtmtool::SurveyRecord FirstRecordReadBack(const std::vector<char>& bytes) {
    Workspace read;
    ParseDocument(read.Library(), bytes.data(), bytes.size(), kFile, &read.Surveys());
    EXPECT_EQ(SerializeDocument(read.Library(), dtmtool::kNewestDocumentVersion, &read.Surveys()),
              bytes);
    const dtmtool::SurveyRecord* record =
        dtmtool::FindSurveyRecord(read.Surveys(), *read.Library().GetPrj(0));
    EXPECT_NE(record, nullptr);
    return record ? *record : dtmtool::SurveyRecord{};
}

// A texture region the record keeps whole and the outer boundary it names.
std::vector<dtmtool::SurveyBoundary> RecordedBoundaries() {
    return {{dtmtool::BoundaryRole::Kept,
             {{"bndType", "texture"}, {"m", "7"}},
             {{1.5, -2.25, 100.125}, {1e9, 3.0, -0.5}}},
            {dtmtool::BoundaryRole::External, {{"name", "Site"}}, {}}};
}

TEST(DocumentTest, ARecordWithBoundariesTakesLayoutTwoAndReadsBack) {
    const RecordedDocument document = SmallDocumentWithRecords(RecordedBoundaries());
    const std::vector<char>& bytes = document.bytes;
    const Block record = Blocks(bytes).at(8);
    ASSERT_EQ(record.tag, "SRVY");
    EXPECT_EQ(Get<std::uint16_t>(bytes, record.payload()), 2u);
    // Layout 1 up to the breaklines, then the boundaries: the kept one with its points, the
    // external one without.
    const RecordedDocument withoutBoundaries = SmallDocumentWithRecords();
    const std::size_t layout1 = Blocks(withoutBoundaries.bytes).at(8).length;
    std::size_t at = record.payload() + layout1;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 2u);
    EXPECT_EQ(static_cast<unsigned char>(bytes[at + 4]), 2u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 5), 2u);
    at += 5 + 4 + (4 + 7 + 4 + 7) + (4 + 1 + 4 + 1);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 2u);
    double first = 0.0;
    std::memcpy(&first, bytes.data() + at + 4, sizeof(first));
    EXPECT_EQ(first, 1.5);
    at += 4 + 2 * 3 * 8;
    EXPECT_EQ(static_cast<unsigned char>(bytes[at]), 0u);
    at += 1 + 4 + (4 + 4 + 4 + 4);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 0u);
    EXPECT_EQ(record.payload() + record.length, at + 4);

    const dtmtool::SurveyRecord back = FirstRecordReadBack(bytes);
    EXPECT_EQ(back.boundaries, document.first.boundaries);
    EXPECT_EQ(back.breaklines, document.first.breaklines);
}

// Where the first boundary's role and first point lie in the record of RecordedBoundaries().
struct RecordedBoundaryPlaces {
    std::size_t role;
    std::size_t firstPoint;
};

RecordedBoundaryPlaces PlacesOfTheKeptBoundary(const Block& record) {
    const std::size_t layout1 = Blocks(SmallDocumentWithRecords().bytes).at(8).length;
    const std::size_t role = record.payload() + layout1 + 4;
    return {role, role + 1 + 4 + (4 + 7 + 4 + 7) + (4 + 1 + 4 + 1) + 4};
}

TEST(DocumentTest, ARecordBoundaryOfAnUnknownRoleIsDamaged) {
    std::vector<char> bytes = SmallDocumentWithRecords(RecordedBoundaries()).bytes;
    const Block record = Blocks(bytes).at(8);
    bytes[PlacesOfTheKeptBoundary(record).role] = '\x03';
    Reseal(bytes, record);
    EXPECT_EQ(ParseError(bytes, Records::Read),
              kFile +
                  ": is damaged: the survey record of project 'First' holds boundary 1 of "
                  "unknown role 3");
}

TEST(DocumentTest, ARecordBoundaryPointThatIsNotFiniteIsDamaged) {
    for (const double bad :
         {std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()}) {
        std::vector<char> bytes = SmallDocumentWithRecords(RecordedBoundaries()).bytes;
        const Block record = Blocks(bytes).at(8);
        std::memcpy(bytes.data() + PlacesOfTheKeptBoundary(record).firstPoint + 8, &bad,
                    sizeof(bad));
        Reseal(bytes, record);
        EXPECT_EQ(ParseError(bytes, Records::Read),
                  kFile +
                      ": is damaged: the survey record of project 'First' holds boundary 1 "
                      "with a point that is not a finite number");
    }
}

// A hidden triangle and a hidden four-sided face.
std::vector<std::vector<int>> RecordedHiddenFaces() {
    return {{2, 1, 0}, {0, 1, 7, 6}};
}

// Where the hidden faces begin in a record of layout 3 without boundaries or surface
// attributes: after layout 1 and two zero counts.
std::size_t HiddenFacesAt(const Block& record) {
    return record.payload() + Blocks(SmallDocumentWithRecords().bytes).at(8).length + 4 + 4;
}

TEST(DocumentTest, ARecordWithHiddenFacesTakesLayoutThreeAndReadsBack) {
    const RecordedDocument document = SmallDocumentWithRecords({}, RecordedHiddenFaces());
    const std::vector<char>& bytes = document.bytes;
    const Block record = Blocks(bytes).at(8);
    ASSERT_EQ(record.tag, "SRVY");
    EXPECT_EQ(Get<std::uint16_t>(bytes, record.payload()), 3u);
    // Layout 1, no boundaries, no surface attributes, then the faces: corner count, corners.
    std::size_t at = HiddenFacesAt(record);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at - 8), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at - 4), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 2u);
    EXPECT_EQ(static_cast<unsigned char>(bytes[at + 4]), 3u);
    EXPECT_EQ(Get<std::int32_t>(bytes, at + 5), 2);
    at += 4 + (1 + 3 * 4);
    EXPECT_EQ(static_cast<unsigned char>(bytes[at]), 4u);
    EXPECT_EQ(Get<std::int32_t>(bytes, at + 1 + 3 * 4), 6);
    EXPECT_EQ(record.payload() + record.length, at + 1 + 4 * 4);

    EXPECT_EQ(FirstRecordReadBack(bytes).hiddenFaces, document.first.hiddenFaces);

    // With boundaries too, the faces follow them.
    const RecordedDocument both =
        SmallDocumentWithRecords(RecordedBoundaries(), RecordedHiddenFaces());
    const dtmtool::SurveyRecord back = FirstRecordReadBack(both.bytes);
    EXPECT_EQ(back.boundaries, both.first.boundaries);
    EXPECT_EQ(back.hiddenFaces, both.first.hiddenFaces);
}

TEST(DocumentTest, ARecordWithSurfaceAttributesTakesLayoutThreeAndReadsBack) {
    RecordedDocument document = SmallDocumentWithRecords();
    const std::size_t layout1 = Blocks(document.bytes).at(8).length;
    Workspace workspace;
    FillSmallWorkspace(workspace);
    dtmtool::SurveyRecord record = document.first;
    record.surfaceAttributes = {{"desc", "Existing ground"}, {"state", "existing"}};
    workspace.Surveys()[workspace.Library().GetPrj(0)] = record;
    const std::vector<char> bytes = SerializeDocument(
        workspace.Library(), dtmtool::kNewestDocumentVersion, &workspace.Surveys());
    const Block block = Blocks(bytes).at(8);
    EXPECT_EQ(Get<std::uint16_t>(bytes, block.payload()), 3u);
    // No boundaries, the two attributes, no hidden faces.
    const std::size_t at = block.payload() + layout1;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4), 2u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 8), 4u);
    EXPECT_EQ(std::string(bytes.data() + at + 12, 4), "desc");
    const std::size_t attributes = 4 + (4 + 4 + 4 + 15) + (4 + 5 + 4 + 8);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4 + attributes), 0u);
    EXPECT_EQ(block.payload() + block.length, at + 4 + attributes + 4);
    EXPECT_EQ(FirstRecordReadBack(bytes).surfaceAttributes, record.surfaceAttributes);
}

TEST(DocumentTest, ARecordHiddenFaceWithoutThreeOrFourCornersOfTheNetworkIsDamaged) {
    const RecordedDocument document = SmallDocumentWithRecords({}, RecordedHiddenFaces());
    const Block record = Blocks(document.bytes).at(8);
    const std::size_t countAt = HiddenFacesAt(record) + 4;
    for (const unsigned char corners : {0, 2, 5}) {
        std::vector<char> bytes = document.bytes;
        bytes[countAt] = static_cast<char>(corners);
        Reseal(bytes, record);
        EXPECT_EQ(ParseError(bytes, Records::Read),
                  kFile +
                      ": is damaged: the survey record of project 'First' holds hidden face "
                      "1 with " +
                      std::to_string(corners) + " corners");
    }
    const int vertices = static_cast<int>(document.first.pointIds.size());
    for (const std::int32_t corner : {-1, vertices}) {
        std::vector<char> bytes = document.bytes;
        Put<std::int32_t>(bytes, countAt + 1 + 4, corner);
        Reseal(bytes, record);
        EXPECT_EQ(ParseError(bytes, Records::Read),
                  kFile +
                      ": is damaged: the survey record of project 'First' holds hidden face "
                      "1 with corner " +
                      std::to_string(corner) + ", which is not one of the " +
                      std::to_string(vertices) + " vertices");
    }
}

// The small document whose first project's record gives names and codes to two points.
struct PointsDocument {
    std::vector<char> bytes;
    dtmtool::SurveyRecord first;
    std::size_t layout3;  // the length of the same record without the points' attributes
};

PointsDocument SmallDocumentWithPointAttributes() {
    const RecordedDocument plain = SmallDocumentWithRecords();
    Workspace workspace;
    FillSmallWorkspace(workspace);
    dtmtool::SurveyRecord record = plain.first;
    record.pointAttributes = {{1, {{"name", "BM1"}, {"code", "benchmark"}}},
                              {5, {{"desc", "kerb \xC3\xA9"}}}};
    workspace.Surveys()[workspace.Library().GetPrj(0)] = record;
    // Layout 3 writes two empty counts (boundaries, hidden faces) and empty surface
    // attributes after layout 1.
    return {SerializeDocument(workspace.Library(), dtmtool::kNewestDocumentVersion,
                              &workspace.Surveys()),
            record, Blocks(plain.bytes).at(8).length + 4 + 4 + 4};
}

TEST(DocumentTest, ARecordWithPointAttributesTakesLayoutFourAndReadsBack) {
    const PointsDocument document = SmallDocumentWithPointAttributes();
    const std::vector<char>& bytes = document.bytes;
    const Block block = Blocks(bytes).at(8);
    ASSERT_EQ(block.tag, "SRVY");
    EXPECT_EQ(Get<std::uint16_t>(bytes, block.payload()), 4u);
    // After layout 3: the count, then each point's vertex and attributes.
    std::size_t at = block.payload() + document.layout3;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 2u);
    EXPECT_EQ(Get<std::int32_t>(bytes, at + 4), 1);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 8), 2u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 12), 4u);
    EXPECT_EQ(std::string(bytes.data() + at + 16, 4), "name");
    at += 8 + 4 + (4 + 4 + 4 + 3) + (4 + 4 + 4 + 9);
    EXPECT_EQ(Get<std::int32_t>(bytes, at), 5);
    EXPECT_EQ(block.payload() + block.length, at + 4 + 4 + (4 + 4 + 4 + 7));
    EXPECT_EQ(FirstRecordReadBack(bytes).pointAttributes, document.first.pointAttributes);
}

TEST(DocumentTest, ARecordPointWithoutAttributesOrOutsideTheNetworkOrOutOfOrderIsDamaged) {
    const PointsDocument document = SmallDocumentWithPointAttributes();
    const Block record = Blocks(document.bytes).at(8);
    const std::size_t firstAt = record.payload() + document.layout3 + 4;
    const std::size_t secondAt = firstAt + 4 + 4 + (4 + 4 + 4 + 3) + (4 + 4 + 4 + 9);
    const std::string what = kFile + ": is damaged: the survey record of project 'First' holds ";
    const int vertices = static_cast<int>(document.first.pointIds.size());
    for (const std::int32_t vertex : {-1, vertices}) {
        std::vector<char> bytes = document.bytes;
        Put<std::int32_t>(bytes, firstAt, vertex);
        Reseal(bytes, record);
        EXPECT_EQ(ParseError(bytes, Records::Read),
                  what + "the attributes of point 1 for vertex " + std::to_string(vertex) +
                      ", which is not one of the " + std::to_string(vertices) + " vertices");
    }
    for (const std::int32_t vertex : {1, 0}) {
        std::vector<char> bytes = document.bytes;
        Put<std::int32_t>(bytes, secondAt, vertex);
        Reseal(bytes, record);
        EXPECT_EQ(ParseError(bytes, Records::Read),
                  what + "the attributes of point 2 out of vertex order");
    }
    // The second point with no attributes: its count set to 0 and its one pair cut away.
    std::vector<char> bytes = document.bytes;
    const std::size_t pair = 4 + 4 + 4 + 7;
    Put<std::uint32_t>(bytes, secondAt + 4, 0u);
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(secondAt + 8),
                bytes.begin() + static_cast<std::ptrdiff_t>(secondAt + 8 + pair));
    Block shorter = record;
    shorter.length -= pair;
    Reseal(bytes, shorter);
    EXPECT_EQ(ParseError(bytes, Records::Read), what + "the attributes of point 2, which has none");
}

// A coordinate system alone takes the record to layout 5: the four layouts before it, empty,
// then its attributes.
TEST(DocumentTest, ARecordWithACoordinateSystemTakesLayoutFiveAndReadsBack) {
    const PointsDocument points = SmallDocumentWithPointAttributes();
    Workspace workspace;
    FillSmallWorkspace(workspace);
    dtmtool::SurveyRecord record = SmallDocumentWithRecords().first;
    record.coordinateSystem = {{"epsgCode", "2056"}};
    workspace.Surveys()[workspace.Library().GetPrj(0)] = record;
    const std::vector<char> bytes = SerializeDocument(
        workspace.Library(), dtmtool::kNewestDocumentVersion, &workspace.Surveys());
    const Block block = Blocks(bytes).at(8);
    ASSERT_EQ(block.tag, "SRVY");
    EXPECT_EQ(Get<std::uint16_t>(bytes, block.payload()), 5u);
    // After layout 3: no points with attributes, then the one attribute.
    const std::size_t at = block.payload() + points.layout3;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4), 1u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 8), 8u);
    EXPECT_EQ(std::string(bytes.data() + at + 12, 8), "epsgCode");
    EXPECT_EQ(block.payload() + block.length, at + 4 + 4 + (4 + 8 + 4 + 4));
    EXPECT_EQ(FirstRecordReadBack(bytes).coordinateSystem, record.coordinateSystem);

    // Layout 5 with no attribute where the coordinate system stands is damaged.
    std::vector<char> empty(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(at + 8));
    empty.insert(empty.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at + 4 + 4 + 20),
                 bytes.end());
    Put<std::uint32_t>(empty, at + 4, 0u);
    Block shorter = block;
    shorter.length -= 20;
    Reseal(empty, shorter);
    EXPECT_EQ(ParseError(empty, Records::Read),
              kFile +
                  ": is damaged: the survey record of project 'First' holds a coordinate "
                  "system without attributes");
}

// The small document whose first record is @p record.
std::vector<char> SmallDocumentWithRecord(const dtmtool::SurveyRecord& record) {
    Workspace workspace;
    FillSmallWorkspace(workspace);
    workspace.Surveys()[workspace.Library().GetPrj(0)] = record;
    return SerializeDocument(workspace.Library(), dtmtool::kNewestDocumentVersion,
                             &workspace.Surveys());
}

TEST(DocumentTest, ARecordWithKeptElementsTakesLayoutSixAndReadsBack) {
    const PointsDocument points = SmallDocumentWithPointAttributes();
    dtmtool::SurveyRecord record = SmallDocumentWithRecords().first;
    const std::string feature = "<Feature code=\"IM\"><Property value=\"190\"/></Feature>";
    const std::string project = "<Project name=\"P\"/>";
    record.breaklines.at(0).elements = {feature};
    record.fileElements = {project};
    const std::vector<char> bytes = SmallDocumentWithRecord(record);
    const Block block = Blocks(bytes).at(8);
    ASSERT_EQ(block.tag, "SRVY");
    EXPECT_EQ(Get<std::uint16_t>(bytes, block.payload()), 6u);
    // After layout 3: no points with attributes, no coordinate system, the one breakline's
    // element, none of the source data or the surface, the file's one.
    std::size_t at = block.payload() + points.layout3;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4), 0u);
    at += 8;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 1u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4), feature.size());
    EXPECT_EQ(std::string(bytes.data() + at + 8, feature.size()), feature);
    at += 8 + feature.size();
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 4), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 8), 1u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at + 12), project.size());
    EXPECT_EQ(block.payload() + block.length, at + 16 + project.size());
    const dtmtool::SurveyRecord back = FirstRecordReadBack(bytes);
    EXPECT_EQ(back.breaklines, record.breaklines);
    EXPECT_EQ(back.fileElements, record.fileElements);
    EXPECT_TRUE(back.sourceElements.empty());
    EXPECT_TRUE(back.surfaceElements.empty());

    // An export writes a kept element as it stands, so one that is not XML is damage.
    std::vector<char> broken = bytes;
    broken.at(at + 16 + project.size() - 2) = ' ';  // "<Project name="P" >" is never closed
    Reseal(broken, block);
    EXPECT_EQ(ParseError(broken, Records::Read),
              kFile +
                  ": is damaged: the survey record of project 'First' holds a kept element "
                  "that is not XML");
    // Layout 6 without any element would have been written in an earlier layout.
    record.breaklines.at(0).elements.clear();
    std::vector<char> none = SmallDocumentWithRecord(record);
    Block shorter = Blocks(none).at(8);
    const std::size_t count = shorter.payload() + shorter.length - 4 - project.size() - 4;
    Put<std::uint32_t>(none, count, 0u);
    none.erase(none.begin() + static_cast<std::ptrdiff_t>(count + 4),
               none.begin() + static_cast<std::ptrdiff_t>(count + 4 + 4 + project.size()));
    shorter.length -= 4 + project.size();
    Reseal(none, shorter);
    EXPECT_EQ(ParseError(none, Records::Read),
              kFile + ": is damaged: the survey record of project 'First' holds no kept element");
}

// The group of surfaces takes the record to layout 7: layout 6's elements, empty where there are
// none, then the group's attributes and elements.
TEST(DocumentTest, ARecordWithAGroupOfSurfacesTakesLayoutSevenAndReadsBack) {
    dtmtool::SurveyRecord record = SmallDocumentWithRecords().first;
    record.groupAttributes = {{"name", "M3"}};
    const std::string feature = "<Feature code=\"group\"/>";
    record.groupElements = {feature};
    const std::vector<char> bytes = SmallDocumentWithRecord(record);
    const Block block = Blocks(bytes).at(8);
    ASSERT_EQ(block.tag, "SRVY");
    EXPECT_EQ(Get<std::uint16_t>(bytes, block.payload()), 7u);
    // At the end: no file element, the one attribute, the one element.
    const std::size_t groupSize = (4 + 4 + 4 + 4 + 2) + (4 + 4 + feature.size());
    std::size_t at = block.payload() + block.length - groupSize;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at - 4), 0u);
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 1u);
    EXPECT_EQ(std::string(bytes.data() + at + 8, 4), "name");
    EXPECT_EQ(std::string(bytes.data() + at + 16, 2), "M3");
    at += 18;
    EXPECT_EQ(Get<std::uint32_t>(bytes, at), 1u);
    EXPECT_EQ(std::string(bytes.data() + at + 8, feature.size()), feature);
    const dtmtool::SurveyRecord back = FirstRecordReadBack(bytes);
    EXPECT_EQ(back.groupAttributes, record.groupAttributes);
    EXPECT_EQ(back.groupElements, record.groupElements);
    EXPECT_TRUE(back.fileElements.empty());

    // A group with elements alone takes layout 7 too, and one with attributes alone.
    for (const bool attributes : {false, true}) {
        dtmtool::SurveyRecord half = record;
        (attributes ? half.groupElements.clear() : half.groupAttributes.clear());
        const std::vector<char> halfBytes = SmallDocumentWithRecord(half);
        EXPECT_EQ(Get<std::uint16_t>(halfBytes, Blocks(halfBytes).at(8).payload()), 7u);
        const dtmtool::SurveyRecord halfBack = FirstRecordReadBack(halfBytes);
        EXPECT_EQ(halfBack.groupAttributes, half.groupAttributes);
        EXPECT_EQ(halfBack.groupElements, half.groupElements);
    }

    // Layout 7 with an empty group would have been written in an earlier layout.
    std::vector<char> empty(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(at - 18));
    for (int i = 0; i < 2; ++i) empty.insert(empty.end(), 4, '\0');
    empty.insert(empty.end(),
                 bytes.begin() + static_cast<std::ptrdiff_t>(block.payload() + block.length),
                 bytes.end());
    Block shorter = block;
    shorter.length -= groupSize - 8;
    Reseal(empty, shorter);
    EXPECT_EQ(ParseError(empty, Records::Read),
              kFile +
                  ": is damaged: the survey record of project 'First' holds a group of surfaces "
                  "without attributes or elements");
}

TEST(DocumentTest, AWorkspaceSavesAndLoadsItsRecords) {
    dtm_test::TempDir folder;
    const std::string path = folder.File("doc.dtm");
    Workspace original;
    AddSmallProject(original, "Survey", 0.1);
    original.Surveys()[original.Library().GetPrj(0)].units = {"Metric", {{"linearUnit", "meter"}}};
    dtmtool::SaveDocument(original, path);
    Workspace read;
    dtmtool::LoadDocument(read, path);
    const dtmtool::SurveyRecord* record =
        dtmtool::FindSurveyRecord(read.Surveys(), *read.Library().GetPrj(0));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->units.Describe(), "Metric, linearUnit meter");
    EXPECT_TRUE(record->pointIds.empty());
}

TEST(DocumentTest, ASectionWithBytesItsReaderDoesNotUseIsDamaged) {
    std::vector<char> bytes = SmallDocument();
    const std::vector<Block> blocks = Blocks(bytes);
    Block breaklines = blocks[7];
    ASSERT_EQ(breaklines.tag, "VNCS");
    const std::size_t end = breaklines.payload() + breaklines.length;
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(end), 4, '\0');
    breaklines.length += 4;
    Reseal(bytes, breaklines);
    EXPECT_EQ(ParseError(bytes), kFile + ": is damaged: the breaklines of project 'First' holds " +
                                     std::to_string(breaklines.length) +
                                     " bytes but its reader used " +
                                     std::to_string(breaklines.length - 4));
}

// The header names the active project by its index, or -1 for none; any other index names a
// project the document does not hold.
TEST(DocumentTest, AnActiveProjectOutsideTheDocumentIsDamage) {
    const std::vector<char> bytes = SmallDocument();
    const Block header = Blocks(bytes)[0];
    ASSERT_EQ(header.tag, "DOC ");
    const auto withActive = [&](std::int32_t active) {
        std::vector<char> changed = bytes;
        Put<std::int32_t>(changed, header.payload() + 4, active);
        Reseal(changed, header);
        return changed;
    };
    for (const std::int32_t active : {-2, 2, std::numeric_limits<std::int32_t>::min()})
        EXPECT_EQ(ParseError(withActive(active)), kFile + ": is damaged: the active project " +
                                                      std::to_string(active) + " does not exist");
    for (const std::int32_t active : {-1, 0, 1}) {
        const std::vector<char> changed = withActive(active);
        Workspace read;
        ParseDocument(read.Library(), changed.data(), changed.size(), kFile);
        EXPECT_EQ(read.Library().GetActive(),
                  active < 0 ? nullptr : read.Library().GetPrj(static_cast<unsigned int>(active)));
    }
}

// Every writer writes at least the six sections this reader knows; a project header that counts
// fewer cannot come from one.
TEST(DocumentTest, AProjectWithFewerSectionsThanEveryWriterWritesIsDamage) {
    const std::vector<char> bytes = SmallDocument();
    const Block header = Blocks(bytes)[1];
    ASSERT_EQ(header.tag, "PRJ ");
    for (const std::uint32_t count : {0u, 1u, 5u}) {
        std::vector<char> changed = bytes;
        Put<std::uint32_t>(changed, header.payload() + 13, count);
        Reseal(changed, header);
        EXPECT_EQ(ParseError(changed), kFile + ": is damaged: project 'First' has " +
                                           (count == 1 ? std::string("1 section")
                                                       : std::to_string(count) + " sections") +
                                           " instead of 6");
    }
}

TEST(DocumentTest, BytesAfterTheLastProjectAreDamage) {
    std::vector<char> bytes = SmallDocument();
    bytes.push_back('!');
    EXPECT_EQ(ParseError(bytes),
              kFile + ": is damaged: 1 unexpected byte follows the last project");
    bytes.push_back('!');
    EXPECT_EQ(ParseError(bytes),
              kFile + ": is damaged: 2 unexpected bytes follow the last project");
}

TEST(DocumentTest, SaveAndLoadGoThroughTheFile) {
    dtm_test::TempDir folder;
    const std::string path = folder.File("doc.dtm");
    Workspace original;
    AddSmallProject(original, "Survey", 0.1);
    dtmtool::SaveDocument(original.Library(), path);
    Workspace read;
    const dtmtool::DocumentInfo info = dtmtool::LoadDocument(read.Library(), path);
    EXPECT_EQ(info.bytes, tool_test::ReadText(path).size());
    EXPECT_EQ(SerializeDocument(read.Library()), SerializeDocument(original.Library()));
    EXPECT_EQ(tool_test::FolderEntries(folder.Path()), std::vector<std::string>{"doc.dtm"});
}

TEST(DocumentTest, AMissingFileOrAFolderIsReportedWithItsPath) {
    dtm_test::TempDir folder;
    Workspace workspace;
    const std::string missing = folder.File("missing.dtm");
    try {
        dtmtool::LoadDocument(workspace.Library(), missing);
        FAIL();
    } catch (const ToolError& error) {
        EXPECT_EQ(std::string(error.what()),
                  missing + ": cannot be opened: No such file or directory");
    }
    try {
        dtmtool::LoadDocument(workspace.Library(), folder.Path());
        FAIL();
    } catch (const ToolError& error) {
        EXPECT_EQ(std::string(error.what()), folder.Path() + ": is a folder, not a file");
    }
}

}  // namespace
