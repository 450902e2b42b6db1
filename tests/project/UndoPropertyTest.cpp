// Randomized sequences of host operations on a library of projects, with fixed seeds: after
// each sequence, undoing every step it filed must give back the state before it, redoing them
// the state after it, and so on alternately. "State" is what undo restores, compared field by
// field (ProjectState): a contour line's visibility is left out, since no memento holds it.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>
#include <dtm/project/TDtmOpz.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Probes.h"
#include "ProjectState.h"

namespace {

using kor::CRefPtr;
using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

/// Sequences run in the suite; each has its own fixed seed.
constexpr int kSequenceCount = 2000;
/// Operations per sequence: 1 to this many.
constexpr int kMaxOperations = 30;

class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}
    /// An integer in [lo, hi].
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_engine); }
    /// A value on a coarse grid in [lo, hi], so that coordinates repeat and touch now and then.
    double Grid(double lo, double hi) { return lo + 0.5 * Int(0, static_cast<int>(2 * (hi - lo))); }
    bool Chance(int percent) { return Int(1, 100) <= percent; }
    PNT_3D Point() { return PNT_3D(Grid(0, 40), Grid(0, 40), Grid(0, 20)); }
    short Colour() { return static_cast<short>(Chance(15) ? 256 : Int(1, 9)); }

private:
    std::mt19937_64 m_engine;
};

/// One sequence: a library with a few projects, the operations applied to it, and their log.
class Sequence {
public:
    /// @p alive counts the sequence's projects that live; it must outlive the sequence.
    Sequence(std::uint64_t seed, int& alive) : m_alive(alive), m_random(seed) {
        m_lib = std::make_unique<CLibDtm>(&m_tm);
        Log("-- setup");
        for (int i = 0; i < 3; ++i) Fill(*NewProject(i == 0 ? "Rilievo" : "Alfa"));
        m_lib->SetActive(m_lib->GetPrj(0), true);
    }

    ~Sequence() {
        m_lib.reset();
        m_tm.Clear();
    }

    /// The library's state after each group of operations, by the number of steps in the
    /// manager's undo stack then; a later group that filed no step replaces the earlier one.
    using Checkpoints = std::map<std::size_t, dtm_test::LibraryState>;

    /// Applies 1 to kMaxOperations operations, some bracketed in one outer event, and returns
    /// the checkpoints, the state before the first operation included.
    Checkpoints Run() {
        Checkpoints checkpoints;
        const auto checkpoint = [this, &checkpoints] {
            const std::size_t steps = m_tm.GetUndoCount();
            checkpoints[steps] = dtm_test::CaptureLibrary(*m_lib);
            Log("-- " + std::to_string(steps) + " steps");
        };
        Log("-- sequence");
        checkpoint();
        const int total = m_random.Int(1, kMaxOperations);
        int done = 0;
        while (done < total) {
            CDtmPrj* prj = RandomProject();
            const bool onLibrary = prj == nullptr || m_random.Chance(15);
            const int group = m_random.Chance(35) ? m_random.Int(2, 4) : 1;
            const int count = std::min(group, total - done);
            if (group > 1) Log(onLibrary ? "begin library event" : "begin event on " + Name(prj));
            m_removedInEvent = false;
            {
                kor::CEventGuard event(group == 1 ? nullptr
                                       : onLibrary
                                           ? static_cast<kor::CSourceEvent*>(m_lib->GetContext())
                                           : prj->GetContext());
                for (int i = 0; i < count; ++i) {
                    if (onLibrary)
                        LibraryOperation();
                    else
                        ProjectOperation(*prj);
                }
            }
            if (group > 1) Log("end event");
            done += count;
            checkpoint();
        }
        return checkpoints;
    }

    kor::CChangeTransactionManager& Manager() { return m_tm; }
    CLibDtm& Library() { return *m_lib; }

