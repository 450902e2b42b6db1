#pragma once

// Reaches the change contexts' notifications, which the library keeps for its own components,
// so that the contexts can be tested on their own before and besides the components.

#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CLibDtmChangeContext.h>

struct DtmChangeContextTestAccess {
    CDtmChangeContext& c;
    void PrjModified() { c.Notify_Prj_Modified(); }
    void VncLayersModified() { c.Notify_Vnc_LayersModified(); }
    void CntLayersModified() { c.Notify_Cnt_LayersModified(); }
    void TriLayersModified() { c.Notify_Tri_LayersModified(); }
    void CvLvLayersModified() { c.Notify_CvLv_LayersModified(); }
    void TriInnerDrawModified() { c.Notify_Tri_InnerDrawModified(); }
    void TriVrtAdded() { c.Notify_Tri_Vrt_Added(); }
    void TriVrtRemoved() { c.Notify_Tri_Vrt_Removed(); }
    void TriVrtMoved() { c.Notify_Tri_Vrt_Moved(); }
    void VncAdded(CVnc* e) { c.Notify_Vnc_Added(e); }
    void VncModifying(CVnc* e) { c.Notify_Vnc_Modifying(e); }
    void VncRemoved(CVnc* e) { c.Notify_Vnc_Removed(e); }
    void CntAdded(CCnt* e) { c.Notify_Cnt_Added(e); }
    void CntModifying(CCnt* e) { c.Notify_Cnt_Modifying(e); }
    void CntRemoved(CCnt* e) { c.Notify_Cnt_Removed(e); }
    void TriAdded(CTri* e) { c.Notify_Tri_Added(e); }
    void TriModifying(CTri* e, enumTriChangeType t) { c.Notify_Tri_Modifying(e, t); }
    void TriRemoved(CTri* e) { c.Notify_Tri_Removed(e); }
    void TriRemoveAll() { c.Notify_Tri_RemoveAll(); }
    void CvLvAdded(CCvLv* e) { c.Notify_CvLv_Added(e); }
    void CvLvModifying(CCvLv* e, enumCvLvChangeType t) { c.Notify_CvLv_Modifying(e, t); }
    void CvLvRemoved(CCvLv* e) { c.Notify_CvLv_Removed(e); }
    void CvLvIntervalRemoved(CCvLvInterv* e) { c.Notify_CvLv_IntervalRemoved(e); }
    bool AdditionsUnheard() const { return c.AdditionsUnheard(); }
};

struct LibDtmChangeContextTestAccess {
    CLibDtmChangeContext& c;
    void PrjAdded(CDtmPrj* p) { c.Notify_Prj_Added(p); }
    void PrjRemoved(CDtmPrj* p, bool drawingAlreadyRemoved) {
        c.Notify_Prj_Removed(p, drawingAlreadyRemoved);
    }
    void PrjChangeActive(CDtmPrj* p) { c.Notify_Prj_ChangeActive(p); }
};
