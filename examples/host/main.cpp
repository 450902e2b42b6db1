// A minimal host: everything here goes through <dtm/dtm.h> and the installed library only.
// It creates a library with its undo store, adds, renames, activates and removes projects while
// listening to the change events, and uses the INI file, the document streams and the colour
// engine as an embedding application would.

#include <dtm/dtm.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

// Prints what each closed event of the library changed.
class LibraryListener : public kor::CSourceEvent::IEvent {
public:
    int events = 0;
    void OnEventOpened(kor::CSourceEvent&) override {}
    void OnEventClosed(kor::CSourceEvent& source) override {
        auto& context = static_cast<CLibDtmChangeContext&>(source);
        ++events;
        for (CDtmPrj* prj : context.GetPrjAdded())
            std::printf("  added   %s\n", prj->GetName().c_str());
        for (CDtmPrj* prj : context.GetPrjRemoved())
            std::printf("  removed %s\n", prj->GetName().c_str());
        if (context.IsActivePrjChanged()) std::printf("  active project changed\n");
    }
};

int Fail(const char* what) {
    std::fprintf(stderr, "host example: %s\n", what);
    return EXIT_FAILURE;
}

}  // namespace

int main() {
    kor::CChangeTransactionManager undo;
    LibraryListener listener;
    {
        CLibDtm library(&undo);
        library.GetContext()->Register(&listener);

        CDtmPrj* survey = library.AddPrj("Rilievo", true, false);
        CDtmPrj* copy = library.AddPrj("RILIEVO", true, false);  // becomes "RILIEVO (2)"
        if (copy->GetName() != kor::String("RILIEVO (2)")) return Fail("names are not kept unique");
        copy->SetName("Variante");
        library.SetActive(survey, true);
        if (!survey->IsActive()) return Fail("the active project is wrong");
        if (!library.RemovePrj(copy, false)) return Fail("the project could not be removed");
        if (library.GetNoPrj() != 1) return Fail("the library holds the wrong number of projects");
        library.GetContext()->Unregister(&listener);
    }
    std::printf("library events seen: %d\n", listener.events);

    // Options live in the host's INI file; here the caller chose it with DTM_INI.
    CIniFile ini;
    ini.WriteDouble("CURVE", "DmC2", 2.5);
    if (ini.GetDouble("CURVE", "DmC2", 1.0) != 2.5)
        return Fail("the INI file did not keep a value");
    std::printf("INI file: %s\n", ini.GetPath().c_str());

    // The document streams carry the format version and raw little-endian values.
    std::stringbuf memory;
    ofpstream out(&memory, 1502);
    dtm::io::WriteRaw<std::int32_t>(out, 42);
    ifpstream in(&memory, out.GetVersion());
    std::int32_t value = 0;
    if (!dtm::io::ReadRaw(in, value) || value != 42) return Fail("the stream lost a value");

    // CAD colour indexes to RGB and back.
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(1, r, g, b);
    const short back = CLumoEng::RGB_to_Index((static_cast<unsigned long>(r) << 16) |
                                              (static_cast<unsigned long>(g) << 8) |
                                              static_cast<unsigned long>(b));
    std::printf("colour 1 is RGB(%ld, %ld, %ld), back to index %d\n", r, g, b, back);
    return back == 1 ? EXIT_SUCCESS : Fail("the colour did not come back");
}
