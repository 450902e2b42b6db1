#include <dtm/breaklines/CVncs.h>

#include <dtm/breaklines/CVnc.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/RefCounter.h>

#include "support/ScopeExit.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

namespace {

/// A caller's index as a position in the list; std::out_of_range when it is outside.
std::size_t CheckedIndex(int i, std::size_t size) {
    if (i < 0 || static_cast<std::size_t>(i) >= size)
        throw std::out_of_range("CVncs: breakline index out of range");
    return static_cast<std::size_t>(i);
}

void WritePoint(std::ostream& stream, const PNT_3D& p) {
    dtm::io::WriteRaw(stream, p.x);
    dtm::io::WriteRaw(stream, p.y);
    dtm::io::WriteRaw(stream, p.z);
}

bool ReadPoint(std::istream& stream, PNT_3D& p) {
    return dtm::io::ReadRaw(stream, p.x) && dtm::io::ReadRaw(stream, p.y) &&
           dtm::io::ReadRaw(stream, p.z);
}

/// Reads one segment; false, with the stream failed, when the stream ends inside it.
bool ReadSegment(std::istream& stream, LINE_3D& segment) {
    return ReadPoint(stream, segment.start) && ReadPoint(stream, segment.end);
}

}  // namespace

CVncs::CVncs(CDtmPrj* prj) : m_dtmPrj(prj), m_context(prj ? prj->GetContext() : nullptr) {}

CVncs::~CVncs() {
    try {
        RemoveAllVncs();
    } catch (...) {
        // A listener failed while being told of a removal; the destructor cannot pass that on,
        // but it must not leak the breaklines either.
        ReleaseAllQuietly();
    }
}

CVnc* CVncs::GetVncAt(int i) const {
    return m_vncs[CheckedIndex(i, m_vncs.size())];
}

void CVncs::AddVnc(CVnc* vnc) {
    if (vnc == nullptr) throw std::invalid_argument("CVncs: null breakline");
    m_vncs.push_back(vnc);
    vnc->AddReference();
    if (m_context) m_context->Notify_Vnc_Added(vnc);
}

CVnc* CVncs::AddNewVnc(const LINE_3D& coords) {
    // The creator's reference is released on every path; on success the collection's remains.
    const auto created = kor::CRefPtr<CVnc>::Adopt(new CVnc(this, coords));
    AddVnc(created.Get());
    return created.Get();
}

void CVncs::RemoveVnc(CVnc* vnc) {
    for (std::size_t index = 0; index < m_vncs.size(); ++index) {
        if (m_vncs[index] == vnc) {
            RemoveEntry(index);
            return;
        }
    }
}

void CVncs::RemoveVncAt(int i) {
    RemoveEntry(CheckedIndex(i, m_vncs.size()));
}

void CVncs::RemoveEntry(std::size_t index) {
    // The list's reference moves into the handle, so it is released after the notification
    // even when the notification throws.
    const auto removed = kor::CRefPtr<CVnc>::Adopt(m_vncs[index]);
    m_vncs.erase(m_vncs.begin() + static_cast<std::ptrdiff_t>(index));
    if (m_context) m_context->Notify_Vnc_Removed(removed.Get());
}

void CVncs::RemoveAllVncs() {
    // Notify all, then empty: the list stays whole while the listeners are told, unlike the
    // boundaries, which erase each entry before its notification. No event is opened here, so
    // outside one each report is an event of its own, whose close lets the context drop its
    // reference at once; the list's own references are therefore given up only as the list is
    // emptied, and no listener of a later report can meet an entry already freed.
    std::size_t stillHeld = m_vncs.size();
    // Runs also when a report throws: the list then keeps exactly the breaklines not yet
    // reported, and lets the others go, the last first.
    const auto dropReported = dtm::detail::OnScopeExit([this, &stillHeld] {
        for (std::size_t i = m_vncs.size(); i > stillHeld; --i) m_vncs[i - 1]->SubReference();
        m_vncs.resize(stillHeld);
    });
    while (stillHeld > 0) {
        if (m_context) m_context->Notify_Vnc_Removed(m_vncs[stillHeld - 1]);
        --stillHeld;
    }
}

void CVncs::ReleaseAllQuietly() noexcept {
    std::vector<CVnc*> held;
    held.swap(m_vncs);
    for (CVnc* vnc : held) vnc->SubReference();
}

void CVncs::SalvaInFile(ofpstream& stream) const {
    dtm::io::WriteRaw(stream, static_cast<std::int32_t>(m_vncs.size()));
    for (const CVnc* vnc : m_vncs) {
        WritePoint(stream, vnc->GetCoords().start);
        WritePoint(stream, vnc->GetCoords().end);
    }
}

// Each breakline joins the collection as soon as its six values have been read, so a stream
// that ends early leaves only whole breaklines, and memory grows with what the stream really
// holds: the count is not trusted for a reservation.
void CVncs::LeggeDaFile(ifpstream& stream, bool apply) {
    std::int32_t count = 0;
    if (!dtm::io::ReadRaw(stream, count)) return;
    kor::CEventGuard event(m_context);
    for (std::int32_t read = 0; read < count; ++read) {
        LINE_3D segment;
        if (!ReadSegment(stream, segment)) return;
        if (apply) AddNewVnc(segment);
    }
}
