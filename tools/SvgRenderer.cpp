#include "SvgRenderer.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "AtomicFile.h"
#include "ContourGeometry.h"
#include "Progress.h"
#include "SurfaceProject.h"
#include "SvgCanvas.h"
#include "TextFormat.h"
#include "ToolError.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;
using kor::geom::PNT_3D;
using kor::geom::RECT_3D;

constexpr double kMargin = 24.0;
constexpr double kTitleBand = 30.0;
constexpr double kLegendBand = 46.0;
// Records per OnTris call: large buffers mean few calls for a big network.
constexpr int kTriangleBuffer = 4096;
// Contour lines are sampled every this many pixels at most; the library refines where they bend.
constexpr double kSampleStepPixels = 2.0;
// The drawing colour of contour lines "by layer": the brown of printed maps.
const char* const kContourByLayerColour = "#7a4a26";
const char* const kExternalBoundaryColour = "#1b4d1e";
const char* const kInternalBoundaryStroke = "#1f4e79";
const char* const kInternalBoundaryFill = "#d4e6f6";
const char* const kBreaklineColour = "#c62828";
// The CAD colour index drawn in the foreground colour, black on the white picture.
constexpr int kForegroundIndex = 7;
constexpr int kByLayerIndex = 256;
constexpr double kDegreesPerRadian = 57.29577951308232;
// A label's text height is the height of its capitals, as in CAD; an SVG font size is the em,
// of which the capitals of common sans-serif fonts take about this share.
constexpr double kCapitalHeightPerEm = 0.72;

// Receives the network's triangles in buffers and files each one under its drawing colour, so
// that the picture holds one path per colour instead of one element per triangle.
class TriangleCollector final : public ITrisListener {
public:
    TriangleCollector(const SvgCanvas& canvas, bool withEdges, Progress& progress)
        : m_canvas(canvas), m_withEdges(withEdges), m_progress(progress) {}

    void OnTris(int count, TTriDraw* records) override {
        for (int i = 0; i < count; ++i) {
            m_canvas.AppendTriangle(m_paths[records[i].drawColor], records[i].pnts);
            if (m_withEdges) m_canvas.AppendTriangle(m_edges, records[i].pnts);
        }
        m_progress.Advance(static_cast<std::uint64_t>(count));
    }
    // Buffered enumeration never calls the per-index form.
    void OnTriIndexes(int, int, int, bool, int, int) override {}

    void Write(std::string& svg) const {
        for (const auto& entry : m_paths) {
            const std::string colour = HexColour(entry.first);
            // The stroke in the fill's own colour closes the hairline seams that anti-aliasing
            // leaves between neighbouring triangles.
            svg += "<path fill=\"" + colour + "\" stroke=\"" + colour +
                   "\" stroke-width=\"0.5\" stroke-linejoin=\"round\" d=\"" + entry.second +
                   "\"/>\n";
        }
        if (m_withEdges)
            svg +=
                "<path fill=\"none\" stroke=\"#000\" stroke-opacity=\"0.10\" "
                "stroke-width=\"0.4\" d=\"" +
                m_edges + "\"/>\n";
    }

private:
    const SvgCanvas& m_canvas;
    bool m_withEdges;
    Progress& m_progress;
    std::map<std::int32_t, std::string> m_paths;
    std::string m_edges;
};

void Widen(RECT_3D& box, const PNT_3D& p) {
    if (std::isfinite(p.x) && std::isfinite(p.y)) box.updateRegion(PNT_3D(p.x, p.y, 0.0));
}

RECT_3D DrawingBox(const CLibDtm& library) {
    RECT_3D box;
    box.initRegion();
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i) {
        const CDtmPrj& prj = *library.GetPrj(i);
        if (!prj.IsVisible()) continue;
        for (const PNT_3D& p : prj.GetTris()->GetPnts()) Widen(box, p);
        for (const bool internal : {false, true})
            for (int c = 0; c < prj.GetCnts(internal)->GetNoCnts(); ++c)
                for (const PNT_3D& p : prj.GetCnts(internal)->GetCntAt(c)->GetExtendedVrts())
                    Widen(box, p);
        for (int v = 0; v < prj.GetVncs()->GetNoVncs(); ++v) {
            Widen(box, prj.GetVncs()->GetVncAt(v)->GetCoords().start);
            Widen(box, prj.GetVncs()->GetVncAt(v)->GetCoords().end);
        }
    }
    return box;
}

std::string ContourColour(const CCvLv& line) {
    const int index = line.GetColor();
    if (index == kByLayerIndex) return kContourByLayerColour;
    if (index == kForegroundIndex) return "#000000";
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(static_cast<short>(index), r, g, b);
    return HexColour(static_cast<std::int32_t>(r | g << 8 | b << 16));
}

// Elevations that carry a label somewhere: their lines are index lines, drawn heavier
// everywhere, also where a piece is too short for a label of its own.
std::set<double> LabelledElevations(const CCvLvs& lines) {
    std::set<double> elevations;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const CCvLv& line = *lines.GetCvLvAt(i);
        for (unsigned k = 0; k < line.GetNoIntervals(); ++k)
            if (line.GetIntervalAt(k)->IsText()) elevations.insert(line.GetQuota());
    }
    return elevations;
}

