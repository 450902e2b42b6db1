#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/support/IniFile.h>
#include <dtm/support/LumoEng.h>
#include <dtm/support/Streams.h>
#include <dtm/support/Tolerances.h>

#include "ByteBuilder.h"
#include "OptionsChecks.h"
#include "StreamBytes.h"
#include "TempIni.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using dtm_test::ByteBuilder;
using dtm_test::ReadOutcome;
using Table = CColorClassComputer;

const char* const kSection = "CURVE";

// ---------------------------------------------------------------------------------------------
// Helpers

/// Every test reads and writes a fresh INI file through default-constructed CIniFile objects.
class ColorClassIniTest : public dtm_test::TempIniTest {};

Table GradedTable(std::initializer_list<int> colors, unsigned noSteps) {
    Table table;
    int pos = 0;
    for (int color : colors) table.AddEntry(pos++, color);
    table.SetNoSteps(noSteps);
    return table;
}

struct CustomClass {
    double value;
    int color;
};

Table CustomTable(std::initializer_list<CustomClass> classes, unsigned noSteps) {
    Table table;
    int pos = 0;
    for (const CustomClass& entry : classes) table.AddEntry(pos++, entry.value, entry.color);
    table.SetNoSteps(noSteps);
    return table;
}

bool SameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof(double)) == 0;
}

/// Field-by-field comparison, independent of operator== (whose rules are under test too).
void ExpectSameTable(const Table& expected, const Table& actual) {
    EXPECT_EQ(expected.GetNoSteps(), actual.GetNoSteps());
    EXPECT_EQ(expected.IsCustom(), actual.IsCustom());
    ASSERT_EQ(expected.GetNoClasses(), actual.GetNoClasses());
    for (unsigned i = 0; i < expected.GetNoClasses(); ++i) {
        EXPECT_TRUE(SameBits(expected.GetClassInfoA(i).value, actual.GetClassInfoA(i).value))
            << "class " << i << ": " << expected.GetClassInfoA(i).value << " vs "
            << actual.GetClassInfoA(i).value;
        EXPECT_EQ(expected.GetClassInfoA(i).color, actual.GetClassInfoA(i).color) << "class " << i;
    }
}

std::string Write(const Table& table, short version) {
    return dtm_test::WriteToBytes(table, &Table::SalvaInFile, version);
}

ReadOutcome Read(Table& table, const std::string& bytes, short version, bool apply) {
    return dtm_test::ReadFromBytes(table, &Table::LeggeDaFile, bytes, version, apply);
}

/// The engine's index for a colour packed as (r << 16) | (g << 8) | b.
int IndexOf(std::uint32_t packed) {
    return CLumoEng::RGB_to_Index(packed);
}

/// Colour index @p index passed once through the engine's RGB conversion and back.
int ThroughRgb(int index) {
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(static_cast<short>(index), r, g, b);
    return IndexOf((static_cast<std::uint32_t>(r) << 16) | (static_cast<std::uint32_t>(g) << 8) |
                   static_cast<std::uint32_t>(b));
}

// ---------------------------------------------------------------------------------------------
// Construction, mode rules, setters

TEST(ColorClassComputer, NewTableIsEmptyCustomWithFourSteps) {
    const Table table;
    EXPECT_TRUE(table.IsCustom());
    EXPECT_EQ(4u, table.GetNoSteps());
    EXPECT_EQ(0u, table.GetNoClasses());
    EXPECT_EQ(Table::STATE_TOO_FEW_CLASSES, table.GetState());
    EXPECT_EQ(7, table.GetColor(0.0, 100.0, 50.0));
}

TEST(ColorClassComputer, EmptyGradedTableGivesSeven) {
    Table table;
    table.SetCustom(false);
    EXPECT_EQ(7, table.GetColor(0.0, 100.0, 50.0));
}

TEST(ColorClassComputer, SetNoStepsClampsToFour) {
    Table table;
    table.SetNoSteps(9);
    EXPECT_EQ(4u, table.GetNoSteps());
    table.SetNoSteps(0);
    EXPECT_EQ(0u, table.GetNoSteps());
    table.SetNoSteps(3);
    EXPECT_EQ(3u, table.GetNoSteps());
    table.SetNoSteps(0xFFFFFFFFu);
    EXPECT_EQ(4u, table.GetNoSteps());
}

TEST(ColorClassComputer, GradedAddOnEmptyTableSwitchesToGradedMode) {
    Table table;
    ASSERT_TRUE(table.IsCustom());
    table.AddEntry(0, 5);
    EXPECT_FALSE(table.IsCustom());
    ASSERT_EQ(1u, table.GetNoClasses());
    EXPECT_EQ(5, table.GetClassInfoA(0).color);
    EXPECT_TRUE(SameBits(UNDEFINED_QUOTE, table.GetClassInfoA(0).value));
}

TEST(ColorClassComputer, GradedAddOnNonEmptyCustomTableDoesNothing) {
    Table table = CustomTable({{10.0, 1}}, 4);
    table.AddEntry(0, 5);
    EXPECT_TRUE(table.IsCustom());
    ASSERT_EQ(1u, table.GetNoClasses());
    EXPECT_EQ(1, table.GetClassInfoA(0).color);
}

TEST(ColorClassComputer, CustomAddOnEmptyGradedTableSwitchesToCustomMode) {
    Table table;
    table.SetCustom(false);
    table.AddEntry(0, 12.5, 3);
    EXPECT_TRUE(table.IsCustom());
    ASSERT_EQ(1u, table.GetNoClasses());
    EXPECT_EQ(12.5, table.GetClassInfoA(0).value);
}

TEST(ColorClassComputer, CustomAddOnNonEmptyGradedTableDoesNothing) {
    Table table = GradedTable({1, 2}, 4);
    table.AddEntry(1, 12.5, 3);
    EXPECT_FALSE(table.IsCustom());
    EXPECT_EQ(2u, table.GetNoClasses());
}

