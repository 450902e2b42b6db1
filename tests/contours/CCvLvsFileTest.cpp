// The contour lines' file section: the bytes it writes in both layouts (assembled here by hand,
// value by value), round trips at the layout boundary, old sections with label nodes converted
// into label intervals (checked against a computation of the rule written here), the load flag,
// and what damaged sections do to the stream and the collection.

#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/contours/COpzCvLv.h>
#include <dtm/support/Streams.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <ios>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ByteBuilder.h"
#include "CvLvTestSupport.h"
#include "SplineChecker.h"

namespace {

using cvlv_test::ContourFixture;
using cvlv_test::ExpectSameState;
using cvlv_test::LineState;
using cvlv_test::SameBits;
using cvlv_test::StateOf;
using dtm_test::ByteBuilder;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t kMaxCount = std::numeric_limits<std::int32_t>::max();

// The last version of the old layout, the first of the later one, and the latest the library
// knows (at which the contour section did not change).
constexpr short kOldLayout = 799;
constexpr short kLaterLayout = 800;
constexpr short kLatest = 1502;
const short kVersions[] = {kOldLayout, kLaterLayout, kLatest};
// Bytes placed after a section, which no read of the section may take.
const std::string kTrailer = "NEXT";

std::string WriteSection(const CCvLvs& cvlvs, short version) {
    std::stringbuf buffer;
    ofpstream out(&buffer, version);
    cvlvs.SalvaInFile(out);
    EXPECT_TRUE(out.good());
    return buffer.str();
}

struct ReadOutcome {
    bool failed;
    std::size_t consumed;  // bytes taken from the stream
};

ReadOutcome ReadSection(CCvLvs& cvlvs, const std::string& bytes, short version, bool load) {
    std::stringbuf buffer(bytes, std::ios::in);
    ifpstream in(&buffer, version);
    cvlvs.LeggeDaFile(in, load);
    // Asked of the buffer, which answers also when the stream has failed.
    const auto position = buffer.pubseekoff(0, std::ios::cur, std::ios::in);
    return {in.fail(), static_cast<std::size_t>(position)};
}

/// Everything a read may change in a collection: which line objects it lists, their states,
/// the direction and the stored range.
struct CollectionState {
    std::vector<const CCvLv*> lines;
    std::vector<LineState> states;
    enumCvLvDir dir;
    double minQuota;
    double maxQuota;
};

CollectionState StateOfCollection(const CCvLvs& cvlvs) {
    CollectionState state{{}, {}, cvlvs.GetCvLvDir(), 0.0, 0.0};
    cvlvs.GetMinMaxQuota(state.minQuota, state.maxQuota);
    for (unsigned i = 0; i < cvlvs.GetNoCvLvs(); ++i) {
        state.lines.push_back(cvlvs.GetCvLvAt(i));
        state.states.push_back(StateOf(*cvlvs.GetCvLvAt(i)));
    }
    return state;
}

void ExpectSameCollection(const CollectionState& expected, const CollectionState& actual) {
    EXPECT_EQ(expected.lines, actual.lines);
    ASSERT_EQ(expected.states.size(), actual.states.size());
    for (std::size_t i = 0; i < expected.states.size(); ++i) {
        SCOPED_TRACE("line " + std::to_string(i));
        ExpectSameState(expected.states[i], actual.states[i]);
    }
    EXPECT_EQ(expected.dir, actual.dir);
    EXPECT_TRUE(SameBits(expected.minQuota, actual.minQuota));
    EXPECT_TRUE(SameBits(expected.maxQuota, actual.maxQuota));
}

void ExpectRange(const CCvLvs& cvlvs, double expectedMin, double expectedMax) {
    double minQuota = 0.0, maxQuota = 0.0;
    cvlvs.GetMinMaxQuota(minQuota, maxQuota);
    EXPECT_TRUE(SameBits(minQuota, expectedMin)) << minQuota << " instead of " << expectedMin;
    EXPECT_TRUE(SameBits(maxQuota, expectedMax)) << maxQuota << " instead of " << expectedMax;
}

// ---- Bytes by hand --------------------------------------------------------------------------

ByteBuilder& Node(ByteBuilder& bytes, const TVrtPol& node) {
    return bytes.Double(node.x).Double(node.y).Double(node.xp).Double(node.yp).Double(node.len);
}

/// An old node record: kind, position, the five values, then the two ignored int32 (given
/// values that mean nothing, so that a reader that used them would be caught).
ByteBuilder& OldNode(ByteBuilder& bytes, const TOldVrtPol& node, std::int32_t ignored1 = 0x12345678,
                     std::int32_t ignored2 = -1) {
    bytes.Int16(node.kind).Int16(node.position);
    return Node(bytes, {node.x, node.y, node.xp, node.yp, node.len})
        .Int32(ignored1)
        .Int32(ignored2);
}

/// The later-layout record of a line in @p state.
ByteBuilder& LaterRecord(ByteBuilder& bytes, const LineState& state) {
    bytes.Double(state.quota).Double(state.sigma).Double(state.sigmap);
    bytes.Int32(state.color).Int32(state.visible ? 1 : 0);
    bytes.Int32(static_cast<std::int32_t>(state.nodes.size()));
    for (const TVrtPol& node : state.nodes) Node(bytes, node);
    bytes.Int32(static_cast<std::int32_t>(state.intervals.size()));
    for (const TCvLvInterv& interval : state.intervals)
        bytes.Double(interval.start).Double(interval.end).Int32(interval.flags);
    return bytes;
}

/// An old-layout record with @p nodes.
ByteBuilder& OldRecord(ByteBuilder& bytes, double quota, double sigma, double sigmap,
                       const std::vector<TOldVrtPol>& nodes) {
    bytes.Double(quota).Double(sigma).Double(sigmap).Int32(static_cast<std::int32_t>(nodes.size()));
    for (const TOldVrtPol& node : nodes) OldNode(bytes, node);
    return bytes;
}

// ---- The conversion of an old label node, computed here -------------------------------------

/// The label interval of an old label node @p node1 (followed by @p node2) whose segment starts
/// at spine offset @p base, on a line of tension @p sigmap whose elevation text has
/// @p textLength characters, at text height @p charHeight: step = len/100, start = position ×
/// step + base; the curve, evaluated with base as its segment length, is walked a step at a time
/// from the start until the straight distance from the start exceeds (L − 0.3333 + 1) × height
/// or the walk reaches the segment's length; end = t + base, or len + base past the length.
/// The curve comes from the closed form of the test utilities, not from the library.
TCvLvInterv ComputeOldLabel(double sigmap, std::size_t textLength, double charHeight, double base,
                            const TOldVrtPol& node1, const TOldVrtPol& node2) {
    const TVrtPol from{node1.x, node1.y, node1.xp, node1.yp, base};
    const TVrtPol to{node2.x, node2.y, node2.xp, node2.yp, 0.0};
    const auto point = [&](double t) {
        if (t >= base) return std::make_pair(to.x, to.y);
        const dtm_test::SplineSample sample = dtm_test::ReferenceSpline(from, to, sigmap, t);
        return std::make_pair(sample.x, sample.y);
    };
    const double step = node1.len / 100.0;
    double t = node1.position * step;
    TCvLvInterv label{t + base, 0.0, node1.position < 0 ? 3 : 1};
    const double span = (static_cast<double>(textLength) - 0.3333 + 1.0) * charHeight;
    const double last = node1.len - (std::fabs(node1.len) * 1e-12 + 1e-12);
    const auto origin = point(t);
    double distance = 0.0;
    while (distance <= span && t < last) {
        t += step;
        const auto p = point(t);
        distance = std::hypot(p.first - origin.first, p.second - origin.second);
    }
    label.end = t > node1.len ? node1.len + base : t + base;
    return label;
}

// ---- Fixture --------------------------------------------------------------------------------

class CvLvsFileTest : public ContourFixture {
protected:
    /// Fills the fixture's collection with lines of every shape the section must carry: a
    /// curved open line with text, turned text and empty intervals, a closed hidden line with
    /// its own tension, a straight two-node line, a line without nodes, a direction value of
    /// the host's own, and a stored range wider than the lines (the line at 5e6 was removed).
    void FillVaried() {
        CCvLv* curved = AddCurvedLine(100.0);
        curved->AddInterval(3.0, 5.0, CCvLvInterv::FLAG_TEXT);
        curved->AddInterval(10.0, 12.5, 0);
        CCvLvInterv* turned = curved->AddInterval(20.0, 22.0, CCvLvInterv::FLAG_TEXT);
        curved->InvertTextDirection(turned);
        CCvLv* closed = AddLine(-12.5, {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}}, 2.0, 42);
        closed->SetVisible(false);
        AddLine(1e6, {{-1, -1}, {3, 4}}, -1.0, 0);
        cvlvs->AddNewCvLv(50.0, 1.0, 3, 0, nullptr, nullptr);
        cvlvs->RemoveCvLv(AddLine(5e6, {{0, 0}, {1, 0}}));
        cvlvs->SetCvLvDir(static_cast<enumCvLvDir>(7));
        ForgetEvents();
    }

