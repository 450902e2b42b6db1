#pragma once

/// @file
/// The triangulated irregular network of a project.

#include <dtm/support/Export.h>

#include <vector>

class CDtmPrj;
class CTri;

/// The network of one project: vertices and triangles.
class DTM_API CTris {
public:
    /// An empty network of @p project (borrowed: the project owns the network).
    explicit CTris(CDtmPrj* project);
    ~CTris();
    CTris(const CTris&) = delete;
    CTris& operator=(const CTris&) = delete;

    /// The owning project.
    CDtmPrj* GetDtmPrj() const noexcept { return m_project; }
    /// Number of triangles.
    int GetNoTris() const noexcept { return static_cast<int>(m_tris.size()); }
    /// Triangle @p i (borrowed); an index out of range throws std::out_of_range.
    CTri* GetTriAt(int i) const;
    /// True when the network is computed on a point cloud.
    bool IsCld() const noexcept { return m_cloudBound; }

private:
    CDtmPrj* m_project;
    std::vector<CTri*> m_tris;
    bool m_cloudBound = false;
};
