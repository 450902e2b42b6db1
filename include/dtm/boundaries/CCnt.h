#pragma once

/// @file
/// A boundary polyline of a project, external or internal.

#include <dtm/project/CDtmEnt.h>
#include <dtm/support/Export.h>

/// A boundary of a project. Reference-counted; its collection holds one reference.
class DTM_API CCnt : public CDtmEnt {
protected:
    ~CCnt() override;
};