    /// An empty collection of the fixture's project with the fixture's options.
    std::unique_ptr<CCvLvs> NewTarget() const {
        auto target = std::make_unique<CCvLvs>(prj);
        target->GetOpzCvLv() = cvlvs->GetOpzCvLv();
        return target;
    }

    /// Sets the label text height and decimals that old sections are converted with.
    void SetLabelText(double charHeight, std::int32_t decimals) {
        cvlvs->GetOpzCvLv().SetTextHeight(charHeight);
        cvlvs->GetOpzCvLv().SetDecimals(decimals);
    }
};

// ---- Writing --------------------------------------------------------------------------------

TEST_F(CvLvsFileTest, EmptyCollectionFrom800WritesTheCountDirectionAndEmptyRange) {
    for (const short version : {kLaterLayout, kLatest}) {
        EXPECT_EQ(WriteSection(*cvlvs, version),
                  ByteBuilder().Int32(0).Int32(0).Double(kInf).Double(-kInf).Str());
    }
}

TEST_F(CvLvsFileTest, EmptyCollectionBefore800WritesOnlyTheCount) {
    EXPECT_EQ(WriteSection(*cvlvs, kOldLayout), ByteBuilder().Int32(0).Str());
}

TEST_F(CvLvsFileTest, LaterLayoutBytesAreEachRecordThenDirectionAndStoredRange) {
    CCvLv* first = AddLine(12.25, {{0, 0}, {4, 1}, {8, 0}}, -1.0, 9);
    first->AddInterval(1.0, 2.0, CCvLvInterv::FLAG_TEXT);
    first->AddInterval(4.0, 6.0, 0);
    first->SetVisible(false);
    CCvLv* second = AddLine(-3.0, {{1, 1}, {2, 2}}, 0.5, 256);
    cvlvs->SetCvLvDir(eCvLvDirOriented);

    ByteBuilder expected;
    expected.Int32(2);
    // The states were checked against the line elsewhere; here they only supply the values.
    LaterRecord(expected, StateOf(*first));
    LaterRecord(expected, StateOf(*second));
    expected.Int32(1).Double(-3.0).Double(12.25);
    ASSERT_EQ(StateOf(*first).intervals.size(), 2u);
    EXPECT_FALSE(StateOf(*first).visible);
    for (const short version : {kLaterLayout, kLatest})
        EXPECT_EQ(WriteSection(*cvlvs, version), expected.Str()) << version;
}

