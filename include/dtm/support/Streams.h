#pragma once

/// @file
/// The document streams: standard narrow streams that carry the document's format version.

#include <dtm/support/Export.h>

#include <istream>
#include <ostream>
#include <streambuf>

/// Output document stream over any stream buffer the host passes (a std::filebuf for a file, a
/// std::stringbuf for memory). The buffer is borrowed and must outlive the stream.
class DTM_API ofpstream : public std::ostream {
public:
    ofpstream(std::streambuf* buffer, short version);
    ~ofpstream() override;
    /// The document's format version; sections decide from it what they hold.
    short GetVersion() const noexcept { return m_version; }
    void SetVersion(short version) noexcept { m_version = version; }

private:
    short m_version;
};

/// Input document stream; see ofpstream.
class DTM_API ifpstream : public std::istream {
public:
    ifpstream(std::streambuf* buffer, short version);
    ~ifpstream() override;
    short GetVersion() const noexcept { return m_version; }
    void SetVersion(short version) noexcept { m_version = version; }

private:
    short m_version;
};