TEST(ColorClassComputer, AddEntryInsertsBeforePositionAndAppendsAtCount) {
    Table table;
    table.AddEntry(0, 20.0, 2);
    table.AddEntry(0, 10.0, 1);  // before the first
    table.AddEntry(2, 40.0, 4);  // position equal to the count appends
    table.AddEntry(2, 30.0, 3);  // in the middle
    ASSERT_EQ(4u, table.GetNoClasses());
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(10.0 * (i + 1), table.GetClassInfoA(i).value);
        EXPECT_EQ(static_cast<int>(i + 1), table.GetClassInfoA(i).color);
    }
}

TEST(ColorClassComputer, AddEntryDoesNotSortCustomValues) {
    Table table;
    table.AddEntry(0, 30.0, 3);
    table.AddEntry(1, 10.0, 1);
    EXPECT_EQ(30.0, table.GetClassInfoA(0).value);
    EXPECT_EQ(10.0, table.GetClassInfoA(1).value);
    EXPECT_EQ(Table::STATE_NOT_INCREASING, table.GetState());
}

TEST(ColorClassComputer, AddEntryAtInvalidPositionThrowsAndChangesNothing) {
    Table table;
    EXPECT_THROW(table.AddEntry(1, 5), std::out_of_range);
    EXPECT_THROW(table.AddEntry(-1, 5), std::out_of_range);
    // The failed calls on the empty table did not switch it to graded mode.
    EXPECT_TRUE(table.IsCustom());
    EXPECT_EQ(0u, table.GetNoClasses());

    table.AddEntry(0, 1.0, 1);
    EXPECT_THROW(table.AddEntry(2, 2.0, 2), std::out_of_range);
    EXPECT_EQ(1u, table.GetNoClasses());
    // A refused mode mix is not an insertion, so its position is not checked.
    EXPECT_NO_THROW(table.AddEntry(99, 5));
}

TEST(ColorClassComputer, GetClassInfoOutOfRangeThrows) {
    const Table table = GradedTable({1, 2}, 4);
    EXPECT_THROW(table.GetClassInfoA(2), std::out_of_range);
    EXPECT_THROW(table.GetClassInfoA(0xFFFFFFFFu), std::out_of_range);
}

TEST(ColorClassComputer, IndexSettersIgnoreNegativeAndTooLargeIndices) {
    Table table = CustomTable({{10.0, 1}, {20.0, 2}}, 4);
    const Table before = table;
    table.SetEntryColor(-1, 99);
    table.SetEntryColor(2, 99);
    table.SetEntryValue(-1, 99.0);
    table.SetEntryValue(2, 99.0);
    table.RemoveEntry(-1);
    table.RemoveEntry(2);
    ExpectSameTable(before, table);

    table.SetEntryColor(1, 42);
    table.SetEntryValue(0, 5.0);
    EXPECT_EQ(42, table.GetClassInfoA(1).color);
    EXPECT_EQ(5.0, table.GetClassInfoA(0).value);
    table.RemoveEntry(0);
    ASSERT_EQ(1u, table.GetNoClasses());
    EXPECT_EQ(20.0, table.GetClassInfoA(0).value);
}

TEST(ColorClassComputer, SetCustomChangesOnlyTheMode) {
    Table table = GradedTable({1, 2, 3}, 2);
    table.SetCustom(true);
    EXPECT_TRUE(table.IsCustom());
    EXPECT_EQ(2u, table.GetNoSteps());
    ASSERT_EQ(3u, table.GetNoClasses());
    EXPECT_TRUE(SameBits(UNDEFINED_QUOTE, table.GetClassInfoA(2).value));
}

TEST(ColorClassComputer, ResetEmptiesAndSwitchesToCustomButKeepsSteps) {
    Table table = GradedTable({1, 2, 3}, 2);
    table.Reset();
    EXPECT_TRUE(table.IsCustom());
    EXPECT_EQ(0u, table.GetNoClasses());
    EXPECT_EQ(2u, table.GetNoSteps());
}

TEST(ColorClassComputer, CopyAndAssignmentCopyEverything) {
    const Table source = CustomTable({{1.0, 4}, {2.0, 5}}, 3);
    const Table copy(source);
    ExpectSameTable(source, copy);
    Table assigned = GradedTable({9}, 0);
    assigned = source;
    ExpectSameTable(source, assigned);
}

// ---------------------------------------------------------------------------------------------
// State

TEST(ColorClassComputer, StateOfGradedTableIgnoresValues) {
    EXPECT_EQ(Table::STATE_TOO_FEW_CLASSES, GradedTable({1}, 4).GetState());
    EXPECT_EQ(Table::STATE_VALID, GradedTable({1, 2}, 4).GetState());
}

TEST(ColorClassComputer, StateOfCustomTables) {
    EXPECT_EQ(Table::STATE_TOO_FEW_CLASSES, CustomTable({{10.0, 1}}, 4).GetState());
    EXPECT_EQ(Table::STATE_VALID, CustomTable({{10.0, 1}, {20.0, 2}}, 4).GetState());
    EXPECT_EQ(Table::STATE_NOT_INCREASING, CustomTable({{10.0, 1}, {10.0, 2}}, 4).GetState());
    EXPECT_EQ(Table::STATE_UNDEFINED_VALUE, CustomTable({{10.0, 1}, {1.7e200, 2}}, 4).GetState());
    EXPECT_EQ(Table::STATE_UNDEFINED_VALUE, CustomTable({{1.7e200, 1}, {20.0, 2}}, 4).GetState());
    EXPECT_EQ(Table::STATE_NOT_INCREASING, CustomTable({{20.0, 1}, {10.0, 2}}, 4).GetState());
}

