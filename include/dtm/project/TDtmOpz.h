#pragma once

/// @file
/// All display options of a project in one plain record, for a host's options dialog.

#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/network/COpzTri.h>
#include <dtm/support/Export.h>

#include <array>

class CDtmPrj;

/// Every display option of a project: its own block (breaklines and the two boundary groups),
/// the network's display options and the contour lines' display options. A plain record with
/// public fields; the host fills it from a project with GetFromPrj, edits it, and hands it back
/// with SetToPrj, which makes the whole change one event and so one undo step.
///
/// The fields keep the order in which the project's options have always been gathered. A
/// default record holds each option's documented default, not the INI file's values.
class DTM_API TDtmOpz {
public:
    /// Number of contour line categories.
    static constexpr unsigned kCvLvCategoryCount = 4;
    /// The documented default of every colour index of the record.
    static constexpr short kDefaultColor = 7;

    /// Breakline layer shown.
    bool vncActive = true;
    /// Boundary group 0 shown.
    bool cnt0Active = true;
    /// Boundary group 1 shown.
    bool cnt1Active = true;
    /// The network's first display flag.
    bool triFirstFlag = true;
    /// The network's second display flag (labels shown only when set).
    bool triSecondFlag = true;
    /// The on/off flags of the four contour line categories, category 1 first.
    std::array<bool, kCvLvCategoryCount> cvLvCategoryOn{{true, true, true, true}};
    /// Colour index of the breaklines.
    short vncColor = kDefaultColor;
    /// Colour index of boundary group 0.
    short cnt0Color = kDefaultColor;
    /// Colour index of boundary group 1.
    short cnt1Color = kDefaultColor;
    /// The network's fixed colour index.
    short triFixedColor = kDefaultColor;
    /// The colour index that the network's by-layer colour resolves to.
    short triLayerColor = kDefaultColor;
    /// The colour indexes of the four contour line categories, category 1 first. The contour
    /// options keep them as unsigned 16-bit values; here they are the same 16 bits, signed.
    std::array<short, kCvLvCategoryCount> cvLvCategoryColor{
        {kDefaultColor, kDefaultColor, kDefaultColor, kDefaultColor}};
    /// The network's label text height.
    double triTextHeight = 1.0;
    /// The network's second drawing value.
    double triScaleFactor = 1.0;
    /// The network's symbol.
    COpzTri::enumTriSymbol triSymbol = COpzTri::TRI_SYMBOL_0;
    /// How the network's triangles are coloured.
    COpzTri::enumTriColorType triColorType = COpzTri::TRI_COLOR_FIXED;
    /// The network's elevation colour classes.
    CColorClassComputer triColorClasses;
    /// The contour lines' colour-by-layer switch (the fifth contour display flag).
    bool cvLvColorByLayer = true;
    /// The contour lines' elevation colour classes.
    CColorClassComputer cvLvColorClasses;

    /// Copies every field from @p prj's display options block, network options and contour
    /// options. Throws std::invalid_argument, changing nothing, when @p prj is null.
    void GetFromPrj(const CDtmPrj* prj);
    /// Hands every field to @p prj inside one event of its change context:
    /// CDtmPrj::SetVisOptions, then CTris::SetVisOptions, then CCvLvs::SetVisOptions. Each of
    /// them notifies only what changed, and all their notifications reach the listeners as one
    /// event, which makes one undo step. The event is opened and closed even when nothing
    /// changes, and closed also when an exception passes. Throws std::invalid_argument when
    /// @p prj is null.
    void SetToPrj(CDtmPrj* prj) const;
};
