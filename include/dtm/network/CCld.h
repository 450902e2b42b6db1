#pragma once

/// @file
/// The point cloud a network can be computed on, and an in-memory cloud a host can fill.

#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>
#include <dtm/support/RefCounter.h>

#include <vector>

/// A point cloud as the network reads it. Reference-counted: a network bound to a cloud holds
/// one reference on it.
class DTM_API CCld : public kor::IRefCounter {
public:
    /// Bounding box of the cloud; false when it has none.
    virtual bool GetBdry(kor::geom::RECT_3D& box) const = 0;
    /// Number of points.
    virtual int GetNumPnts() const = 0;
    /// Point @p i (0 <= i < GetNumPnts()).
    virtual void GetPnt(int i, kor::geom::PNT_3D& p) const = 0;
    /// Colour of point @p i; false when the cloud carries no colour for it.
    virtual bool GetPntColor(int i, unsigned char& r, unsigned char& g, unsigned char& b) const = 0;
    /// False when the cloud's data is of a version the network cannot use.
    virtual bool IsVersionValid() const = 0;

protected:
    ~CCld() override;
};

/// A point cloud held in memory, filled by the host point by point.
class DTM_API CMemCld : public CCld {
public:
    /// An empty, valid cloud.
    CMemCld();
    /// Appends a point without colour.
    void AddPnt(const kor::geom::PNT_3D& p);
    /// Appends a point with its colour.
    void AddPnt(const kor::geom::PNT_3D& p, unsigned char r, unsigned char g, unsigned char b);
    /// Marks the cloud's data as usable or not (see IsVersionValid).
    void SetVersionValid(bool valid) noexcept { m_versionValid = valid; }

    /// The box of all points; false when the cloud is empty.
    bool GetBdry(kor::geom::RECT_3D& box) const override;
    int GetNumPnts() const override;
    /// Point @p i; an index out of range throws std::out_of_range.
    void GetPnt(int i, kor::geom::PNT_3D& p) const override;
    /// Colour of point @p i; false for a point added without colour or out of range.
    bool GetPntColor(int i, unsigned char& r, unsigned char& g, unsigned char& b) const override;
    bool IsVersionValid() const override { return m_versionValid; }

protected:
    ~CMemCld() override;

private:
    struct Colour {
        unsigned char r, g, b;
        bool present;
    };
    std::vector<kor::geom::PNT_3D> m_points;
    std::vector<Colour> m_colours;
    bool m_versionValid = true;
};