    std::string Describe() const {
        std::ostringstream text;
        for (const std::string& line : m_log) text << "  " << line << "\n";
        return text.str();
    }

private:
    // Projects --------------------------------------------------------------------------------

    CDtmPrj* NewProject(const char* name) {
        auto* prj = new dtm_test::ProbePrj(m_alive, m_lib.get(), name);
        m_names[prj] = "P" + std::to_string(m_names.size());
        m_lib->AddPrj(prj);
        return prj;
    }

    void Fill(CDtmPrj& prj) {
        for (int i = 0; i < 5; ++i) prj.GetTris()->AddTriVrt(m_random.Point());
        for (int i = 0; i < 3; ++i) AddTriangle(prj);
        AddBoundary(prj);
        prj.GetVncs()->AddNewVnc(LINE_3D(m_random.Point(), m_random.Point()));
        AddContourLine(prj);
    }

    CDtmPrj* RandomProject() {
        const unsigned count = m_lib->GetNoPrj();
        return count == 0 ? nullptr
                          : m_lib->GetPrj(static_cast<unsigned>(m_random.Int(0, count - 1)));
    }

    std::string Name(const CDtmPrj* prj) const {
        const auto found = m_names.find(prj);
        return found == m_names.end() ? "?" : found->second;
    }

    void Log(const std::string& line) { m_log.push_back(line); }

    std::string FreshName() { return "N" + std::to_string(++m_nameCounter); }

    void LibraryOperation() {
        switch (m_random.Int(0, 3)) {
            case 0: {
                // After a removal in the same event the name is fresh: undo gives the removed
                // project back while the added one still holds its name, and renames it.
                static const char* const names[] = {"Rilievo", "RILIEVO", "Alfa", "Beta"};
                const std::string name =
                    m_removedInEvent ? FreshName() : std::string(names[m_random.Int(0, 3)]);
                CDtmPrj* prj = NewProject(name.c_str());
                Log("AddPrj " + Name(prj) + " '" + prj->GetName().str() + "'");
                if (m_random.Chance(50)) Fill(*prj);
                break;
            }
            case 1: {
                CDtmPrj* prj = RandomProject();
                if (!prj) return;
                Log("RemovePrj " + Name(prj));
                m_lib->RemovePrj(prj, m_random.Chance(50));
                m_removedInEvent = true;
                break;
            }
            default: {
                CDtmPrj* prj = m_random.Chance(20) ? nullptr : RandomProject();
                Log("SetActive " + (prj ? Name(prj) : std::string("none")));
                // Inside an event of its own, the change is an undo step (one already inside a
                // library group is nested, as it would be without this guard).
                kor::CEventGuard event(m_lib->GetContext());
                m_lib->SetActive(prj, true);
                break;
            }
        }
    }

    void ProjectOperation(CDtmPrj& prj) {
        using Operation = void (Sequence::*)(CDtmPrj&);
        static const Operation operations[] = {
            &Sequence::AddVertex,       &Sequence::MoveVertex,         &Sequence::RemoveVertex,
            &Sequence::AddTriangle,     &Sequence::RemoveTriangle,     &Sequence::RecolourTriangle,
            &Sequence::ReindexTriangle, &Sequence::RemoveAllTriangles, &Sequence::DeleteSelected,
            &Sequence::AddBoundary,     &Sequence::EditBoundary,       &Sequence::RemoveBoundary,
            &Sequence::AddBreakline,    &Sequence::EditBreakline,      &Sequence::RemoveBreakline,
            &Sequence::AddContourLine,  &Sequence::EditContourLine,    &Sequence::MoveContourNodes,
            &Sequence::EditIntervals,   &Sequence::RemoveContourLine,  &Sequence::SetOptionsRecord,
            &Sequence::UseOptionSetter, &Sequence::RenameProject,
        };
        constexpr int count = static_cast<int>(sizeof(operations) / sizeof(operations[0]));
        (this->*operations[m_random.Int(0, count - 1)])(prj);
    }

