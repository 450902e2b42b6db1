// The network's link to the point cloud it may be computed on.

#include <dtm/network/CCld.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Message.h>

#include "resources/StringTable.h"
#include "support/ScopeExit.h"

#include <string>

void CTris::SetCld(CCld* cloud) {
    // The reference on a cloud bound before is deliberately kept: DoRemoveAll is the one place
    // that lets a cloud go, so that a network never loses the cloud its indices refer to while
    // it still holds them.
    m_cloud = cloud;
    m_cloudReferenced = cloud != nullptr;
    if (m_cloud) m_cloud->AddReference();
}

bool CTris::AddTriVrt(int cloudIndex) {
    if (!HoldsCld()) return false;
    kor::geom::PNT_3D point;
    m_cloud->GetPnt(cloudIndex, point);
    AddTriVrt(point);
    // Appended after the notification, so that the vertex and its cloud index are parallel
    // again by the time the event that holds this change closes.
    m_cloudIndexes.push_back(cloudIndex);
    return true;
}

void CTris::CheckBroken() {
    if (m_broken || !HoldsCld()) return;
    if (m_cloud->IsVersionValid() &&
        m_cloud->GetNumPnts() >= static_cast<int>(m_cloudIndexes.size()))
        return;
    // The flag is set after the warning, but also when the host's message handler throws: a
    // network whose cloud cannot serve its indices must never be used, and the user must not
    // be warned a second time.
    const auto markBroken = dtm::detail::OnScopeExit([this] { m_broken = true; });
    const std::string text = dtm::FormatLibraryString(
        dtm::STRING_ID_CLOUD_BROKEN_TEXT, m_project ? m_project->GetName().c_str() : nullptr);
    kor::ShowMessage(text.c_str(), dtm::LoadLibraryString(dtm::STRING_ID_CLOUD_BROKEN_CAPTION),
                     kor::MESSAGE_STYLE_WARNING);
}
