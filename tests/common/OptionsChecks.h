#pragma once

// Checks and byte layouts shared by the tests of the option objects: the network's and the
// contour lines' options, their colour classes, and the project's option section that holds
// them all. Option objects are compared field by field through their getters, so that a
// difference names the field that differs.

#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/contours/COpzCvLv.h>
#include <dtm/network/COpzTri.h>
#include <dtm/support/IniFile.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>

#include "ByteBuilder.h"
#include "StreamBytes.h"

namespace dtm_test {

/// Whether a comparison of network options looks at the point collections, which only the
/// document keeps: after an INI round trip they are expected to differ.
enum class PointCollections { Compare, Ignore };

/// Every field of @p actual equals the one of @p expected; the colour classes are compared
/// with their own equality and mode.
void ExpectSameOptions(const COpzTri& expected, const COpzTri& actual,
                       PointCollections collections = PointCollections::Compare);

/// Every field of @p actual equals the one of @p expected, the four categories included; the
/// colour classes are compared with their own equality and mode.
void ExpectSameOptions(const COpzCvLv& expected, const COpzCvLv& actual);

/// A custom table of two classes (-5.5: colour 11, 7.25: colour 22) and two steps: away from the
/// defaults of every option object that holds one.
CColorClassComputer SampleColorClasses();

/// The table an INI file without colour classes gives: graded, four steps, colours 1, 2, 3.
void ExpectDefaultIniColorClasses(const CColorClassComputer& classes);

/// One class of a table as a test states it: its value and its colour.
struct ColorClass {
    double value;
    int color;
};

/// @p classes is a custom table of @p noSteps steps holding exactly @p expected, in order.
void ExpectCustomClasses(const CColorClassComputer& classes, unsigned noSteps,
                         std::initializer_list<ColorClass> expected);

/// Writes a custom table of @p noSteps steps holding @p classes into section "CURVE" of @p ini,
/// under the keys a table with key prefix @p prefix reads: "<prefix>-custom", "-nosteps",
/// "-noclasses", "-class<i>-value" and "-class<i>-color", spelled out here rather than by the
/// table's own writer.
void WriteIniCustomClasses(CIniFile& ini, const std::string& prefix, unsigned noSteps,
                           std::initializer_list<ColorClass> classes);

/// A colour-class section as a document stores @p classes: uint32 steps, int32 custom flag
/// (1 or 0), int32 count, then a double value and an int32 colour per class.
ByteBuilder ColorClassesSection(const CColorClassComputer& classes);

/// The same section with the step count @p noSteps in place of the table's own, for step counts
/// that only a document can hold.
ByteBuilder ColorClassesSection(const CColorClassComputer& classes, std::uint32_t noSteps);

// ---------------------------------------------------------------------------------------------
// Checks that hold for both option objects, COpzTri and COpzCvLv.

/// A copy and an assignment of @p source take its fields and read nothing from the INI file,
/// although a default-constructed object does: @p textHeightKey, the INI key of the options'
/// text height, is set to 42 in the file first, and only the default-constructed object shows
/// it. Run inside a fixture with a fresh INI file.
template <class Options>
void ExpectCopyIgnoresIni(const Options& source, const char* textHeightKey) {
    CIniFile().WriteDouble("CURVE", textHeightKey, 42.0);
    const Options copy(source);
    ExpectSameOptions(source, copy);
    Options assigned;
    EXPECT_EQ(42.0, assigned.GetTextHeight());
    assigned = source;
    ExpectSameOptions(source, assigned);
}

/// The colour classes of a default-constructed Options object can be changed through the
/// reference its getter gives, and replaced by the setter.
template <class Options>
void ExpectColorClassesEditableInPlace() {
    Options options;
    options.GetColorClasses().Reset();
    EXPECT_EQ(0u, options.GetColorClasses().GetNoClasses());
    options.SetColorClasses(SampleColorClasses());
    EXPECT_TRUE(SampleColorClasses() == options.GetColorClasses());
}

/// Reading @p written's @p group at @p version, followed by more bytes, with apply false
/// consumes exactly what a read with apply true consumes and leaves a copy of @p target as it
/// was.
template <class Options>
void ExpectApplyFalseChangesNothing(const Options& written, const Options& target,
                                    const SectionGroup<Options>& group, short version) {
    const std::string bytes = WriteToBytes(written, group.writer, version) + "next section";
    Options applied = target;
    const ReadOutcome withApply = ReadFromBytes(applied, group.reader, bytes, version, true);
    Options skipped = target;
    const ReadOutcome withoutApply = ReadFromBytes(skipped, group.reader, bytes, version, false);
    EXPECT_TRUE(withoutApply.streamGood) << group.name;
    EXPECT_EQ(withApply.consumed, withoutApply.consumed) << group.name;
    ExpectSameOptions(target, skipped);
}

}  // namespace dtm_test