    // Network ---------------------------------------------------------------------------------

    void AddVertex(CDtmPrj& prj) {
        const PNT_3D p = m_random.Point();
        Log(Name(&prj) + " AddTriVrt");
        prj.GetTris()->AddTriVrt(p);
    }

    void MoveVertex(CDtmPrj& prj) {
        CTris& tris = *prj.GetTris();
        if (tris.GetNoTriVrts() == 0) return;
        const int i = m_random.Int(0, tris.GetNoTriVrts() - 1);
        Log(Name(&prj) + " SetTriVrtAt " + std::to_string(i));
        tris.SetTriVrtAt(i, m_random.Point());
    }

    /// As a careful caller removes a vertex: the triangles that use it go, the others follow
    /// the renumbering, then the vertex goes, so that no triangle refers past the end.
    void RemoveVertex(CDtmPrj& prj) {
        CTris& tris = *prj.GetTris();
        if (tris.GetNoTriVrts() == 0) return;
        const int v = m_random.Int(0, tris.GetNoTriVrts() - 1);
        Log(Name(&prj) + " RemoveTriVrt " + std::to_string(v));
        const auto uses = [v](const CTri* t) {
            return t->GetVerIndex(0) == v || t->GetVerIndex(1) == v || t->GetVerIndex(2) == v;
        };
        for (int i = tris.GetNoTris() - 1; i >= 0; --i)
            if (uses(tris.GetTriAt(i))) tris.RemoveTriAt(i);
        for (int i = 0; i < tris.GetNoTris(); ++i) {
            CTri* t = tris.GetTriAt(i);
            const auto down = [t, v](int k) { return t->GetVerIndex(k) - (t->GetVerIndex(k) > v); };
            if (down(0) != t->GetVerIndex(0) || down(1) != t->GetVerIndex(1) ||
                down(2) != t->GetVerIndex(2))
                t->SetVerIndexes(&tris, down(0), down(1), down(2));
        }
        tris.RemoveTriVrt(v);
    }

    /// Three distinct vertex indices, or false with fewer than three vertices.
    bool Corners(const CTris& tris, int corners[3]) {
        const int count = tris.GetNoTriVrts();
        if (count < 3) return false;
        corners[0] = m_random.Int(0, count - 1);
        do corners[1] = m_random.Int(0, count - 1);
        while (corners[1] == corners[0]);
        do corners[2] = m_random.Int(0, count - 1);
        while (corners[2] == corners[0] || corners[2] == corners[1]);
        return true;
    }

    void AddTriangle(CDtmPrj& prj) {
        int c[3];
        if (!Corners(*prj.GetTris(), c)) return;
        Log(Name(&prj) + " AddNewTri");
        prj.GetTris()->AddNewTri(m_random.Colour(), c[0], c[1], c[2]);
    }

    CTri* RandomTriangle(CTris& tris) {
        return tris.GetNoTris() == 0 ? nullptr
                                     : tris.GetTriAt(m_random.Int(0, tris.GetNoTris() - 1));
    }

    void RemoveTriangle(CDtmPrj& prj) {
        CTris& tris = *prj.GetTris();
        CTri* tri = RandomTriangle(tris);
        if (!tri) return;
        switch (m_random.Int(0, 2)) {
            case 0:
                Log(Name(&prj) + " RemoveTriAt");
                tris.RemoveTriAt(tris.FindTriIndex(tri));
                break;
            case 1:
                Log(Name(&prj) + " RemoveTri(t)");
                tris.RemoveTri(tri);
                break;
            default: {
                double x = 0.0, y = 0.0;
                tris.CalcCentroTri(tris.FindTriIndex(tri), x, y);
                Log(Name(&prj) + " RemoveTri(x, y, z)");
                tris.RemoveTri(x, y, 0.0);
                break;
            }
        }
    }

