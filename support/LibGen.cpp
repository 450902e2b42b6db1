#include <dtm/support/LibGen.h>

CLibGen::CLibGen() = default;

CLibGen::~CLibGen() = default;

void CLibGen::SetModifiedFlag(bool modified) {
    m_modified = modified;
    if (modified) m_autoSaved = false;
}

bool CLibGen::IsModified() const {
    return m_modified;
}

void CLibGen::SetAutoSaved() {
    m_autoSaved = true;
}

bool CLibGen::IsAutoSaved() const {
    return m_autoSaved;
}

void CLibGen::SalvaInFile(ofpstream&, short) {}

void CLibGen::LeggeDaFile(ifpstream&, short) {}
