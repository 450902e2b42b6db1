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

CCvLvMemento::CCvLvMemento(double sigma, double sigmap, std::int32_t color,
                           std::vector<TVrtPol> nodes, std::vector<TCvLvInterv> intervals)
    : m_sigma(sigma),
      m_sigmap(sigmap),
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
    return new CCvLvMemento(m_sigma, m_sigmap, m_color, m_nodes, std::move(intervals));
}

bool CCvLv::HasChanged(const kor::IMemento* /*memento*/) const {
    return true;
}

// Colour and tension go first, each as its own change and only when it differs (the setters
// test that); the tension change recomputes the spline over the present nodes. The nodes, with
// their coefficients, and the intervals then always come back as one geometry change.
//
// The memento also carries sigmap, and it is put back with the nodes: the stored coefficients
// are scaled by that very sigmap, and a node move changes it (it depends on the chord lengths),
// so restoring the coefficients without it would draw a different curve from the one saved.
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
    m_sigmap = saved.GetSigmap();
    SwapIntervals(intervals, removed);
}
