#include "Probes.h"

namespace dtm_test {

namespace {

template <class Entity>
std::vector<int> ReferenceCounts(const std::vector<Entity*>& entities) {
    std::vector<int> counts;
    for (const Entity* entity : entities) counts.push_back(entity->GetReferenceCount());
    return counts;
}

}  // namespace

void ProjectEventRecorder::OnEventClosed(kor::CSourceEvent& source) {
    auto& context = static_cast<CDtmChangeContext&>(source);
    ProjectEventSnapshot s;
    s.prjModified = context.IsPrjModified();
    s.vncLayers = context.AreVncLayersModified();
    s.cntLayers = context.AreCntLayersModified();
    s.triLayers = context.AreTriLayersModified();
    s.cvLvLayers = context.AreCvLvLayersModified();
    s.triRemovedAll = context.AreTriRemovedAll();
    s.triInnerDraw = context.AreTriInnerDrawModified();
    s.triVrtsMoved = context.AreTriVrtsMoved();
    s.triChangeType = context.GetTriChangeType();
    s.cvLvChangeType = context.GetCvLvChangeType();
    s.vncAdded = context.GetVncAdded();
    s.vncModified = context.GetVncModified();
    s.vncRemoved = context.GetVncRemoved();
    s.cntAdded = context.GetCntAdded();
    s.cntAddedReferenceCounts = ReferenceCounts(s.cntAdded);
    s.cntModified = context.GetCntModified();
    s.cntRemoved = context.GetCntRemoved();
    s.triAdded = context.GetTriAdded();
    s.triModified = context.GetTriModified();
    s.triRemoved = context.GetTriRemoved();
    s.cvLvAdded = context.GetCvLvAdded();
    s.cvLvAddedReferenceCounts = ReferenceCounts(s.cvLvAdded);
    s.cvLvModified = context.GetCvLvModified();
    s.cvLvRemoved = context.GetCvLvRemoved();
    s.intervalsRemoved = context.GetCvLvIntervalsRemoved();
    events.push_back(s);
}

void LibraryEventRecorder::OnEventClosed(kor::CSourceEvent& source) {
    auto& context = static_cast<CLibDtmChangeContext&>(source);
    LibraryEventSnapshot s;
    s.added = context.GetPrjAdded();
    s.removed = context.GetPrjRemoved();
    for (CDtmPrj* prj : s.removed) s.removedReferenceCounts.push_back(prj->GetReferenceCount());
    s.activeChanged = context.IsActivePrjChanged();
    s.drawingAlreadyRemoved = context.IsDrawingAlreadyRemoved();
    events.push_back(s);
}

}  // namespace dtm_test
