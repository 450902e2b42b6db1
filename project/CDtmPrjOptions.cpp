// The project's options: its display options block with the notifying setters, and the order in
// which the project gathers its own, its network's and its contour lines' options into the INI
// file and into the option section of the host's document.

#include <dtm/project/CDtmPrj.h>

#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrjOpz.h>
#include <dtm/support/Events.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <cstdint>

namespace {

/// Below this stream version the section holds, between the contour categories and the display
/// options block, the text values that later versions keep in the contour options' second
/// group.
constexpr short kVersionTextInContourOptions = 800;

/// Everything the option section holds, read into copies of the project's options, so that
/// nothing is stored before the whole section has been read.
struct OptionSection {
    COpzTri tri;
    COpzCvLv cvlv;
    CDtmPrjOpz block;
    /// Set when the section is older than version 800 and carries the three text values.
    bool hasOldText = false;
    /// The contour text height of an old section.
    double oldCvLvTextHeight = 0.0;
    /// The network's text height of an old section: the same value, stored a second time.
    double oldTriTextHeight = 0.0;
    /// The contour decimals of an old section.
    std::int32_t oldDecimals = 0;
};

/// Reads the three text values of a section older than version 800 into @p section.
void ReadOldText(ifpstream& stream, OptionSection& section) {
    section.hasOldText = dtm::io::ReadRaw(stream, section.oldCvLvTextHeight) &&
                         dtm::io::ReadRaw(stream, section.oldTriTextHeight) &&
                         dtm::io::ReadRaw(stream, section.oldDecimals);
}

}  // namespace

void CDtmPrj::SetVisOptions(bool vncActive, bool cnt0Active, bool cnt1Active, short vncColour,
                            short cnt0Colour, short cnt1Colour) {
    const bool vncChanged = vncActive != m_opz->IsVncActive() || vncColour != m_opz->GetVncColor();
    const bool cntChanged =
        cnt0Active != m_opz->IsCntActive(0) || cnt1Active != m_opz->IsCntActive(1) ||
        cnt0Colour != m_opz->GetCntColor(0) || cnt1Colour != m_opz->GetCntColor(1);
    if (!vncChanged && !cntChanged) return;
    m_opz->Set(vncActive, cnt0Active, cnt1Active, vncColour, cnt0Colour, cnt1Colour);
    if (vncChanged) m_context->Notify_Vnc_LayersModified();
    if (cntChanged) m_context->Notify_Cnt_LayersModified();
}

void CDtmPrj::SetVncActive(bool active) {
    if (active == m_opz->IsVncActive()) return;
    m_opz->SetVncActive(active);
    m_context->Notify_Vnc_LayersModified();
}

void CDtmPrj::SetCntActive(int group, bool active) {
    if (active == m_opz->IsCntActive(group)) return;
    m_opz->SetCntActive(group, active);
    m_context->Notify_Cnt_LayersModified();
}

void CDtmPrj::SetOpzDtmInIni() const {
    m_opz->SetInIni();
    m_tris->GetOptions().SetInIni();
    m_cvlvs->GetOpzCvLv().SetInIni();
    m_cvlvs->GetOpzCvLv().SetVisInIni();
}

void CDtmPrj::GetOpzDtmDaIni() {
    m_opz->GetDaIni();
    m_tris->GetOptions().GetDaIni();
    m_cvlvs->GetOpzCvLv().GetDaIni();
    m_cvlvs->GetOpzCvLv().GetVisDaIni();
}

void CDtmPrj::SalvaOpzInFile(ofpstream& stream) const {
    const COpzTri& tri = m_tris->GetOptions();
    const COpzCvLv& cvlv = m_cvlvs->GetOpzCvLv();
    tri.SalvaInFile(stream);
    cvlv.SalvaInFile(stream);
    if (stream.GetVersion() < kVersionTextInContourOptions) {
        // Old documents keep one text height for both the contour lines and the network: the
        // contour height is written twice on purpose, one copy for each reader.
        dtm::io::WriteRaw<double>(stream, cvlv.GetTextHeight());
        dtm::io::WriteRaw<double>(stream, cvlv.GetTextHeight());
        dtm::io::WriteRaw<std::int32_t>(stream, cvlv.GetDecimals());
    }
    m_opz->SalvaInFile(stream);
    tri.SalvaVisInFile(stream);
    cvlv.SalvaVisInFile(stream);
}

void CDtmPrj::LeggeOpzDaFile(ifpstream& stream, bool apply) {
    kor::CEventGuard event(m_context);
    // Whatever the section holds, the host redraws every layer: sent before anything is read,
    // and even when nothing will be stored.
    m_context->Notify_Vnc_LayersModified();
    m_context->Notify_Cnt_LayersModified();
    m_context->Notify_Tri_LayersModified();
    m_context->Notify_CvLv_LayersModified();

    // Each reader stores into its copy; every later read of a failed stream fails too, so one
    // check at the end tells whether the whole section arrived.
    OptionSection section{m_tris->GetOptions(), m_cvlvs->GetOpzCvLv(), *m_opz};
    section.tri.LeggeDaFile(stream, true);
    section.cvlv.LeggeDaFile(stream, true);
    if (stream.GetVersion() < kVersionTextInContourOptions) ReadOldText(stream, section);
    section.block.LeggeDaFile(stream, true);
    section.tri.LeggeVisDaFile(stream, true);
    section.cvlv.LeggeVisDaFile(stream, true);
    if (!apply || !stream) return;

    if (section.hasOldText) {
        const auto storeOldText = [&section](auto& target) {
            target.SetTextOptions(section.oldCvLvTextHeight, section.oldCvLvTextHeight,
                                  section.oldDecimals, "", "", TEXT_VALIGN_CENTRED,
                                  TEXT_ORIENTATION_0);
        };
        // Through the notifying setters, so that the contour lines are re-labelled for the new
        // text. They run before the network's display group is stored, as in the section, so
        // that CTris::SetTextOptions sees the symbol that was in force before it.
        storeOldText(*m_cvlvs);
        m_tris->SetTextOptions(section.oldTriTextHeight);
        // The copies were taken before; they must carry these values too, or storing them
        // below would undo the two calls.
        storeOldText(section.cvlv);
        section.tri.SetTextHeight(section.oldTriTextHeight);
    }
    m_tris->GetOptions() = section.tri;
    m_cvlvs->GetOpzCvLv() = section.cvlv;
    *m_opz = section.block;
}
