// The network's colours: the per-vertex colours and normals of a cloud-bound network, read by
// the host's shaded display, and the colour each triangle is drawn in.

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/LumoEng.h>

#include "network/COcTree.h"

#include <cmath>
#include <cstddef>
#include <vector>

namespace {

// The CAD engine's foreground colour: white on a dark background, so it is drawn black on a
// white one to stay visible.
constexpr int FOREGROUND_COLOR_INDEX = 7;
// The colour index that stands for the layer's colour.
constexpr int BY_LAYER_COLOR_INDEX = 256;
// The one background, packed 0x00BBGGRR, on which the foreground colour turns black.
constexpr int WHITE_BACKGROUND = 0xFFFFFF;

bool IsForegroundOnWhite(int colourIndex, int background) {
    return colourIndex == FOREGROUND_COLOR_INDEX && background == WHITE_BACKGROUND;
}

// Palette entry @p colourIndex packed as the host draws it, 0x00BBGGRR.
int PackedRgb(int colourIndex) {
    long r = 0;
    long g = 0;
    long b = 0;
    CLumoEng::Index_to_RGB(static_cast<short>(colourIndex), r, g, b);
    return static_cast<int>(r | g << 8 | b << 16);
}

TTriColor FloatRgb(int colourIndex) {
    TTriColor colour{};
    CLumoEng::Index_to_RGB(static_cast<short>(colourIndex), colour.r, colour.g, colour.b);
    return colour;
}

// One channel of a triangle drawn in the mean of its vertices' colours. The sum starts from 0
// and the arithmetic stays in 32-bit float, in exactly this order: the result is truncated, so
// a mean a hair under an integer (183.99998 where the exact mean is 184) must keep coming out
// as the same channel value.
int MeanChannel(float c0, float c1, float c2) {
    const float scaled = (0.0f + c0 + c1 + c2) * 255 / 3;
    return static_cast<int>(scaled) & 0xFF;
}

// Colour class of triangle @p t's mean elevation. The sum is taken as vertex 1, vertex 0,
// vertex 2 and divided by 3.0, in this order, so that an elevation on a class limit falls on
// the same side as it always has.
//
// A vertex the network does not have (see NetworkVertex) has no elevation; the mean is then NaN,
// which the colour classes give the first class's colour.
int ClassColorOf(const CTris& tris, const CTri* t) {
    const double z = (NetworkVertex(tris, *t, 1).z + NetworkVertex(tris, *t, 0).z +
                      NetworkVertex(tris, *t, 2).z) /
                     3.0;
    return tris.GetOptions().GetColorClasses().GetColor(tris.GetMinQuota(), tris.GetMaxQuota(), z);
}

// The colour of vertex @p vertexIndex in @p colours, black when there is none: a network
// without vertex colours, or a triangle that refers to a vertex the network does not have,
// is then drawn dark instead of failing in the middle of a drawing.
TTriColor VertexColour(const std::vector<TTriColor>& colours, int vertexIndex) {
    if (vertexIndex < 0 || static_cast<std::size_t>(vertexIndex) >= colours.size())
        return TTriColor{0.0f, 0.0f, 0.0f};
    return colours[static_cast<std::size_t>(vertexIndex)];
}

// True when every vertex of @p t is one of the network's @p vertexCount vertices.
bool HasEveryVertex(const CTri* t, std::size_t vertexCount) {
    for (int k = 0; k < 3; ++k) {
        const int index = t->GetVerIndex(k);
        if (index < 0 || static_cast<std::size_t>(index) >= vertexCount) return false;
    }
    return true;
}

}  // namespace

void CTris::CalcColors() {
    m_colours = std::vector<TTriColor>();
    if (m_broken || !HoldsCld() || m_cloudIndexes.empty()) return;

    // Entries that a colour type does not write stay black rather than undefined, so that a
    // triangle drawn from them never converts a garbage float.
    m_colours.resize(m_cloudIndexes.size(), TTriColor{0.0f, 0.0f, 0.0f});
    switch (m_options.GetColorType()) {
        case COpzTri::TRI_COLOR_FIXED: {
            // The layer rule (256) is deliberately not applied to the vertex colours.
            const int index = m_options.GetFixedColor();
            const TTriColor colour = IsForegroundOnWhite(index, m_background)
                                         ? TTriColor{0.0f, 0.0f, 0.0f}
                                         : FloatRgb(index);
            for (TTriColor& entry : m_colours) entry = colour;
            break;
        }
        case COpzTri::TRI_COLOR_BY_CLASSES:
            for (std::size_t i = 0; i < m_cloudIndexes.size(); ++i) {
                kor::geom::PNT_3D point;
                m_cloud->GetPnt(m_cloudIndexes[i], point);
                m_colours[i] =
                    FloatRgb(m_options.GetColorClasses().GetColor(m_minQuota, m_maxQuota, point.z));
            }
            break;
        case COpzTri::TRI_COLOR_BY_CLOUD:
            for (std::size_t i = 0; i < m_cloudIndexes.size(); ++i) {
                unsigned char r = 0;
                unsigned char g = 0;
                unsigned char b = 0;
                if (!m_cloud->GetPntColor(m_cloudIndexes[i], r, g, b)) continue;
                m_colours[i] =
                    TTriColor{static_cast<float>(r / 255.0), static_cast<float>(g / 255.0),
                              static_cast<float>(b / 255.0)};
            }
            break;
        default:
            break;
    }
}