    void RecolourTriangle(CDtmPrj& prj) {
        CTri* tri = RandomTriangle(*prj.GetTris());
        if (!tri) return;
        Log(Name(&prj) + " CTri::SetColor");
        tri->SetColor(prj.GetTris(), m_random.Colour());
    }

    void ReindexTriangle(CDtmPrj& prj) {
        CTri* tri = RandomTriangle(*prj.GetTris());
        int c[3];
        if (!tri || !Corners(*prj.GetTris(), c)) return;
        Log(Name(&prj) + " CTri::SetVerIndexes");
        tri->SetVerIndexes(prj.GetTris(), c[0], c[1], c[2]);
    }

    void RemoveAllTriangles(CDtmPrj& prj) {
        Log(Name(&prj) + " CTris::RemoveAll");
        prj.GetTris()->RemoveAll();
        // Now and then the network is rebuilt in the same event.
        if (m_random.Chance(50)) {
            kor::CEventGuard same(prj.GetContext());
            for (int i = 0; i < 4; ++i) AddVertex(prj);
            AddTriangle(prj);
        }
    }

    void DeleteSelected(CDtmPrj& prj) {
        CTris& tris = *prj.GetTris();
        for (int i = 0; i < tris.GetNoTris(); ++i)
            if (m_random.Chance(40)) tris.SelTri(i, false);
        Log(Name(&prj) + " DelSelTris");
        tris.DelSelTris();
    }

    // Boundaries and breaklines ----------------------------------------------------------------

    std::vector<PNT_3D> RandomRing() {
        std::vector<PNT_3D> ring;
        const int count = m_random.Int(1, 4);
        for (int i = 0; i < count; ++i) ring.push_back(m_random.Point());
        return ring;
    }

    CCnts& RandomCnts(CDtmPrj& prj) { return *prj.GetCnts(m_random.Chance(50)); }

    void AddBoundary(CDtmPrj& prj) {
        auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
        cnt->SetRealVrts(RandomRing());
        CCnts& cnts = RandomCnts(prj);
        Log(Name(&prj) + " AddCnt " + (cnts.AreInternalCnts() ? "internal" : "external"));
        cnts.AddCnt(cnt.Get());
    }

    void EditBoundary(CDtmPrj& prj) {
        CCnts& cnts = RandomCnts(prj);
        if (cnts.GetNoCnts() == 0) return;
        CCnt* cnt = cnts.GetCntAt(m_random.Int(0, cnts.GetNoCnts() - 1));
        if (m_random.Chance(50)) {
            Log(Name(&prj) + " CCnt::SetRealVrts");
            cnt->SetRealVrts(RandomRing());
        } else {
            Log(Name(&prj) + " CCntModifier::MovePoint");
            CCntModifier modifier(cnt);
            modifier.MovePoint(m_random.Int(0, cnt->GetNoVrts() - 1), m_random.Point());
        }
    }

    void RemoveBoundary(CDtmPrj& prj) {
        CCnts& cnts = RandomCnts(prj);
        if (cnts.GetNoCnts() == 0) return;
        switch (m_random.Int(0, 2)) {
            case 0:
                Log(Name(&prj) + " RemoveCntAt");
                cnts.RemoveCntAt(m_random.Int(0, cnts.GetNoCnts() - 1));
                break;
            case 1:
                Log(Name(&prj) + " RemoveCnt");
                cnts.RemoveCnt(cnts.GetCntAt(m_random.Int(0, cnts.GetNoCnts() - 1)));
                break;
            default:
                Log(Name(&prj) + " RemoveAllCnts");
                cnts.RemoveAllCnts();
                break;
        }
    }

    void AddBreakline(CDtmPrj& prj) {
        Log(Name(&prj) + " AddNewVnc");
        prj.GetVncs()->AddNewVnc(LINE_3D(m_random.Point(), m_random.Point()));
    }

