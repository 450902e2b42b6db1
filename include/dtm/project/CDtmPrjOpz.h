#pragma once

/// @file
/// The project's own display options: whether the breaklines and the two boundary groups are
/// shown, and in which colour.

#include <dtm/support/Export.h>

#include <array>

class ifpstream;
class ofpstream;

/// The display options block of a project (CDtmPrj): an on/off flag and a CAD colour index for
/// the breakline layer and for each of the two boundary groups. The project owns one and
/// builds it last.
///
/// Defaults come from the host's INI file, section "CURVE": "ClAt0" (breaklines shown),
/// "ClAt1" and "ClAt2" (boundary groups 0 and 1 shown), all true by default; "ClCo0", "ClCo1"
/// and "ClCo2" (their colours), 7 by default.
///
/// The setters only store: they send no notification. Changes that listeners must see go
/// through the project (CDtmPrj::SetVisOptions, SetVncActive, SetCntActive), which notifies.
///
/// A boundary group is named by an int: 0 selects group 0 and any other value group 1, the
/// rule of CDtmPrj::SetCntActive, kept by every member here that takes a group.
class DTM_API CDtmPrjOpz {
public:
    /// Number of boundary groups.
    static constexpr unsigned kCntGroupCount = 2;
    /// Colour index of every layer of the block when the INI file holds none.
    static constexpr short kDefaultColor = 7;

    /// Reads every option from the host's INI file (GetDaIni), so that a new project starts
    /// from the last saved settings.
    CDtmPrjOpz();

    /// Reads the six options from the host's INI file, section "CURVE"; absent or malformed
    /// values give the defaults (shown, colour 7).
    void GetDaIni();
    /// Writes the six options under the keys that GetDaIni reads.
    void SetInIni() const;

    /// Writes the block as it stands in the project's option section: three pairs, each an
    /// int32 flag (1 or 0) followed by an int16 colour, for the breaklines, boundary group 0
    /// and boundary group 1. The same at every version.
    void SalvaInFile(ofpstream& stream) const;
    /// Reads the block. A flag is true when its int32 is greater than zero. With @p apply false
    /// every byte is consumed and nothing is stored. A stream that ends inside the block is
    /// left failed and the options unchanged.
    void LeggeDaFile(ifpstream& stream, bool apply);

    /// Stores all six options (a plain store).
    void Set(bool vncActive, bool cnt0Active, bool cnt1Active, short vncColor, short cnt0Color,
             short cnt1Color);

    /// True when the breakline layer is shown ("ClAt0").
    bool IsVncActive() const noexcept { return m_vncActive; }
    /// Shows or hides the breakline layer (a plain store).
    void SetVncActive(bool active) noexcept { m_vncActive = active; }
    /// Colour index of the breaklines ("ClCo0").
    short GetVncColor() const noexcept { return m_vncColor; }
    /// Sets the breaklines' colour index (a plain store).
    void SetVncColor(short color) noexcept { m_vncColor = color; }

    /// True when boundary group @p group is shown ("ClAt1" for group 0, "ClAt2" for group 1);
    /// any @p group but 0 names group 1.
    bool IsCntActive(int group) const noexcept { return m_cntActive[GroupIndex(group)]; }
    /// Shows or hides boundary group @p group (a plain store); any @p group but 0 names group 1.
    void SetCntActive(int group, bool active) noexcept { m_cntActive[GroupIndex(group)] = active; }
    /// Colour index of boundary group @p group ("ClCo1", "ClCo2"); any @p group but 0 names
    /// group 1.
    short GetCntColor(int group) const noexcept { return m_cntColor[GroupIndex(group)]; }
    /// Sets the colour index of boundary group @p group (a plain store); any @p group but 0
    /// names group 1.
    void SetCntColor(int group, short color) noexcept { m_cntColor[GroupIndex(group)] = color; }

    /// The index, 0 or 1, of the boundary group that @p group names: 0 for 0, 1 for any other
    /// value.
    static unsigned GroupIndex(int group) noexcept { return group == 0 ? 0u : 1u; }

    /// All six options equal.
    bool operator==(const CDtmPrjOpz& other) const noexcept;
    /// Negation of operator==.
    bool operator!=(const CDtmPrjOpz& other) const noexcept { return !(*this == other); }

private:
    bool ReadBlock(ifpstream& stream);

    bool m_vncActive = true;
    std::array<bool, kCntGroupCount> m_cntActive{{true, true}};
    short m_vncColor = kDefaultColor;
    std::array<short, kCntGroupCount> m_cntColor{{kDefaultColor, kDefaultColor}};
};
