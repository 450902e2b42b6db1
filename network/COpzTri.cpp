#include <dtm/network/COpzTri.h>

#include <dtm/support/IniFile.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <string>

namespace {

const char* const kIniSection = "CURVE";
/// Key prefix of the network's colour classes.
const char* const kColorClassPrefix = "TriGrCol";

// Stream versions at which the option groups changed.
/// From here the legacy tail of the automatic-triangulation group holds one more value.
constexpr short kVersionLegacyTailValue = 690;
/// From here the legacy tail also holds the add-base-points flag.
constexpr short kVersionLegacyBasePoints = 720;
/// From here the display group holds colour type, colour classes, symbol and sizes.
constexpr short kVersionDisplayDetails = 800;
/// From here the automatic-triangulation group has its current form with point collections.
constexpr short kVersionPointCollections = 812;
/// From here the colour type is stored as such (an int16) rather than as a by-layer flag.
constexpr short kVersionColorTypeInt16 = 1502;

/// The symbol a stored value stands for: values outside the known range show labels (1).
/// Applied to INI and stream reads alike, so that no reader lets an unknown symbol through.
COpzTri::enumTriSymbol SymbolFromStored(long stored) {
    if (stored < COpzTri::TRI_SYMBOL_0 || stored > COpzTri::TRI_SYMBOL_3)
        return COpzTri::TRI_SYMBOL_1;
    return static_cast<COpzTri::enumTriSymbol>(stored);
}

/// The colour type of an older document's or INI file's by-layer flag: by layer means fixed
/// colouring, anything else colouring by elevation classes.
COpzTri::enumTriColorType ColorTypeFromByLayer(bool byLayer) {
    return byLayer ? COpzTri::TRI_COLOR_FIXED : COpzTri::TRI_COLOR_BY_CLASSES;
}

/// The by-layer flag that older readers expect for @p type.
bool ByLayerFromColorType(COpzTri::enumTriColorType type) {
    return type != COpzTri::TRI_COLOR_BY_CLASSES;
}

/// "TriClrType" when the file holds an integer there, else the older "TriClrByLayer".
COpzTri::enumTriColorType ReadIniColorType(CIniFile& ini) {
    // CIniFile cannot say whether a key exists; two reads with different defaults can: they
    // agree only when the file holds a valid integer.
    const long asRead = ini.GetLong(kIniSection, "TriClrType", 0);
    if (asRead == ini.GetLong(kIniSection, "TriClrType", 1))
        return static_cast<COpzTri::enumTriColorType>(asRead);
    return ColorTypeFromByLayer(ini.GetBool(kIniSection, "TriClrByLayer", true));
}

/// Reads and discards @p count int32 values that older documents hold and nothing uses.
bool SkipInt32(std::istream& stream, int count) {
    return dtm::io::SkipBytes(stream, static_cast<std::uint64_t>(count) * sizeof(std::int32_t));
}

/// Writes @p count zero int32 values where older documents hold values nothing uses.
void WriteUnusedInt32(std::ostream& stream, int count) {
    for (int i = 0; i < count; ++i) dtm::io::WriteRaw<std::int32_t>(stream, 0);
}

void WritePointCollection(std::ostream& stream, const TDtmPointCollectionIdentifier& item) {
    dtm::io::WriteRaw<std::int32_t>(stream, item.id);
    dtm::io::WriteBool32(stream, item.byName);
    if (!item.byName) {
        dtm::io::WriteRaw<std::int32_t>(stream, item.secondId);
        return;
    }
    // The name is stored with its terminating zero, which the reader drops again.
    const std::string& name = item.name.str();
    dtm::io::WriteRaw<std::int32_t>(stream, static_cast<std::int32_t>(name.size() + 1));
    stream.write(name.c_str(), static_cast<std::streamsize>(name.size() + 1));
}

/// Reads one point collection. A name is stored as the contour options store their prefix: a
/// length of 0 or below is an empty name with no bytes behind it.
bool ReadPointCollection(std::istream& stream, TDtmPointCollectionIdentifier& item) {
    if (!dtm::io::ReadRaw(stream, item.id) || !dtm::io::ReadBool32(stream, item.byName))
        return false;
    if (!item.byName) return dtm::io::ReadRaw(stream, item.secondId);
    std::string name;
    if (!dtm::io::ReadCountedText(stream, name)) return false;
    item.name = kor::String(std::move(name));
    return true;
}

/// Reads the counted point collections. A count of zero or less means none. The list grows as
/// items arrive, never by the stored count, so a damaged count stops at the stream's end.
bool ReadPointCollections(std::istream& stream,
                          std::vector<TDtmPointCollectionIdentifier>& collections) {
    std::int32_t count = 0;
    if (!dtm::io::ReadRaw(stream, count)) return false;
    std::vector<TDtmPointCollectionIdentifier> read;
    for (std::int32_t i = 0; i < count; ++i) {
        TDtmPointCollectionIdentifier item;
        if (!ReadPointCollection(stream, item)) return false;
        read.push_back(std::move(item));
    }
    collections.swap(read);
    return true;
}

}  // namespace

