#pragma once

// What the fuzz targets share: how an input is cut into a stream version and a section, how a
// section is read and written in memory, and the one way a target reports a broken invariant
// (abort, which libFuzzer records as a crash together with the input).

#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/IniFile.h>
#include <dtm/support/Message.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/Streams.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ios>
#include <sstream>
#include <string>

// The sanitizer runtime's allocation hooks (sanitizer/allocator_interface.h).
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                             std::size_t),
                                                         void (*free_hook)(const volatile void*));

namespace dtm_fuzz {

/// Stops the run when @p condition is false, naming the invariant: a sanitizer report is not
/// the only defect a fuzzer can find, a reader that builds a wrong object is one too.
inline void Check(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "dtm fuzz: invariant violated: %s\n", what);
    std::abort();
}

/// An input cut into the stream version (its first two bytes, little-endian) and the section
/// bytes that follow.
struct VersionedInput {
    short version = 0;
    std::string section;
};

/// False when the input is too short to hold a version.
inline bool SplitVersion(const std::uint8_t* data, std::size_t size, VersionedInput& input) {
    if (size < 2) return false;
    const auto bits = static_cast<std::uint16_t>(data[0] | (data[1] << 8));
    input.version = static_cast<short>(bits);
    input.section.assign(reinterpret_cast<const char*>(data) + 2, size - 2);
    return true;
}

/// The input whole, for readers whose section does not depend on a version.
inline std::string WholeInput(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

/// Takes little-endian values off the front of a section, independently of the library's I/O
/// code, so that a target can state what a reader must have built from the same bytes.
class Cursor {
public:
    explicit Cursor(const std::string& bytes) : m_bytes(bytes) {}

    bool Int32(std::int32_t& value) {
        std::uint64_t bits = 0;
        if (!Take(4, bits)) return false;
        value = static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
        return true;
    }
    bool Double(double& value) {
        std::uint64_t bits = 0;
        if (!Take(8, bits)) return false;
        std::memcpy(&value, &bits, sizeof(value));
        return true;
    }
    /// Bytes taken so far.
    std::size_t Offset() const noexcept { return m_offset; }

private:
    bool Take(std::size_t width, std::uint64_t& bits) {
        if (m_bytes.size() - m_offset < width) return false;
        bits = 0;
        for (std::size_t i = 0; i < width; ++i)
            bits |= static_cast<std::uint64_t>(static_cast<unsigned char>(m_bytes[m_offset + i]))
                    << (8 * i);
        m_offset += width;
        return true;
    }

    const std::string& m_bytes;
    std::size_t m_offset = 0;
};

/// True when @p a and @p b hold the same bits (NaN payloads and the sign of zero included).
inline bool SameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof(double)) == 0;
}

/// What a read did to its stream.
struct ReadOutcome {
    bool failed = false;
    std::size_t consumed = 0;  // bytes taken from the section
};

/// Runs @p read(ifpstream&) over @p bytes at @p version.
template <class Read>
ReadOutcome ReadFrom(const std::string& bytes, short version, Read read) {
    std::stringbuf buffer(bytes, std::ios::in);
    ifpstream stream(&buffer, version);
    read(stream);
    // Asked of the buffer, which answers also when the stream has failed.
    const auto position = buffer.pubseekoff(0, std::ios::cur, std::ios::in);
    return {stream.fail(), static_cast<std::size_t>(position)};
}

/// The bytes that @p write(ofpstream&) produces at @p version.
template <class Write>
std::string WrittenBy(short version, Write write) {
    std::stringbuf buffer(std::ios::out);
    ofpstream stream(&buffer, version);
    write(stream);
    Check(stream.good(), "writing to memory succeeds");
    return buffer.str();
}

/// Reads @p bytes at @p version into @p section through its LeggeDaFile(stream, apply), the
/// reader of the contour, boundary, breakline and colour-class sections.
template <class Section>
ReadOutcome ReadSection(Section& section, const std::string& bytes, short version, bool apply) {
    return ReadFrom(bytes, version, [&](ifpstream& stream) { section.LeggeDaFile(stream, apply); });
}

/// The bytes that @p section's SalvaInFile writes at @p version.
template <class Section>
std::string WrittenSection(const Section& section, short version) {
    return WrittenBy(version, [&](ofpstream& stream) { section.SalvaInFile(stream); });
}

/// The round-trip rule of every section: whatever a reader accepted, its writer writes in a
/// form that the reader takes back whole, and writing that again gives the same bytes.
/// @p readWrite(bytes, written) reads @p bytes into a fresh object, writes it to @p written and
/// answers the read's outcome.
template <class ReadWrite>
void CheckRewriteIsStable(const std::string& firstWrite, ReadWrite readWrite) {
    std::string secondWrite;
    const ReadOutcome outcome = readWrite(firstWrite, secondWrite);
    Check(!outcome.failed, "a written section reads back without failing");
    Check(outcome.consumed == firstWrite.size(), "a written section reads back to its end");
    Check(secondWrite == firstWrite, "a section read back writes the same bytes again");
}

