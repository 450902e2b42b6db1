#pragma once

// The library's string table: the texts it shows to a user, in UTF-8, looked up by the numeric
// ids the host's resource tools know them by. Private to the library.

#include <string>

namespace dtm {

/// Text of the warning shown when a network's point cloud is missing or outdated; its one %s
/// takes the project's name.
constexpr unsigned STRING_ID_CLOUD_BROKEN_TEXT = 1000;
/// Caption of that warning.
constexpr unsigned STRING_ID_CLOUD_BROKEN_CAPTION = 1001;

/// The UTF-8 text of string @p id, or null when the table has no such string. The text is
/// static: never freed, valid for the life of the process.
const char* LoadLibraryString(unsigned id);

/// String @p id with @p argument in place of its one %s, however long @p argument is (the
/// buffer is sized from the formatted length, so nothing is ever cut). A null @p argument counts
/// as empty.
///
/// @throws std::invalid_argument when the table has no string @p id.
std::string FormatLibraryString(unsigned id, const char* argument);

}  // namespace dtm