TEST(ColorClassComputer, StateFirstFailingEntryDecides) {
    // Entry 1 fails the order test before entry 2 could fail the undefined test.
    EXPECT_EQ(Table::STATE_NOT_INCREASING,
              CustomTable({{10.0, 1}, {5.0, 2}, {1.7e200, 3}}, 4).GetState());
    // Entry 2 is undefined, which decides before entry 3 could fail the order test.
    EXPECT_EQ(Table::STATE_UNDEFINED_VALUE,
              CustomTable({{10.0, 1}, {20.0, 2}, {1.7e200, 3}, {1.0, 4}}, 4).GetState());
}

TEST(ColorClassComputer, StateComparesWithTolerance) {
    // 10 + 5e-12 is within 10 * 1e-12 + 1e-12 of 10: not increasing.
    EXPECT_EQ(Table::STATE_NOT_INCREASING,
              CustomTable({{10.0, 1}, {10.0 + 5e-12, 2}}, 4).GetState());
    EXPECT_EQ(Table::STATE_VALID, CustomTable({{10.0, 1}, {10.0 + 1e-9, 2}}, 4).GetState());
    // At the edge: a rise of exactly the tolerance of the higher value is still no rise, one
    // just beyond it is.
    const double edge = 20.0 - dtm::ToleranceOf(20.0);
    EXPECT_EQ(Table::STATE_NOT_INCREASING, CustomTable({{edge, 1}, {20.0, 2}}, 4).GetState());
    const double below = std::nextafter(edge, 0.0);
    EXPECT_EQ(Table::STATE_VALID, CustomTable({{below, 1}, {20.0, 2}}, 4).GetState());
}

TEST(ColorClassComputer, StateCountsOnlyValuesAboveHalfTheSentinelAsUndefined) {
    EXPECT_EQ(Table::STATE_VALID, CustomTable({{10.0, 1}, {8.5e199, 2}}, 4).GetState());
    EXPECT_EQ(Table::STATE_UNDEFINED_VALUE, CustomTable({{10.0, 1}, {8.6e199, 2}}, 4).GetState());
}

// ---------------------------------------------------------------------------------------------
// Graded lookup

TEST(ColorClassComputer, GradedWithoutStepsPicksNearestGrade) {
    const Table table = GradedTable({1, 2, 3}, 0);
    EXPECT_EQ(2, table.GetColor(0.0, 100.0, 30.0));  // k = floor(2 * 30 / 100 + 0.5) = 1
    EXPECT_EQ(1, table.GetColor(0.0, 100.0, 20.0));  // k = 0
    EXPECT_EQ(3, table.GetColor(0.0, 100.0, 75.0));  // k = 2: last class
    EXPECT_EQ(2, table.GetColor(0.0, 100.0, 74.0));
}

TEST(ColorClassComputer, GradedOutsideRangeTakesEndColours) {
    const Table table = GradedTable({1, 2, 3}, 4);
    EXPECT_EQ(1, table.GetColor(0.0, 100.0, -5.0));
    EXPECT_EQ(1, table.GetColor(0.0, 100.0, 0.0));
    EXPECT_EQ(1, table.GetColor(0.0, 100.0, 5e-13));  // within the tolerance of minZ
    EXPECT_EQ(3, table.GetColor(0.0, 100.0, 100.0));
    EXPECT_EQ(3, table.GetColor(0.0, 100.0, 150.0));
}

TEST(ColorClassComputer, GradedEmptyOrReversedRangeGivesFirstColour) {
    const Table table = GradedTable({4, 5, 6}, 4);
    for (double z : {-10.0, 0.0, 50.0, 100.0, 1e9}) {
        EXPECT_EQ(4, table.GetColor(50.0, 50.0, z)) << z;
        EXPECT_EQ(4, table.GetColor(100.0, 0.0, z)) << z;
        EXPECT_EQ(4, table.GetColor(50.0, 50.0 + 1e-14, z)) << z;  // range within tolerance
    }
}

TEST(ColorClassComputer, GradedSingleClassGivesItsColour) {
    const Table table = GradedTable({9}, 4);
    for (double z : {-10.0, 50.0, 200.0}) EXPECT_EQ(9, table.GetColor(0.0, 100.0, z)) << z;
}

TEST(ColorClassComputer, GradedStepsBlendComponentsWithTruncation) {
    // Red (1: 255, 0, 0) to blue (5: 0, 0, 255) with 3 steps, so s + 1 = 4 grades per class.
    // Each component is c0 + ((c1 - c0) * step) / 4, truncated towards zero; the packed values
    // below are worked out by hand.
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(5, r, g, b);
    ASSERT_EQ(0x0000FF, (r << 16) | (g << 8) | b);
    CLumoEng::Index_to_RGB(1, r, g, b);
    ASSERT_EQ(0xFF0000, (r << 16) | (g << 8) | b);
    const Table table = GradedTable({1, 5}, 3);
    EXPECT_EQ(IndexOf(0xC0003Fu), table.GetColor(0.0, 100.0, 25.0));  // k 1: 255-63, 63
    EXPECT_EQ(IndexOf(0x80007Fu), table.GetColor(0.0, 100.0, 50.0));  // k 2: 255-127, 127
    EXPECT_EQ(IndexOf(0x4000BFu), table.GetColor(0.0, 100.0, 75.0));  // k 3: 255-191, 191
    EXPECT_EQ(1, table.GetColor(0.0, 100.0, 12.0));                   // k 0: class 0 itself
    EXPECT_EQ(5, table.GetColor(0.0, 100.0, 90.0));                   // k 4: last class
}