    void EditBreakline(CDtmPrj& prj) {
        CVncs& vncs = *prj.GetVncs();
        if (vncs.GetNoVncs() == 0) return;
        CVnc* vnc = vncs.GetVncAt(m_random.Int(0, vncs.GetNoVncs() - 1));
        Log(Name(&prj) + " SetCoords");
        vnc->SetCoords(m_random.Chance(20) ? vnc->GetCoords()
                                           : LINE_3D(m_random.Point(), m_random.Point()));
    }

    void RemoveBreakline(CDtmPrj& prj) {
        CVncs& vncs = *prj.GetVncs();
        if (vncs.GetNoVncs() == 0) return;
        switch (m_random.Int(0, 2)) {
            case 0:
                Log(Name(&prj) + " RemoveVncAt");
                vncs.RemoveVncAt(m_random.Int(0, vncs.GetNoVncs() - 1));
                break;
            case 1:
                Log(Name(&prj) + " RemoveVnc");
                vncs.RemoveVnc(vncs.GetVncAt(m_random.Int(0, vncs.GetNoVncs() - 1)));
                break;
            default:
                Log(Name(&prj) + " RemoveAllVncs");
                vncs.RemoveAllVncs();
                break;
        }
    }

    // Contour lines ----------------------------------------------------------------------------

    void AddContourLine(CDtmPrj& prj) {
        const int count = m_random.Int(2, 5);
        std::vector<double> x, y;
        for (int i = 0; i < count; ++i) {
            x.push_back(10.0 * i + m_random.Grid(0, 5));
            y.push_back(m_random.Grid(0, 20));
        }
        const double sigma = m_random.Chance(20) ? -1.0 : m_random.Grid(1, 3);
        Log(Name(&prj) + " AddNewCvLv");
        prj.GetCvLvs()->AddNewCvLv(m_random.Grid(-5, 25), sigma, m_random.Colour(), count, x.data(),
                                   y.data());
    }

    CCvLv* RandomLine(CDtmPrj& prj) {
        CCvLvs& lines = *prj.GetCvLvs();
        if (lines.GetNoCvLvs() == 0) return nullptr;
        return lines.GetCvLvAt(static_cast<unsigned>(m_random.Int(0, lines.GetNoCvLvs() - 1)));
    }

    void EditContourLine(CDtmPrj& prj) {
        CCvLv* line = RandomLine(prj);
        if (!line) return;
        switch (m_random.Int(0, 2)) {
            case 0:
                Log(Name(&prj) + " CCvLv::SetColor");
                line->SetColor(m_random.Colour());
                break;
            case 1:
                Log(Name(&prj) + " ChangeSigmaTension");
                line->ChangeSigmaTension(m_random.Chance(20) ? -1.0 : m_random.Grid(1, 4));
                break;
            default:
                // Not compared: no memento holds the visibility.
                Log(Name(&prj) + " SetVisible");
                line->SetVisible(m_random.Chance(50));
                break;
        }
    }

    void MoveContourNodes(CDtmPrj& prj) {
        CCvLv* line = RandomLine(prj);
        if (!line || line->GetNoNodes() == 0) return;
        Log(Name(&prj) + " CCvLvModifier::MoveNode");
        // The modifier opens no event: mostly the caller brackets the edit, as it should.
        kor::CEventGuard event(m_random.Chance(80) ? prj.GetContext() : nullptr);
        CCvLvModifier modifier(line);
        const int moves = m_random.Int(1, 3);
        for (int i = 0; i < moves; ++i) {
            modifier.MoveNode(static_cast<unsigned>(m_random.Int(0, line->GetNoNodes() - 1)),
                              m_random.Grid(0, 40), m_random.Grid(0, 20));
        }
    }

