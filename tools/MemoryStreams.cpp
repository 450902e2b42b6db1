#include "MemoryStreams.h"

#include <algorithm>
#include <utility>

namespace dtmtool {

namespace {

// How often the callbacks hear of progress, and how much a SpanBuffer hands out at a time.
constexpr std::size_t kReportBytes = std::size_t{1} << 20;

}  // namespace

GrowingBuffer::GrowingBuffer(std::vector<char>& bytes, ByteProgress progress)
    : m_bytes(bytes), m_progress(std::move(progress)), m_nextReport(bytes.size() + kReportBytes) {}

std::streamsize GrowingBuffer::xsputn(const char* data, std::streamsize count) {
    m_bytes.insert(m_bytes.end(), data, data + count);
    Report();
    return count;
}

GrowingBuffer::int_type GrowingBuffer::overflow(int_type ch) {
    if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
    m_bytes.push_back(traits_type::to_char_type(ch));
    Report();
    return ch;
}

void GrowingBuffer::Report() {
    if (m_bytes.size() < m_nextReport) return;
    m_nextReport = m_bytes.size() + kReportBytes;
    if (m_progress) m_progress(m_bytes.size());
}

// The standard buffer interface takes non-const pointers, but a get area is only ever read.
SpanBuffer::SpanBuffer(const char* data, std::size_t size, ByteProgress progress)
    : m_begin(const_cast<char*>(data)),
      m_end(const_cast<char*>(data) + size),
      m_progress(std::move(progress)) {
    setg(m_begin, m_begin, m_progress ? std::min(m_end, m_begin + kReportBytes) : m_end);
}

SpanBuffer::int_type SpanBuffer::underflow() {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    if (egptr() == m_end) return traits_type::eof();
    char* windowEnd = egptr() + std::min<std::size_t>(kReportBytes, m_end - egptr());
    setg(m_begin, gptr(), windowEnd);
    if (m_progress) m_progress(Consumed());
    return traits_type::to_int_type(*gptr());
}

std::streamsize SpanBuffer::showmanyc() {
    return m_end - gptr();
}

SpanBuffer::pos_type SpanBuffer::seekoff(off_type offset, std::ios_base::seekdir direction,
                                         std::ios_base::openmode which) {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    off_type base = 0;
    if (direction == std::ios_base::cur) base = gptr() - m_begin;
    if (direction == std::ios_base::end) base = m_end - m_begin;
    return seekpos(pos_type(base + offset), which);
}

SpanBuffer::pos_type SpanBuffer::seekpos(pos_type position, std::ios_base::openmode which) {
    const off_type target = off_type(position);
    if (!(which & std::ios_base::in) || target < 0 || target > m_end - m_begin)
        return pos_type(off_type(-1));
    char* at = m_begin + target;
    setg(m_begin, at, std::max(at, egptr()));
    return position;
}

}  // namespace dtmtool
