#pragma once

// Stream buffers over memory for the library's document streams (ofpstream and ifpstream take
// any std::streambuf): the tool assembles each section in memory so that it can prefix the
// section with its length and checksum, and reads each section from the file's bytes so that
// it can tell how many bytes the library consumed.

#include <cstddef>
#include <functional>
#include <streambuf>
#include <vector>

namespace dtmtool {

/// Called with the number of bytes written or read so far, about once per mebibyte.
using ByteProgress = std::function<void(std::size_t bytes)>;

/// Appends everything written to a vector (borrowed; it must outlive the buffer).
class GrowingBuffer : public std::streambuf {
public:
    explicit GrowingBuffer(std::vector<char>& bytes, ByteProgress progress = {});

protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override;
    int_type overflow(int_type ch) override;

private:
    void Report();

    std::vector<char>& m_bytes;
    ByteProgress m_progress;
    std::size_t m_nextReport;
};

/// Reads from @p size bytes at @p data (borrowed). The bytes are handed to the stream a window
/// at a time, so that a progress callback hears of long reads while they run; seeking works
/// anywhere in the span.
class SpanBuffer : public std::streambuf {
public:
    SpanBuffer(const char* data, std::size_t size, ByteProgress progress = {});

    /// Bytes from the start of the span to the read position.
    std::size_t Consumed() const noexcept { return static_cast<std::size_t>(gptr() - eback()); }

protected:
    int_type underflow() override;
    std::streamsize showmanyc() override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                     std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

private:
    char* m_begin;
    char* m_end;
    ByteProgress m_progress;
};

}  // namespace dtmtool
