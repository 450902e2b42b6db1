#include "ProjectState.h"

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>
#include <dtm/project/TDtmOpz.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "Bits.h"

namespace dtm_test {

namespace {

/// Appends values as 64-bit patterns: doubles by their bits, integers sign-extended.
class Fields {
public:
    Fields& operator<<(double value) {
        m_fields.push_back(Bits(value));
        return *this;
    }
    Fields& operator<<(std::int64_t value) {
        m_fields.push_back(static_cast<std::uint64_t>(value));
        return *this;
    }
    Fields& operator<<(int value) { return *this << static_cast<std::int64_t>(value); }
    Fields& operator<<(short value) { return *this << static_cast<std::int64_t>(value); }
    Fields& operator<<(unsigned value) { return *this << static_cast<std::int64_t>(value); }
    Fields& operator<<(bool value) { return *this << static_cast<std::int64_t>(value ? 1 : 0); }
    Fields& operator<<(const kor::geom::PNT_3D& p) { return *this << p.x << p.y << p.z; }
    Fields& operator<<(const std::string& text) {
        *this << static_cast<std::int64_t>(text.size());
        for (char c : text) *this << static_cast<std::int64_t>(c);
        return *this;
    }
    Fields& operator<<(const CColorClassComputer& classes) {
        *this << classes.GetNoSteps() << classes.IsCustom() << classes.GetNoClasses();
        for (unsigned i = 0; i < classes.GetNoClasses(); ++i)
            *this << classes.GetClassInfoA(i).value << classes.GetClassInfoA(i).color;
        return *this;
    }
    std::vector<std::uint64_t> Take() { return std::move(m_fields); }

private:
    std::vector<std::uint64_t> m_fields;
};

std::vector<std::uint64_t> OptionsOf(const CDtmPrj& project) {
    TDtmOpz o;
    o.GetFromPrj(&project);
    Fields f;
    f << o.vncActive << o.cnt0Active << o.cnt1Active << o.triFirstFlag << o.triSecondFlag;
    for (bool on : o.cvLvCategoryOn) f << on;
    f << o.vncColor << o.cnt0Color << o.cnt1Color << o.triFixedColor << o.triLayerColor;
    for (short colour : o.cvLvCategoryColor) f << colour;
    f << o.triTextHeight << o.triScaleFactor << static_cast<int>(o.triSymbol)
      << static_cast<int>(o.triColorType) << o.triColorClasses << o.cvLvColorByLayer
      << o.cvLvColorClasses;
    const CCvLvs& lines = *project.GetCvLvs();
    const COpzCvLv& text = lines.GetOpzCvLv();
    f << text.GetTextHeight() << text.GetGap() << static_cast<int>(text.GetDecimals())
      << text.GetPrefix().str() << text.GetSuffix().str() << static_cast<int>(text.GetVAlignment())
      << static_cast<int>(text.GetOrientation()) << static_cast<int>(lines.GetCvLvDir());
    return f.Take();
}

template <class Each>
CollectionState Sorted(int count, Each each) {
    CollectionState state;
    for (int i = 0; i < count; ++i) state.push_back(each(i));
    std::sort(state.begin(), state.end());
    return state;
}

CollectionState TrisOf(const CTris& tris) {
    return Sorted(tris.GetNoTris(), [&tris](int i) {
        const CTri* tri = tris.GetTriAt(i);
        Fields f;
        f << tri->GetColor() << tri->GetVerIndex(0) << tri->GetVerIndex(1) << tri->GetVerIndex(2);
        return EntityState{tri, f.Take()};
    });
}

CollectionState VncsOf(const CVncs& vncs) {
    return Sorted(vncs.GetNoVncs(), [&vncs](int i) {
        const CVnc* vnc = vncs.GetVncAt(i);
        Fields f;
        f << vnc->GetCoords().start << vnc->GetCoords().end;
        return EntityState{vnc, f.Take()};
    });
}

CollectionState CntsOf(const CCnts& cnts) {
    return Sorted(cnts.GetNoCnts(), [&cnts](int i) {
        const CCnt* cnt = cnts.GetCntAt(i);
        Fields f;
        for (const auto& p : cnt->GetExtendedVrts()) f << p;
        return EntityState{cnt, f.Take()};
    });
}

// Visibility is left out on purpose: no memento holds it, so undo does not restore it. Nor does
// any memento hold sigmap, the tension scaled to the line: a restore keeps the line's present
// one unless it changes the tension, so after undoing a node move it is still the moved line's.
CollectionState CvLvsOf(const CCvLvs& lines) {
    return Sorted(static_cast<int>(lines.GetNoCvLvs()), [&lines](int i) {
        const CCvLv* line = lines.GetCvLvAt(static_cast<unsigned>(i));
        Fields f;
        f << line->GetQuota() << line->GetSigma() << line->GetColor();
        for (const TVrtPol& node : line->GetNodes())
            f << node.x << node.y << node.xp << node.yp << node.len;
        for (unsigned k = 0; k < line->GetNoIntervals(); ++k) {
            const CCvLvInterv* interval = line->GetIntervalAt(k);
            f << interval->GetStart() << interval->GetEnd() << interval->GetFlags();
        }
        return EntityState{line, f.Take()};
    });
}

std::string Hex(std::uint64_t value) {
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

std::string DescribeFields(const std::vector<std::uint64_t>& fields) {
    std::ostringstream text;
    text << "[";
    for (std::size_t i = 0; i < fields.size(); ++i) text << (i ? " " : "") << Hex(fields[i]);
    text << "]";
    return text.str();
}

std::string FieldsDifference(const char* what, const std::vector<std::uint64_t>& expected,
                             const std::vector<std::uint64_t>& actual) {
    if (expected == actual) return {};
    std::ostringstream text;
    text << what << ": expected " << expected.size() << " fields, got " << actual.size();
    const std::size_t common = std::min(expected.size(), actual.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (expected[i] != actual[i]) {
            text << "; field " << i << " expected " << Hex(expected[i]) << " got "
                 << Hex(actual[i]);
            break;
        }
    }
    return text.str();
}

std::string CollectionDifference(const char* what, const CollectionState& expected,
                                 const CollectionState& actual) {
    if (expected == actual) return {};
    std::ostringstream text;
    text << what << ": expected " << expected.size() << " entities, got " << actual.size();
    CollectionState missing, extra;
    std::set_difference(expected.begin(), expected.end(), actual.begin(), actual.end(),
                        std::back_inserter(missing));
    std::set_difference(actual.begin(), actual.end(), expected.begin(), expected.end(),
                        std::back_inserter(extra));
    if (!missing.empty())
        text << "; missing " << missing.front().identity << " "
             << DescribeFields(missing.front().fields);
    if (!extra.empty())
        text << "; unexpected " << extra.front().identity << " "
             << DescribeFields(extra.front().fields);
    return text.str();
}

}  // namespace

ProjectState CaptureProject(const CDtmPrj& project) {
    ProjectState state;
    state.name = project.GetName().str();
    state.visible = project.IsVisible();
    state.locked = project.IsLocked();
    state.options = OptionsOf(project);
    const CTris& tris = *project.GetTris();
    Fields vertices;
    for (const auto& p : tris.GetPnts()) vertices << p;
    state.vertices = vertices.Take();
    Fields triRange;
    triRange << tris.GetMinQuota() << tris.GetMaxQuota();
    state.triRange = triRange.Take();
    double minQuota = 0.0, maxQuota = 0.0;
    project.GetCvLvs()->GetMinMaxQuota(minQuota, maxQuota);
    Fields cvLvRange;
    cvLvRange << minQuota << maxQuota;
    state.cvLvRange = cvLvRange.Take();
    state.tris = TrisOf(tris);
    state.vncs = VncsOf(*project.GetVncs());
    state.internalCnts = CntsOf(*project.GetCnts(true));
    state.externalCnts = CntsOf(*project.GetCnts(false));
    state.cvlvs = CvLvsOf(*project.GetCvLvs());
    return state;
}

LibraryState CaptureLibrary(const CLibDtm& library) {
    LibraryState state;
    state.count = library.GetNoPrj();
    state.active = library.GetActive();
    for (unsigned i = 0; i < library.GetNoPrj(); ++i) {
        const CDtmPrj* project = library.GetPrj(i);
        state.projects.emplace(project, CaptureProject(*project));
    }
    return state;
}

std::string FirstDifference(const ProjectState& expected, const ProjectState& actual) {
    if (expected.name != actual.name)
        return "name: expected '" + expected.name + "' got '" + actual.name + "'";
    if (expected.visible != actual.visible) return "visible flag differs";
    if (expected.locked != actual.locked) return "locked flag differs";
    for (const std::string& difference :
         {FieldsDifference("options", expected.options, actual.options),
          FieldsDifference("vertices", expected.vertices, actual.vertices),
          FieldsDifference("network elevation range", expected.triRange, actual.triRange),
          FieldsDifference("contour elevation range", expected.cvLvRange, actual.cvLvRange),
          CollectionDifference("triangles", expected.tris, actual.tris),
          CollectionDifference("breaklines", expected.vncs, actual.vncs),
          CollectionDifference("internal boundaries", expected.internalCnts, actual.internalCnts),
          CollectionDifference("external boundaries", expected.externalCnts, actual.externalCnts),
          CollectionDifference("contour lines", expected.cvlvs, actual.cvlvs)}) {
        if (!difference.empty()) return difference;
    }
    return {};
}

std::string FirstDifference(const LibraryState& expected, const LibraryState& actual) {
    std::ostringstream text;
    if (expected.count != actual.count) {
        text << "project count: expected " << expected.count << " got " << actual.count;
        return text.str();
    }
    if (expected.active != actual.active) {
        text << "active project: expected " << expected.active << " got " << actual.active;
        return text.str();
    }
    for (const auto& [project, state] : expected.projects) {
        const auto found = actual.projects.find(project);
        if (found == actual.projects.end()) {
            text << "project " << project << " ('" << state.name << "') missing";
            return text.str();
        }
        const std::string difference = FirstDifference(state, found->second);
        if (!difference.empty()) {
            text << "project " << project << " ('" << state.name << "'): " << difference;
            return text.str();
        }
    }
    for (const auto& [project, state] : actual.projects) {
        if (expected.projects.count(project) == 0) {
            text << "project " << project << " ('" << state.name << "') unexpected";
            return text.str();
        }
    }
    return {};
}

}  // namespace dtm_test