bool TDtmPointCollectionIdentifier::operator==(const TDtmPointCollectionIdentifier& other) const {
    if (id != other.id || byName != other.byName) return false;
    return byName ? name == other.name : secondId == other.secondId;
}

COpzTri::COpzTri()
    : m_addStations(true),
      m_addBasePoints(false),
      m_checkBreaklines(true),
      m_checkVrtInCntE(true),
      m_checkVrtInCntI(true),
      m_checkTriInCntE(true),
      m_checkTriInCntI(true),
      m_textHeight(1.0),
      m_scaleFactor(1.0),
      m_fixedColor(7),
      m_layerColor(7),
      m_symbol(TRI_SYMBOL_0),
      m_firstDisplayFlag(true),
      m_secondDisplayFlag(true),
      m_colorType(TRI_COLOR_FIXED) {
    GetDaIni();
}

COpzTri::COpzTri(const COpzTri& other) = default;

COpzTri& COpzTri::operator=(const COpzTri& other) = default;

COpzTri::~COpzTri() = default;

void COpzTri::GetDaIni() {
    CIniFile ini;
    m_addStations = ini.GetBool(kIniSection, "AddSta", true);
    m_addBasePoints = ini.GetBool(kIniSection, "AddBaseGps", false);
    m_checkBreaklines = ini.GetBool(kIniSection, "CheckVncs", true);
    m_checkVrtInCntE = ini.GetBool(kIniSection, "CheckVrtInCntE", true);
    m_checkVrtInCntI = ini.GetBool(kIniSection, "CheckVrtInCntI", true);
    m_checkTriInCntE = ini.GetBool(kIniSection, "CheckTriInCntE", true);
    m_checkTriInCntI = ini.GetBool(kIniSection, "CheckTriInCntI", true);
    m_textHeight = ini.GetDouble(kIniSection, "DmC2", 1.0);
    m_scaleFactor = ini.GetDouble(kIniSection, "TriSlFct", 1.0);
    m_fixedColor = ini.GetShort(kIniSection, "ClCo3", 7);
    m_layerColor = ini.GetShort(kIniSection, "ClCo4", 7);
    m_symbol = SymbolFromStored(ini.GetLong(kIniSection, "TriSymb", TRI_SYMBOL_0));
    m_firstDisplayFlag = ini.GetBool(kIniSection, "ClAt3", true);
    m_secondDisplayFlag = ini.GetBool(kIniSection, "ClAt4", true);
    m_colorType = ReadIniColorType(ini);
    m_colorClasses.GetDaIni(kColorClassPrefix);
}