TEST(ColorClassComputer, BlendedComponentsTruncateTowardsZero) {
    // Red (1: 255, 0, 0) half way to colour 49 (38, 33, 19): the red component is
    // 255 + (-217 / 2) = 255 - 108 = 147 when the division truncates towards zero; rounding
    // down would give 146, a colour whose nearest palette index differs.
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(49, r, g, b);
    ASSERT_EQ(38, r);
    ASSERT_EQ(33, g);
    ASSERT_EQ(19, b);
    ASSERT_NE(IndexOf(0x931009u), IndexOf(0x921009u));
    const Table table = GradedTable({1, 49}, 1);
    EXPECT_EQ(IndexOf(0x931009u), table.GetColor(0.0, 100.0, 50.0));  // k = 1 of 2
}

TEST(ColorClassComputer, GradedGradeKeepsTheOrderOfOperations) {
    // 5 * 0.12 / 0.4 rounds to just below 1.5, while 0.12 / 0.4 * 5 rounds to 1.5 exactly:
    // multiplying first gives grade 1, the other order would give grade 2.
    ASSERT_LT(5.0 * 0.12 / 0.4 + 0.5, 2.0);
    ASSERT_EQ(2.0, 0.12 / 0.4 * 5.0 + 0.5);
    const Table table = GradedTable({1, 2, 3, 4, 5, 6}, 0);
    EXPECT_EQ(2, table.GetColor(0.0, 0.4, 0.12));
}

TEST(ColorClassComputer, GradedSweepMatchesGradesComputedHere) {
    // Sweep elevations and compare with the expression computed here in the same order.
    const Table table = GradedTable({1, 5, 3}, 2);
    const double minZ = -3.7;
    const double maxZ = 12.9;
    for (int i = 1; i < 400; ++i) {
        const double z = minZ + (maxZ - minZ) * i / 400.0;
        const int k = static_cast<int>(std::floor(6.0 * (z - minZ) / (maxZ - minZ) + 0.5));
        const int index = k / 3;
        const int step = k % 3;
        int expected = 0;
        if (index >= 2) {
            expected = 3;
        } else if (step == 0) {
            expected = table.GetClassInfoA(static_cast<unsigned>(index)).color;
        } else {
            long from[3], to[3];
            CLumoEng::Index_to_RGB(
                static_cast<short>(table.GetClassInfoA(static_cast<unsigned>(index)).color),
                from[0], from[1], from[2]);
            CLumoEng::Index_to_RGB(
                static_cast<short>(table.GetClassInfoA(static_cast<unsigned>(index) + 1).color),
                to[0], to[1], to[2]);
            std::uint32_t packed = 0;
            for (int c = 0; c < 3; ++c) {
                const int value =
                    static_cast<int>(from[c]) + (static_cast<int>(to[c] - from[c]) * step) / 3;
                packed = (packed << 8) | static_cast<std::uint32_t>(value);
            }
            expected = IndexOf(packed);
        }
        EXPECT_EQ(expected, table.GetColor(minZ, maxZ, z)) << "z = " << z;
    }
}

// ---------------------------------------------------------------------------------------------
// Custom lookup

TEST(ColorClassComputer, CustomLookupTakesTheClassHoldingTheElevation) {
    const Table table = CustomTable({{10.0, 1}, {20.0, 256}, {30.0, 3}}, 4);
    EXPECT_EQ(1, table.GetColor(0.0, 0.0, 5.0));
    EXPECT_EQ(1, table.GetColor(0.0, 0.0, 10.0));
    EXPECT_EQ(256, table.GetColor(0.0, 0.0, 15.0));  // k = 3: entry 1's own index
    EXPECT_EQ(3, table.GetColor(0.0, 0.0, 35.0));
    EXPECT_EQ(3, table.GetColor(0.0, 0.0, 30.0));
}

TEST(ColorClassComputer, CustomLookupAtTopOfIntervalPassesThroughRgb) {
    // Colour 256 is outside the palette, so its RGB round trip gives another index: the two
    // routes of the custom lookup can be told apart.
    const Table table = CustomTable({{10.0, 1}, {20.0, 256}, {30.0, 3}}, 4);
    ASSERT_NE(256, ThroughRgb(256));
    EXPECT_EQ(ThroughRgb(256), table.GetColor(0.0, 0.0, 19.99));  // k = 5 = s + 1
    EXPECT_EQ(ThroughRgb(256), table.GetColor(0.0, 0.0, 20.0));
    EXPECT_EQ(256, table.GetColor(0.0, 0.0, 17.0));              // k = floor(0.7 * 5 + 0.5) = 4
    EXPECT_EQ(ThroughRgb(256), table.GetColor(0.0, 0.0, 19.0));  // k = floor(4.5 + 0.5) = 5
}

TEST(ColorClassComputer, CustomLookupTakesAClassLimitWithinItsTolerance) {
    // The tolerance around 10 is 1.1e-11 and around 20 is 2.1e-11: an elevation that far above
    // a class's value still belongs to that class.
    const Table table = CustomTable({{10.0, 1}, {20.0, 256}, {30.0, 3}}, 4);
    ASSERT_EQ(dtm::ToleranceOf(10.0), 10.0 * 1e-12 + 1e-12);
    EXPECT_EQ(1, table.GetColor(0.0, 0.0, 10.0 + 1.05e-11));
    EXPECT_EQ(256, table.GetColor(0.0, 0.0, 10.0 + 1.2e-11));
    // At the top of the interval (10, 20] the colour goes through RGB; just beyond its tolerance
    // the next class begins.
    EXPECT_EQ(ThroughRgb(256), table.GetColor(0.0, 0.0, 20.0 + 2.0e-11));
    EXPECT_EQ(3, table.GetColor(0.0, 0.0, 20.0 + 2.2e-11));
    EXPECT_EQ(3, table.GetColor(0.0, 0.0, 30.0 - 3.0e-11));
}

