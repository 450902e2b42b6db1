#pragma once

/// @file
/// What a project's change context tells its current listener, change by change.

#include <dtm/support/Export.h>

class CVnc;
class CCnt;
class CTri;
class CCvLv;

/// Kind of change of the triangles modified in one event; merged across the event.
enum enumTriChangeType : int {
    eTriChangeNone = 0,      ///< no triangle modified
    eTriChangeColor = 1,     ///< colour changed
    eTriChangeVertices = 2,  ///< vertex indices changed
    eTriChangeAll = 3,       ///< both kinds in one event
};

/// Kind of change of the contour lines modified in one event; merged across the event.
enum enumCvLvChangeType : int {
    eCvLvChangeNone = 0,      ///< no contour line modified
    eCvLvChangeColor = 1,     ///< colour changed
    eCvLvChangeGeometry = 2,  ///< nodes, heights or intervals changed
    eCvLvChangeAll = 3,       ///< both kinds in one event
};

/// Receives every change of a project as it is recorded. The base implementation of every
/// operation does nothing, so this class is also the quiet listener used when no undo command
/// is to be built.
class DTM_API IEventListener {
public:
    virtual ~IEventListener();
    virtual void OnVncAdded(CVnc* breakline);
    virtual void OnVncModifying(CVnc* breakline);
    virtual void OnVncRemoved(CVnc* breakline);
    virtual void OnCntAdded(CCnt* boundary);
    virtual void OnCntModifying(CCnt* boundary);
    virtual void OnCntRemoved(CCnt* boundary);
    virtual void OnTriRemoveAll();
    virtual void OnTriVrtAdded();
    virtual void OnTriVrtRemoved();
    virtual void OnTriVrtMoved();
    virtual void OnTriAdded(CTri* triangle);
    virtual void OnTriModifying(CTri* triangle);
    virtual void OnTriRemoved(CTri* triangle);
    virtual void OnCvLvAdded(CCvLv* line);
    virtual void OnCvLvModifying(CCvLv* line);
    virtual void OnCvLvRemoved(CCvLv* line);
    /// The outermost event has opened.
    virtual void OnBeginEvent();
    /// The outermost event has closed and the host's listeners have read it.
    virtual void OnEndEvent();
};
