// How the host draws the network: the enumerations of triangles (all of them, those left by
// clip planes, those crossed by an elevation), the records they fill, and the display-option
// setters that decide what a change of options tells the listeners.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/network/ITris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/LumoEng.h>

#include "network/COcTree.h"
#include "network/ITriOcTreeListener.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace {

// The buffer size that asks GetTris for one OnTriIndexes per triangle instead of records.
constexpr int PER_TRIANGLE = -1;
// What GetTriDim answers when no labels are shown.
constexpr double NO_TRI_DIM = -1.0;
// The CAD engine's foreground colour: white on a dark background, so it is drawn black on a
// white one to stay visible.
constexpr int FOREGROUND_COLOR_INDEX = 7;
// The colour index that stands for "by layer".
constexpr int BY_LAYER_COLOR_INDEX = 256;
// The one background, packed 0x00BBGGRR, on which the foreground colour turns black.
constexpr int WHITE_BACKGROUND = 0xFFFFFF;

// The triangle's own colour in a record. "By layer" resolves to the options' fixed colour here,
// whereas CalcColorTri resolves it to the layer colour. The difference is deliberate and kept:
// the two colour fields of a record answer different questions, so for a by-layer triangle
// they may differ.
void FillOwnColour(const CTris& tris, const CTri& triangle, TTriDraw& record) {
    int index = triangle.GetColor();
    if (index == BY_LAYER_COLOR_INDEX) index = tris.GetOptions().GetFixedColor();
    if (index == FOREGROUND_COLOR_INDEX && tris.GetBackgroundColor() == WHITE_BACKGROUND) {
        record.color = 0;
        record.red = record.green = record.blue = 0.0f;
        return;
    }
    long r = 0;
    long g = 0;
    long b = 0;
    CLumoEng::Index_to_RGB(static_cast<short>(index), r, g, b);
    record.color = static_cast<std::int32_t>(r | g << 8 | b << 16);
    CLumoEng::Index_to_RGB(static_cast<short>(index), record.red, record.green, record.blue);
}

// Fills @p record with triangle @p tri of @p tris. Every enumeration fills every field, so a
// host never reads a field that one of them left over from an earlier triangle.
void FillRecord(const CTris& tris, int tri, TTriDraw& record) {
    const CTri& triangle = *tris.GetTriAt(tri);
    // A vertex the network does not have comes out as a point with no position (all NaN)
    // instead of failing in the middle of a drawing.
    for (int k = 0; k < 3; ++k) record.pnts[k] = NetworkVertex(tris, triangle, k);
    FillOwnColour(tris, triangle, record);
    record.drawColor = tris.CalcColorTri(&triangle);
    record.index = tri;
    record.selected = tris.IsSelTri(tri);
}

// What the two drawing listeners share: the network they read from and the host's listener
// they deliver to (both borrowed for one enumeration), and the vertices a traversal culls with.
class CTrisDrawOcTreeListener : public ITriOcTreeListener {
public:
    CTrisDrawOcTreeListener(const CTris& tris, ITrisListener* listener)
        : m_tris(tris), m_listener(listener) {
        if (listener == nullptr) throw std::invalid_argument("CTris drawing: null listener");
    }

    void GetTriVertices(int tri, kor::geom::PNT_3D& a, kor::geom::PNT_3D& b,
                        kor::geom::PNT_3D& c) override {
        const CTri& triangle = *m_tris.GetTriAt(tri);
        a = NetworkVertex(m_tris, triangle, 0);
        b = NetworkVertex(m_tris, triangle, 1);
        c = NetworkVertex(m_tris, triangle, 2);
    }

protected:
    ~CTrisDrawOcTreeListener() = default;

    const CTris& m_tris;
    ITrisListener* m_listener;
};

// Delivers each triangle at once, by its indices.
class CTriOcTreeListener final : public CTrisDrawOcTreeListener {
public:
    using CTrisDrawOcTreeListener::CTrisDrawOcTreeListener;

    void OnTri(int tri) override {
        const CTri* triangle = m_tris.GetTriAt(tri);
        m_listener->OnTriIndexes(triangle->GetVerIndex(0), triangle->GetVerIndex(1),
                                 triangle->GetVerIndex(2), m_tris.IsSelTri(tri), tri,
                                 m_tris.CalcColorTri(triangle));
    }
};

// Fills records into one buffer, allocated once, and hands it over each time it is full and
// once more, with what is left, at the end.
class CTriGrpOcTreeListener final : public CTrisDrawOcTreeListener {
public:
    CTriGrpOcTreeListener(const CTris& tris, ITrisListener* listener, int bufSize)
        : CTrisDrawOcTreeListener(tris, listener) {
        if (bufSize < 1) throw std::invalid_argument("CTris drawing: buffer size below 1");
        // No enumeration hands over more triangles than the network has, so a buffer of
        // bufSize records larger than that would never be full. Capping it keeps a generous
        // bufSize from costing memory without changing what the host sees: a capped buffer
        // fills up exactly with the last triangle and is handed over with the same count as
        // the remainder at the end would have been.
        m_buffer.resize(static_cast<std::size_t>(std::max(1, std::min(bufSize, tris.GetNoTris()))));
    }