void DrawContours(std::string& svg, const SvgCanvas& canvas, const CCvLvs& lines) {
    const std::set<double> labelled = LabelledElevations(lines);
    const double step = kSampleStepPixels / canvas.Scale();
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const CCvLv& line = *lines.GetCvLvAt(i);
        if (!line.IsVisible()) continue;
        std::string path;
        for (const std::vector<PNT_2D>& run : SampleDrawnRuns(line, step))
            canvas.AppendPath(path, run, false);
        if (path.empty()) continue;
        const bool index = labelled.count(line.GetQuota()) > 0;
        svg += "<path fill=\"none\" stroke=\"" + ContourColour(line) + "\" stroke-width=\"" +
               (index ? "1.5" : "0.7") + "\" stroke-linejoin=\"round\" d=\"" + path + "\"/>\n";
    }
}

void DrawLabels(std::string& svg, const SvgCanvas& canvas, const CCvLvs& lines) {
    const COpzCvLv& options = lines.GetOpzCvLv();
    const double fontSize = options.GetTextHeight() * canvas.Scale() / kCapitalHeightPerEm;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const CCvLv& line = *lines.GetCvLvAt(i);
        if (!line.IsVisible()) continue;
        const std::string text = XmlEscaped(options.GetFullQuotaText(line.GetQuota()).str());
        for (unsigned k = 0; k < line.GetNoIntervals(); ++k) {
            const CCvLvInterv& interval = *line.GetIntervalAt(k);
            if (!interval.IsText()) continue;
            PNT_2D at, tangent;
            if (!PointAtSpine(line, (interval.GetStart() + interval.GetEnd()) / 2.0, at, tangent))
                continue;
            // The picture's y axis points down, hence the negated y of the tangent.
            double angle = std::atan2(-tangent.y, tangent.x) * kDegreesPerRadian;
            if (interval.GetFlags() & CCvLvInterv::FLAG_INVERTED) angle += 180.0;
            const std::string x = Number(canvas.X(at.x));
            const std::string y = Number(canvas.Y(at.y));
            svg += "<text x=\"" + x + "\" y=\"" + y +
                   "\" dy=\"0.36em\" text-anchor=\"middle\" transform=\"rotate(" + Number(angle) +
                   " " + x + " " + y + ")\" font-size=\"" + Number(fontSize) + "\" fill=\"" +
                   ContourColour(line) + "\">" + text + "</text>\n";
        }
    }
}

void DrawBoundaries(std::string& svg, const SvgCanvas& canvas, const CDtmPrj& prj) {
    std::string holes, outlines;
    for (int c = 0; c < prj.GetCnts(true)->GetNoCnts(); ++c)
        canvas.AppendPath(holes, RealRing(*prj.GetCnts(true)->GetCntAt(c)), true);
    for (int c = 0; c < prj.GetCnts(false)->GetNoCnts(); ++c)
        canvas.AppendPath(outlines, RealRing(*prj.GetCnts(false)->GetCntAt(c)), true);
    if (!holes.empty())
        svg += std::string("<path fill=\"") + kInternalBoundaryFill + "\" stroke=\"" +
               kInternalBoundaryStroke + "\" stroke-width=\"1.6\" d=\"" + holes + "\"/>\n";
    if (!outlines.empty())
        svg += std::string("<path fill=\"none\" stroke=\"") + kExternalBoundaryColour +
               "\" stroke-width=\"2.2\" stroke-linejoin=\"round\" d=\"" + outlines + "\"/>\n";
}

void DrawBreaklines(std::string& svg, const SvgCanvas& canvas, const CVncs& vncs) {
    std::string path;
    for (int v = 0; v < vncs.GetNoVncs(); ++v) {
        const kor::geom::LINE_3D& segment = vncs.GetVncAt(v)->GetCoords();
        canvas.AppendPath(path, std::vector<PNT_2D>{segment.start, segment.end}, false);
    }
    if (path.empty()) return;
    svg += std::string("<path fill=\"none\" stroke=\"") + kBreaklineColour +
           "\" stroke-width=\"1.8\" stroke-linecap=\"round\" d=\"" + path + "\"/>\n";
}

std::string PackedRgbOfIndex(int index) {
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(static_cast<short>(index), r, g, b);
    return HexColour(static_cast<std::int32_t>(r | g << 8 | b << 16));
}

