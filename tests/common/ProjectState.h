#pragma once

// A snapshot of everything undo restores in a library of projects, compared field by field and
// bit for bit, with a readable account of the first difference.

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

class CDtmPrj;
class CLibDtm;

namespace dtm_test {

/// One entity: its identity (undo gives back the very objects it took out) and its complete
/// state as bit patterns, so that -0.0 and 0.0, or two NaNs, are told apart exactly.
struct EntityState {
    const void* identity = nullptr;
    std::vector<std::uint64_t> fields;
    bool operator==(const EntityState& other) const {
        return identity == other.identity && fields == other.fields;
    }
    bool operator<(const EntityState& other) const {
        return identity != other.identity ? identity < other.identity : fields < other.fields;
    }
};

/// The entities of one collection as a multiset (sorted): undo gives removed entities back
/// through the collections' add operations, which append, so the order is not restored.
using CollectionState = std::vector<EntityState>;

/// What undo restores of one project.
///
/// A contour line's visibility is left out: no contour memento holds it, so undo does not
/// restore it. The network's triangles are compared as a multiset as the other collections
/// are (the network's octree reorders them after every change anyway); the vertices are
/// compared exactly, in order, and so are the two elevation ranges, which undo puts back
/// exactly.
struct ProjectState {
    std::string name;
    bool visible = false;
    bool locked = false;
    /// Every display option (TDtmOpz) and the contour text options and direction.
    std::vector<std::uint64_t> options;
    std::vector<std::uint64_t> vertices;
    std::vector<std::uint64_t> triRange;
    std::vector<std::uint64_t> cvLvRange;
    CollectionState tris;
    CollectionState vncs;
    CollectionState internalCnts;
    CollectionState externalCnts;
    CollectionState cvlvs;
};

/// What undo restores of a library: its projects as a set (undo gives projects back through
/// AddPrj, which appends), each with its state, and its active project.
struct LibraryState {
    std::map<const CDtmPrj*, ProjectState> projects;
    /// GetNoPrj: a project listed twice would show here.
    unsigned count = 0;
    const CDtmPrj* active = nullptr;
};

ProjectState CaptureProject(const CDtmPrj& project);
LibraryState CaptureLibrary(const CLibDtm& library);

/// The first difference between two snapshots, in words; empty when they are equal.
std::string FirstDifference(const ProjectState& expected, const ProjectState& actual);
std::string FirstDifference(const LibraryState& expected, const LibraryState& actual);

}  // namespace dtm_test
