// The memento of a contour line and the line's side of the memento protocol.

#include <dtm/contours/CCvLv.h>

#include <dtm/project/CDtmChangeContext.h>

#include <stdexcept>
#include <utility>

namespace {

/// The contour memento behind @p memento; a memento of another entity kind is a caller fault.
const CCvLvMemento& AsCvLvMemento(const kor::IMemento* memento) {
    const auto* cvLvMemento = dynamic_cast<const CCvLvMemento*>(memento);
    if (cvLvMemento == nullptr)
        throw std::invalid_argument("CCvLv: the memento is not a contour line memento");
    return *cvLvMemento;
}

}  // namespace

CCvLvMemento::CCvLvMemento(double sigma, std::int32_t color, std::vector<TVrtPol> nodes,
                           std::vector<TCvLvInterv> intervals)
    : m_sigma(sigma),
      m_color(color),
      m_nodes(std::move(nodes)),
      m_intervals(std::move(intervals)) {}

CCvLvMemento::~CCvLvMemento() = default;

std::size_t CCvLvMemento::GetSize() const {
    return FIXED_SIZE + NODE_SIZE * m_nodes.size() + INTERVAL_SIZE * m_intervals.size();
}

kor::IMemento* CCvLv::CreateMemento() const {
    std::vector<TCvLvInterv> intervals;
    intervals.reserve(m_intervals.size());
    for (const auto& interval : m_intervals)
        intervals.push_back({interval->GetStart(), interval->GetEnd(), interval->GetFlags()});
    return new CCvLvMemento(m_sigma, m_color, m_nodes, std::move(intervals));
}

bool CCvLv::HasChanged(const kor::IMemento* /*memento*/) const {
    return true;
}

// Colour and tension go first, each as its own change and only when it differs (the setters
// test that); the tension change recomputes the spline, and with it sigmap, over the present
// nodes. The nodes, with their coefficients, and the intervals then always come back as one
// geometry change.
//
// sigmap is not part of the memento: it is derived, and stays what the line last computed. A
// restore of moved nodes at an unchanged tension therefore keeps the sigmap of the moved line
// beside the restored coefficients; documents written after such an undo carry that sigmap.
void CCvLv::OnSetMemento(kor::IMemento* memento) {
    const CCvLvMemento& saved = AsCvLvMemento(memento);
    SetColor(saved.GetColor());
    ChangeSigmaTension(saved.GetSigma());

    std::vector<TVrtPol> nodes = saved.GetNodes();
    std::vector<kor::CRefPtr<CCvLvInterv>> intervals = MakeIntervals(saved.GetIntervals());
    const std::vector<kor::CRefPtr<CCvLvInterv>> removed = m_intervals;
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    m_nodes.swap(nodes);
    SwapIntervals(intervals, removed);
}
