// The network's selection of triangles, one bit per triangle position, and the deletion of the
// selected triangles.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Events.h>
#include <dtm/support/RefCounter.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace {

// Where the bit of triangle position i lives: bit (i mod 8) of byte i / 8, bit 0 the least
// significant.
struct BitPosition {
    std::size_t byte;
    std::uint8_t mask;
};

BitPosition BitOf(int i) {
    if (i < 0) throw std::out_of_range("CTris selection: negative triangle index");
    const auto position = static_cast<unsigned>(i);
    return {position / 8, static_cast<std::uint8_t>(1u << (position % 8))};
}

}  // namespace

void CTris::SelTri(int i, bool toggle) {
    if (m_broken) return;
    const BitPosition bit = BitOf(i);
    // The bits are sized when the network's listener recomputes the derived data, which the
    // project's first event only arms; growing here keeps a selection made before that instead
    // of writing past the bits.
    if (bit.byte >= m_selection.size()) m_selection.resize(bit.byte + 1, 0);
    std::uint8_t& byte = m_selection[bit.byte];
    if (toggle && (byte & bit.mask) != 0) {
        byte = static_cast<std::uint8_t>(byte & ~bit.mask);
    } else {
        byte = static_cast<std::uint8_t>(byte | bit.mask);
    }
}

void CTris::UnSelTri(int i) {
    if (m_broken) return;
    const BitPosition bit = BitOf(i);
    // A bit the array does not reach is clear already.
    if (bit.byte < m_selection.size()) {
        m_selection[bit.byte] = static_cast<std::uint8_t>(m_selection[bit.byte] & ~bit.mask);
    }
}

void CTris::UnSelTris() {
    if (m_broken) return;
    // As many bytes as the current triangle count needs, within the bits allocated: bits past
    // the last triangle (left by triangles removed in the current event) are wiped only by the
    // fresh selection the network's listener starts when the event closes.
    const std::size_t needed = m_tris.size() / 8 + 1;
    std::fill_n(m_selection.begin(), std::min(needed, m_selection.size()), std::uint8_t{0});
}

bool CTris::IsSelTri(int i) const {
    if (m_broken) return false;
    const BitPosition bit = BitOf(i);
    return bit.byte < m_selection.size() && (m_selection[bit.byte] & bit.mask) != 0;
}

void CTris::DelSelTris() {
    if (m_broken) return;
    kor::CEventGuard event(m_context);
    // The triangles after a removed one move down: positions the search index holds no longer
    // name the same triangles.
    NoteGeometryChanged();

    const std::vector<CTri*> previous = m_tris;
    std::size_t survivorCount = 0;
    for (std::size_t i = 0; i < previous.size(); ++i) {
        if (!IsSelTri(static_cast<int>(i))) ++survivorCount;
    }
    m_tris.clear();
    m_tris.reserve(survivorCount);

    std::size_t next = 0;
    try {
        for (; next < previous.size(); ++next) {
            CTri* triangle = previous[next];
            if (!IsSelTri(static_cast<int>(next))) {
                m_tris.push_back(triangle);  // cannot throw: room was reserved above
                continue;
            }
            // The context takes its own reference before ours goes, so the triangle outlives
            // the event.
            const auto ours = kor::CRefPtr<CTri>::Adopt(triangle);
            m_context->Notify_Tri_Removed(triangle);
        }
    } catch (...) {
        // A failed notification leaves the triangles not yet walked in the network, after the
        // survivors already put back, so that none of them is lost.
        m_tris.insert(m_tris.end(), previous.begin() + static_cast<std::ptrdiff_t>(next) + 1,
                      previous.end());
        throw;
    }
}
