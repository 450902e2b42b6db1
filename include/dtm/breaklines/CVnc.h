#pragma once

/// @file
/// A breakline: a 3D segment that constrains the network.

#include <dtm/project/CDtmEnt.h>
#include <dtm/support/Export.h>

/// A breakline of a project. Reference-counted; its collection holds one reference.
class DTM_API CVnc : public CDtmEnt {
protected:
    ~CVnc() override;
};
