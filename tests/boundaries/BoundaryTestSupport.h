#pragma once

// What the boundary tests share: a project with both boundary collections, a logging listener
// and a host recorder on its change context, boundaries that count their lives, and exact
// comparisons of vertex lists.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Geom.h>
#include <dtm/support/RefCounter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Probes.h"

namespace boundary_test {

using kor::geom::PNT_3D;
using Pts = std::vector<PNT_3D>;
using Log = std::vector<std::string>;

/// A real boundary that also counts its lives, so that a test sees when it is destroyed.
class CountedCnt final : public CCnt {
public:
    explicit CountedCnt(int& alive) : m_alive(alive) { ++m_alive; }

private:
    ~CountedCnt() override { --m_alive; }
    int& m_alive;
};

/// Logs like LoggingEventListener and also keeps the vertex list each boundary had when its
/// modifying notification arrived: the state the undo machinery would snapshot.
class CapturingListener : public dtm_test::LoggingEventListener {
public:
    std::vector<Pts> modifyingStates;
    void OnCntModifying(CCnt* boundary) override {
        modifyingStates.push_back(boundary->GetExtendedVrts());
        LoggingEventListener::OnCntModifying(boundary);
    }
};

/// A project on its own with its two boundary collections, a logging undo listener and a host
/// recorder, as a host application would see it.
class BoundaryTest : public ::testing::Test {
protected:
    BoundaryTest() {
        prj = new CDtmPrj(nullptr, "P", true, false);
        context = prj->GetContext();
        auto logging = std::make_unique<CapturingListener>();
        listener = logging.get();
        context->SetUndoListener(std::move(logging));
        context->Register(&recorder);
        internal = std::make_unique<CCnts>(prj, true);
        external = std::make_unique<CCnts>(prj, false);
    }
    ~BoundaryTest() override {
        // The collections report their removals, so they go while the context is alive.
        internal.reset();
        external.reset();
        context->Unregister(&recorder);
        prj->SubReference();
    }

    /// Replaces the logging listener by @p other; `listener` is null from then on.
    void UseListener(std::unique_ptr<IEventListener> other) {
        listener = nullptr;
        context->SetUndoListener(std::move(other));
    }

    /// Forgets what the listener and the recorder saw so far.
    void ClearLogs() {
        if (listener != nullptr) {
            listener->log.clear();
            listener->modifyingStates.clear();
        }
        recorder.events.clear();
        recorder.opened = 0;
    }

    CDtmPrj* prj = nullptr;
    CDtmChangeContext* context = nullptr;
    CapturingListener* listener = nullptr;
    dtm_test::ProjectEventRecorder recorder;
    std::unique_ptr<CCnts> internal;
    std::unique_ptr<CCnts> external;
    int alive = 0;
};

/// A new boundary in no collection holding the ring @p real; the caller holds its reference.
inline kor::CRefPtr<CCnt> MakeCnt(const Pts& real) {
    auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    cnt->SetRealVrts(real);
    return cnt;
}

/// The boundaries of @p cnts in list order.
inline std::vector<CCnt*> ListOf(const CCnts& cnts) {
    std::vector<CCnt*> list;
    for (int i = 0; i < cnts.GetNoCnts(); ++i) list.push_back(cnts.GetCntAt(i));
    return list;
}

/// True when both lists hold the same doubles bit for bit, so that NaN and -0.0 compare too.
inline bool SameBits(const Pts& a, const Pts& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double left[3] = {a[i].x, a[i].y, a[i].z};
        const double right[3] = {b[i].x, b[i].y, b[i].z};
        if (std::memcmp(left, right, sizeof(left)) != 0) return false;
    }
    return true;
}

/// Exact equality of two points, for readable expectations.
inline bool Same(const PNT_3D& a, const PNT_3D& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

}  // namespace boundary_test
