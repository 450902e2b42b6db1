#pragma once

/// @file
/// The options of a project's network: input of the automatic triangulation, and display.

#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/support/Export.h>
#include <dtm/support/String.h>

#include <cstdint>
#include <vector>

class ifpstream;
class ofpstream;

/// Names one point collection that the host's automatic triangulation takes its points from,
/// either by name or by a second identifier. A plain record.
struct DTM_API TDtmPointCollectionIdentifier {
    /// Identifier of the collection.
    std::int32_t id = 0;
    /// True when the collection is named by @ref name, false when by @ref secondId.
    bool byName = false;
    /// The collection's name; meaningful only when byName is true.
    kor::String name;
    /// Second identifier; meaningful only when byName is false.
    std::int32_t secondId = 0;

    /// Equal identifier and kind, and equal name (by name) or second identifier (otherwise);
    /// the field that the kind leaves unused is not compared, because the stream does not keep
    /// it.
    bool operator==(const TDtmPointCollectionIdentifier& other) const;
    /// Negation of operator==.
    bool operator!=(const TDtmPointCollectionIdentifier& other) const { return !(*this == other); }
};

/// Options of a project's network: how the host's automatic triangulation chooses and checks
/// its input, and how the network is drawn and coloured. The network embeds one.
///
/// Defaults come from the host's INI file, section "CURVE". In the document the options travel
/// in two groups inside the project's option section: the automatic-triangulation group
/// (SalvaInFile / LeggeDaFile) is written first, the display group (SalvaVisInFile /
/// LeggeVisDaFile) later. Which parts of each group exist is decided by the stream's version.
///
/// The setters only store: they send no notification. Changes that listeners must see go
/// through the network (CTris::SetVisOptions and SetTextOptions), which notifies.
class DTM_API COpzTri {
public:
    /// The network's symbol; a stored value outside 0..3 is read as TRI_SYMBOL_1.
    enum enumTriSymbol : std::int32_t {
        TRI_SYMBOL_0 = 0,
        TRI_SYMBOL_1 = 1,  ///< Shows the triangles' labels, of the text height.
        TRI_SYMBOL_2 = 2,
        TRI_SYMBOL_3 = 3
    };

    /// How the triangles are coloured. Values read from a file are kept as read; the colouring
    /// code leaves colours untouched for a type it does not know.
    enum enumTriColorType : std::int32_t {
        TRI_COLOR_FIXED = 0,       ///< Each triangle's own colour index (256: the layer colour).
        TRI_COLOR_BY_CLASSES = 1,  ///< By elevation, through the colour classes.
        TRI_COLOR_BY_CLOUD = 2     ///< The colours of the bound point cloud's points.
    };

    /// Reads every option from the host's INI file (see GetDaIni); no point collections.
    COpzTri();
    /// Copies every option; reads nothing.
    COpzTri(const COpzTri& other);
    /// Copies every option.
    COpzTri& operator=(const COpzTri& other);
    /// Frees the point collections and the colour classes.
    ~COpzTri();

    /// Reads every option but the point collections from the host's INI file, section "CURVE";
    /// absent or malformed values give the defaults. A symbol outside 0..3 becomes
    /// TRI_SYMBOL_1. The colour type is "TriClrType" when it holds an integer; otherwise it
    /// follows the older key "TriClrByLayer" (default true): fixed colour when true, elevation
    /// classes when false. The point collections are left as they are.
    void GetDaIni();
    /// Writes every option but the point collections to the host's INI file. Besides
    /// "TriClrType" it writes "TriClrByLayer" as (colour type != TRI_COLOR_BY_CLASSES), the
    /// same rule as older streams, so that both keys always agree.
    void SetInIni() const;

    /// Writes the automatic-triangulation group (flags, and from version 812 the point
    /// collections).
    void SalvaInFile(ofpstream& stream) const;
    /// Reads the automatic-triangulation group. With @p apply false every byte is consumed and
    /// nothing is stored. A stream that ends inside the group, or holds a negative name
    /// length, is left failed and the options unchanged.
    void LeggeDaFile(ifpstream& stream, bool apply);
    /// Writes the display group (flags and colours; from version 800 also the colour type, the
    /// colour classes, the symbol and the two sizes).
    void SalvaVisInFile(ofpstream& stream) const;
    /// Reads the display group. A stream older than version 800 sets the symbol to
    /// TRI_SYMBOL_1 and the colour type to TRI_COLOR_FIXED. With @p apply false every byte is
    /// consumed and nothing is stored. A stream that ends inside the group is left failed and
    /// the options unchanged.
    void LeggeVisDaFile(ifpstream& stream, bool apply);

    /// Stores the point collections, the seven automatic-triangulation flags (in declaration
    /// order: add stations, add base points, check breaklines, vertices in external boundaries,
    /// vertices in internal boundaries, triangles in external boundaries, triangles in internal
    /// boundaries) and the display options, in one call. The two display flags are not among
    /// the seven and are left as they are.
    void SetAutoTriOptions(const std::vector<TDtmPointCollectionIdentifier>& collections,
                           bool addStations, bool addBasePoints, bool checkBreaklines,
                           bool checkVrtInCntE, bool checkVrtInCntI, bool checkTriInCntE,
                           bool checkTriInCntI, enumTriColorType type, short fixedColour,
                           short layerColour, const CColorClassComputer& classes,
                           enumTriSymbol symbol, double textHeight, double scaleFactor);

