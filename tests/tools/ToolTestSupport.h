#pragma once

// Surfaces and LandXML texts made by the tests themselves, independently of the tool's own
// reader and writer, so that those can be checked against them.

#include <dtm/dtm.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "TinSurface.h"

namespace tool_test {

using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

/// A jittered grid of @p columns × @p rows cells of size @p spacing from (@p x0, @p y0), with
/// elevations from @p height, two counter-clockwise triangles per cell. The jitter (a share of
/// a cell, below one half) is fixed by @p seed.
dtmtool::TinSurface GridSurface(int columns, int rows, double spacing, double x0, double y0,
                                const std::function<double(double, double)>& height,
                                double jitter = 0.0, unsigned seed = 1);

/// How a test writes a LandXML file.
struct LandXmlStyle {
    /// The root element's xmlns attribute; empty for no namespace.
    std::string ns = "http://www.landxml.org/schema/LandXML-1.2";
    /// Prefix of every element name (with its namespace declared as xmlns:prefix).
    std::string prefix;
    /// Point ids: id of vertex i is firstId + i * idStep, and the points are written in
    /// reverse order when reversed.
    long long firstId = 1;
    long long idStep = 1;
    bool reversed = false;
    /// Faces to write with i="1" and a triangle of their own (indices into the points) that a
    /// reader must leave out.
    std::vector<std::array<int, 3>> hiddenFaces;
    /// Line ends written.
    std::string newline = "\n";
    /// Extra elements written inside the surface's SourceData (raw text).
    std::string extraSourceData;
};

/// LandXML text of @p surfaces in @p style, assembled by hand.
std::string LandXmlOf(const std::vector<dtmtool::TinSurface>& surfaces,
                      const LandXmlStyle& style = {});

/// Each face rotated so that its smallest index comes first, all sorted: the same set of
/// triangles gives the same list whatever the order and the starting vertex.
std::vector<std::array<int, 3>> CanonicalFaces(std::vector<std::array<int, 3>> faces);

/// Writes @p text to @p path; fails the test when it cannot.
void WriteText(const std::string& path, const std::string& text);
/// The content of @p path, empty when it cannot be read.
std::string ReadText(const std::string& path);
/// The names of the entries of folder @p path, sorted.
std::vector<std::string> FolderEntries(const std::string& path);

}  // namespace tool_test
