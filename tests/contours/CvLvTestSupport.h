#pragma once

// A project with a contour collection, listeners that record what the change context reports,
// and comparisons of contour-line state, shared by the contour-line tests.

#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Geom.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Probes.h"

namespace cvlv_test {

using Log = std::vector<std::string>;

/// Takes a memento of every contour line at its modifying notification, as the undo builder
/// does, and logs every call like the logging listener.
class MementoListener : public dtm_test::LoggingEventListener {
public:
    ~MementoListener() override { Clear(); }
    void OnCvLvModifying(CCvLv* line) override {
        LoggingEventListener::OnCvLvModifying(line);
        taken.emplace_back(line, line->CreateMemento());
    }
    /// Releases the mementos taken.
    void Clear() {
        for (auto& entry : taken) entry.second->SubReference();
        taken.clear();
    }
    std::vector<std::pair<CCvLv*, kor::IMemento*>> taken;
};

/// Everything about a line that its memento restores, plus what it does not, for exact
/// comparison. Doubles are compared by their bits, so -0.0 and NaN are caught too.
struct LineState {
    double quota, sigma, sigmap;
    int color;
    bool visible;
    std::vector<TVrtPol> nodes;
    std::vector<TCvLvInterv> intervals;
};

inline LineState StateOf(const CCvLv& line) {
    LineState state{line.GetQuota(),
                    line.GetSigma(),
                    line.GetSigmap(),
                    line.GetColor(),
                    line.IsVisible(),
                    line.GetNodes(),
                    {}};
    for (unsigned i = 0; i < line.GetNoIntervals(); ++i) {
        const CCvLvInterv* interval = line.GetIntervalAt(i);
        state.intervals.push_back({interval->GetStart(), interval->GetEnd(), interval->GetFlags()});
    }
    return state;
}

inline bool SameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

inline bool SameNodes(const std::vector<TVrtPol>& a, const std::vector<TVrtPol>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!SameBits(a[i].x, b[i].x) || !SameBits(a[i].y, b[i].y) || !SameBits(a[i].xp, b[i].xp) ||
            !SameBits(a[i].yp, b[i].yp) || !SameBits(a[i].len, b[i].len))
            return false;
    return true;
}

inline bool SameIntervals(const std::vector<TCvLvInterv>& a, const std::vector<TCvLvInterv>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!SameBits(a[i].start, b[i].start) || !SameBits(a[i].end, b[i].end) ||
            a[i].flags != b[i].flags)
            return false;
    return true;
}

/// Whether ExpectSameState compares sigmap: a memento restore does not put it back.
enum class Sigmap { Compared, Ignored };

inline void ExpectSameState(const LineState& expected, const LineState& actual,
                            Sigmap sigmap = Sigmap::Compared) {
    EXPECT_TRUE(SameBits(expected.quota, actual.quota));
    EXPECT_TRUE(SameBits(expected.sigma, actual.sigma));
    if (sigmap == Sigmap::Compared) {
        EXPECT_TRUE(SameBits(expected.sigmap, actual.sigmap));
    }
    EXPECT_EQ(expected.color, actual.color);
    EXPECT_EQ(expected.visible, actual.visible);
    EXPECT_TRUE(SameNodes(expected.nodes, actual.nodes));
    EXPECT_TRUE(SameIntervals(expected.intervals, actual.intervals));
}

/// A project of its own with a contour collection on it, a memento-taking undo listener and a
/// host recorder. The contour options are set to known values here, whatever the INI file of
/// the test run holds.
class ContourFixture : public ::testing::Test {
protected:
    void SetUp() override {
        prj = new CDtmPrj(nullptr, "P", true, false);
        context = prj->GetContext();
        cvlvs = std::make_unique<CCvLvs>(prj);
        COpzCvLv& options = cvlvs->GetOpzCvLv();
        options.SetTextOptions(1.0, 1.0, 0, "", "", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
        options.SetColorByLayer(false);
        auto mementos = std::make_unique<MementoListener>();
        listener = mementos.get();
        context->SetUndoListener(std::move(mementos));
        context->Register(&recorder);
    }
    void TearDown() override {
        context->Unregister(&recorder);
        cvlvs.reset();
        prj->SubReference();
    }

    /// Adds a line through @p points (sigma -1: end tangents from the nodes), outside any event.
    CCvLv* AddLine(double elevation, const std::vector<kor::geom::PNT_2D>& points,
                   double sigma = -1.0, int color = 7) {
        std::vector<double> x, y;
        for (const auto& p : points) {
            x.push_back(p.x);
            y.push_back(p.y);
        }
        return cvlvs->AddNewCvLv(elevation, sigma, color, static_cast<int>(points.size()), x.data(),
                                 y.data());
    }
    /// A gently curved line of five nodes.
    CCvLv* AddCurvedLine(double elevation = 100.0) {
        return AddLine(elevation, {{0, 0}, {10, 2}, {20, 0}, {30, -3}, {40, 0}});
    }
    /// Forgets what the listeners have seen so far.
    void ForgetEvents() {
        recorder.events.clear();
        recorder.opened = 0;
        listener->log.clear();
        listener->Clear();
    }

    CDtmPrj* prj = nullptr;
    CDtmChangeContext* context = nullptr;
    std::unique_ptr<CCvLvs> cvlvs;
    MementoListener* listener = nullptr;
    dtm_test::ProjectEventRecorder recorder;
};

}  // namespace cvlv_test