void COpzTri::SetInIni() const {
    CIniFile ini;
    ini.WriteBool(kIniSection, "AddSta", m_addStations);
    ini.WriteBool(kIniSection, "AddBaseGps", m_addBasePoints);
    ini.WriteBool(kIniSection, "CheckVncs", m_checkBreaklines);
    ini.WriteBool(kIniSection, "CheckVrtInCntE", m_checkVrtInCntE);
    ini.WriteBool(kIniSection, "CheckVrtInCntI", m_checkVrtInCntI);
    ini.WriteBool(kIniSection, "CheckTriInCntE", m_checkTriInCntE);
    ini.WriteBool(kIniSection, "CheckTriInCntI", m_checkTriInCntI);
    ini.WriteDouble(kIniSection, "DmC2", m_textHeight);
    ini.WriteDouble(kIniSection, "TriSlFct", m_scaleFactor);
    ini.WriteShort(kIniSection, "ClCo3", m_fixedColor);
    ini.WriteShort(kIniSection, "ClCo4", m_layerColor);
    ini.WriteLong(kIniSection, "TriSymb", m_symbol);
    ini.WriteBool(kIniSection, "ClAt3", m_firstDisplayFlag);
    ini.WriteBool(kIniSection, "ClAt4", m_secondDisplayFlag);
    ini.WriteLong(kIniSection, "TriClrType", m_colorType);
    ini.WriteBool(kIniSection, "TriClrByLayer", ByLayerFromColorType(m_colorType));
    m_colorClasses.SetInIni(kColorClassPrefix);
}

void COpzTri::SetAutoTriOptions(const std::vector<TDtmPointCollectionIdentifier>& collections,
                                bool addStations, bool addBasePoints, bool checkBreaklines,
                                bool checkVrtInCntE, bool checkVrtInCntI, bool checkTriInCntE,
                                bool checkTriInCntI, enumTriColorType type, short fixedColour,
                                short layerColour, const CColorClassComputer& classes,
                                enumTriSymbol symbol, double textHeight, double scaleFactor) {
    m_pointCollections = collections;
    m_addStations = addStations;
    m_addBasePoints = addBasePoints;
    m_checkBreaklines = checkBreaklines;
    m_checkVrtInCntE = checkVrtInCntE;
    m_checkVrtInCntI = checkVrtInCntI;
    m_checkTriInCntE = checkTriInCntE;
    m_checkTriInCntI = checkTriInCntI;
    m_colorType = type;
    m_fixedColor = fixedColour;
    m_layerColor = layerColour;
    m_colorClasses = classes;
    m_symbol = symbol;
    m_textHeight = textHeight;
    m_scaleFactor = scaleFactor;
}

void COpzTri::SalvaInFile(ofpstream& stream) const {
    const short version = stream.GetVersion();
    const bool current = version >= kVersionPointCollections;
    dtm::io::WriteBool32(stream, m_addStations);
    if (current)
        dtm::io::WriteBool32(stream, m_addBasePoints);
    else
        WriteUnusedInt32(stream, 2);
    dtm::io::WriteBool32(stream, m_checkBreaklines);
    dtm::io::WriteBool32(stream, m_checkVrtInCntE);
    dtm::io::WriteBool32(stream, m_checkVrtInCntI);
    dtm::io::WriteBool32(stream, m_checkTriInCntE);
    dtm::io::WriteBool32(stream, m_checkTriInCntI);

    if (!current) {
        if (version >= kVersionLegacyTailValue) WriteUnusedInt32(stream, 1);
        if (version >= kVersionLegacyBasePoints) {
            WriteUnusedInt32(stream, 1);
            dtm::io::WriteBool32(stream, m_addBasePoints);
        }
        return;
    }
    dtm::io::WriteRaw<std::int32_t>(stream, static_cast<std::int32_t>(m_pointCollections.size()));
    for (const TDtmPointCollectionIdentifier& item : m_pointCollections)
        WritePointCollection(stream, item);
}

void COpzTri::LeggeDaFile(ifpstream& stream, bool apply) {
    // Read into a scratch copy: a stream that ends inside the group leaves this object as it
    // was, and apply false consumes exactly the bytes that apply true would.
    COpzTri read(*this);
    if (read.ReadAutoTriGroup(stream) && apply) *this = read;
}

