// LandXML import of the command-line host (dtmtool::ParseLandXml, then each surface into a
// project with dtmtool::AddSurfaceProject) from arbitrary text. LandXML has no version: the
// whole input is the file.
//
// A file the host cannot use must be refused with its own error (ToolError); any other
// exception, crash or sanitizer report is a defect. A file that is read must give faces over
// existing points and breaklines of at least two points, projects whose triangles refer to
// existing vertices, and surfaces that are written back as LandXML that reads again to the
// same surfaces (the same text written once more).

#include <dtm/dtm.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "LandXml.h"
#include "SurfaceProject.h"
#include "ToolError.h"
#include "Workspace.h"

namespace {

using dtm_fuzz::Check;

bool Parse(const std::string& text, std::vector<dtmtool::TinSurface>& surfaces) {
    try {
        surfaces = dtmtool::ParseLandXml(text.data(), text.size(), "fuzz.xml");
        return true;
    } catch (const dtmtool::ToolError&) {
        return false;
    }
}

bool FacesReferToPoints(const dtmtool::TinSurface& surface) {
    for (const auto& face : surface.faces) {
        for (const int point : face)
            if (point < 0 || static_cast<std::size_t>(point) >= surface.points.size()) return false;
    }
    return true;
}

bool BreaklinesHaveTwoPoints(const dtmtool::TinSurface& surface) {
    for (const auto& breakline : surface.breaklines)
        if (breakline.size() < 2) return false;
    return true;
}

// @p text without the values of its date and time attributes: the writer stamps the moment of
// writing, which differs between two writes that straddle a second.
std::string WithoutTimestamp(std::string text) {
    for (const char* attribute : {" date=\"", " time=\""}) {
        const std::size_t start = text.find(attribute);
        if (start == std::string::npos) continue;
        const std::size_t valueStart = start + std::strlen(attribute);
        const std::size_t valueEnd = text.find('"', valueStart);
        if (valueEnd != std::string::npos) text.erase(valueStart, valueEnd - valueStart);
    }
    return text;
}

bool TrianglesReferToVertices(const CTris& tris) {
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        for (int k = 0; k < 3; ++k) {
            const int vertex = tris.GetTriAt(i)->GetVerIndex(k);
            if (vertex < 0 || vertex >= tris.GetNoTriVrts()) return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    std::vector<dtmtool::TinSurface> surfaces;
    if (!Parse(dtm_fuzz::WholeInput(data, size), surfaces)) return 0;

    dtmtool::Workspace workspace;
    const dtmtool::UndoSuspension quiet(workspace.Undo());
    for (const dtmtool::TinSurface& surface : surfaces) {
        Check(FacesReferToPoints(surface), "every face refers to a point of its surface");
        Check(BreaklinesHaveTwoPoints(surface), "every breakline has at least two points");
        const CDtmPrj* project = dtmtool::AddSurfaceProject(workspace, surface);
        Check(TrianglesReferToVertices(*project->GetTris()),
              "every triangle refers to existing vertices");
    }

    const std::string written = dtmtool::LandXmlText(surfaces);
    std::vector<dtmtool::TinSurface> again;
    Check(Parse(written, again), "written LandXML reads again");
    Check(WithoutTimestamp(dtmtool::LandXmlText(again)) == WithoutTimestamp(written),
          "LandXML read again writes the same text");
    return 0;
}
