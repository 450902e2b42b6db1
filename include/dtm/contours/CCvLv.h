#pragma once

/// @file
/// A contour line with its label and gap intervals.

#include <dtm/project/CDtmEnt.h>
#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>

class CDtmChangeContext;

/// A label or gap interval along a contour line. Reference-counted.
class DTM_API CCvLvInterv : public kor::IRefCounter {
protected:
    ~CCvLvInterv() override;
};

/// A contour line of a project. Reference-counted; its collection holds one reference.
class DTM_API CCvLv : public CDtmEnt {
public:
    /// What the change context recorded of this line in the current event: 0 untouched,
    /// 1 added, 2 modifying recorded, 4 removed.
    int GetChangeMark() const noexcept { return m_changeMark; }

protected:
    ~CCvLv() override;

private:
    friend class CDtmChangeContext;
    int m_changeMark = 0;
};
