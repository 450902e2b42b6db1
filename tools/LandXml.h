#pragma once

// LandXML surfaces: reading TIN surfaces from a survey file and writing projects back.
//
// LandXML writes every point as "northing easting elevation"; the library's plan is x = easting,
// y = northing, so the first two values are swapped on the way in and out. Faces refer to point
// ids, which are unique only within a surface, need not start at 1 and may have gaps. A face
// with the attribute i="1" is hidden: it belongs to the stored triangulation but not to the
// visible surface, so it is left out.

#include <cstddef>
#include <string>
#include <vector>

#include "TinSurface.h"

namespace dtmtool {

/// The TIN surfaces of the LandXML document in @p size bytes at @p data, in file order, each
/// with its breaklines and its outer (external) and void (internal) boundaries; boundaries of
/// other kinds are counted, not read. Elements are matched by local name, so every LandXML
/// namespace (and none) is read alike. @p file names the document in messages.
///
/// Throws ToolError naming @p file (and the line, where the parser knows it) for text that is
/// not XML, a document that is not LandXML, one without a TIN surface, a point without a
/// numeric id or three coordinates, a repeated point id, and a face that refers to a point its
/// surface does not define.
std::vector<TinSurface> ParseLandXml(const char* data, std::size_t size, const std::string& file);

/// ParseLandXml of the file at @p path.
std::vector<TinSurface> ReadLandXml(const std::string& path);

/// The LandXML 1.2 text of @p surfaces: points numbered 1..n in vertex order, the faces, and in
/// SourceData the breaklines and the boundaries (outer and void), every number written with
/// the fewest digits that read back as exactly the same double.
std::string LandXmlText(const std::vector<TinSurface>& surfaces);

/// Writes LandXmlText(@p surfaces) to @p path atomically.
void WriteLandXml(const std::string& path, const std::vector<TinSurface>& surfaces);

}  // namespace dtmtool