TEST_F(CvLvsFileTest, OldLayoutBytesArePlainOldNodesWithoutColourVisibilityOrIntervals) {
    CCvLv* line = AddLine(12.25, {{0, 0}, {4, 1}, {8, 0}}, -1.0, 9);
    line->AddInterval(1.0, 2.0, CCvLvInterv::FLAG_TEXT);
    line->SetVisible(false);
    cvlvs->SetCvLvDir(eCvLvDirOriented);

    ByteBuilder expected;
    expected.Int32(1).Double(12.25).Double(-1.0).Double(line->GetSigmap()).Int32(3);
    for (const TVrtPol& node : line->GetNodes()) {
        // Kind 1, position -1 (bit pattern 0xFFFF), the five values, two zero int32.
        expected.Int16(1).UInt16(0xFFFF);
        Node(expected, node).Int32(0).Int32(0);
    }
    EXPECT_EQ(WriteSection(*cvlvs, kOldLayout), expected.Str());
}

TEST_F(CvLvsFileTest, AVersionBelowZeroIsOlderThan800) {
    AddLine(1.0, {{0, 0}, {1, 0}});
    EXPECT_EQ(WriteSection(*cvlvs, -1), WriteSection(*cvlvs, kOldLayout));
}

// ---- Round trips ----------------------------------------------------------------------------

TEST_F(CvLvsFileTest, RoundTripsAtEachVersionGiveBackEveryLineAndTheSameBytes) {
    FillVaried();
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        const std::string bytes = WriteSection(*cvlvs, version);
        auto target = NewTarget();
        const ReadOutcome outcome = ReadSection(*target, bytes + kTrailer, version, true);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, bytes.size());
        ASSERT_EQ(target->GetNoCvLvs(), cvlvs->GetNoCvLvs());
        for (unsigned i = 0; i < cvlvs->GetNoCvLvs(); ++i) {
            SCOPED_TRACE("line " + std::to_string(i));
            LineState expected = StateOf(*cvlvs->GetCvLvAt(i));
            if (version < 800) {
                // The old layout has no place for these.
                expected.color = 256;
                expected.visible = true;
                expected.intervals.clear();
            }
            ExpectSameState(expected, StateOf(*target->GetCvLvAt(i)));
            EXPECT_EQ(target->GetCvLvAt(i)->GetCvLvs(), target.get());
        }
        if (version < 800) {
            // Derived: oriented because there are lines, and the lines' own range, not the
            // stored one that the removed line at 5e6 widened.
            EXPECT_EQ(target->GetCvLvDir(), eCvLvDirOriented);
            ExpectRange(*target, -12.5, 1e6);
        } else {
            EXPECT_EQ(target->GetCvLvDir(), cvlvs->GetCvLvDir());
            ExpectRange(*target, -12.5, 5e6);
        }
        EXPECT_EQ(WriteSection(*target, version), bytes);
    }
}

TEST_F(CvLvsFileTest, WritingBelow800LosesColourVisibilityAndIntervals) {
    FillVaried();
    auto target = NewTarget();
    ReadSection(*target, WriteSection(*cvlvs, kOldLayout), kOldLayout, true);
    ASSERT_EQ(target->GetNoCvLvs(), cvlvs->GetNoCvLvs());
    for (unsigned i = 0; i < target->GetNoCvLvs(); ++i) {
        EXPECT_EQ(target->GetCvLvAt(i)->GetColor(), 256);
        EXPECT_TRUE(target->GetCvLvAt(i)->IsVisible());
        EXPECT_EQ(target->GetCvLvAt(i)->GetNoIntervals(), 0u);
    }
    // The source had them.
    EXPECT_EQ(cvlvs->GetCvLvAt(0)->GetNoIntervals(), 3u);
    EXPECT_FALSE(cvlvs->GetCvLvAt(1)->IsVisible());
}

