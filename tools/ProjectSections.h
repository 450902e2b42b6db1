#pragma once

// The library's sections of one project, in the order the document keeps them: which call
// writes each one and which reads it back.

#include <cstdint>
#include <vector>

class CDtmPrj;
class ifpstream;
class ofpstream;

namespace dtmtool {

/// One section of a project as the document frames it.
struct ProjectSection {
    /// Four ASCII letters that mark the section in the file, so that a reader that meets the
    /// wrong section says so instead of feeding the bytes to the wrong reader.
    std::uint32_t tag;
    /// What a message calls the section.
    const char* name;
    /// Writes the section of @p prj at the version @p stream carries.
    void (*write)(const CDtmPrj& prj, ofpstream& stream);
    /// Reads a section written by @p write into @p prj, which was just created and is empty.
    void (*read)(CDtmPrj& prj, ifpstream& stream);
};

/// The sections in document order: options, network, external boundaries, internal
/// boundaries, contour lines, breaklines.
const std::vector<ProjectSection>& ProjectSections();

/// The tag made of four ASCII letters, the first in the lowest byte (so the file spells it).
constexpr std::uint32_t MakeTag(char a, char b, char c, char d) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(a)) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(b)) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(d)) << 24;
}

}  // namespace dtmtool
