#include "ToolTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace tool_test {

dtmtool::TinSurface GridSurface(int columns, int rows, double spacing, double x0, double y0,
                                const std::function<double(double, double)>& height, double jitter,
                                unsigned seed) {
    dtmtool::TinSurface surface;
    surface.name = "Grid";
    std::mt19937 random(seed);
    const auto offset = [&]() {
        // Drawn from the raw generator, whose sequence the standard fixes.
        return jitter * spacing * (static_cast<double>(random()) / 4294967295.0 * 2.0 - 1.0);
    };
    for (int row = 0; row <= rows; ++row)
        for (int column = 0; column <= columns; ++column) {
            const bool border = row == 0 || column == 0 || row == rows || column == columns;
            const double dx = border ? 0.0 : offset();
            const double dy = border ? 0.0 : offset();
            const double x = x0 + column * spacing + dx;
            const double y = y0 + row * spacing + dy;
            surface.points.emplace_back(x, y, height(x, y));
        }
    const auto index = [columns](int column, int row) { return row * (columns + 1) + column; };
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column) {
            const int a = index(column, row), b = index(column + 1, row);
            const int c = index(column + 1, row + 1), d = index(column, row + 1);
            surface.faces.push_back({a, b, c});
            surface.faces.push_back({a, c, d});
        }
    return surface;
}

namespace {

std::string Number(double value) {
    std::ostringstream text;
    text.precision(17);
    text << value;
    return text.str();
}

std::string Triple(const PNT_3D& p) {
    return Number(p.y) + " " + Number(p.x) + " " + Number(p.z);
}

std::string PointList(const std::vector<PNT_3D>& points, bool close) {
    std::string text;
    for (const PNT_3D& p : points) text += (text.empty() ? "" : " ") + Triple(p);
    if (close && !points.empty()) text += " " + Triple(points.front());
    return text;
}

}  // namespace

std::string LandXmlOf(const std::vector<dtmtool::TinSurface>& surfaces, const LandXmlStyle& style) {
    const std::string& nl = style.newline;
    const std::string p = style.prefix.empty() ? "" : style.prefix + ":";
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + nl;
    xml += "<" + p + "LandXML";
    if (!style.ns.empty())
        xml += (style.prefix.empty() ? " xmlns=\"" : " xmlns:" + style.prefix + "=\"") + style.ns +
               "\"";
    xml += " version=\"1.2\">" + nl + "<" + p + "Units><" + p + "Metric linearUnit=\"meter\"/></" +
           p + "Units>" + nl + "<" + p + "Surfaces>" + nl;
    for (const dtmtool::TinSurface& surface : surfaces) {
        const auto id = [&](int vertex) { return style.firstId + vertex * style.idStep; };
        xml += "<" + p + "Surface name=\"" + surface.name + "\">" + nl;
        xml += "<" + p + "SourceData>" + nl + style.extraSourceData;
        if (!surface.breaklines.empty()) {
            xml += "<" + p + "Breaklines>" + nl;
            for (const auto& line : surface.breaklines)
                xml += "<" + p + "Breakline brkType=\"standard\"><" + p + "PntList3D>" +
                       PointList(line, false) + "</" + p + "PntList3D></" + p + "Breakline>" + nl;
            xml += "</" + p + "Breaklines>" + nl;
        }
        xml += "<" + p + "Boundaries>" + nl;
        for (const auto& ring : surface.externalBoundaries)
            xml += "<" + p + "Boundary bndType=\"outer\"><" + p + "PntList3D>" +
                   PointList(ring, true) + "</" + p + "PntList3D></" + p + "Boundary>" + nl;
        for (const auto& ring : surface.internalBoundaries)
            xml += "<" + p + "Boundary bndType=\"void\"><" + p + "PntList3D>" +
                   PointList(ring, true) + "</" + p + "PntList3D></" + p + "Boundary>" + nl;
        xml += "</" + p + "Boundaries>" + nl + "</" + p + "SourceData>" + nl;
        xml += "<" + p + "Definition surfType=\"TIN\">" + nl + "<" + p + "Pnts>" + nl;
        const int count = static_cast<int>(surface.points.size());
        for (int k = 0; k < count; ++k) {
            const int vertex = style.reversed ? count - 1 - k : k;
            xml += "<" + p + "P id=\"" + std::to_string(id(vertex)) + "\">" +
                   Triple(surface.points[static_cast<std::size_t>(vertex)]) + "</" + p + "P>" + nl;
        }
        xml += "</" + p + "Pnts>" + nl + "<" + p + "Faces>" + nl;
        std::size_t hidden = 0;
        for (std::size_t f = 0; f < surface.faces.size(); ++f) {
            // Hidden faces go between the visible ones, where a reader meets them mid-list.
            if (f % 3 == 1 && hidden < style.hiddenFaces.size()) {
                const auto& face = style.hiddenFaces[hidden++];
                xml += "<" + p + "F i=\"1\">" + std::to_string(id(face[0])) + " " +
                       std::to_string(id(face[1])) + " " + std::to_string(id(face[2])) + "</" + p +
                       "F>" + nl;
            }
            const auto& face = surface.faces[f];
            xml += "<" + p + "F>" + std::to_string(id(face[0])) + " " +
                   std::to_string(id(face[1])) + " " + std::to_string(id(face[2])) + "</" + p +
                   "F>" + nl;
        }
        xml +=
            "</" + p + "Faces>" + nl + "</" + p + "Definition>" + nl + "</" + p + "Surface>" + nl;
    }
    xml += "</" + p + "Surfaces>" + nl + "</" + p + "LandXML>" + nl;
    return xml;
}

std::vector<std::array<int, 3>> CanonicalFaces(std::vector<std::array<int, 3>> faces) {
    for (auto& face : faces)
        std::rotate(face.begin(), std::min_element(face.begin(), face.end()), face.end());
    std::sort(faces.begin(), faces.end());
    return faces;
}

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.good()) << path;
}

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> FolderEntries(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace tool_test
