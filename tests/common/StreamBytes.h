#pragma once

// Runs one of an object's section writers or readers on bytes held in memory, so that a test can
// compare what was written with bytes assembled by hand and see how far a read went.

#include <dtm/support/Streams.h>

#include <ios>
#include <sstream>
#include <string>

namespace dtm_test {

/// What a section reader left behind.
struct ReadOutcome {
    bool streamGood;
    std::streamoff consumed;  // position of the buffer, whatever the stream's state
};

/// A section writer and the reader of what it writes, named for failure messages, for the tests
/// that hold for every group an object keeps in a document.
template <class Object>
struct SectionGroup {
    const char* name;
    void (Object::*writer)(ofpstream&) const;
    void (Object::*reader)(ifpstream&, bool);
};

/// The bytes @p writer (a member such as &COpzTri::SalvaInFile) puts on a stream of @p version.
template <class Object, class Owner>
std::string WriteToBytes(const Object& object, void (Owner::*writer)(ofpstream&) const,
                         short version) {
    std::stringbuf buffer;
    ofpstream out(&buffer, version);
    (object.*writer)(out);
    return buffer.str();
}

/// Runs @p reader (a member such as &COpzTri::LeggeDaFile) on @p bytes at @p version.
template <class Object, class Owner>
ReadOutcome ReadFromBytes(Object& object, void (Owner::*reader)(ifpstream&, bool),
                          const std::string& bytes, short version, bool apply) {
    std::stringbuf buffer(bytes);
    ifpstream in(&buffer, version);
    (object.*reader)(in, apply);
    return {static_cast<bool>(in), buffer.pubseekoff(0, std::ios::cur, std::ios::in)};
}

}  // namespace dtm_test
