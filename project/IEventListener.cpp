#include <dtm/project/IEventListener.h>

IEventListener::~IEventListener() = default;
void IEventListener::OnVncAdded(CVnc*) {}
void IEventListener::OnVncModifying(CVnc*) {}
void IEventListener::OnVncRemoved(CVnc*) {}
void IEventListener::OnCntAdded(CCnt*) {}
void IEventListener::OnCntModifying(CCnt*) {}
void IEventListener::OnCntRemoved(CCnt*) {}
void IEventListener::OnTriRemoveAll() {}
void IEventListener::OnTriVrtAdded() {}
void IEventListener::OnTriVrtRemoved() {}
void IEventListener::OnTriVrtMoved() {}
void IEventListener::OnTriAdded(CTri*) {}
void IEventListener::OnTriModifying(CTri*) {}
void IEventListener::OnTriRemoved(CTri*) {}
void IEventListener::OnCvLvAdded(CCvLv*) {}
void IEventListener::OnCvLvModifying(CCvLv*) {}
void IEventListener::OnCvLvRemoved(CCvLv*) {}
void IEventListener::OnBeginEvent() {}
void IEventListener::OnEndEvent() {}
