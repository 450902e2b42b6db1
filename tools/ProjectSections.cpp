#include "ProjectSections.h"

#include <dtm/dtm.h>

namespace dtmtool {

namespace {

void WriteOptions(const CDtmPrj& prj, ofpstream& stream) {
    prj.SalvaOpzInFile(stream);
}
void ReadOptions(CDtmPrj& prj, ifpstream& stream) {
    prj.LeggeOpzDaFile(stream, true);
}

void WriteNetwork(const CDtmPrj& prj, ofpstream& stream) {
    // The tool never binds a point cloud, but a mapper costs nothing and keeps the call valid
    // for any network.
    kor::CPtr64Mapper mapper;
    prj.GetTris()->SalvaInFile(stream, &mapper);
}
void ReadNetwork(CDtmPrj& prj, ifpstream& stream) {
    // No cloud belongs to the document, so a cloud-bound network (which this tool never
    // writes) reads as broken rather than pointing at anything.
    const kor::CRefObjIdRemapper remapper;
    prj.GetTris()->LeggeDaFile(stream, remapper, true);
}

void WriteExternalBoundaries(const CDtmPrj& prj, ofpstream& stream) {
    prj.GetCnts(false)->SalvaInFile(stream);
}
void ReadExternalBoundaries(CDtmPrj& prj, ifpstream& stream) {
    prj.GetCnts(false)->LeggeDaFile(stream, true);
}

void WriteInternalBoundaries(const CDtmPrj& prj, ofpstream& stream) {
    prj.GetCnts(true)->SalvaInFile(stream);
}
void ReadInternalBoundaries(CDtmPrj& prj, ifpstream& stream) {
    prj.GetCnts(true)->LeggeDaFile(stream, true);
}

void WriteContourLines(const CDtmPrj& prj, ofpstream& stream) {
    prj.GetCvLvs()->SalvaInFile(stream);
}
void ReadContourLines(CDtmPrj& prj, ifpstream& stream) {
    prj.GetCvLvs()->LeggeDaFile(stream, true);
}

void WriteBreaklines(const CDtmPrj& prj, ofpstream& stream) {
    prj.GetVncs()->SalvaInFile(stream);
}
void ReadBreaklines(CDtmPrj& prj, ifpstream& stream) {
    prj.GetVncs()->LeggeDaFile(stream, true);
}

}  // namespace

const std::vector<ProjectSection>& ProjectSections() {
    static const std::vector<ProjectSection> sections = {
        {MakeTag('O', 'P', 'T', 'S'), "options", WriteOptions, ReadOptions},
        {MakeTag('T', 'R', 'I', 'S'), "network", WriteNetwork, ReadNetwork},
        {MakeTag('C', 'N', 'T', 'E'), "external boundaries", WriteExternalBoundaries,
         ReadExternalBoundaries},
        {MakeTag('C', 'N', 'T', 'I'), "internal boundaries", WriteInternalBoundaries,
         ReadInternalBoundaries},
        {MakeTag('C', 'V', 'L', 'V'), "contour lines", WriteContourLines, ReadContourLines},
        {MakeTag('V', 'N', 'C', 'S'), "breaklines", WriteBreaklines, ReadBreaklines},
    };
    return sections;
}

}  // namespace dtmtool
