#include <dtm/support/Streams.h>

ofpstream::ofpstream(std::streambuf* buffer, short version)
    : std::ostream(buffer), m_version(version) {}

ofpstream::~ofpstream() = default;

ifpstream::ifpstream(std::streambuf* buffer, short version)
    : std::istream(buffer), m_version(version) {}

ifpstream::~ifpstream() = default;