TEST_F(CvLvsFileTest, NonFiniteValuesAreTakenAsStoredAndWrittenBackBitForBit) {
    const LineState odd{kNaN,
                        -kInf,
                        kInf,
                        -7,
                        true,
                        {{kNaN, -0.0, kInf, -kInf, 1e308},
                         {std::numeric_limits<double>::denorm_min(), kNaN, 0.0, 0.0, 0.0}},
                        {{kNaN, kInf, 0x7FFFFFFF}, {5.0, -5.0, -1}}};
    ByteBuilder bytes;
    bytes.Int32(1);
    LaterRecord(bytes, odd).Int32(-3).Double(kNaN).Double(-kInf);
    const ReadOutcome outcome = ReadSection(*cvlvs, bytes.Str(), kLaterLayout, true);
    EXPECT_FALSE(outcome.failed);
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 1u);
    ExpectSameState(odd, StateOf(*cvlvs->GetCvLvAt(0)));
    EXPECT_EQ(cvlvs->GetCvLvDir(), static_cast<enumCvLvDir>(-3));
    ExpectRange(*cvlvs, kNaN, -kInf);
    EXPECT_EQ(WriteSection(*cvlvs, kLaterLayout), bytes.Str());
}

// ---- Reading the later layout ---------------------------------------------------------------

TEST_F(CvLvsFileTest, LaterRecordsAreReadFieldByFieldWithSigmapAsStored) {
    // Coefficients and sigmap that no computation over these nodes would give: the reader must
    // keep them, not recompute them.
    const LineState first{10.5,
                          -1.0,
                          123.0,
                          17,
                          true,
                          {{0, 0, 0.5, -0.5, 3}, {3, 0, 0.25, 0.75, 4}, {3, 4, -1, 1, 0}},
                          {{0.5, 1.0, 1 | 0x10}, {2.0, 3.0, 0}, {4.0, 5.0, 3}}};
    const LineState second{-2.0, 2.0, 0.5, 256, false, {}, {}};
    ByteBuilder bytes;
    bytes.Int32(2);
    LaterRecord(bytes, first);
    LaterRecord(bytes, second).Int32(1).Double(-100.0).Double(100.0);
    const ReadOutcome outcome = ReadSection(*cvlvs, bytes.Str() + kTrailer, kLaterLayout, true);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.Size());
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 2u);
    ExpectSameState(first, StateOf(*cvlvs->GetCvLvAt(0)));
    ExpectSameState(second, StateOf(*cvlvs->GetCvLvAt(1)));
    EXPECT_EQ(cvlvs->GetCvLvDir(), eCvLvDirOriented);
    // The stored range, not the lines' range.
    ExpectRange(*cvlvs, -100.0, 100.0);
}

// A record's intervals replace the line's as they were stored: unsorted and overlapping ones
// included. Going through the adding rules would sort them and let the gaps merge.
TEST_F(CvLvsFileTest, LaterRecordIntervalsAreTakenInTheirStoredOrderWithoutSortingOrMerging) {
    const LineState stored{7.0,
                           -1.0,
                           1.0,
                           5,
                           true,
                           {{0, 0, 0, 0, 10}, {10, 0, 0, 0, 0}},
                           {{5.0, 6.0, 0}, {1.0, 2.0, 0}, {1.5, 3.0, 0}}};
    ByteBuilder bytes;
    bytes.Int32(1);
    LaterRecord(bytes, stored).Int32(0).Double(7.0).Double(7.0);
    const ReadOutcome outcome = ReadSection(*cvlvs, bytes.Str(), kLaterLayout, true);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.Size());
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 1u);
    ExpectSameState(stored, StateOf(*cvlvs->GetCvLvAt(0)));
}

TEST_F(CvLvsFileTest, OnlyAVisibilityFieldOfOneReadsAsVisible) {
    for (const std::int32_t field : {1, 0, 2, -1, 256}) {
        ByteBuilder bytes;
        bytes.Int32(1).Double(1.0).Double(1.0).Double(1.0).Int32(7).Int32(field).Int32(0).Int32(0);
        bytes.Int32(0).Double(1.0).Double(1.0);
        auto target = NewTarget();
        EXPECT_FALSE(ReadSection(*target, bytes.Str(), kLaterLayout, true).failed);
        ASSERT_EQ(target->GetNoCvLvs(), 1u);
        EXPECT_EQ(target->GetCvLvAt(0)->IsVisible(), field == 1) << field;
    }
}

