#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace dtmtool {

namespace {

bool g_forceShown = false;

// Redrawing more often than this only costs time: a person cannot read faster.
constexpr std::chrono::milliseconds kRedrawInterval(100);
// Width of the bar in characters, chosen to fit an 80-column terminal with a long label.
constexpr int kBarWidth = 40;
// The clock is read only every this many units, so that Advance(1) in a loop over a million
// triangles stays a counter increment.
constexpr std::uint64_t kUnitsPerClockRead = 4096;

}  // namespace

void Progress::ForceShown(bool force) {
    g_forceShown = force;
}

Progress::Progress(std::string label, std::uint64_t total)
    : m_label(std::move(label)),
      m_total(total),
      m_shown(total >= MIN_TOTAL && (g_forceShown || ::isatty(STDERR_FILENO) == 1)),
      m_lastDraw(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    Erase();
}

void Progress::Set(std::uint64_t done) {
    m_done = std::min(done, m_total);
    if (!m_shown || m_done < m_nextCheck) return;
    m_nextCheck = m_done + kUnitsPerClockRead;
    const auto now = std::chrono::steady_clock::now();
    if (m_drawn && now - m_lastDraw < kRedrawInterval) return;
    m_lastDraw = now;
    Draw();
}

void Progress::Finish() {
    m_done = m_total;
    Erase();
}

void Progress::Draw() {
    const double fraction =
        m_total == 0 ? 1.0 : static_cast<double>(m_done) / static_cast<double>(m_total);
    const int filled = static_cast<int>(fraction * kBarWidth);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kBarWidth, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", m_label.c_str(), bar.c_str(),
                 static_cast<int>(fraction * 100.0));
    std::fflush(stderr);
    m_drawn = true;
}

void Progress::Erase() {
    if (!m_drawn) return;
    // Carriage return and "erase to end of line": the next output starts on a clean line.
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_drawn = false;
}

}  // namespace dtmtool