/// A fresh project, released when the handle goes.
inline kor::CRefPtr<CDtmPrj> NewProject() {
    return kor::CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Fuzz", true, false));
}

/// True when no change event is left open on @p project's context.
inline bool EventsClosed(const CDtmPrj& project) {
    return project.GetContext()->GetEventDepth() == 0;
}

namespace detail {

/// The largest single allocation since the last AllocationBound began.
inline std::size_t g_largestAllocation = 0;

inline void OnAllocation(const volatile void*, std::size_t size) {
    if (size > g_largestAllocation) g_largestAllocation = size;
}

inline void OnRelease(const volatile void*) {}

}  // namespace detail

/// What any input may allocate at once, and what it may add per byte: enough for a vector
/// that doubles while items arrive and for the tables built over them, far too little for a
/// reservation made from a count that the bytes do not back.
constexpr std::size_t kAllocationAllowance = std::size_t{1} << 20;
constexpr std::size_t kAllocationPerInputByte = 64;

/// Checks, when it goes, that no single allocation made while it lived was larger than an
/// input of @p inputSize bytes can justify. libFuzzer's -malloc_limit_mb catches only
/// reservations above its limit; this catches every one out of proportion to the input.
class AllocationBound {
public:
    explicit AllocationBound(std::size_t inputSize)
        : m_limit(kAllocationAllowance + kAllocationPerInputByte * inputSize) {
        detail::g_largestAllocation = 0;
    }
    ~AllocationBound() {
        Check(detail::g_largestAllocation <= m_limit,
              "no single allocation is out of proportion to the input");
    }
    AllocationBound(const AllocationBound&) = delete;
    AllocationBound& operator=(const AllocationBound&) = delete;

private:
    std::size_t m_limit;
};

/// Once per process: no message reaches the terminal, the option objects that read the INI
/// file on construction find none (a path that cannot exist), so that every input is read
/// against the same defaults and no run depends on the machine's settings, and the sanitizer
/// reports every allocation to AllocationBound.
inline void InitialiseLibrary() {
    kor::SetMessageHandler([](const char*, const char*, unsigned) {});
    CIniFile::SetDefaultPath("/nonexistent/dtm-fuzz/dtm.ini");
    __sanitizer_install_malloc_and_free_hooks(detail::OnAllocation, detail::OnRelease);
}

}  // namespace dtm_fuzz

namespace dtm_fuzz {

/// The stream version at which option objects are compared: the newest, where every value they
/// keep is written.
constexpr short kNewestVersion = 1502;

/// Both groups of an option object (SalvaInFile, then SalvaVisInFile) at @p version.
template <class Options>
std::string WrittenGroups(const Options& options, short version) {
    return WrittenBy(version, [&](ofpstream& stream) {
        options.SalvaInFile(stream);
        options.SalvaVisInFile(stream);
    });
}

/// Reads both groups of an option object (LeggeDaFile, then LeggeVisDaFile, as the project's
/// option section does) from @p bytes and checks what every such reader promises: a group that
/// fails changes nothing, apply false changes nothing and consumes what apply true consumes,
/// and options read whole write back to bytes that read back to the same bytes. Hands the
/// options read to @p inspect(const Options&) for the checks of their own values.
template <class Options, class Inspect>
void FuzzOptionGroups(const VersionedInput& input, Inspect inspect) {
    const Options fresh;
    const std::string freshState = WrittenGroups(fresh, kNewestVersion);

    Options options;
    std::string afterFirst;
    const ReadOutcome applied = ReadFrom(input.section, input.version, [&](ifpstream& stream) {
        options.LeggeDaFile(stream, true);
        afterFirst = WrittenGroups(options, kNewestVersion);
        if (stream.fail()) Check(afterFirst == freshState, "a failed first group changes nothing");
        options.LeggeVisDaFile(stream, true);
        if (stream.fail())
            Check(WrittenGroups(options, kNewestVersion) == afterFirst,
                  "a failed second group changes nothing");
    });

    Options skipped;
    const ReadOutcome stepped = ReadFrom(input.section, input.version, [&](ifpstream& stream) {
        skipped.LeggeDaFile(stream, false);
        skipped.LeggeVisDaFile(stream, false);
    });
    Check(WrittenGroups(skipped, kNewestVersion) == freshState,
          "a read with apply false changes nothing");
    Check(stepped.failed == applied.failed && stepped.consumed == applied.consumed,
          "apply false consumes what apply true consumes");

    inspect(static_cast<const Options&>(options));
    if (applied.failed) return;
    CheckRewriteIsStable(
        WrittenGroups(options, input.version), [&](const std::string& bytes, std::string& again) {
            Options copy;
            const ReadOutcome outcome = ReadFrom(bytes, input.version, [&](ifpstream& stream) {
                copy.LeggeDaFile(stream, true);
                copy.LeggeVisDaFile(stream, true);
            });
            again = WrittenGroups(copy, input.version);
            return outcome;
        });
}

}  // namespace dtm_fuzz
