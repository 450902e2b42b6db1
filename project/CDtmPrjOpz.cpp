#include <dtm/project/CDtmPrjOpz.h>

#include <dtm/support/IniFile.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <cstdint>

namespace {

const char* const kIniSection = "CURVE";
/// Keys of boundary groups 0 and 1.
const char* const kCntActiveKeys[CDtmPrjOpz::kCntGroupCount] = {"ClAt1", "ClAt2"};
const char* const kCntColorKeys[CDtmPrjOpz::kCntGroupCount] = {"ClCo1", "ClCo2"};

/// One pair of the block: the int32 flag, then the int16 colour.
void WritePair(std::ostream& stream, bool active, short color) {
    dtm::io::WriteBool32(stream, active);
    dtm::io::WriteRaw<std::int16_t>(stream, color);
}

/// Reads one pair; a flag is true when its int32 is greater than zero. Nothing is stored unless
/// both values were read.
bool ReadPair(std::istream& stream, bool& active, short& color) {
    bool flag = false;
    std::int16_t stored = 0;
    if (!dtm::io::ReadBool32(stream, flag) || !dtm::io::ReadRaw(stream, stored)) return false;
    active = flag;
    color = stored;
    return true;
}

}  // namespace

CDtmPrjOpz::CDtmPrjOpz() {
    GetDaIni();
}

void CDtmPrjOpz::GetDaIni() {
    CIniFile ini;
    m_vncActive = ini.GetBool(kIniSection, "ClAt0", true);
    m_vncColor = ini.GetShort(kIniSection, "ClCo0", kDefaultColor);
    for (unsigned i = 0; i < kCntGroupCount; ++i) {
        m_cntActive[i] = ini.GetBool(kIniSection, kCntActiveKeys[i], true);
        m_cntColor[i] = ini.GetShort(kIniSection, kCntColorKeys[i], kDefaultColor);
    }
}

void CDtmPrjOpz::SetInIni() const {
    CIniFile ini;
    ini.WriteBool(kIniSection, "ClAt0", m_vncActive);
    ini.WriteShort(kIniSection, "ClCo0", m_vncColor);
    for (unsigned i = 0; i < kCntGroupCount; ++i) {
        ini.WriteBool(kIniSection, kCntActiveKeys[i], m_cntActive[i]);
        ini.WriteShort(kIniSection, kCntColorKeys[i], m_cntColor[i]);
    }
}

void CDtmPrjOpz::SalvaInFile(ofpstream& stream) const {
    WritePair(stream, m_vncActive, m_vncColor);
    for (unsigned i = 0; i < kCntGroupCount; ++i) WritePair(stream, m_cntActive[i], m_cntColor[i]);
}

void CDtmPrjOpz::LeggeDaFile(ifpstream& stream, bool apply) {
    // Read into a scratch copy: a stream that ends inside the block leaves this object as it
    // was, and apply false consumes exactly the bytes that apply true would.
    CDtmPrjOpz read(*this);
    if (read.ReadBlock(stream) && apply) *this = read;
}

bool CDtmPrjOpz::ReadBlock(ifpstream& stream) {
    if (!ReadPair(stream, m_vncActive, m_vncColor)) return false;
    for (unsigned i = 0; i < kCntGroupCount; ++i) {
        if (!ReadPair(stream, m_cntActive[i], m_cntColor[i])) return false;
    }
    return true;
}

void CDtmPrjOpz::Set(bool vncActive, bool cnt0Active, bool cnt1Active, short vncColor,
                     short cnt0Color, short cnt1Color) {
    m_vncActive = vncActive;
    m_cntActive = {cnt0Active, cnt1Active};
    m_vncColor = vncColor;
    m_cntColor = {cnt0Color, cnt1Color};
}

bool CDtmPrjOpz::operator==(const CDtmPrjOpz& other) const noexcept {
    return m_vncActive == other.m_vncActive && m_cntActive == other.m_cntActive &&
           m_vncColor == other.m_vncColor && m_cntColor == other.m_cntColor;
}
