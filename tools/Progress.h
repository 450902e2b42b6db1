#pragma once

// A progress bar on standard error for work that takes long enough to watch.

#include <chrono>
#include <cstdint>
#include <string>

namespace dtmtool {

/// One line on standard error, "label [#####.....]  42%", redrawn at most ten times a second
/// and erased by Finish. It is drawn only when standard error is a terminal and the work has at
/// least MIN_TOTAL units, so that pipes, logs and small inputs stay clean.
class Progress {
public:
    /// Work below this many units finishes too fast to be worth a bar.
    static constexpr std::uint64_t MIN_TOTAL = 200000;

    /// Starts a bar for @p total units of work described by @p label.
    Progress(std::string label, std::uint64_t total);
    /// Erases a bar that Finish did not erase (the work failed half-way).
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Records that @p units more are done.
    void Advance(std::uint64_t units = 1) { Set(m_done + units); }
    /// Records that @p done units are done in all (more than the total counts as the total).
    void Set(std::uint64_t done);
    /// Erases the bar; the work is complete.
    void Finish();
    /// True when this bar draws anything.
    bool IsShown() const noexcept { return m_shown; }

    /// Overrides the terminal test for every bar made afterwards; tests use it to exercise the
    /// drawing into a pipe. Pass false to go back to the terminal test.
    static void ForceShown(bool force);

private:
    void Draw();
    void Erase();

    std::string m_label;
    std::uint64_t m_total;
    std::uint64_t m_done = 0;
    std::uint64_t m_nextCheck = 0;
    bool m_shown;
    bool m_drawn = false;
    std::chrono::steady_clock::time_point m_lastDraw;
};

}  // namespace dtmtool