TEST_F(CvLvsFileTest, ANodeCountOfZeroGivesALineWithoutNodesInBothLayouts) {
    for (const short version : kVersions) {
        ByteBuilder bytes;
        bytes.Int32(1).Double(4.0).Double(-1.0).Double(0.0);
        if (version >= 800) bytes.Int32(5).Int32(1);
        bytes.Int32(0);
        if (version >= 800) bytes.Int32(0).Int32(0).Double(4.0).Double(4.0);
        auto target = NewTarget();
        const ReadOutcome outcome = ReadSection(*target, bytes.Str(), version, true);
        EXPECT_FALSE(outcome.failed) << version;
        EXPECT_EQ(outcome.consumed, bytes.Size()) << version;
        ASSERT_EQ(target->GetNoCvLvs(), 1u);
        EXPECT_EQ(target->GetCvLvAt(0)->GetNoNodes(), 0u);
        EXPECT_EQ(target->GetCvLvAt(0)->GetQuota(), 4.0);
    }
}

// ---- Reading the old layout -----------------------------------------------------------------

TEST_F(CvLvsFileTest, OldSectionConvertsNodesAndLabelNodesIntoLabelIntervals) {
    SetLabelText(0.2, 2);
    // Label nodes (kind 2) at index 1 and 3 of the first line; the last node is marked too but
    // starts no segment. A position on a node of another kind carries no label.
    const std::vector<TOldVrtPol> first = {{1, -1, 0.0, 0.0, 0.1, 0.2, 10.0},
                                           {2, 30, 10.0, 0.0, 0.0, 0.3, 12.0},
                                           {0, 55, 20.0, 7.0, 0.0, 0.0, 9.0},
                                           {2, -40, 28.0, 9.0, 0.4, 0.0, 11.0},
                                           {2, 10, 39.0, 9.0, 0.0, 0.0, 0.0}};
    // A label on the first segment: its spine offset, and so the length the curve is evaluated
    // with, is 0, so every point of the walk is the segment's end.
    const std::vector<TOldVrtPol> second = {{2, 90, 0.0, 0.0, 0.0, 0.0, 1.0},
                                            {3, 20, 1.0, 0.0, 0.0, 0.0, 0.0}};
    ByteBuilder bytes;
    bytes.Int32(3);
    OldRecord(bytes, 250.0, -1.0, 0.37, first);
    OldRecord(bytes, 247.5, 3.0, 1.5, second);
    OldRecord(bytes, 260.0, 1.0, 0.0, {});

    const ReadOutcome outcome = ReadSection(*cvlvs, bytes.Str() + kTrailer, kOldLayout, true);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.Size());
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 3u);

    // "250.00" and "247.50": six characters each at two decimals.
    const std::size_t textLength = 6;
    const std::vector<TCvLvInterv> firstLabels = {
        ComputeOldLabel(0.37, textLength, 0.2, 10.0, first[1], first[2]),
        ComputeOldLabel(0.37, textLength, 0.2, 10.0 + 12.0 + 9.0, first[3], first[4])};
    const std::vector<TCvLvInterv> secondLabels = {
        ComputeOldLabel(1.5, textLength, 0.2, 0.0, second[0], second[1])};
    // The first two labels end where their text fits, the last one at its segment's end.
    EXPECT_LT(firstLabels[0].end, 10.0 + 12.0);
    EXPECT_LT(firstLabels[1].end, 31.0 + 11.0);
    EXPECT_NEAR(secondLabels[0].end, 1.0, 1e-9);

    const std::vector<TOldVrtPol> none;
    const struct {
        double quota, sigma, sigmap;
        const std::vector<TOldVrtPol>& nodes;
        std::vector<TCvLvInterv> labels;
    } expected[] = {{250.0, -1.0, 0.37, first, firstLabels},
                    {247.5, 3.0, 1.5, second, secondLabels},
                    {260.0, 1.0, 0.0, none, {}}};
    for (unsigned i = 0; i < 3; ++i) {
        SCOPED_TRACE("line " + std::to_string(i));
        const CCvLv& line = *cvlvs->GetCvLvAt(i);
        EXPECT_EQ(line.GetQuota(), expected[i].quota);
        EXPECT_EQ(line.GetSigma(), expected[i].sigma);
        EXPECT_EQ(line.GetSigmap(), expected[i].sigmap);
        EXPECT_EQ(line.GetColor(), 256);
        EXPECT_TRUE(line.IsVisible());
        ASSERT_EQ(line.GetNoNodes(), expected[i].nodes.size());
        for (unsigned k = 0; k < line.GetNoNodes(); ++k) {
            const TVrtPol& node = line.GetNodeAt(k);
            const TOldVrtPol& old = expected[i].nodes[k];
            EXPECT_TRUE(SameBits(node.x, old.x) && SameBits(node.y, old.y) &&
                        SameBits(node.xp, old.xp) && SameBits(node.yp, old.yp) &&
                        SameBits(node.len, old.len))
                << "node " << k;
        }
        ASSERT_EQ(line.GetNoIntervals(), expected[i].labels.size());
        for (unsigned k = 0; k < line.GetNoIntervals(); ++k) {
            const CCvLvInterv& interval = *line.GetIntervalAt(k);
            EXPECT_EQ(interval.GetStart(), expected[i].labels[k].start) << "label " << k;
            EXPECT_NEAR(interval.GetEnd(), expected[i].labels[k].end, 1e-9) << "label " << k;
            EXPECT_EQ(interval.GetFlags(), expected[i].labels[k].flags) << "label " << k;
        }
    }
    // The label read against the line (negative position) is turned.
    EXPECT_EQ(cvlvs->GetCvLvAt(0)->GetIntervalAt(1)->GetFlags(), 3);
    EXPECT_EQ(cvlvs->GetCvLvDir(), eCvLvDirOriented);
    ExpectRange(*cvlvs, 247.5, 260.0);
}