// A bar of the elevation colours of the first visible network coloured by classes, with its
// lowest and highest elevation written at its ends, within a picture @p width wide.
void DrawLegend(std::string& svg, const CLibDtm& library, double top, double width) {
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i) {
        const CDtmPrj& prj = *library.GetPrj(i);
        const CTris& tris = *prj.GetTris();
        if (!prj.IsVisible() || tris.GetNoTris() == 0 ||
            tris.GetOptions().GetColorType() != COpzTri::TRI_COLOR_BY_CLASSES)
            continue;
        const CColorClassComputer& classes = tris.GetOptions().GetColorClasses();
        const double low = tris.GetMinQuota();
        const double high = tris.GetMaxQuota();
        constexpr int kCells = 60;
        // Room for the low elevation before the bar and the high one after it.
        constexpr double kEndText = 60.0;
        const double left = kMargin + kEndText;
        // Cells of 6 pixels, narrower where the picture is too narrow for them.
        const double cellWidth = std::min(6.0, (width - left - kEndText) / kCells);
        for (int cell = 0; cell < kCells; ++cell) {
            const double z = low + (high - low) * (cell + 0.5) / kCells;
            svg += "<rect x=\"" + Number(left + cell * cellWidth) + "\" y=\"" + Number(top) +
                   "\" width=\"" + Number(cellWidth + 0.3) + "\" height=\"14\" fill=\"" +
                   PackedRgbOfIndex(classes.GetColor(low, high, z)) + "\"/>\n";
        }
        const std::string textY = Number(top + 11.0);
        svg += "<text x=\"" + Number(left - 6.0) + "\" y=\"" + textY +
               "\" font-size=\"12\" text-anchor=\"end\">" + Number(low) + "</text>\n";
        svg += "<text x=\"" + Number(left + kCells * cellWidth + 6.0) + "\" y=\"" + textY +
               "\" font-size=\"12\">" + Number(high) + "</text>\n";
        return;
    }
}

// The title's line: a title wider than the picture (by an estimate of its bold glyphs at about
// two thirds of the font size each) is squeezed by the viewer to the width there is, rather than
// running past the edge. Widths are counted in characters, not UTF-8 bytes.
std::string TitleElement(const std::string& title, double pictureWidth) {
    constexpr double kFontSize = 18.0;
    constexpr double kGlyphWidth = 0.65 * kFontSize;
    const auto characters = std::count_if(title.begin(), title.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    });
    const double room = pictureWidth - 2.0 * kMargin;
    const std::string fit =
        characters * kGlyphWidth <= room
            ? std::string()
            : " textLength=\"" + Number(room) + "\" lengthAdjust=\"spacingAndGlyphs\"";
    return "<text x=\"" + Number(kMargin) + "\" y=\"" + Number(kMargin + 4.0) + "\" font-size=\"" +
           Number(kFontSize) + "\" font-weight=\"bold\"" + fit + ">" + XmlEscaped(title) +
           "</text>\n";
}

std::string DefaultTitle(const CLibDtm& library) {
    std::string title;
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i) {
        if (!library.GetPrj(i)->IsVisible()) continue;
        if (!title.empty()) title += ", ";
        title += library.GetPrj(i)->GetName().str();
    }
    return title;
}

}  // namespace

std::string SvgText(const CLibDtm& library, const RenderOptions& options,
                    const std::string& source) {
    const RECT_3D box = DrawingBox(library);
    if (box.IsEmpty()) throw FileError(source, "holds nothing to draw");
    const SvgCanvas canvas(box, options.width, kMargin, kTitleBand);

    std::uint64_t triangles = 0;
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i)
        if (library.GetPrj(i)->IsVisible())
            triangles += static_cast<std::uint64_t>(library.GetPrj(i)->GetTris()->GetNoTris());
    const bool withEdges = triangles <= static_cast<std::uint64_t>(options.maxTrianglesWithEdges);
    Progress progress("rendering", triangles);

    const double height = canvas.Height() + kLegendBand;
    std::string svg =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
        Number(canvas.Width()) + "\" height=\"" + Number(height) + "\" viewBox=\"0 0 " +
        Number(canvas.Width()) + " " + Number(height) +
        "\" font-family=\"DejaVu Sans, Arial, sans-serif\">\n"
        "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    const std::string title = options.title.empty() ? DefaultTitle(library) : options.title;
    svg += TitleElement(title, canvas.Width());

    for (unsigned int i = 0; i < library.GetNoPrj(); ++i) {
        const CDtmPrj& prj = *library.GetPrj(i);
        if (!prj.IsVisible()) continue;
        TriangleCollector collector(canvas, withEdges, progress);
        prj.GetTris()->GetTris(&collector, kTriangleBuffer);
        collector.Write(svg);
        DrawBoundaries(svg, canvas, prj);
        DrawContours(svg, canvas, *prj.GetCvLvs());
        DrawBreaklines(svg, canvas, *prj.GetVncs());
        DrawLabels(svg, canvas, *prj.GetCvLvs());
    }
    DrawLegend(svg, library, canvas.Height() + 8.0, canvas.Width());
    svg += "</svg>\n";
    progress.Finish();
    return svg;
}

void RenderSvg(const CLibDtm& library, const RenderOptions& options, const std::string& source,
               const std::string& path) {
    const std::string svg = SvgText(library, options, source);
    WriteFileAtomically(path, svg.data(), svg.size());
}

}  // namespace dtmtool