bool COpzTri::ReadAutoTriGroup(ifpstream& stream) {
    const bool current = stream.GetVersion() >= kVersionPointCollections;
    if (!dtm::io::ReadBool32(stream, m_addStations)) return false;
    if (!(current ? dtm::io::ReadBool32(stream, m_addBasePoints) : SkipInt32(stream, 2)))
        return false;
    if (!(dtm::io::ReadBool32(stream, m_checkBreaklines) &&
          dtm::io::ReadBool32(stream, m_checkVrtInCntE) &&
          dtm::io::ReadBool32(stream, m_checkVrtInCntI) &&
          dtm::io::ReadBool32(stream, m_checkTriInCntE) &&
          dtm::io::ReadBool32(stream, m_checkTriInCntI)))
        return false;
    if (!current) return ReadLegacyAutoTriTail(stream);
    return ReadPointCollections(stream, m_pointCollections);
}

bool COpzTri::ReadLegacyAutoTriTail(ifpstream& stream) {
    // Older documents have no point collections: the ones in memory stay.
    const short version = stream.GetVersion();
    if (version >= kVersionLegacyTailValue && !SkipInt32(stream, 1)) return false;
    if (version >= kVersionLegacyBasePoints)
        return SkipInt32(stream, 1) && dtm::io::ReadBool32(stream, m_addBasePoints);
    return true;
}

void COpzTri::SalvaVisInFile(ofpstream& stream) const {
    const short version = stream.GetVersion();
    dtm::io::WriteBool32(stream, m_firstDisplayFlag);
    dtm::io::WriteRaw<std::int16_t>(stream, m_fixedColor);
    dtm::io::WriteBool32(stream, m_secondDisplayFlag);
    dtm::io::WriteRaw<std::int16_t>(stream, m_layerColor);
    if (version < kVersionDisplayDetails) return;

    if (version >= kVersionColorTypeInt16)
        dtm::io::WriteRaw<std::int16_t>(stream, static_cast<std::int16_t>(m_colorType));
    else
        dtm::io::WriteBool32(stream, ByLayerFromColorType(m_colorType));
    m_colorClasses.SalvaInFile(stream);
    dtm::io::WriteRaw<std::int32_t>(stream, m_symbol);
    dtm::io::WriteRaw<double>(stream, m_textHeight);
    dtm::io::WriteRaw<double>(stream, m_scaleFactor);
}

void COpzTri::LeggeVisDaFile(ifpstream& stream, bool apply) {
    COpzTri read(*this);  // scratch copy, as in LeggeDaFile
    if (read.ReadDisplayGroup(stream) && apply) *this = read;
}

bool COpzTri::ReadDisplayGroup(ifpstream& stream) {
    const short version = stream.GetVersion();
    if (!(dtm::io::ReadBool32(stream, m_firstDisplayFlag) &&
          dtm::io::ReadRaw(stream, m_fixedColor) &&
          dtm::io::ReadBool32(stream, m_secondDisplayFlag) &&
          dtm::io::ReadRaw(stream, m_layerColor)))
        return false;
    if (version < kVersionDisplayDetails) {
        // Older documents always showed labels and coloured by layer.
        m_symbol = TRI_SYMBOL_1;
        m_colorType = TRI_COLOR_FIXED;
        return true;
    }

    if (version >= kVersionColorTypeInt16) {
        std::int16_t type = 0;
        if (!dtm::io::ReadRaw(stream, type)) return false;
        m_colorType = static_cast<enumTriColorType>(type);
    } else {
        bool byLayer = false;
        if (!dtm::io::ReadBool32(stream, byLayer)) return false;
        m_colorType = ColorTypeFromByLayer(byLayer);
    }
    // Into the scratch copy; a failure there leaves the stream failed, so the next read fails.
    m_colorClasses.LeggeDaFile(stream, true);
    std::int32_t symbol = 0;
    if (!dtm::io::ReadRaw(stream, symbol) || !dtm::io::ReadRaw(stream, m_textHeight) ||
        !dtm::io::ReadRaw(stream, m_scaleFactor))
        return false;
    m_symbol = SymbolFromStored(symbol);
    return true;
}