    void EditIntervals(CDtmPrj& prj) {
        CCvLv* line = RandomLine(prj);
        if (!line) return;
        CCvLvInterv* interval = line->GetNoIntervals() == 0
                                    ? nullptr
                                    : line->GetIntervalAt(static_cast<unsigned>(
                                          m_random.Int(0, line->GetNoIntervals() - 1)));
        switch (m_random.Int(0, 5)) {
            case 0:
            case 1: {
                const double start = m_random.Grid(0, 30);
                Log(Name(&prj) + " AddInterval");
                line->AddInterval(start, start + m_random.Grid(0.5, 6), m_random.Int(0, 3));
                break;
            }
            case 2:
                if (!interval) return;
                Log(Name(&prj) + " RemoveInterval");
                line->RemoveInterval(interval);
                break;
            case 3:
                if (!interval) return;
                Log(Name(&prj) + " InvertTextDirection");
                line->InvertTextDirection(interval);
                break;
            case 4:
                Log(Name(&prj) + " RemoveEmpty/TextIntervals");
                if (m_random.Chance(50))
                    line->RemoveEmptyIntervals();
                else
                    line->RemoveTextIntervals();
                break;
            default: {
                if (!interval) return;
                const double start = m_random.Grid(0, 30);
                Log(Name(&prj) + " ChangeIntervalDimension");
                line->ChangeIntervalDimension(line->FindInterval(interval), start,
                                              start + m_random.Grid(0, 4));
                break;
            }
        }
    }

    void RemoveContourLine(CDtmPrj& prj) {
        CCvLv* line = RandomLine(prj);
        if (!line) return;
        if (m_random.Chance(25)) {
            Log(Name(&prj) + " RemoveAllCvLvs");
            prj.GetCvLvs()->RemoveAllCvLvs();
        } else {
            Log(Name(&prj) + " RemoveCvLv");
            prj.GetCvLvs()->RemoveCvLv(line);
        }
    }

    // Options and properties ---------------------------------------------------------------------

    CColorClassComputer RandomClasses() {
        CColorClassComputer classes;
        const int count = m_random.Int(0, 3);
        const bool custom = m_random.Chance(50);
        for (int i = 0; i < count; ++i) {
            if (custom)
                classes.AddEntry(i, 5.0 * (i + 1), m_random.Colour());
            else
                classes.AddEntry(i, m_random.Colour());
        }
        return classes;
    }

    void SetOptionsRecord(CDtmPrj& prj) {
        TDtmOpz options;
        options.GetFromPrj(&prj);
        const int changes = m_random.Int(1, 4);
        for (int i = 0; i < changes; ++i) {
            switch (m_random.Int(0, 11)) {
                case 0:
                    options.vncActive = !options.vncActive;
                    break;
                case 1:
                    options.cnt0Active = !options.cnt0Active;
                    break;
                case 2:
                    options.cnt1Color = m_random.Colour();
                    break;
                case 3:
                    options.triFirstFlag = !options.triFirstFlag;
                    break;
                case 4:
                    options.triFixedColor = m_random.Colour();
                    break;
                case 5:
                    options.triLayerColor = m_random.Colour();
                    break;
                case 6:
                    options.cvLvCategoryOn[m_random.Int(0, 3)] ^= true;
                    break;
                case 7:
                    options.cvLvCategoryColor[m_random.Int(0, 3)] = m_random.Colour();
                    break;
                case 8:
                    options.triTextHeight = m_random.Grid(1, 3);
                    break;
                case 9:
                    options.triColorType =
                        static_cast<COpzTri::enumTriColorType>(m_random.Int(0, 2));
                    options.triSymbol = static_cast<COpzTri::enumTriSymbol>(m_random.Int(0, 3));
                    break;
                case 10:
                    options.triColorClasses = RandomClasses();
                    break;
                default:
                    options.cvLvColorByLayer = !options.cvLvColorByLayer;
                    options.cvLvColorClasses = RandomClasses();
                    break;
            }
        }
        Log(Name(&prj) + " TDtmOpz::SetToPrj");
        options.SetToPrj(&prj);
    }

