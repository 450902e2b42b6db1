#pragma once

/// @file
/// Host interfaces that a project library keeps.

#include <dtm/support/Export.h>

class CDtmPrj;

/// The host's say on removing projects. Owned by the library once handed to it.
class DTM_API IDtmPrjManager {
public:
    virtual ~IDtmPrjManager();
    /// Whether @p prj may be deleted; asked by CLibDtm::CanDelete.
    virtual bool CanDeletePrj(CDtmPrj* prj) = 0;
    /// @p prj is about to be taken out of the library.
    virtual void OnRemovingPrj(CDtmPrj* prj) = 0;
};

/// The host's source of survey points. The library only keeps it and hands it back; what it
/// offers is the host's business. Owned by the library once handed to it.
class DTM_API IDtmPointsProvider {
public:
    virtual ~IDtmPointsProvider();
};
