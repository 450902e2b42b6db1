#pragma once

/// @file
/// One triangle of a network.

#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>

/// A triangle: three indices into its network's vertex array and a colour. Reference-counted;
/// the network holds one reference.
class DTM_API CTri : public kor::IRefCounter {
protected:
    ~CTri() override;
};
