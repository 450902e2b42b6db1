// The colour-class section (CColorClassComputer::LeggeDaFile) from arbitrary bytes.
//
// Input: the stream version (int16), then the section. The target parses the bytes on its own
// and states what the reader must have built: below version 800 nothing is read; otherwise a
// complete section gives exactly its step count, its custom flag (only 1 is true) and its
// entries, bit for bit, and one cut short fails the stream and leaves the table as it was. A
// read with apply false consumes the same bytes and changes nothing. The table read is then
// asked for colours across its range (the lookup divides by counts and values that the file
// chose), and what was read writes back to the same bytes again.

#include <dtm/colourclasses/CColorClassComputer.h>

#include <cstdint>
#include <vector>

#include "FuzzSupport.h"

namespace {

using dtm_fuzz::Check;

constexpr short kFirstVersionWithColorClasses = 800;
// Colours are asked at this many elevations between neighbouring classes at most.
constexpr std::size_t kProbedIntervals = 16;

struct Parsed {
    bool complete = false;
    std::size_t length = 0;
    std::uint32_t noSteps = 0;
    bool custom = false;
    std::vector<CColorClassComputer::TClassInfo> entries;
};

Parsed ParseSection(const std::string& bytes) {
    Parsed parsed;
    dtm_fuzz::Cursor cursor(bytes);
    std::int32_t steps = 0;
    std::int32_t flag = 0;
    std::int32_t count = 0;
    if (!cursor.Int32(steps) || !cursor.Int32(flag) || !cursor.Int32(count)) return parsed;
    parsed.noSteps = static_cast<std::uint32_t>(steps);
    parsed.custom = flag == 1;
    for (std::int32_t i = 0; i < count; ++i) {
        CColorClassComputer::TClassInfo entry{0.0, 0};
        std::int32_t color = 0;
        if (!cursor.Double(entry.value) || !cursor.Int32(color)) return parsed;
        entry.color = color;
        parsed.entries.push_back(entry);
    }
    parsed.complete = true;
    parsed.length = cursor.Offset();
    return parsed;
}

bool Holds(const CColorClassComputer& table, const Parsed& expected) {
    if (table.GetNoSteps() != expected.noSteps || table.IsCustom() != expected.custom ||
        table.GetNoClasses() != expected.entries.size())
        return false;
    for (unsigned i = 0; i < table.GetNoClasses(); ++i) {
        const CColorClassComputer::TClassInfo& entry = table.GetClassInfoA(i);
        if (!dtm_fuzz::SameBits(entry.value, expected.entries[i].value) ||
            entry.color != expected.entries[i].color)
            return false;
    }
    return true;
}

// Asks for colours at the classes' values, between them, and over a plain range: any
// arithmetic fault there shows up under the sanitizers.
void AskColours(const CColorClassComputer& table) {
    static_cast<void>(table.GetState());
    const unsigned count = table.GetNoClasses();
    for (double z : {-1.0e300, 0.0, 25.0, 50.0, 99.9, 1.0e300}) {
        static_cast<void>(table.GetColor(0.0, 100.0, z));
        static_cast<void>(table.GetColor(-3.5, 7.25, z));
    }
    for (unsigned i = 0; i < count && i < kProbedIntervals; ++i) {
        const double value = table.GetClassInfoA(i).value;
        const double next = table.GetClassInfoA(i + 1 < count ? i + 1 : i).value;
        for (double z : {value, value + (next - value) / 3.0, (value + next) / 2.0})
            static_cast<void>(table.GetColor(value, next, z));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    dtm_fuzz::VersionedInput input;
    if (!dtm_fuzz::SplitVersion(data, size, input)) return 0;
    const CColorClassComputer fresh;

    CColorClassComputer table;
    const dtm_fuzz::ReadOutcome applied =
        dtm_fuzz::ReadSection(table, input.section, input.version, true);
    CColorClassComputer skipped;
    const dtm_fuzz::ReadOutcome stepped =
        dtm_fuzz::ReadSection(skipped, input.section, input.version, false);
    Check(skipped == fresh && skipped.IsCustom() == fresh.IsCustom(),
          "a read with apply false changes nothing");
    Check(stepped.failed == applied.failed && stepped.consumed == applied.consumed,
          "apply false consumes what apply true consumes");

    if (input.version < kFirstVersionWithColorClasses) {
        Check(!applied.failed && applied.consumed == 0, "an older stream holds no section");
        Check(table == fresh && table.IsCustom() == fresh.IsCustom(), "nothing is read");
        return 0;
    }
    const Parsed expected = ParseSection(input.section);
    Check(applied.failed == !expected.complete,
          "the stream fails exactly when the section is cut short");
    if (!expected.complete) {
        Check(table == fresh && table.IsCustom() == fresh.IsCustom(),
              "a section cut short leaves the table as it was");
        return 0;
    }
    Check(applied.consumed == expected.length, "a complete section is read to its end");
    Check(Holds(table, expected), "the table holds exactly what the section stores");
    AskColours(table);

    dtm_fuzz::CheckRewriteIsStable(dtm_fuzz::WrittenSection(table, input.version),
                                   [&](const std::string& bytes, std::string& again) {
                                       CColorClassComputer copy;
                                       const dtm_fuzz::ReadOutcome outcome =
                                           dtm_fuzz::ReadSection(copy, bytes, input.version, true);
                                       again = dtm_fuzz::WrittenSection(copy, input.version);
                                       return outcome;
                                   });
    return 0;
}
