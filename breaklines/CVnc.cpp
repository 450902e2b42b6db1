#include <dtm/breaklines/CVnc.h>

#include <dtm/breaklines/CVncs.h>
#include <dtm/project/CDtmChangeContext.h>

#include <stdexcept>

using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

namespace {

// Exact on purpose: a memento must tell any change, however small. The != of IEEE doubles is
// true whenever either side is a NaN, which is what makes a NaN segment always "changed".
bool PointsDiffer(const PNT_3D& a, const PNT_3D& b) {
    return a.x != b.x || a.y != b.y || a.z != b.z;
}

const CVncMemento& AsVncMemento(const kor::IMemento* memento) {
    const auto* vncMemento = dynamic_cast<const CVncMemento*>(memento);
    if (vncMemento == nullptr) throw std::invalid_argument("CVnc: not a breakline memento");
    return *vncMemento;
}

}  // namespace

CVncMemento::CVncMemento(const LINE_3D& coords) noexcept : m_coords(coords) {}

CVncMemento::~CVncMemento() = default;

std::size_t CVncMemento::GetSize() const {
    return MEMENTO_SIZE;
}

CVnc::CVnc(CVncs* vncs, const LINE_3D& coords) : m_vncs(vncs), m_coords(coords) {
    if (m_vncs == nullptr) throw std::invalid_argument("CVnc: a breakline needs its collection");
}

CVnc::CVnc(const CVnc& other) = default;

// The base's assignment copies the host handle and leaves the reference count alone.
CVnc& CVnc::operator=(const CVnc& other) = default;

CVnc::~CVnc() = default;

void CVnc::SetCoords(const LINE_3D& coords) {
    // The breakline brackets its own change, so that the modifying notification and the change
    // form one event even when the caller opened none.
    CDtmChangeContext* context = m_vncs->GetContext();
    kor::CEventGuard event(context);
    if (context) context->Notify_Vnc_Modifying(this);
    m_coords = coords;
}

CDtmPrj* CVnc::GetDtmPrj() const {
    return m_vncs->GetDtmPrj();
}

kor::IMemento* CVnc::CreateMemento() const {
    return new CVncMemento(m_coords);
}

bool CVnc::HasChanged(const kor::IMemento* memento) const {
    const LINE_3D& saved = AsVncMemento(memento).GetCoords();
    return PointsDiffer(m_coords.start, saved.start) || PointsDiffer(m_coords.end, saved.end);
}

void CVnc::OnSetMemento(kor::IMemento* memento) {
    // Checked and copied before anything is reported, so that a wrong memento neither changes
    // nor reports anything.
    const LINE_3D saved = AsVncMemento(memento).GetCoords();
    SetCoords(saved);
}