TEST_F(CvLvsFileTest, OldSectionWithTwoLinesIsOrientedWithTheLinesRange) {
    cvlvs->SetCvLvDir(eCvLvDirUnknown);
    ByteBuilder bytes;
    bytes.Int32(2);
    OldRecord(bytes, 5.0, -1.0, 1.0, {{1, -1, 0, 0, 0, 0, 1}, {1, -1, 1, 0, 0, 0, 0}});
    OldRecord(bytes, -3.0, -1.0, 1.0, {{1, -1, 0, 0, 0, 0, 0}});
    EXPECT_FALSE(ReadSection(*cvlvs, bytes.Str(), kOldLayout, true).failed);
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 2u);
    EXPECT_EQ(cvlvs->GetCvLvDir(), eCvLvDirOriented);
    ExpectRange(*cvlvs, -3.0, 5.0);
}

TEST_F(CvLvsFileTest, OldSectionWithoutLinesHasNoDirectionAndAnEmptyRange) {
    AddCurvedLine(40.0);
    cvlvs->SetCvLvDir(eCvLvDirOriented);
    const ReadOutcome outcome =
        ReadSection(*cvlvs, ByteBuilder().Int32(0).Str() + kTrailer, kOldLayout, true);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, 4u);
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 0u);
    EXPECT_EQ(cvlvs->GetCvLvDir(), eCvLvDirUnknown);
    ExpectRange(*cvlvs, kInf, -kInf);
}

TEST_F(CvLvsFileTest, OldLabelNodesWithNonFiniteOrExtremeValuesConvertWithoutCrashing) {
    SetLabelText(0.5, 1);
    const double huge = std::numeric_limits<double>::max();
    const std::vector<TOldVrtPol> nodes = {
        {2, 30, 0.0, 0.0, 0.0, 0.0, kNaN},     {2, -32768, kNaN, 1.0, 0.0, 0.0, kInf},
        {2, 32767, 1.0, 2.0, kNaN, 0.0, -5.0}, {2, -32768, 3.0, 3.0, 0.0, 0.0, huge},
        {2, 5, 4.0, 4.0, 0.0, 0.0, 1e-320},    {2, -1, 5.0, kInf, 0.0, 0.0, 1e300},
        {2, -32768, 5.0, 5.0, 0.0, 0.0, 1e4},  {1, 0, 6.0, 6.0, 0.0, 0.0, 0.0}};
    // Also with the NaN length last, so that the other labels get finite spine offsets.
    std::vector<TOldVrtPol> nanLast(nodes.begin() + 1, nodes.end() - 1);
    nanLast.push_back(nodes.front());
    nanLast.push_back(nodes.back());
    for (const auto& order : {nodes, nanLast}) {
        for (const double sigmap : {0.0, kNaN, kInf, -1e300, 1e-300}) {
            ByteBuilder bytes;
            bytes.Int32(1);
            OldRecord(bytes, kNaN, -1.0, sigmap, order);
            auto target = NewTarget();
            const ReadOutcome outcome = ReadSection(*target, bytes.Str(), kOldLayout, true);
            EXPECT_FALSE(outcome.failed);
            ASSERT_EQ(target->GetNoCvLvs(), 1u);
            const CCvLv& line = *target->GetCvLvAt(0);
            EXPECT_EQ(line.GetNoNodes(), order.size());
            // One label for each label node that starts a segment, turned for negative
            // positions.
            ASSERT_EQ(line.GetNoIntervals(), 7u);
            for (unsigned k = 0; k < 7; ++k)
                EXPECT_EQ(line.GetIntervalAt(k)->GetFlags(), order[k].position < 0 ? 3 : 1);
            // A NaN elevation widens nothing: the range stays empty.
            ExpectRange(*target, kInf, -kInf);
        }
    }
}