    void OnTri(int tri) override {
        FillRecord(m_tris, tri, m_buffer[m_filled]);
        ++m_filled;
        if (m_filled == m_buffer.size()) Deliver();
    }

    void Flush() override {
        if (m_filled > 0) Deliver();
    }

private:
    void Deliver() {
        const int count = static_cast<int>(m_filled);
        m_filled = 0;
        m_listener->OnTris(count, m_buffer.data());
    }

    std::vector<TTriDraw> m_buffer;
    std::size_t m_filled = 0;
};

// Hands every triangle of @p tris to @p listener in array order, as a traversal would.
void HandOverAll(const CTris& tris, ITriOcTreeListener& listener) {
    for (int tri = 0; tri < tris.GetNoTris(); ++tri) listener.OnTri(tri);
    listener.Flush();
}

}  // namespace

// Enumeration -------------------------------------------------------------------------------

void CTris::GetTris(ITrisListener* listener, int bufSize) const {
    if (m_broken) return;
    if (bufSize == PER_TRIANGLE) {
        CTriOcTreeListener perTriangle(*this, listener);
        HandOverAll(*this, perTriangle);
        return;
    }
    CTriGrpOcTreeListener buffered(*this, listener, bufSize);
    HandOverAll(*this, buffered);
}

void CTris::GetTris_Clip(ITrisListener* listener, const std::vector<kor::geom::PLANE_3D>& planes,
                         int bufSize, bool perTriangle) const {
    if (m_broken || m_tris.empty()) return;
    if (IsCld() && perTriangle) {
        CTriOcTreeListener single(*this, listener);
        m_octree->TraversePlanes(planes, single);
        return;
    }
    CTriGrpOcTreeListener buffered(*this, listener, bufSize);
    m_octree->TraversePlanes(planes, buffered);
}

void CTris::GetTris_Quote(ITrisListener* listener, double z) const {
    // The broken flag is deliberately not consulted: the elevation slice draws whatever
    // triangles the network still holds.
    if (m_tris.empty()) return;
    CTriGrpOcTreeListener oneByOne(*this, listener, 1);
    m_octree->TraverseSlice(z, oneByOne);
}

// Display options ---------------------------------------------------------------------------

double CTris::GetTriDim() const {
    const bool labelsShown =
        m_options.IsSecondDisplayFlag() && m_options.GetSymbol() == COpzTri::TRI_SYMBOL_1;
    return labelsShown ? m_options.GetTextHeight() : NO_TRI_DIM;
}

void CTris::SetTextOptions(double h) {
    if (h == m_options.GetTextHeight() && m_options.GetSymbol() == COpzTri::TRI_SYMBOL_1) return;
    m_options.SetTextHeight(h);
    m_context->Notify_Tri_InnerDrawModified();
}

void CTris::SetVisOptions(bool firstFlag, bool secondFlag, COpzTri::enumTriColorType type,
                          short fixedColour, short layerColour, const CColorClassComputer& classes,
                          COpzTri::enumTriSymbol symbol, double textHeight, double scaleFactor) {
    const bool colourChanged =
        fixedColour != m_options.GetFixedColor() || layerColour != m_options.GetLayerColor() ||
        firstFlag != m_options.IsFirstDisplayFlag() ||
        secondFlag != m_options.IsSecondDisplayFlag() || type != m_options.GetColorType();
    const bool classesChanged = classes != m_options.GetColorClasses();
    const bool textChanged = textHeight != m_options.GetTextHeight() ||
                             scaleFactor != m_options.GetScaleFactor() ||
                             symbol != m_options.GetSymbol();
    if (!colourChanged && !classesChanged && !textChanged) return;

    m_options.SetFirstDisplayFlag(firstFlag);
    m_options.SetSecondDisplayFlag(secondFlag);
    m_options.SetColorType(type);
    m_options.SetFixedColor(fixedColour);
    m_options.SetLayerColor(layerColour);
    m_options.SetColorClasses(classes);
    m_options.SetSymbol(symbol);
    m_options.SetTextHeight(textHeight);
    m_options.SetScaleFactor(scaleFactor);

    // New classes change the drawing only when the triangles are coloured by them; under the
    // other colour types they are stored silently.
    if (colourChanged || (type == COpzTri::TRI_COLOR_BY_CLASSES && classesChanged)) {
        m_context->Notify_Tri_LayersModified();
        UpdateTriColors();
    }
    if (textChanged) m_context->Notify_Tri_InnerDrawModified();
}

void CTris::SetVisOptions(bool firstFlag) {
    if (firstFlag == m_options.IsFirstDisplayFlag()) return;
    SetVisOptions(firstFlag, m_options.IsSecondDisplayFlag(), m_options.GetColorType(),
                  m_options.GetFixedColor(), m_options.GetLayerColor(), m_options.GetColorClasses(),
                  m_options.GetSymbol(), m_options.GetTextHeight(), m_options.GetScaleFactor());
}
