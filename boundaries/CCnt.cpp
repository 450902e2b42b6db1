#include <dtm/boundaries/CCnt.h>

#include <dtm/boundaries/CCnts.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include <stdexcept>
#include <utility>

using kor::geom::PNT_3D;

namespace {

// The memory figures the host budgets its undo history with: a fixed part for the memento
// itself and its list header, and one x, y, z triple per vertex held.
constexpr std::size_t MEMENTO_FIXED_BYTES = 48;
constexpr std::size_t MEMENTO_BYTES_PER_VERTEX = 3 * sizeof(double);

/// The boundary memento behind @p memento; a memento of another entity kind is a caller fault.
const CCntMemento& AsCntMemento(const kor::IMemento* memento) {
    const auto* cntMemento = dynamic_cast<const CCntMemento*>(memento);
    if (cntMemento == nullptr)
        throw std::invalid_argument("CCnt: the memento is not a boundary memento");
    return *cntMemento;
}

/// Exact comparison in which a NaN on either side is a difference: != is true for NaN.
bool DiffersExactly(const PNT_3D& a, const PNT_3D& b) {
    return a.x != b.x || a.y != b.y || a.z != b.z;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// CCnt

CCnt::CCnt() = default;

CCnt::~CCnt() = default;

CDtmPrj* CCnt::GetDtmPrj() const {
    return m_cnts != nullptr ? m_cnts->GetDtmPrj() : nullptr;
}

bool CCnt::IsInternal() const {
    return m_cnts != nullptr && m_cnts->AreInternalCnts();
}

const PNT_3D& CCnt::GetVrt(int i) const {
    if (i < 0) throw std::out_of_range("CCnt::GetVrt: negative index");
    return m_vrts.at(static_cast<std::size_t>(i));
}

CDtmChangeContext* CCnt::GetContext() const {
    CDtmPrj* prj = GetDtmPrj();
    return prj != nullptr ? prj->GetContext() : nullptr;
}

void CCnt::NotifyModifying() {
    if (CDtmChangeContext* context = GetContext()) context->Notify_Cnt_Modifying(this);
}

// The new list is built before the notification, so that a failed allocation leaves the boundary
// as it was and reports no change that did not happen.
void CCnt::SetRealVrts(const std::vector<PNT_3D>& real) {
    if (real.empty()) throw std::invalid_argument("CCnt::SetRealVrts: a ring needs a vertex");
    std::vector<PNT_3D> extended;
    extended.reserve(real.size() + 2);
    extended.push_back(real.back());
    extended.insert(extended.end(), real.begin(), real.end());
    extended.push_back(real.front());
    NotifyModifying();
    m_vrts.swap(extended);
}

void CCnt::AppendVrt(const PNT_3D& p) {
    NotifyModifying();
    m_vrts.push_back(p);
}

void CCnt::DoMoveVrt(int i, const PNT_3D& p) {
    if (i < 0) throw std::out_of_range("CCnt::MovePoint: negative index");
    m_vrts.at(static_cast<std::size_t>(i)) = p;
}

CCnt* CCnt::Clone() const {
    auto clone = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    clone->m_vrts = m_vrts;
    return clone.Detach();
}

kor::IMemento* CCnt::CreateMemento() const {
    return new CCntMemento(m_vrts);
}

bool CCnt::HasChanged(const kor::IMemento* memento) const {
    const std::vector<PNT_3D>& kept = AsCntMemento(memento).GetVrts();
    if (kept.size() != m_vrts.size()) return true;
    for (std::size_t i = 0; i < m_vrts.size(); ++i)
        if (DiffersExactly(m_vrts[i], kept[i])) return true;
    return false;
}

// Putting a memento back is itself a recorded change: the modifying notification carries the
// state before it, which is what lets an undo be undone. The copy is made before the
// notification so that a failed allocation changes and reports nothing; the event keeps the
// notification and the change together for the host's listeners.
void CCnt::OnSetMemento(kor::IMemento* memento) {
    std::vector<PNT_3D> restored = AsCntMemento(memento).GetVrts();
    kor::CEventGuard event(GetContext());
    NotifyModifying();
    m_vrts.swap(restored);
}

// ---------------------------------------------------------------------------------------------
// CCntMemento

CCntMemento::CCntMemento(std::vector<PNT_3D> vrts) : m_vrts(std::move(vrts)) {}

CCntMemento::~CCntMemento() = default;

std::size_t CCntMemento::GetSize() const {
    return MEMENTO_FIXED_BYTES + MEMENTO_BYTES_PER_VERTEX * m_vrts.size();
}

// ---------------------------------------------------------------------------------------------
// CCntModifier

CDtmChangeContext* CCntModifier::ContextOf(CCnt* cnt) {
    if (cnt == nullptr) throw std::invalid_argument("CCntModifier: null boundary");
    return cnt->GetContext();
}

// The event is open before the notification is sent; if sending fails, the guard member is
// already constructed and closes the event while the exception leaves the constructor.
CCntModifier::CCntModifier(CCnt* cnt) : m_context(ContextOf(cnt)), m_cnt(cnt), m_event(m_context) {
    if (m_context != nullptr) m_context->Notify_Cnt_Modifying(m_cnt);
}

CCntModifier::~CCntModifier() noexcept(false) = default;

// The event on the new context is opened first and the old one closed last, when everything is
// already copied: an exception from the old event's listeners then leaves a whole assignment.
CCntModifier& CCntModifier::operator=(const CCntModifier& other) {
    const bool contextChanges = other.m_context != m_context;
    kor::CEventGuard event(contextChanges ? other.m_context : nullptr);
    // This modifier keeps the event just opened; `event` closes the old one as it goes.
    if (contextChanges) m_event.Swap(event);
    m_context = other.m_context;
    m_cnt = other.m_cnt;
    return *this;
}

void CCntModifier::MovePoint(int i, const PNT_3D& p) {
    m_cnt->DoMoveVrt(i, p);
}
