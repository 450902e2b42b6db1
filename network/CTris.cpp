#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>

#include <cstddef>

CTri::~CTri() = default;

CTris::CTris(CDtmPrj* project) : m_project(project) {}

CTris::~CTris() {
    for (auto it = m_tris.rbegin(); it != m_tris.rend(); ++it) (*it)->SubReference();
}

CTri* CTris::GetTriAt(int i) const {
    return m_tris.at(static_cast<std::size_t>(i));
}
