#pragma once

// The drawing surface of the SVG pictures: the mapping from plan coordinates to picture pixels
// and the text of path data, numbers and escaped strings.

#include <dtm/dtm.h>

#include <cstdint>
#include <string>
#include <vector>

namespace dtmtool {

/// Maps a plan box onto a picture of a given width, north up, keeping the aspect ratio, with a
/// margin around the drawing and a band for the title above it. The drawing fits a square of
/// that width and stands in the middle of the picture when it is narrower.
class SvgCanvas {
public:
    /// A canvas @p width pixels wide for @p box (which must not be empty).
    SvgCanvas(const kor::geom::RECT_3D& box, int width, double margin, double titleBand);

    double Width() const noexcept { return m_width; }
    double Height() const noexcept { return m_height; }
    /// Pixels per plan unit.
    double Scale() const noexcept { return m_scale; }
    /// Picture coordinates of plan point @p p (y grows downwards in the picture).
    double X(double x) const noexcept { return m_left + (x - m_box.min.x) * m_scale; }
    double Y(double y) const noexcept { return m_top + (m_box.max.y - y) * m_scale; }

    /// Appends "M x y L x y ..." for @p points to @p path, closed with "Z" when @p close.
    void AppendPath(std::string& path, const std::vector<kor::geom::PNT_2D>& points,
                    bool close) const;
    void AppendPath(std::string& path, const std::vector<kor::geom::PNT_3D>& points,
                    bool close) const;
    /// Appends one triangle to @p path.
    void AppendTriangle(std::string& path, const kor::geom::PNT_3D (&corners)[3]) const;

private:
    template <class Point>
    void AppendPoints(std::string& path, const std::vector<Point>& points, bool close) const;

    kor::geom::RECT_3D m_box;
    double m_top;
    double m_width;
    double m_scale;
    double m_left;
    double m_height;
};

/// @p value with one decimal, the precision a picture needs (a tenth of a pixel).
void AppendNumber(std::string& text, double value);
/// @p value with one decimal, as a string.
std::string Number(double value);
/// "#rrggbb" of a colour packed 0x00BBGGRR, as the library hands colours to a host.
std::string HexColour(std::int32_t packedBgr);

}  // namespace dtmtool
