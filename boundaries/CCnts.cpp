#include <dtm/boundaries/CCnts.h>

#include <dtm/boundaries/CCnt.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/RefCounter.h>

#include "support/ScopeExit.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

using kor::geom::PNT_3D;

namespace {

// Every vertex of the section is three raw 8-byte doubles.
constexpr std::uint64_t VERTEX_BYTES = 3 * sizeof(double);

void WriteVrt(std::ostream& stream, const PNT_3D& p) {
    dtm::io::WriteRaw(stream, p.x);
    dtm::io::WriteRaw(stream, p.y);
    dtm::io::WriteRaw(stream, p.z);
}

bool ReadVrt(std::istream& stream, PNT_3D& p) {
    return dtm::io::ReadRaw(stream, p.x) && dtm::io::ReadRaw(stream, p.y) &&
           dtm::io::ReadRaw(stream, p.z);
}

/// Reads one boundary's vertex count and vertices. With @p apply, a new boundary is built whose
/// list grows only with the vertices the stream really holds, and is appended to @p read; it is
/// in no collection yet, so AppendVrt notifies nothing. Without @p apply the vertices are skipped.
/// False, with the stream failed, when the stream ends first.
bool ReadCnt(std::istream& stream, bool apply, std::vector<kor::CRefPtr<CCnt>>& read) {
    std::int32_t count = 0;
    if (!dtm::io::ReadRaw(stream, count)) return false;
    if (!apply)
        return count <= 0 ||
               dtm::io::SkipBytes(stream, static_cast<std::uint64_t>(count) * VERTEX_BYTES);
    auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    for (std::int32_t i = 0; i < count; ++i) {
        PNT_3D p;
        if (!ReadVrt(stream, p)) return false;
        cnt->AppendVrt(p);
    }
    read.push_back(std::move(cnt));
    return true;
}

/// Reads a whole section; false, with the stream failed, when the stream ends inside it. A
/// negative boundary count reads nothing more.
bool ReadSection(std::istream& stream, bool apply, std::vector<kor::CRefPtr<CCnt>>& read) {
    std::int32_t count = 0;
    if (!dtm::io::ReadRaw(stream, count)) return false;
    for (std::int32_t i = 0; i < count; ++i)
        if (!ReadCnt(stream, apply, read)) return false;
    return true;
}

}  // namespace

CCnts::CCnts(CDtmPrj* prj, bool internal) : m_dtmPrj(prj), m_internal(internal) {}

CCnts::CCnts(const CCnts& other)
    : m_cnts(other.m_cnts), m_dtmPrj(other.m_dtmPrj), m_internal(other.m_internal) {
    for (CCnt* cnt : m_cnts) cnt->AddReference();
}

const CCnts& CCnts::operator=(const CCnts& other) {
    // Emptying first would lose the very boundaries that are to be cloned.
    if (this == &other) return *this;
    kor::CEventGuard event(GetContext());
    RemoveAllCnts();
    AggiungiDa(other);
    return *this;
}

CCnts::~CCnts() {
    try {
        while (!m_cnts.empty()) RemoveEntry(GetNoCnts() - 1, true);
    } catch (...) {
        // A destructor cannot pass the exception on; what is left is let go without notice.
        ReleaseAllQuietly();
    }
}

void CCnts::ReleaseAllQuietly() noexcept {
    std::vector<CCnt*> left;
    left.swap(m_cnts);
    for (auto entry = left.rbegin(); entry != left.rend(); ++entry) {
        if ((*entry)->GetCnts() == this) (*entry)->SetCnts(nullptr);
        (*entry)->SubReference();
    }
}

CDtmChangeContext* CCnts::GetContext() const {
    return m_dtmPrj != nullptr ? m_dtmPrj->GetContext() : nullptr;
}

CCnt* CCnts::GetCntAt(int i) const {
    if (i < 0) throw std::out_of_range("CCnts::GetCntAt: negative index");
    return m_cnts.at(static_cast<std::size_t>(i));
}

void CCnts::AddCnt(CCnt* cnt) {
    if (cnt == nullptr) throw std::invalid_argument("CCnts::AddCnt: null boundary");
    m_cnts.push_back(cnt);
    cnt->AddReference();
    cnt->SetCnts(this);
    if (CDtmChangeContext* context = GetContext()) context->Notify_Cnt_Added(cnt);
}

void CCnts::RemoveCnt(CCnt* cnt) {
    const auto found = std::find(m_cnts.begin(), m_cnts.end(), cnt);
    if (found == m_cnts.end()) return;
    RemoveEntry(static_cast<int>(found - m_cnts.begin()), false);
}

void CCnts::RemoveCntAt(int i) {
    if (i < 0 || i >= GetNoCnts()) throw std::out_of_range("CCnts::RemoveCntAt: index");
    RemoveEntry(i, false);
}

void CCnts::RemoveAllCnts() {
    while (!m_cnts.empty()) RemoveEntry(GetNoCnts() - 1, false);
}

// The entry leaves the list before the notification, so that a listener already sees the
// collection without it; the collection's reference is released last, on every path, so that
// the context's own reference keeps the boundary alive until the event closes.
void CCnts::RemoveEntry(int i, bool detach) {
    const auto held = kor::CRefPtr<CCnt>::Adopt(m_cnts[static_cast<std::size_t>(i)]);
    m_cnts.erase(m_cnts.begin() + i);
    // Detaching also when the report fails, so that no survivor names a destroyed collection.
    const auto detachLast = dtm::detail::OnScopeExit([&] {
        if (detach && held->GetCnts() == this) held->SetCnts(nullptr);
    });
    if (CDtmChangeContext* context = GetContext()) context->Notify_Cnt_Removed(held.Get());
}

void CCnts::AggiungiDa(const CCnts& other) {
    kor::CEventGuard event(GetContext());
    const std::size_t count = other.m_cnts.size();
    for (std::size_t i = 0; i < count; ++i) {
        const auto clone = kor::CRefPtr<CCnt>::Adopt(other.m_cnts[i]->Clone());
        AddCnt(clone.Get());
    }
}

void CCnts::SalvaInFile(ofpstream& stream) const {
    dtm::io::WriteRaw<std::int32_t>(stream, GetNoCnts());
    for (const CCnt* cnt : m_cnts) {
        dtm::io::WriteRaw<std::int32_t>(stream, cnt->GetNoVrts());
        for (const PNT_3D& p : cnt->GetExtendedVrts()) WriteVrt(stream, p);
    }
}

// The section is read whole first, so that a stream ending inside it changes and reports
// nothing: the boundaries read so far are released unseen.
void CCnts::LeggeDaFile(ifpstream& stream, bool apply) {
    std::vector<kor::CRefPtr<CCnt>> read;
    if (!ReadSection(stream, apply, read)) return;
    kor::CEventGuard event(GetContext());
    for (const auto& cnt : read) AddCnt(cnt.Get());
    // The reader's references go inside the event: when it closes, the collection's reference
    // is the only one, as for a boundary added by the host.
    read.clear();
}
