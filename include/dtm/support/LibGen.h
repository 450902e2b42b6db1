#pragma once

/// @file
/// Base of a library object that the host keeps in its document.

#include <dtm/support/Export.h>

class ofpstream;
class ifpstream;

/// Keeps a modified flag and an auto-saved flag for the host's document bookkeeping.
class DTM_API CLibGen {
public:
    CLibGen();
    virtual ~CLibGen();
    /// Sets or clears the modified flag. Setting it also clears the auto-saved flag: the
    /// document now differs from its last automatic save.
    virtual void SetModifiedFlag(bool modified);
    virtual bool IsModified() const;
    /// Records that an automatic save has just written the current state.
    virtual void SetAutoSaved();
    virtual bool IsAutoSaved() const;
    /// The base keeps nothing in the document: both flags describe the document itself, so they
    /// are not part of its content. Writes nothing.
    virtual void SalvaInFile(ofpstream& stream, short version);
    /// Reads nothing; see SalvaInFile.
    virtual void LeggeDaFile(ifpstream& stream, short version);

private:
    bool m_modified = false;
    bool m_autoSaved = false;
};
