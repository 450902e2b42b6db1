#include "SvgCanvas.h"

#include <algorithm>
#include <cstdio>

#include "TextFormat.h"

namespace dtmtool {

SvgCanvas::SvgCanvas(const kor::geom::RECT_3D& box, int width, double margin, double titleBand)
    : m_box(box), m_top(margin + titleBand), m_width(width) {
    // The drawing fits a square of the given width, so that a tall, narrow network does not
    // make a picture many screens high; the picture keeps the width asked for (a page layout
    // counts on it, and the title and legend need it), with a narrow drawing in its middle.
    const double inner = width - 2.0 * margin;
    const double span = std::max({box.max.x - box.min.x, box.max.y - box.min.y, 1e-9});
    m_scale = inner / span;
    m_left = margin + (inner - (box.max.x - box.min.x) * m_scale) / 2.0;
    m_height = m_top + (box.max.y - box.min.y) * m_scale + margin;
}

template <class Point>
void SvgCanvas::AppendPoints(std::string& path, const std::vector<Point>& points,
                             bool close) const {
    for (std::size_t i = 0; i < points.size(); ++i) {
        path += i == 0 ? 'M' : 'L';
        AppendNumber(path, X(points[i].x));
        path += ' ';
        AppendNumber(path, Y(points[i].y));
    }
    if (close && !points.empty()) path += 'Z';
}

void SvgCanvas::AppendPath(std::string& path, const std::vector<kor::geom::PNT_2D>& points,
                           bool close) const {
    AppendPoints(path, points, close);
}

void SvgCanvas::AppendPath(std::string& path, const std::vector<kor::geom::PNT_3D>& points,
                           bool close) const {
    AppendPoints(path, points, close);
}

void SvgCanvas::AppendTriangle(std::string& path, const kor::geom::PNT_3D (&corners)[3]) const {
    for (int k = 0; k < 3; ++k) {
        path += k == 0 ? 'M' : 'L';
        AppendNumber(path, X(corners[k].x));
        path += ' ';
        AppendNumber(path, Y(corners[k].y));
    }
    path += 'Z';
}

void AppendNumber(std::string& text, double value) {
    AppendFixed(text, value, 1);
}

std::string Number(double value) {
    std::string text;
    AppendNumber(text, value);
    return text;
}

std::string HexColour(std::int32_t packedBgr) {
    const unsigned bits = static_cast<unsigned>(packedBgr);
    char buffer[8];
    std::snprintf(buffer, sizeof(buffer), "#%02x%02x%02x", bits & 0xFFu, (bits >> 8) & 0xFFu,
                  (bits >> 16) & 0xFFu);
    return buffer;
}

}  // namespace dtmtool
