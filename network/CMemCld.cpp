#include <dtm/network/CCld.h>

#include <cstddef>

CCld::~CCld() = default;

CMemCld::CMemCld() = default;

CMemCld::~CMemCld() = default;

void CMemCld::AddPnt(const kor::geom::PNT_3D& p) {
    m_points.push_back(p);
    m_colours.push_back({0, 0, 0, false});
}

void CMemCld::AddPnt(const kor::geom::PNT_3D& p, unsigned char r, unsigned char g,
                     unsigned char b) {
    m_points.push_back(p);
    m_colours.push_back({r, g, b, true});
}

bool CMemCld::GetBdry(kor::geom::RECT_3D& box) const {
    if (m_points.empty()) return false;
    box.initRegion();
    for (const kor::geom::PNT_3D& p : m_points) box.updateRegion(p);
    return true;
}

int CMemCld::GetNumPnts() const {
    return static_cast<int>(m_points.size());
}

void CMemCld::GetPnt(int i, kor::geom::PNT_3D& p) const {
    // A negative index wraps to a huge unsigned one, so at() rejects it as well.
    p = m_points.at(static_cast<std::size_t>(i));
}

bool CMemCld::GetPntColor(int i, unsigned char& r, unsigned char& g, unsigned char& b) const {
    if (i < 0 || static_cast<std::size_t>(i) >= m_colours.size()) return false;
    const Colour& colour = m_colours[static_cast<std::size_t>(i)];
    if (!colour.present) return false;
    r = colour.r;
    g = colour.g;
    b = colour.b;
    return true;
}