// A label node whose position times its step overflows to -infinity, after a segment of
// length -infinity: the walk can then neither advance nor move away from its start. It must
// stop at once, not loop for ever: the read completes and the line still gets its label.
TEST_F(CvLvsFileTest, OldLabelThatCannotAdvanceEndsItsWalk) {
    const std::vector<TOldVrtPol> nodes = {{1, -1, 0.0, 0.0, 0.0, 0.0, -kInf},
                                           {2, -32768, 1.0, 1.0, 0.0, 0.0, 1e308},
                                           {1, -1, 2.0, 2.0, 0.0, 0.0, 0.0}};
    ByteBuilder bytes;
    bytes.Int32(1);
    OldRecord(bytes, 1.0, -1.0, 1.0, nodes);
    EXPECT_FALSE(ReadSection(*cvlvs, bytes.Str(), kOldLayout, true).failed);
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 1u);
    EXPECT_EQ(cvlvs->GetCvLvAt(0)->GetNoIntervals(), 1u);
}

// ---- The load flag and the change report ------------------------------------------------------

TEST_F(CvLvsFileTest, ReadingWithoutLoadConsumesTheSectionAndChangesNothing) {
    FillVaried();
    // A section that differs from the collection in every respect, direction and range too.
    auto source = NewTarget();
    const double x[] = {5.0, 6.0, 9.0};
    const double y[] = {5.0, 7.0, 9.0};
    source->AddNewCvLv(-300.0, 1.5, 12, 3, x, y)->AddInterval(0.5, 1.0, 0);
    source->SetCvLvDir(eCvLvDirUnknown);
    ForgetEvents();
    const CollectionState before = StateOfCollection(*cvlvs);
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        const std::string bytes = WriteSection(*source, version);
        // An old section with a label node, so that the conversion path is stepped over too.
        ByteBuilder old;
        old.Int32(1);
        OldRecord(old, 1.0, -1.0, 1.0, {{2, 10, 0, 0, 0, 0, 1}, {1, -1, 1, 0, 0, 0, 0}});
        for (const std::string& section : {bytes, version < 800 ? old.Str() : bytes}) {
            const ReadOutcome skipped = ReadSection(*cvlvs, section + kTrailer, version, false);
            EXPECT_FALSE(skipped.failed);
            EXPECT_EQ(skipped.consumed, section.size());
            ExpectSameCollection(before, StateOfCollection(*cvlvs));
            EXPECT_EQ(recorder.opened, 0);
            EXPECT_TRUE(recorder.events.empty());
            // A read that applies stops at the same place.
            auto target = NewTarget();
            EXPECT_EQ(ReadSection(*target, section + kTrailer, version, true).consumed,
                      skipped.consumed);
            ForgetEvents();
        }
    }
}

TEST_F(CvLvsFileTest, LoadingReplacesThePresentLinesInOneEvent) {
    AddCurvedLine(1.0);
    AddCurvedLine(2.0);
    auto source = NewTarget();
    source->AddNewCvLv(10.0, -1.0, 1, 0, nullptr, nullptr);
    source->AddNewCvLv(20.0, -1.0, 2, 0, nullptr, nullptr);
    source->AddNewCvLv(30.0, -1.0, 3, 0, nullptr, nullptr);
    for (const short version : {kOldLayout, kLaterLayout}) {
        const std::string bytes = WriteSection(*source, version);
        std::vector<CCvLv*> present;
        for (unsigned i = 0; i < cvlvs->GetNoCvLvs(); ++i) present.push_back(cvlvs->GetCvLvAt(i));
        ASSERT_FALSE(present.empty());
        ForgetEvents();
        EXPECT_FALSE(ReadSection(*cvlvs, bytes, version, true).failed);
        ASSERT_EQ(cvlvs->GetNoCvLvs(), 3u);
        ASSERT_EQ(recorder.events.size(), 1u) << version;
        EXPECT_EQ(recorder.opened, 1);
        const std::vector<CCvLv*> added = {cvlvs->GetCvLvAt(0), cvlvs->GetCvLvAt(1),
                                           cvlvs->GetCvLvAt(2)};
        EXPECT_EQ(recorder.events[0].cvLvAdded, added);
        // The reader's own references are gone before the listeners are told.
        EXPECT_EQ(recorder.events[0].cvLvAddedReferenceCounts, std::vector<int>(3, 1));
        EXPECT_EQ(recorder.events[0].cvLvRemoved, present);
        EXPECT_TRUE(recorder.events[0].cvLvModified.empty());
        for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(cvlvs->GetCvLvAt(i)->GetQuota(), 10.0 * (i + 1));
    }
}

// ---- Damaged sections -----------------------------------------------------------------------

class CvLvsDamagedFileTest : public CvLvsFileTest {
protected:
    void SetUp() override {
        CvLvsFileTest::SetUp();
        CCvLv* line = AddCurvedLine(77.0);
        line->AddInterval(1.0, 2.0, CCvLvInterv::FLAG_TEXT);
        cvlvs->SetCvLvDir(eCvLvDirOriented);
        ForgetEvents();
        before = StateOfCollection(*cvlvs);
    }

