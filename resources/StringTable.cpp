#include "resources/StringTable.h"

#include <dtm/support/String.h>

#include <stdexcept>
#include <vector>

namespace dtm {

namespace {

struct LibraryString {
    unsigned id;
    const char* text;
};

// The texts are Italian, as the host's users read them, and must stay byte for byte as they
// are: this source file is UTF-8, and the compiler keeps the literals' bytes as written.
constexpr LibraryString STRING_TABLE[] = {
    {STRING_ID_CLOUD_BROKEN_TEXT,
     "La triangolazione %s fa riferimento a una nuvola di punti non esistente o non aggiornata. "
     "Pertanto la triangolazione non può essere nè visualizzata nè utilizzata.\n\n"
     "Sostituire il file *.zlx con uno corretto, o ricalcolare la triangolazione."},
    {STRING_ID_CLOUD_BROKEN_CAPTION, "Triangolazione su nuvola di punti"},
};

}  // namespace

const char* LoadLibraryString(unsigned id) {
    for (const LibraryString& entry : STRING_TABLE)
        if (entry.id == id) return entry.text;
    return nullptr;
}

std::string FormatLibraryString(unsigned id, const char* argument) {
    const char* format = LoadLibraryString(id);
    if (!format) throw std::invalid_argument("no library string with id " + std::to_string(id));
    const char* value = argument ? argument : "";
    // The first call only measures; the second writes into a buffer of exactly that size.
    const int length = kor_sprintf(nullptr, 0, format, value);
    if (length < 0) throw std::runtime_error("library string cannot be formatted");
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
    kor_sprintf(buffer.data(), buffer.size(), format, value);
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

}  // namespace dtm