TEST(ColorClassComputer, CustomLookupIgnoresTheRange) {
    const Table table = CustomTable({{10.0, 1}, {20.0, 2}, {30.0, 3}}, 4);
    EXPECT_EQ(table.GetColor(0.0, 0.0, 15.0), table.GetColor(-1e9, 1e9, 15.0));
    EXPECT_EQ(table.GetColor(0.0, 0.0, 25.0), table.GetColor(100.0, 0.0, 25.0));
}

TEST(ColorClassComputer, NanElevationGivesFirstColourInBothModes) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(1, CustomTable({{10.0, 1}, {20.0, 2}, {30.0, 3}}, 4).GetColor(0.0, 0.0, nan));
    EXPECT_EQ(4, GradedTable({4, 5, 6}, 4).GetColor(0.0, 100.0, nan));
}

TEST(ColorClassComputer, CustomNanClassValueLeavesElevationUnplaced) {
    // Nothing holds 25 when the last value is NaN: the first colour, by the unplaced rule.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Table table = CustomTable({{10.0, 1}, {20.0, 2}, {nan, 3}}, 4);
    EXPECT_EQ(1, table.GetColor(0.0, 0.0, 25.0));
    EXPECT_EQ(2, table.GetColor(0.0, 0.0, 15.0));
}

TEST(ColorClassComputer, CustomInfiniteValuesCompareWithoutTolerance) {
    const double inf = std::numeric_limits<double>::infinity();
    const Table table = CustomTable({{-inf, 1}, {0.0, 2}, {inf, 3}}, 4);
    EXPECT_EQ(1, table.GetColor(0.0, 0.0, -inf));
    EXPECT_EQ(3, table.GetColor(0.0, 0.0, inf));
    EXPECT_EQ(2, table.GetColor(0.0, 0.0, -5.0));  // t = inf / inf is NaN: k = 0
    EXPECT_EQ(3, table.GetColor(0.0, 0.0, 5.0));   // t = 0: entry 2's own index
}

// ---------------------------------------------------------------------------------------------
// Step counts that only a file can hold

/// A table like @p table with the step count @p noSteps, as only a stream can set it.
Table WithStoredSteps(const Table& table, std::uint32_t noSteps) {
    Table read;
    Read(read, dtm_test::ColorClassesSection(table, noSteps).Str(), 800, true);
    return read;
}

TEST(ColorClassComputer, WrappingStepCountGradesAsNoSteps) {
    // noSteps 0xFFFFFFFF makes s + 1 wrap to 0 in 32 bits; a graded table then behaves exactly
    // as one without intermediate steps, and never divides by zero.
    const Table base = GradedTable({1, 5, 3}, 0);
    const Table wrapped = WithStoredSteps(base, 0xFFFFFFFFu);
    ASSERT_EQ(0xFFFFFFFFu, wrapped.GetNoSteps());
    for (int i = -10; i <= 410; ++i) {
        const double z = i / 10.0;
        EXPECT_EQ(base.GetColor(0.0, 40.0, z), wrapped.GetColor(0.0, 40.0, z)) << z;
    }
}

TEST(ColorClassComputer, WrappingStepCountGivesEveryCustomClassItsOwnColour) {
    // The custom lookup keeps the wrapped 32-bit s + 1 = 0: every grade is 0, which is never
    // above s, so no elevation takes the route through RGB (which would turn 256 into a palette
    // index), not even at the top of an interval.
    const Table wrapped =
        WithStoredSteps(CustomTable({{10.0, 1}, {20.0, 256}, {30.0, 3}}, 0), 0xFFFFFFFFu);
    ASSERT_EQ(0xFFFFFFFFu, wrapped.GetNoSteps());
    for (int i = -10; i <= 410; ++i) {
        const double z = i / 10.0;
        const int own = z <= 10.0 ? 1 : z <= 20.0 ? 256 : 3;
        EXPECT_EQ(own, wrapped.GetColor(0.0, 40.0, z)) << z;
    }
}