    /// Inside an event of its own, as a host makes an option change that is to be undone (a
    /// setter stores before its report opens the event, which alone would see no change).
    void UseOptionSetter(CDtmPrj& prj) {
        kor::CEventGuard event(prj.GetContext());
        switch (m_random.Int(0, 6)) {
            case 0:
                Log(Name(&prj) + " SetVncActive");
                prj.SetVncActive(m_random.Chance(50));
                break;
            case 1:
                Log(Name(&prj) + " SetCntActive");
                prj.SetCntActive(m_random.Int(0, 2), m_random.Chance(50));
                break;
            case 2:
                Log(Name(&prj) + " CDtmPrj::SetVisOptions");
                prj.SetVisOptions(m_random.Chance(50), m_random.Chance(50), m_random.Chance(50),
                                  m_random.Colour(), m_random.Colour(), m_random.Colour());
                break;
            case 3:
                Log(Name(&prj) + " CTris::SetVisOptions(flag)");
                prj.GetTris()->SetVisOptions(m_random.Chance(50));
                break;
            case 4:
                Log(Name(&prj) + " CTris::SetVisOptions");
                prj.GetTris()->SetVisOptions(
                    m_random.Chance(50), m_random.Chance(50),
                    static_cast<COpzTri::enumTriColorType>(m_random.Int(0, 1)), m_random.Colour(),
                    m_random.Colour(), RandomClasses(),
                    static_cast<COpzTri::enumTriSymbol>(m_random.Int(0, 3)), m_random.Grid(1, 2),
                    m_random.Grid(1, 2));
                break;
            case 5:
                Log(Name(&prj) + " CTris::SetTextOptions");
                prj.GetTris()->SetTextOptions(m_random.Grid(1, 3));
                break;
            default: {
                Log(Name(&prj) + " CCvLvs::SetVisOptions");
                const auto colour = [this] {
                    return static_cast<std::uint16_t>(m_random.Colour());
                };
                prj.GetCvLvs()->SetVisOptions(m_random.Chance(50), m_random.Chance(50),
                                              m_random.Chance(50), m_random.Chance(50),
                                              m_random.Chance(50), colour(), colour(), colour(),
                                              colour(), RandomClasses());
                break;
            }
        }
    }

    /// Names given by renaming never collide, so that a project that undo gives back through
    /// AddPrj keeps its name.
    void RenameProject(CDtmPrj& prj) {
        switch (m_random.Int(0, 3)) {
            case 0:
                Log(Name(&prj) + " SetName");
                prj.SetName(FreshName());
                break;
            case 1:
                Log(Name(&prj) + " SetProps");
                prj.SetProps(m_random.Chance(50) ? prj.GetName() : FreshName(), m_random.Chance(50),
                             m_random.Chance(50));
                break;
            case 2:
                Log(Name(&prj) + " SetVisible");
                prj.SetVisible(m_random.Chance(50));
                break;
            default:
                Log(Name(&prj) + " SetLocked");
                prj.SetLocked(m_random.Chance(50));
                break;
        }
    }

    kor::CChangeTransactionManager m_tm;
    int& m_alive;
    std::unique_ptr<CLibDtm> m_lib;
    Random m_random;
    std::map<const CDtmPrj*, std::string> m_names;
    std::vector<std::string> m_log;
    int m_nameCounter = 0;
    // Whether the library operations of the current group removed a project.
    bool m_removedInEvent = false;
};

/// Undoes (@p undo) or redoes @p steps steps, each of which must exist, then compares the
/// library with @p expected. The first failure in words, or empty.
std::string StepAndCompare(Sequence& sequence, bool undo, std::size_t steps,
                           const dtm_test::LibraryState& expected) {
    kor::CChangeTransactionManager& manager = sequence.Manager();
    for (std::size_t i = 0; i < steps; ++i) {
        if (!(undo ? manager.Undo() : manager.Redo()))
            return (undo ? "undo " : "redo ") + std::to_string(i) + " reported false";
    }
    return dtm_test::FirstDifference(expected, dtm_test::CaptureLibrary(sequence.Library()));
}

