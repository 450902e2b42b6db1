#pragma once

// Test doubles that count their own lives and record what change contexts tell them.

#include <dtm/boundaries/CCnt.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/network/CTri.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtmChangeContext.h>

#include <string>
#include <vector>

namespace dtm_test {

/// An entity of kind @p Base that counts the live instances in @p alive.
template <class Base>
class ProbeEntity : public Base {
public:
    explicit ProbeEntity(int& alive) : m_alive(alive) { ++m_alive; }
    CDtmPrj* GetDtmPrj() const override { return nullptr; }
    kor::IMemento* CreateMemento() const override { return nullptr; }
    bool HasChanged(const kor::IMemento*) const override { return false; }

protected:
    ~ProbeEntity() override { --m_alive; }
    void OnSetMemento(kor::IMemento*) override {}

private:
    int& m_alive;
};

/// A reference-counted record of kind @p Base (a triangle, an interval) that counts its lives.
template <class Base>
class ProbeRecord : public Base {
public:
    explicit ProbeRecord(int& alive) : m_alive(alive) { ++m_alive; }

protected:
    ~ProbeRecord() override { --m_alive; }

private:
    int& m_alive;
};

/// A project that counts the live instances in @p alive.
class ProbePrj : public CDtmPrj {
public:
    ProbePrj(int& alive, CLibDtm* lib, const kor::String& name)
        : CDtmPrj(lib, name, true, false), m_alive(alive) {
        ++m_alive;
    }

protected:
    ~ProbePrj() override { --m_alive; }

private:
    int& m_alive;
};

/// Logs every call a project's change context makes on its current listener.
class LoggingEventListener : public IEventListener {
public:
    std::vector<std::string> log;
    void OnVncAdded(CVnc*) override { log.push_back("VncAdded"); }
    void OnVncModifying(CVnc*) override { log.push_back("VncModifying"); }
    void OnVncRemoved(CVnc*) override { log.push_back("VncRemoved"); }
    void OnCntAdded(CCnt*) override { log.push_back("CntAdded"); }
    void OnCntModifying(CCnt*) override { log.push_back("CntModifying"); }
    void OnCntRemoved(CCnt*) override { log.push_back("CntRemoved"); }
    void OnTriRemoveAll() override { log.push_back("TriRemoveAll"); }
    void OnTriVrtAdded() override { log.push_back("TriVrtAdded"); }
    void OnTriVrtRemoved() override { log.push_back("TriVrtRemoved"); }
    void OnTriVrtMoved() override { log.push_back("TriVrtMoved"); }
    void OnTriAdded(CTri*) override { log.push_back("TriAdded"); }
    void OnTriModifying(CTri*) override { log.push_back("TriModifying"); }
    void OnTriRemoved(CTri*) override { log.push_back("TriRemoved"); }
    void OnCvLvAdded(CCvLv*) override { log.push_back("CvLvAdded"); }
    void OnCvLvModifying(CCvLv*) override { log.push_back("CvLvModifying"); }
    void OnCvLvRemoved(CCvLv*) override { log.push_back("CvLvRemoved"); }
    void OnBeginEvent() override { log.push_back("BeginEvent"); }
    void OnEndEvent() override { log.push_back("EndEvent"); }
};

/// Logs every call a library's change context makes on its current listener.
class LoggingLibListener : public ILibDtmEventListener {
public:
    std::vector<std::string> log;
    void OnBeginEvent() override { log.push_back("BeginEvent"); }
    void OnEndEvent() override { log.push_back("EndEvent"); }
    void OnPrjAdded(CDtmPrj* prj) override { log.push_back("PrjAdded " + prj->GetName().str()); }
    void OnPrjRemoved(CDtmPrj* prj) override {
        log.push_back("PrjRemoved " + prj->GetName().str());
    }
};

/// What a host listener read from a project's change context when an event closed.
struct ProjectEventSnapshot {
    bool prjModified = false;
    bool vncLayers = false, cntLayers = false, triLayers = false, cvLvLayers = false;
    bool triRemovedAll = false, triInnerDraw = false, triVrtsMoved = false;
    int triChangeType = 0, cvLvChangeType = 0;
    std::vector<CVnc*> vncAdded, vncModified, vncRemoved;
    std::vector<CCnt*> cntAdded, cntModified, cntRemoved;
    // The reference count of each added boundary and contour line, as the event closed.
    std::vector<int> cntAddedReferenceCounts, cvLvAddedReferenceCounts;
    std::vector<CTri*> triAdded, triModified, triRemoved;
    std::vector<CCvLv*> cvLvAdded, cvLvModified, cvLvRemoved;
    std::vector<CCvLvInterv*> intervalsRemoved;
};

/// A host listener of a project's change context that keeps a snapshot of every closed event.
class ProjectEventRecorder : public kor::CSourceEvent::IEvent {
public:
    std::vector<ProjectEventSnapshot> events;
    int opened = 0;
    void OnEventOpened(kor::CSourceEvent&) override { ++opened; }
    void OnEventClosed(kor::CSourceEvent& source) override;
};

/// What a host listener read from a library's change context when an event closed.
struct LibraryEventSnapshot {
    std::vector<CDtmPrj*> added, removed;
    std::vector<int> removedReferenceCounts;
    bool activeChanged = false;
    bool drawingAlreadyRemoved = false;
};

class LibraryEventRecorder : public kor::CSourceEvent::IEvent {
public:
    std::vector<LibraryEventSnapshot> events;
    void OnEventOpened(kor::CSourceEvent&) override {}
    void OnEventClosed(kor::CSourceEvent& source) override;
};

}  // namespace dtm_test
