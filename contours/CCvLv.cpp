#include <dtm/contours/CCvLv.h>

#include <dtm/contours/CCvLvs.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include "contours/SplineInternal.h"

#include <exception>
#include <stdexcept>
#include <utility>

// ---------------------------------------------------------------------------------------------
// CCvLvInterv

CCvLvInterv::CCvLvInterv(double start, double end, std::int32_t flags) noexcept
    : m_start(start), m_end(end), m_flags(flags) {}

CCvLvInterv::~CCvLvInterv() = default;

// ---------------------------------------------------------------------------------------------
// CCvLv: state and the operations that are not about intervals

CCvLv::CCvLv(CCvLvs* cvlvs, double elevation, double sigma, std::int32_t color)
    : m_cvlvs(cvlvs), m_quota(elevation), m_sigma(sigma), m_color(color) {}

CCvLv::~CCvLv() = default;

CDtmPrj* CCvLv::GetDtmPrj() const {
    return m_cvlvs != nullptr ? m_cvlvs->GetDtmPrj() : nullptr;
}

CDtmChangeContext* CCvLv::GetContext() const {
    return m_cvlvs != nullptr ? m_cvlvs->GetContext() : nullptr;
}

void CCvLv::NotifyModifying(enumCvLvChangeType kind) {
    if (CDtmChangeContext* context = GetContext()) context->Notify_CvLv_Modifying(this, kind);
}

void CCvLv::SetColor(std::int32_t color) {
    if (color == m_color) return;
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeColor);
    m_color = color;
}

void CCvLv::SetVisible(bool visible) {
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    m_visible = visible;
}

// The coefficients are computed on a copy before anything is reported, so that a failed
// computation neither changes nor reports anything.
void CCvLv::ChangeSigmaTension(double sigma) {
    if (sigma == m_sigma) return;
    std::vector<TVrtPol> nodes = m_nodes;
    double sigmap = 0.0;
    RefreshSplineNodes(sigma, nodes, sigmap);
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    m_sigma = sigma;
    m_sigmap = sigmap;
    m_nodes.swap(nodes);
}

bool CCvLv::FindSpineParam(const kor::geom::PNT_2D& point, int& segment, double& t,
                           double& spine) const {
    return FindSplineParam(m_nodes, m_sigmap, point, segment, t, spine);
}

void CCvLv::DoSetSpline(double sigma, double sigmap, std::vector<TVrtPol> nodes) {
    m_sigma = sigma;
    m_sigmap = sigmap;
    m_nodes = std::move(nodes);
}

// ---------------------------------------------------------------------------------------------
// CCvLvModifier

namespace {

CCvLv* CheckedLine(CCvLv* line) {
    if (line == nullptr) throw std::invalid_argument("CCvLvModifier: null contour line");
    return line;
}

}  // namespace

CCvLvModifier::CCvLvModifier(CCvLv* line) : m_line(CheckedLine(line)) {}

// The spline is recomputed once for all the moves of the edit. Should that fail while another
// exception is already on its way, the second one cannot travel and is dropped: the nodes are
// then in place with their old coefficients, which still draw a curve near the line.
CCvLvModifier::~CCvLvModifier() noexcept(false) {
    if (!m_changed) return;
    try {
        RefreshSplineNodes(m_line->m_sigma, m_line->m_nodes, m_line->m_sigmap);
    } catch (...) {
        if (std::uncaught_exceptions() == 0) throw;
    }
}

void CCvLvModifier::MoveNode(unsigned index, double x, double y) {
    TVrtPol& node = m_line->m_nodes.at(index);
    if (!m_changed) {
        m_line->NotifyModifying(eCvLvChangeAll);
        m_changed = true;
    }
    node.x = x;
    node.y = y;
}