/// Undoes (@p undo) or redoes @p steps steps one at a time, comparing the library with the
/// checkpoint of every stack height it passes that has one. The first failure in words, or
/// empty.
std::string Walk(Sequence& sequence, bool undo, std::size_t steps,
                 const Sequence::Checkpoints& checkpoints) {
    kor::CChangeTransactionManager& manager = sequence.Manager();
    for (std::size_t i = 0; i < steps; ++i) {
        if (!(undo ? manager.Undo() : manager.Redo()))
            return (undo ? "undo " : "redo ") + std::to_string(i) + " reported false";
        const auto found = checkpoints.find(manager.GetUndoCount());
        if (found == checkpoints.end()) continue;
        const std::string difference =
            dtm_test::FirstDifference(found->second, dtm_test::CaptureLibrary(sequence.Library()));
        if (!difference.empty())
            return std::string(undo ? "undoing" : "redoing") + " to " +
                   std::to_string(found->first) + " steps: " + difference;
    }
    return {};
}

/// Runs one sequence and checks it; @p log receives its operations. The first failure, in
/// words, or empty.
std::string CheckSequence(std::uint64_t seed, std::string& log) {
    int alive = 0;
    std::string failure;
    {
        Sequence sequence(seed, alive);
        const auto before = dtm_test::CaptureLibrary(sequence.Library());
        const std::size_t stepsBefore = sequence.Manager().GetUndoCount();
        const Sequence::Checkpoints checkpoints = sequence.Run();
        log = sequence.Describe();
        const auto after = dtm_test::CaptureLibrary(sequence.Library());
        const std::size_t steps = sequence.Manager().GetUndoCount() - stepsBefore;
        // Step by step first, through every state the sequence passed...
        failure = Walk(sequence, true, steps, checkpoints);
        if (failure.empty()) failure = Walk(sequence, false, steps, checkpoints);
        // ...then all the way, back and forth.
        for (int round = 0; round < 3 && failure.empty(); ++round) {
            const std::string undone = StepAndCompare(sequence, true, steps, before);
            const std::string redone =
                undone.empty() ? StepAndCompare(sequence, false, steps, after) : std::string();
            if (!undone.empty())
                failure = "after undoing all " + std::to_string(steps) + " steps (round " +
                          std::to_string(round) + "): " + undone;
            else if (!redone.empty())
                failure = "after redoing all " + std::to_string(steps) + " steps (round " +
                          std::to_string(round) + "): " + redone;
        }
        // Part of the way back, then forth again.
        const std::size_t part = steps / 2;
        if (failure.empty()) failure = Walk(sequence, true, part, checkpoints);
        if (failure.empty()) failure = Walk(sequence, false, part, checkpoints);
        if (failure.empty())
            failure =
                dtm_test::FirstDifference(after, dtm_test::CaptureLibrary(sequence.Library()));
        if (failure.empty() && sequence.Manager().GetUndoCount() != stepsBefore + steps)
            failure = "applying the steps filed new ones";
    }
    if (failure.empty() && alive != 0)
        failure = std::to_string(alive) + " projects outlived the library and every step";
    return failure;
}

TEST(UndoProperty, EveryRandomSequenceIsUndoneAndRedoneExactly) {
    int failures = 0;
    for (int index = 0; index < kSequenceCount && failures < 3; ++index) {
        const std::uint64_t seed = 0x9E3779B97F4A7C15ull * static_cast<std::uint64_t>(index + 1);
        std::string log;
        const std::string failure = CheckSequence(seed, log);
        if (!failure.empty()) {
            ++failures;
            ADD_FAILURE() << "sequence " << index << ", seed " << seed << ": " << failure
                          << "\noperations:\n"
                          << log;
        }
    }
}

}  // namespace
