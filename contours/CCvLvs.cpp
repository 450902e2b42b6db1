#include <dtm/contours/CCvLvs.h>

#include <dtm/contours/CCvLv.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include "contours/SplineInternal.h"
#include "support/ScopeExit.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

// The range of a collection without lines: any first elevation replaces both ends.
constexpr double EMPTY_MIN_QUOTA = std::numeric_limits<double>::infinity();
constexpr double EMPTY_MAX_QUOTA = -std::numeric_limits<double>::infinity();

/// Checks the node arguments of the AddNewCvLv overloads.
void CheckNodes(int nodeCount, bool arraysGiven) {
    if (nodeCount < 0) throw std::invalid_argument("CCvLvs::AddNewCvLv: negative node count");
    if (nodeCount > 0 && !arraysGiven)
        throw std::invalid_argument("CCvLvs::AddNewCvLv: null node array");
}

}  // namespace

CCvLvs::CCvLvs(CDtmPrj* prj)
    : m_dtmPrj(prj),
      m_context(prj != nullptr ? prj->GetContext() : nullptr),
      m_minQuota(EMPTY_MIN_QUOTA),
      m_maxQuota(EMPTY_MAX_QUOTA) {}

CCvLvs::CCvLvs(const CCvLvs& other) = default;

CCvLvs& CCvLvs::operator=(const CCvLvs& other) = default;

CCvLvs::~CCvLvs() {
    for (const auto& line : m_cvlvs)
        if (line->m_cvlvs == this) line->m_cvlvs = nullptr;
}

void CCvLvs::UpdateMinMaxQuota() noexcept {
    m_minQuota = EMPTY_MIN_QUOTA;
    m_maxQuota = EMPTY_MAX_QUOTA;
    for (const auto& line : m_cvlvs) UpdateMinMaxQuota(line->GetQuota());
}

void CCvLvs::UpdateMinMaxQuota(double elevation) noexcept {
    if (elevation < m_minQuota) m_minQuota = elevation;
    if (elevation > m_maxQuota) m_maxQuota = elevation;
}

void CCvLvs::AddCvLv(CCvLv* line) {
    if (line == nullptr) throw std::invalid_argument("CCvLvs::AddCvLv: null contour line");
    m_cvlvs.push_back(kor::CRefPtr<CCvLv>::Share(line));
    line->m_cvlvs = this;
    UpdateMinMaxQuota(line->GetQuota());
    if (m_context != nullptr) m_context->Notify_CvLv_Added(line);
}

CCvLv* CCvLvs::AddNewCvLv(double elevation, double sigma, std::int32_t color, int nodeCount,
                          const double* x, const double* y) {
    CheckNodes(nodeCount, x != nullptr && y != nullptr);
    std::vector<TVrtPol> nodes;
    double sigmap = 0.0;
    BuildSplineNodes(nodeCount, x, y, sigma, nodes, sigmap);
    auto line = kor::CRefPtr<CCvLv>::Adopt(new CCvLv(this, elevation, sigma, color));
    line->DoSetSpline(sigma, sigmap, std::move(nodes));
    AddCvLv(line.Get());
    // The creator's reference goes with the handle; the collection's remains.
    return line.Get();
}

CCvLv* CCvLvs::AddNewCvLv(const COpzCvLv& options, double elevation, double sigma, double sigmap,
                          int nodeCount, const TOldVrtPol* nodes) {
    CheckNodes(nodeCount, nodes != nullptr);
    auto line =
        kor::CRefPtr<CCvLv>::Adopt(new CCvLv(this, elevation, sigma, CCvLv::COLOR_BY_LAYER));
    line->DoSetSpline(sigma, sigmap, {});
    const std::vector<TOldVrtPol> records(nodes, nodes + nodeCount);
    line->DoLoadOldNodes(records, options.GetTextHeight(), options.GetDecimals());
    AddCvLv(line.Get());
    // The creator's reference goes with the handle; the collection's remains.
    return line.Get();
}

// The entry leaves the list before the notification, so that a listener already sees the
// collection without it; the collection's reference goes last, on every path, while the
// context's own reference keeps the line alive until the event closes.
void CCvLvs::RemoveCvLv(CCvLv* line) {
    const auto found =
        std::find_if(m_cvlvs.begin(), m_cvlvs.end(),
                     [line](const kor::CRefPtr<CCvLv>& entry) { return entry.Get() == line; });
    if (found == m_cvlvs.end()) return;
    const kor::CRefPtr<CCvLv> held = std::move(*found);
    m_cvlvs.erase(found);
    if (m_context != nullptr) m_context->Notify_CvLv_Removed(held.Get());
}