void CTris::CalcNormals() {
    m_normals = std::vector<TTriNormal>();
    if (m_broken || !HoldsCld() || m_vertices.empty() || m_tris.empty()) return;

    m_normals.resize(m_vertices.size(), TTriNormal{0.0f, 0.0f, 0.0f});
    for (const CTri* tri : m_tris) {
        // A triangle left pointing past the vertices (removing a vertex renumbers nothing) has
        // no shape to give a normal; it adds nothing rather than failing the change event.
        if (!HasEveryVertex(tri, m_vertices.size())) continue;
        const std::size_t corners[3] = {static_cast<std::size_t>(tri->GetVerIndex(0)),
                                        static_cast<std::size_t>(tri->GetVerIndex(1)),
                                        static_cast<std::size_t>(tri->GetVerIndex(2))};
        // Not normalised: a larger triangle weighs more in the normals of its vertices.
        const kor::geom::VECTOR_3D normal = -kor::geom::CrossProduct(
            m_vertices[corners[0]], m_vertices[corners[1]], m_vertices[corners[2]]);
        for (const std::size_t corner : corners) {
            TTriNormal& sum = m_normals[corner];
            sum.x += static_cast<float>(normal.x);
            sum.y += static_cast<float>(normal.y);
            sum.z += static_cast<float>(normal.z);
        }
    }
    // A vertex that no triangle uses has a zero sum and gets 0/0 = NaN: the host's display
    // skips such vertices anyway, so no guard is spent on them.
    for (TTriNormal& n : m_normals) {
        const double length =
            std::sqrt(static_cast<double>(n.x) * n.x + static_cast<double>(n.y) * n.y +
                      static_cast<double>(n.z) * n.z);
        n.x = static_cast<float>(n.x / length);
        n.y = static_cast<float>(n.y / length);
        n.z = static_cast<float>(n.z / length);
    }
}

void CTris::CalcColors_Bkg(int background) {
    m_background = background;
    CalcColors();
}

int CTris::CalcColorTri(const CTri* t) const {
    switch (m_options.GetColorType()) {
        case COpzTri::TRI_COLOR_BY_CLASSES:
            return PackedRgb(ClassColorOf(*this, t));
        case COpzTri::TRI_COLOR_BY_CLOUD: {
            const TTriColor c0 = VertexColour(m_colours, t->GetVerIndex(0));
            const TTriColor c1 = VertexColour(m_colours, t->GetVerIndex(1));
            const TTriColor c2 = VertexColour(m_colours, t->GetVerIndex(2));
            return MeanChannel(c0.r, c1.r, c2.r) | MeanChannel(c0.g, c1.g, c2.g) << 8 |
                   MeanChannel(c0.b, c1.b, c2.b) << 16;
        }
        default: {
            // The fixed colour type, and also a type this version does not know: the triangle's
            // own colour is the most faithful drawing of it.
            int index = t->GetColor();
            if (index == BY_LAYER_COLOR_INDEX) index = m_options.GetLayerColor();
            if (IsForegroundOnWhite(index, m_background)) return 0;
            return PackedRgb(index);
        }
    }
}

void CTris::UpdateTriColors() {
    if (m_broken) return;
    CalcColors();
    const COpzTri::enumTriColorType type = m_options.GetColorType();
    if (type != COpzTri::TRI_COLOR_FIXED && type != COpzTri::TRI_COLOR_BY_CLASSES) return;

    const auto wanted = [this, type](const CTri* tri) {
        return type == COpzTri::TRI_COLOR_FIXED ? BY_LAYER_COLOR_INDEX : ClassColorOf(*this, tri);
    };
    // An update that changes nothing sends nothing, not even an empty event.
    std::size_t first = 0;
    while (first < m_tris.size() && wanted(m_tris[first]) == m_tris[first]->GetColor()) ++first;
    if (first == m_tris.size()) return;

    // One event for the whole update: a single undo step, and the network's listener runs once
    // after the loop. Without it every SetColor would close an event of its own, and the octree
    // rebuilt after each one would reorder the very array this loop walks.
    kor::CEventGuard event(m_context);
    for (std::size_t i = first; i < m_tris.size(); ++i) {
        CTri* tri = m_tris[i];
        const int colour = wanted(tri);
        if (colour != tri->GetColor()) tri->SetColor(this, colour);
    }
}

const TTriColor* CTris::GetColors() const noexcept {
    return m_colours.empty() ? nullptr : m_colours.data();
}

const TTriNormal* CTris::GetNormals() const noexcept {
    return m_normals.empty() ? nullptr : m_normals.data();
}