TEST(ColorClassComputer, HugeStepCountsStayWellDefined) {
    // Counts that do not wrap but overflow 32-bit grade arithmetic: results are clamped, never
    // undefined (the sanitizers watch this test), and always a palette index or a class colour.
    for (std::uint32_t noSteps : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu}) {
        for (const Table& base :
             {GradedTable({1, 5, 3}, 0), CustomTable({{10.0, 1}, {20.0, 5}, {30.0, 3}}, 0)}) {
            const Table table = WithStoredSteps(base, noSteps);
            for (int i = -10; i <= 410; ++i) {
                const int color = table.GetColor(0.0, 40.0, i / 10.0);
                EXPECT_TRUE(color >= 0 && color <= 255) << noSteps << " z " << i / 10.0;
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Equality

TEST(ColorClassComputer, EqualityComparesStepsCountEntriesAndMode) {
    const Table table = CustomTable({{10.0, 1}, {20.0, 2}}, 3);
    EXPECT_TRUE(table == Table(table));

    Table steps = table;
    steps.SetNoSteps(2);
    EXPECT_FALSE(table == steps);

    Table count = table;
    count.AddEntry(2, 30.0, 3);
    EXPECT_FALSE(table == count);

    Table mode = table;
    mode.SetCustom(false);
    EXPECT_FALSE(table == mode);
    EXPECT_TRUE(table != mode);

    Table value = table;
    value.SetEntryValue(1, 20.0000001);
    EXPECT_FALSE(table == value);

    Table color = table;
    color.SetEntryColor(0, 9);
    EXPECT_FALSE(table == color);
}

TEST(ColorClassComputer, EqualityIgnoresModeForZeroOrOneEntry) {
    Table customOne = CustomTable({{10.0, 1}}, 4);
    Table gradedOne = customOne;
    gradedOne.SetCustom(false);
    EXPECT_TRUE(customOne == gradedOne);

    Table customEmpty;
    Table gradedEmpty;
    gradedEmpty.SetCustom(false);
    EXPECT_TRUE(customEmpty == gradedEmpty);
}

TEST(ColorClassComputer, EqualityComparesValuesExactlySoNanDiffers) {
    const Table table = CustomTable({{10.0, 1}, {std::nan(""), 2}}, 4);
    EXPECT_FALSE(table == Table(table));
    const Table near = CustomTable({{10.0, 1}, {20.0, 2}}, 4);
    Table tiny = near;
    tiny.SetEntryValue(1, std::nextafter(20.0, 30.0));
    EXPECT_FALSE(near == tiny);
}

// ---------------------------------------------------------------------------------------------
// INI file

TEST_F(ColorClassIniTest, WritesTheDocumentedKeys) {
    const Table table = CustomTable({{10.5, 1}, {20.25, 2}}, 3);
    table.SetInIni("P");
    CIniFile ini;
    EXPECT_TRUE(ini.GetBool(kSection, "P-custom", false));
    EXPECT_EQ(3, ini.GetLong(kSection, "P-nosteps", -1));
    EXPECT_EQ(2, ini.GetLong(kSection, "P-noclasses", -1));
    EXPECT_EQ(10.5, ini.GetDouble(kSection, "P-class0-value", 0.0));
    EXPECT_EQ(1, ini.GetLong(kSection, "P-class0-color", -1));
    EXPECT_EQ(20.25, ini.GetDouble(kSection, "P-class1-value", 0.0));
    EXPECT_EQ(2, ini.GetLong(kSection, "P-class1-color", -1));
}

TEST_F(ColorClassIniTest, RoundTripOfCustomTable) {
    const Table written = CustomTable({{-12.75, 1}, {0.1, 200}, {1e-300, 256}, {3.3e15, 7}}, 2);
    written.SetInIni("TriGrCol");
    Table read = GradedTable({9}, 0);
    read.GetDaIni("TriGrCol");
    ExpectSameTable(written, read);
    EXPECT_TRUE(written == read);
}

TEST_F(ColorClassIniTest, RoundTripOfGradedTable) {
    const Table written = GradedTable({4, 5, 6, 7}, 1);
    written.SetInIni("CvLvsGrCol");
    Table read;
    read.GetDaIni("CvLvsGrCol");
    ExpectSameTable(written, read);
}

TEST_F(ColorClassIniTest, PrefixesKeepTablesApart) {
    GradedTable({4, 5}, 1).SetInIni("A");
    CustomTable({{1.0, 8}, {2.0, 9}}, 2).SetInIni("B");
    Table a;
    a.GetDaIni("A");
    Table b;
    b.GetDaIni("B");
    ExpectSameTable(GradedTable({4, 5}, 1), a);
    ExpectSameTable(CustomTable({{1.0, 8}, {2.0, 9}}, 2), b);
}

TEST_F(ColorClassIniTest, LongPrefixBuildsFullKeys) {
    const std::string prefix(300, 'x');
    CustomTable({{1.0, 8}, {2.0, 9}}, 2).SetInIni(prefix.c_str());
    CIniFile ini;
    EXPECT_EQ(9, ini.GetLong(kSection, (prefix + "-class1-color").c_str(), -1));
    Table read;
    read.GetDaIni(prefix.c_str());
    ExpectSameTable(CustomTable({{1.0, 8}, {2.0, 9}}, 2), read);
}

TEST_F(ColorClassIniTest, NoStepsReadFromIniIsNotClamped) {
    CIniFile ini;
    ini.WriteLong(kSection, "P-nosteps", 9);
    ini.WriteLong(kSection, "P-noclasses", 2);
    Table table;
    table.GetDaIni("P");
    EXPECT_EQ(9u, table.GetNoSteps());
}

TEST_F(ColorClassIniTest, StepCountThatWrapsSurvivesRoundTrip) {
    CIniFile ini;
    ini.WriteLong(kSection, "P-nosteps", -1);
    Table table;
    table.GetDaIni("P");
    ASSERT_EQ(0xFFFFFFFFu, table.GetNoSteps());
    EXPECT_EQ(2, table.GetColor(0.0, 100.0, 30.0));  // looked up as without steps
    table.SetInIni("Q");
    Table read;
    read.GetDaIni("Q");
    EXPECT_EQ(0xFFFFFFFFu, read.GetNoSteps());
}

TEST_F(ColorClassIniTest, MissingKeysGiveDefaultGradedTable) {
    Table table = CustomTable({{1.0, 8}, {2.0, 9}}, 2);
    table.GetDaIni("Absent");
    ExpectSameTable(GradedTable({1, 2, 3}, 4), table);
    EXPECT_TRUE(SameBits(UNDEFINED_QUOTE, table.GetClassInfoA(0).value));
}

TEST_F(ColorClassIniTest, FewerThanTwoClassesGiveDefaultGradedTableWhateverTheMode) {
    for (long count : {1L, 0L, -5L}) {
        CIniFile ini;
        ini.WriteBool(kSection, "P-custom", true);
        ini.WriteLong(kSection, "P-nosteps", 2);
        ini.WriteLong(kSection, "P-noclasses", count);
        ini.WriteDouble(kSection, "P-class0-value", 10.0);
        ini.WriteLong(kSection, "P-class0-color", 44);
        Table table;
        table.GetDaIni("P");
        EXPECT_FALSE(table.IsCustom()) << count;
        EXPECT_EQ(2u, table.GetNoSteps()) << count;
        ExpectSameTable(GradedTable({1, 2, 3}, 2), table);
    }
}

TEST_F(ColorClassIniTest, ReadsAtMostOneHundredClasses) {
    // The file is written here as text, with 250 classes.
    {
        std::ofstream file(CIniFile::GetDefaultPath());
        file << "[CURVE]\nP-custom=1\nP-noclasses=250\n";
        for (int i = 0; i < 250; ++i)
            file << "P-class" << i << "-value=" << i * 2 << "\nP-class" << i << "-color=" << i
                 << "\n";
    }
    Table read;
    read.GetDaIni("P");
    EXPECT_TRUE(read.IsCustom());
    ASSERT_EQ(100u, read.GetNoClasses());
    for (unsigned i = 0; i < 100; ++i) {
        EXPECT_EQ(i * 2.0, read.GetClassInfoA(i).value);
        EXPECT_EQ(static_cast<int>(i), read.GetClassInfoA(i).color);
    }
}

TEST_F(ColorClassIniTest, WritesEveryClassWithoutLimit) {
    Table all;
    for (int i = 0; i < 101; ++i) all.AddEntry(i, i * 2.0, i);
    all.SetInIni("P");
    CIniFile ini;
    EXPECT_EQ(101, ini.GetLong(kSection, "P-noclasses", -1));
    EXPECT_EQ(200.0, ini.GetDouble(kSection, "P-class100-value", -1.0));
    EXPECT_EQ(100, ini.GetLong(kSection, "P-class100-color", -1));
}

TEST_F(ColorClassIniTest, MissingClassKeysGiveZeroValueAndColourSeven) {
    CIniFile ini;
    ini.WriteBool(kSection, "P-custom", true);
    ini.WriteLong(kSection, "P-noclasses", 3);
    ini.WriteDouble(kSection, "P-class1-value", 5.5);
    ini.WriteLong(kSection, "P-class2-color", 12);
    Table table;
    table.GetDaIni("P");
    ASSERT_EQ(3u, table.GetNoClasses());
    EXPECT_EQ(0.0, table.GetClassInfoA(0).value);
    EXPECT_EQ(7, table.GetClassInfoA(0).color);
    EXPECT_EQ(5.5, table.GetClassInfoA(1).value);
    EXPECT_EQ(7, table.GetClassInfoA(1).color);
    EXPECT_EQ(0.0, table.GetClassInfoA(2).value);
    EXPECT_EQ(12, table.GetClassInfoA(2).color);
    EXPECT_EQ(4u, table.GetNoSteps());
}

TEST_F(ColorClassIniTest, MalformedValuesFallBackToDefaults) {
    CIniFile ini;
    ini.WriteString(kSection, "P-custom", "perhaps");
    ini.WriteString(kSection, "P-nosteps", "many");
    ini.WriteString(kSection, "P-noclasses", "2");
    ini.WriteString(kSection, "P-class0-value", "ten");
    ini.WriteString(kSection, "P-class0-color", "red");
    ini.WriteString(kSection, "P-class1-value", "20.5");
    ini.WriteString(kSection, "P-class1-color", "4.5");
    Table table;
    table.SetCustom(false);
    table.GetDaIni("P");
    EXPECT_TRUE(table.IsCustom());
    EXPECT_EQ(4u, table.GetNoSteps());
    ASSERT_EQ(2u, table.GetNoClasses());
    EXPECT_EQ(0.0, table.GetClassInfoA(0).value);
    EXPECT_EQ(7, table.GetClassInfoA(0).color);
    EXPECT_EQ(20.5, table.GetClassInfoA(1).value);
    EXPECT_EQ(7, table.GetClassInfoA(1).color);

    ini.WriteString(kSection, "P-noclasses", "lots");
    table.GetDaIni("P");
    ExpectSameTable(GradedTable({1, 2, 3}, 4), table);
}

TEST_F(ColorClassIniTest, ShorterTableLeavesOldClassKeys) {
    CustomTable({{1.0, 1}, {2.0, 2}, {3.0, 3}, {4.0, 4}, {5.0, 5}}, 4).SetInIni("P");
    CustomTable({{1.0, 1}, {2.0, 2}, {3.0, 3}}, 4).SetInIni("P");
    CIniFile ini;
    EXPECT_EQ(3, ini.GetLong(kSection, "P-noclasses", -1));
    EXPECT_EQ(5, ini.GetLong(kSection, "P-class4-color", -1));
    Table read;
    read.GetDaIni("P");
    EXPECT_EQ(3u, read.GetNoClasses());
}

// ---------------------------------------------------------------------------------------------
// Stream section

class ColorClassStreamTest : public ::testing::TestWithParam<short> {};

TEST_P(ColorClassStreamTest, RoundTripKeepsEveryField) {
    const short version = GetParam();
    for (const Table& written :
         {CustomTable({{-1.5, 1}, {2.25, 256}, {1e300, -3}}, 2), GradedTable({4, 5, 6}, 0), Table(),
          WithStoredSteps(GradedTable({1, 2}, 0), 9)}) {
        const std::string bytes = Write(written, version);
        Table read = CustomTable({{7.0, 7}}, 1);
        const Table before = read;
        const ReadOutcome outcome = Read(read, bytes, version, true);
        EXPECT_TRUE(outcome.streamGood);
        EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
        if (version >= 800) {
            EXPECT_EQ(12u + 12u * written.GetNoClasses(), bytes.size());
            ExpectSameTable(written, read);
            EXPECT_EQ(bytes, Write(read, version));  // write, read, write: identical bytes
        } else {
            EXPECT_TRUE(bytes.empty());
            ExpectSameTable(before, read);
        }
    }
}

TEST_P(ColorClassStreamTest, ApplyFalseConsumesTheSameBytesAndChangesNothing) {
    const short version = GetParam();
    const std::string bytes = Write(CustomTable({{-1.5, 1}, {2.25, 2}}, 3), version) + "tail";
    Table applied;
    const ReadOutcome withApply = Read(applied, bytes, version, true);
    Table skipped = GradedTable({8, 9}, 1);
    const Table before = skipped;
    const ReadOutcome withoutApply = Read(skipped, bytes, version, false);
    EXPECT_TRUE(withoutApply.streamGood);
    EXPECT_EQ(withApply.consumed, withoutApply.consumed);
    ExpectSameTable(before, skipped);
}

INSTANTIATE_TEST_SUITE_P(Versions, ColorClassStreamTest,
                         ::testing::Values(short{799}, short{800}, short{811}, short{812},
                                           short{1501}, short{1502}));

TEST(ColorClassComputerStream, OldStreamIsNotTouched) {
    const std::string bytes = ByteBuilder().UInt32(2).Int32(1).Int32(0).Str();
    Table table = GradedTable({1, 2}, 3);
    const Table before = table;
    const ReadOutcome outcome = Read(table, bytes, 799, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(0, outcome.consumed);
    ExpectSameTable(before, table);
    EXPECT_TRUE(Write(table, 799).empty());
    EXPECT_TRUE(Write(table, -1).empty());  // signed comparison
}

TEST(ColorClassComputerStream, WritesTheDocumentedLayout) {
    const std::string expected = ByteBuilder()
                                     .UInt32(3)
                                     .Int32(1)
                                     .Int32(2)
                                     .Double(-1.5)
                                     .Int32(1)
                                     .Double(2.25)
                                     .Int32(256)
                                     .Str();
    EXPECT_EQ(expected, Write(CustomTable({{-1.5, 1}, {2.25, 256}}, 3), 800));
    EXPECT_EQ(ByteBuilder().UInt32(0).Int32(0).Int32(0).Str(), [] {
        Table graded;
        graded.SetCustom(false);
        graded.SetNoSteps(0);
        return Write(graded, 1502);
    }());
}

TEST(ColorClassComputerStream, ReadsHandAssembledSection) {
    const std::string bytes = ByteBuilder()
                                  .UInt32(9)  // unclamped
                                  .Int32(1)
                                  .Int32(3)
                                  .Double(10.0)
                                  .Int32(1)
                                  .Double(20.5)
                                  .Int32(-7)
                                  .Double(UNDEFINED_QUOTE)
                                  .Int32(300)
                                  .Str();
    Table table;
    const ReadOutcome outcome = Read(table, bytes, 800, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    EXPECT_EQ(9u, table.GetNoSteps());
    EXPECT_TRUE(table.IsCustom());
    ASSERT_EQ(3u, table.GetNoClasses());
    EXPECT_EQ(10.0, table.GetClassInfoA(0).value);
    EXPECT_EQ(1, table.GetClassInfoA(0).color);
    EXPECT_EQ(20.5, table.GetClassInfoA(1).value);
    EXPECT_EQ(-7, table.GetClassInfoA(1).color);
    EXPECT_TRUE(SameBits(UNDEFINED_QUOTE, table.GetClassInfoA(2).value));
    EXPECT_EQ(300, table.GetClassInfoA(2).color);
}

TEST(ColorClassComputerStream, OnlyOneIsATrueCustomFlag) {
    for (std::int32_t flag : {0, 2, -1, 256}) {
        Table table;
        Read(table, ByteBuilder().UInt32(4).Int32(flag).Int32(0).Str(), 800, true);
        EXPECT_FALSE(table.IsCustom()) << flag;
    }
    Table table;
    table.SetCustom(false);
    Read(table, ByteBuilder().UInt32(4).Int32(1).Int32(0).Str(), 800, true);
    EXPECT_TRUE(table.IsCustom());
}

TEST(ColorClassComputerStream, CountOfZeroOrLessGivesEmptyTable) {
    for (std::int32_t count : {0, -1, -2147483647 - 1}) {
        const std::string bytes = ByteBuilder().UInt32(2).Int32(0).Int32(count).Str() + "rest";
        Table table = CustomTable({{1.0, 1}, {2.0, 2}}, 4);
        const ReadOutcome outcome = Read(table, bytes, 800, true);
        EXPECT_TRUE(outcome.streamGood) << count;
        EXPECT_EQ(12, outcome.consumed) << count;
        EXPECT_EQ(0u, table.GetNoClasses()) << count;
        EXPECT_EQ(2u, table.GetNoSteps()) << count;
        EXPECT_FALSE(table.IsCustom()) << count;
    }
}

TEST(ColorClassComputerStream, TruncatedSectionFailsAndLeavesTableUnchanged) {
    const std::string bytes = Write(CustomTable({{-1.5, 1}, {2.25, 2}, {3.0, 3}}, 3), 800);
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
        for (bool apply : {true, false}) {
            Table table = GradedTable({8, 9}, 1);
            const Table before = table;
            const ReadOutcome outcome = Read(table, bytes.substr(0, cut), 800, apply);
            EXPECT_FALSE(outcome.streamGood) << cut;
            ExpectSameTable(before, table);
        }
    }
}

TEST(ColorClassComputerStream, CorruptCountStopsAtTheEndOfTheStream) {
    // A count of two thousand million entries with one entry's bytes behind it: the reader must
    // fail at the stream's end without reserving room for the count.
    const std::string bytes =
        ByteBuilder().UInt32(4).Int32(1).Int32(0x7FFFFFFF).Double(1.0).Int32(2).Str();
    Table table = GradedTable({8, 9}, 1);
    const Table before = table;
    const ReadOutcome outcome = Read(table, bytes, 1502, true);
    EXPECT_FALSE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    ExpectSameTable(before, table);
}

TEST(ColorClassComputerStream, FailedStreamIsNotRead) {
    const std::string bytes = Write(CustomTable({{1.0, 1}, {2.0, 2}}, 3), 800);
    std::stringbuf buffer(bytes);
    ifpstream in(&buffer, 800);
    in.setstate(std::ios::failbit);
    Table table = GradedTable({8, 9}, 1);
    const Table before = table;
    table.LeggeDaFile(in, true);
    ExpectSameTable(before, table);
}

}  // namespace