    /// Automatic triangulation: include station points ("AddSta").
    bool IsAddStations() const { return m_addStations; }
    /// Sets the add stations option (a plain store).
    void SetAddStations(bool value) { m_addStations = value; }
    /// Automatic triangulation: include base-station points ("AddBaseGps").
    bool IsAddBasePoints() const { return m_addBasePoints; }
    /// Sets the add base points option (a plain store).
    void SetAddBasePoints(bool value) { m_addBasePoints = value; }
    /// Automatic triangulation: respect the breaklines ("CheckVncs").
    bool IsCheckBreaklines() const { return m_checkBreaklines; }
    /// Sets the check breaklines option (a plain store).
    void SetCheckBreaklines(bool value) { m_checkBreaklines = value; }
    /// Keep only vertices inside the external boundaries ("CheckVrtInCntE").
    bool IsCheckVrtInCntE() const { return m_checkVrtInCntE; }
    /// Sets the vertices-in-external-boundaries option (a plain store).
    void SetCheckVrtInCntE(bool value) { m_checkVrtInCntE = value; }
    /// Drop vertices inside the internal boundaries ("CheckVrtInCntI").
    bool IsCheckVrtInCntI() const { return m_checkVrtInCntI; }
    /// Sets the vertices-in-internal-boundaries option (a plain store).
    void SetCheckVrtInCntI(bool value) { m_checkVrtInCntI = value; }
    /// Keep only triangles inside the external boundaries ("CheckTriInCntE").
    bool IsCheckTriInCntE() const { return m_checkTriInCntE; }
    /// Sets the triangles-in-external-boundaries option (a plain store).
    void SetCheckTriInCntE(bool value) { m_checkTriInCntE = value; }
    /// Drop triangles inside the internal boundaries ("CheckTriInCntI").
    bool IsCheckTriInCntI() const { return m_checkTriInCntI; }
    /// Sets the triangles-in-internal-boundaries option (a plain store).
    void SetCheckTriInCntI(bool value) { m_checkTriInCntI = value; }

    /// The point collections the automatic triangulation uses, in order.
    const std::vector<TDtmPointCollectionIdentifier>& GetPointCollections() const {
        return m_pointCollections;
    }
    /// Sets the point collections (a plain store).
    void SetPointCollections(const std::vector<TDtmPointCollectionIdentifier>& collections) {
        m_pointCollections = collections;
    }

    /// Height of the triangles' labels ("DmC2").
    double GetTextHeight() const { return m_textHeight; }
    /// Sets the text height option (a plain store).
    void SetTextHeight(double value) { m_textHeight = value; }
    /// Second drawing value of the network ("TriSlFct").
    double GetScaleFactor() const { return m_scaleFactor; }
    /// Sets the scale factor option (a plain store).
    void SetScaleFactor(double value) { m_scaleFactor = value; }
    /// Colour index of fixed colouring ("ClCo3").
    short GetFixedColor() const { return m_fixedColor; }
    /// Sets the fixed colour option (a plain store).
    void SetFixedColor(short value) { m_fixedColor = value; }
    /// Colour index that "by layer" (256) resolves to ("ClCo4").
    short GetLayerColor() const { return m_layerColor; }
    /// Sets the layer colour option (a plain store).
    void SetLayerColor(short value) { m_layerColor = value; }
    /// The network's symbol ("TriSymb"). The setter stores what it is given.
    enumTriSymbol GetSymbol() const { return m_symbol; }
    /// Sets the symbol option (a plain store).
    void SetSymbol(enumTriSymbol value) { m_symbol = value; }
    /// First display flag ("ClAt3").
    bool IsFirstDisplayFlag() const { return m_firstDisplayFlag; }
    /// Sets the first display flag option (a plain store).
    void SetFirstDisplayFlag(bool value) { m_firstDisplayFlag = value; }
    /// Second display flag ("ClAt4"); labels are shown only when it is set.
    bool IsSecondDisplayFlag() const { return m_secondDisplayFlag; }
    /// Sets the second display flag option (a plain store).
    void SetSecondDisplayFlag(bool value) { m_secondDisplayFlag = value; }
    /// How the triangles are coloured ("TriClrType").
    enumTriColorType GetColorType() const { return m_colorType; }
    /// Sets the colour type option (a plain store).
    void SetColorType(enumTriColorType value) { m_colorType = value; }
    /// The elevation classes (INI key prefix "TriGrCol").
    const CColorClassComputer& GetColorClasses() const { return m_colorClasses; }
    /// The elevation classes, for editing in place.
    CColorClassComputer& GetColorClasses() { return m_colorClasses; }
    /// Sets the colour classes (a plain store).
    void SetColorClasses(const CColorClassComputer& classes) { m_colorClasses = classes; }

private:
    bool ReadAutoTriGroup(ifpstream& stream);
    bool ReadLegacyAutoTriTail(ifpstream& stream);
    bool ReadDisplayGroup(ifpstream& stream);

    bool m_addStations;
    bool m_addBasePoints;
    bool m_checkBreaklines;
    bool m_checkVrtInCntE;
    bool m_checkVrtInCntI;
    bool m_checkTriInCntE;
    bool m_checkTriInCntI;
    std::vector<TDtmPointCollectionIdentifier> m_pointCollections;
    double m_textHeight;
    double m_scaleFactor;
    short m_fixedColor;
    short m_layerColor;
    enumTriSymbol m_symbol;
    bool m_firstDisplayFlag;
    bool m_secondDisplayFlag;
    enumTriColorType m_colorType;
    CColorClassComputer m_colorClasses;
};