    /// Reads @p bytes with and without load; each read must leave the stream failed, the
    /// collection as it was and nothing reported.
    void ExpectRejected(const std::string& bytes, short version) {
        for (const bool load : {true, false}) {
            SCOPED_TRACE(load ? "load" : "skip");
            EXPECT_TRUE(ReadSection(*cvlvs, bytes, version, load).failed);
            ExpectSameCollection(before, StateOfCollection(*cvlvs));
            EXPECT_EQ(recorder.opened, 0);
            EXPECT_TRUE(recorder.events.empty());
        }
    }

    CollectionState before;
};

TEST_F(CvLvsDamagedFileTest, TruncationAtEveryByteOfALaterSectionFailsAndChangesNothing) {
    const LineState line{
        3.0, -1.0, 0.5, 4, false, {{0, 0, 0.1, 0.2, 1}, {1, 0, 0.3, 0.4, 0}}, {{0.25, 0.5, 1}}};
    ByteBuilder section;
    section.Int32(2);
    LaterRecord(section, line);
    LaterRecord(section, line).Int32(1).Double(3.0).Double(3.0);
    ASSERT_FALSE(ReadSection(*NewTarget(), section.Str(), kLaterLayout, true).failed);
    ForgetEvents();
    for (std::size_t cut = 0; cut < section.Size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        ExpectRejected(section.Str().substr(0, cut), kLaterLayout);
    }
}

TEST_F(CvLvsDamagedFileTest, TruncationAtEveryByteOfAnOldSectionFailsAndChangesNothing) {
    ByteBuilder section;
    section.Int32(2);
    OldRecord(section, 3.0, -1.0, 0.5,
              {{1, -1, 0, 0, 0, 0, 1}, {2, 20, 1, 0, 0, 0, 1}, {1, -1, 2, 0, 0, 0, 0}});
    OldRecord(section, 4.0, -1.0, 0.5, {});
    ASSERT_FALSE(ReadSection(*NewTarget(), section.Str(), kOldLayout, true).failed);
    ForgetEvents();
    for (std::size_t cut = 0; cut < section.Size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        ExpectRejected(section.Str().substr(0, cut), kOldLayout);
    }
}

TEST_F(CvLvsDamagedFileTest, NegativeCountsFailTheStreamRightAfterTheCount) {
    const auto lineHead = [](ByteBuilder& bytes, short version) -> ByteBuilder& {
        bytes.Int32(1).Double(1.0).Double(-1.0).Double(1.0);
        if (version >= 800) bytes.Int32(7).Int32(1);
        return bytes;
    };
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        std::vector<ByteBuilder> damaged(2);
        damaged[0].Int32(-1);
        lineHead(damaged[1], version).Int32(-2);
        if (version >= 800) {
            damaged.emplace_back();
            lineHead(damaged.back(), version).Int32(0).Int32(std::numeric_limits<int>::min());
        }
        for (const ByteBuilder& bytes : damaged) {
            ExpectRejected(bytes.Str() + kTrailer, version);
            EXPECT_EQ(ReadSection(*cvlvs, bytes.Str() + kTrailer, version, true).consumed,
                      bytes.Size());
        }
    }
}

// A count far beyond what the stream holds must neither reserve memory for it (the sanitizer's
// allocator would stop the run) nor be trusted: the stream ends first.
TEST_F(CvLvsDamagedFileTest, AbsurdCountsWithFewBytesBehindFailWithoutReservingMemory) {
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        const auto head = [version](ByteBuilder& bytes, std::int32_t nodeCount) -> ByteBuilder& {
            bytes.Double(1.0).Double(-1.0).Double(1.0);
            if (version >= 800) bytes.Int32(7).Int32(1);
            return bytes.Int32(nodeCount);
        };
        ByteBuilder manyLines;
        manyLines.Int32(kMaxCount);
        head(manyLines, 0);
        if (version >= 800) manyLines.Int32(0);
        ExpectRejected(manyLines.Str(), version);

        ByteBuilder manyNodes;
        manyNodes.Int32(1);
        head(manyNodes, kMaxCount);
        for (int i = 0; i < 3; ++i) {
            if (version >= 800)
                Node(manyNodes, {1.0, 2.0, 0.0, 0.0, 1.0});
            else
                OldNode(manyNodes, {2, 50, 1.0, 2.0, 0.0, 0.0, 1.0});
        }
        ExpectRejected(manyNodes.Str(), version);

        if (version >= 800) {
            ByteBuilder manyIntervals;
            manyIntervals.Int32(1);
            head(manyIntervals, 0).Int32(kMaxCount).Double(1.0).Double(2.0).Int32(1);
            ExpectRejected(manyIntervals.Str(), version);
        }
    }
}

TEST_F(CvLvsDamagedFileTest, AStreamThatFailedBeforeTheSectionReadsNothing) {
    for (const short version : kVersions) {
        std::stringbuf buffer(WriteSection(*cvlvs, version), std::ios::in);
        ifpstream in(&buffer, version);
        in.setstate(std::ios::failbit);
        cvlvs->LeggeDaFile(in, true);
        ExpectSameCollection(before, StateOfCollection(*cvlvs));
        EXPECT_TRUE(recorder.events.empty());
    }
}

}  // namespace