// Also an empty collection opens and closes its event: a host that clears the lines hears that
// it happened, and the range is reset in any case. An event that changed nothing files no undo
// step.
void CCvLvs::RemoveAllCvLvs() {
    kor::CEventGuard event(m_context);
    DoRemoveAllCvLvls(m_context);
}

void CCvLvs::DoRemoveAllCvLvls(CDtmChangeContext* context) {
    std::size_t reported = 0;
    // Also when a notification throws: the list then keeps exactly the lines not yet reported.
    const auto dropReported = dtm::detail::OnScopeExit([this, &reported] {
        m_cvlvs.erase(m_cvlvs.begin(), m_cvlvs.begin() + static_cast<std::ptrdiff_t>(reported));
    });
    for (; reported < m_cvlvs.size(); ++reported)
        if (context != nullptr) context->Notify_CvLv_Removed(m_cvlvs[reported].Get());
    m_minQuota = EMPTY_MIN_QUOTA;
    m_maxQuota = EMPTY_MAX_QUOTA;
}

std::int32_t CCvLvs::ColorFor(const CCvLv& line) const {
    if (m_opz.IsColorByLayer()) return CCvLv::COLOR_BY_LAYER;
    return m_opz.GetColorClasses().GetColor(m_minQuota, m_maxQuota, line.GetQuota());
}

void CCvLvs::UpdateCvLvColors() {
    std::vector<std::int32_t> colors;
    colors.reserve(m_cvlvs.size());
    bool anyChange = false;
    for (const auto& line : m_cvlvs) {
        colors.push_back(ColorFor(*line));
        anyChange = anyChange || colors.back() != line->GetColor();
    }
    if (!anyChange) return;
    kor::CEventGuard event(m_context);
    for (std::size_t i = 0; i < colors.size(); ++i) m_cvlvs[i]->SetColor(colors[i]);
}

void CCvLvs::SetTextOptions(double charHeight, double gap, std::int32_t decimals,
                            const kor::String& prefix, const kor::String& suffix,
                            enumTextVAlignment vAlignment, enumTextOrientation orientation) {
    if (charHeight == m_opz.GetTextHeight() && gap == m_opz.GetGap() &&
        decimals == m_opz.GetDecimals() && prefix.Compare(m_opz.GetPrefix()) == 0 &&
        suffix.Compare(m_opz.GetSuffix()) == 0 && vAlignment == m_opz.GetVAlignment() &&
        orientation == m_opz.GetOrientation())
        return;
    kor::CEventGuard event(m_context);
    m_opz.SetTextOptions(charHeight, gap, decimals, prefix, suffix, vAlignment, orientation);
    for (std::size_t i = 0; i < m_cvlvs.size(); ++i) UpdateCvLvTextIntervals(m_cvlvs[i].Get());
}

void CCvLvs::SetVisOptions(bool categoryOn1, bool categoryOn2, bool categoryOn3, bool categoryOn4,
                           bool colorByLayer, std::uint16_t categoryColor1,
                           std::uint16_t categoryColor2, std::uint16_t categoryColor3,
                           std::uint16_t categoryColor4, const CColorClassComputer& classes) {
    const bool flags[COpzCvLv::kCategoryCount] = {categoryOn1, categoryOn2, categoryOn3,
                                                  categoryOn4};
    const std::uint16_t colors[COpzCvLv::kCategoryCount] = {categoryColor1, categoryColor2,
                                                            categoryColor3, categoryColor4};
    bool flagsChanged = false;
    bool colorsChanged = false;
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        flagsChanged = flagsChanged || flags[i] != m_opz.IsCategoryOn(i);
        colorsChanged = colorsChanged || colors[i] != m_opz.GetCategoryColor(i);
    }
    const bool byLayerChanged = colorByLayer != m_opz.IsColorByLayer();
    const bool classesChanged = classes != m_opz.GetColorClasses();
    if (!flagsChanged && !colorsChanged && !byLayerChanged && !classesChanged) return;

    // What the host draws by layer changes with the switch and the category colours; the
    // category flags alone do not touch it.
    const bool layersModified = byLayerChanged || colorsChanged || (colorByLayer && classesChanged);
    kor::CEventGuard event(m_context);
    m_opz.SetVisOptions(categoryOn1, categoryOn2, categoryOn3, categoryOn4, colorByLayer,
                        categoryColor1, categoryColor2, categoryColor3, categoryColor4, classes);
    if (layersModified && m_context != nullptr) m_context->Notify_CvLv_LayersModified();
    UpdateCvLvColors();
}
