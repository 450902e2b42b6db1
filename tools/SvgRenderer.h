#pragma once

// The picture of a document: what a host draws of each project, written as SVG.

#include <dtm/dtm.h>

#include <string>

namespace dtmtool {

/// How the picture is made.
struct RenderOptions {
    /// Width of the picture in pixels; the drawing fits a square of this size.
    int width = 1600;
    /// A line of text above the drawing; empty for the projects' names.
    std::string title;
    /// The triangles' edges are drawn faintly when the networks hold at most this many
    /// triangles, where they are still far enough apart to show the mesh.
    int maxTrianglesWithEdges = 60000;
};

/// The SVG text of every visible project of @p library, in project order, each drawn as:
/// triangles in the colours the network gives them (CTris::GetTris records), contour lines
/// sampled along their tension splines with the library's spline functions and interrupted at
/// their label and gap intervals (index lines, those that carry labels, heavier), the labels
/// along the lines, the external boundaries, the internal boundaries filled as holes, and the
/// breaklines; below, a legend of the elevation colours. Throws ToolError naming @p source (the
/// document the library was read from) when no visible project has anything to draw.
std::string SvgText(const CLibDtm& library, const RenderOptions& options,
                    const std::string& source);

/// Writes SvgText to @p path atomically.
void RenderSvg(const CLibDtm& library, const RenderOptions& options, const std::string& source,
               const std::string& path);

}  // namespace dtmtool
