#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/network/CCld.h>
#include <dtm/network/COpzTri.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/network/ITris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/Geom.h>
#include <dtm/support/LumoEng.h>
#include <dtm/support/RefCounter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "CloudNetworkTestSupport.h"
#include "OcTreeChecker.h"
#include "Probes.h"

namespace {

using dtm_test::ProjectEventRecorder;
using dtm_test::RandomNetwork;
using dtm_test::TestProject;
using kor::geom::PLANE_3D;
using kor::geom::PNT_3D;

// The standard colours at the start of the CAD palette, packed 0x00BBGGRR by hand.
constexpr int PACKED_RED = 0x0000FF;    // index 1
constexpr int PACKED_GREEN = 0x00FF00;  // index 3
constexpr int PACKED_BLUE = 0xFF0000;   // index 5
constexpr int PACKED_WHITE = 0xFFFFFF;  // index 7

// What a host listener was handed.
struct IndexCall {
    int i0, i1, i2;
    bool selected;
    int index;
    int colour;
};

class RecordingListener : public ITrisListener {
public:
    std::vector<int> bufferCounts;
    std::vector<const TTriDraw*> bufferAddresses;
    std::vector<TTriDraw> records;
    std::vector<IndexCall> indexCalls;

    void OnTris(int count, TTriDraw* buffer) override {
        bufferCounts.push_back(count);
        bufferAddresses.push_back(buffer);
        records.insert(records.end(), buffer, buffer + count);
    }
    void OnTriIndexes(int i0, int i1, int i2, bool selected, int index, int colour) override {
        indexCalls.push_back({i0, i1, i2, selected, index, colour});
    }

    std::vector<int> RecordIndexes() const {
        std::vector<int> indexes;
        for (const TTriDraw& record : records) indexes.push_back(record.index);
        return indexes;
    }
    std::vector<int> CallIndexes() const {
        std::vector<int> indexes;
        for (const IndexCall& call : indexCalls) indexes.push_back(call.index);
        return indexes;
    }
};

std::vector<int> Sorted(std::vector<int> values) {
    std::sort(values.begin(), values.end());
    return values;
}

std::vector<int> AllPositions(const CTris& tris) {
    std::vector<int> positions;
    for (int i = 0; i < tris.GetNoTris(); ++i) positions.push_back(i);
    return positions;
}

// A project whose network's listener has been armed by an empty first event, so that the event
// that fills the network already builds the octree and starts the selection.
class ArmedProject : public TestProject {
public:
    ArmedProject() { kor::CEventGuard arming(Prj()->GetContext()); }
};

PNT_3D VertexOf(const CTris& tris, const CTri* t, int k) {
    return tris.GetPnts()[static_cast<std::size_t>(t->GetVerIndex(k))];
}

// Brute force: a triangle is culled when, for some plane, a·x + b·y + c·z + d > 0 at its
// three vertices.
std::vector<int> VisibleByBruteForce(const CTris& tris, const std::vector<PLANE_3D>& planes) {
    std::vector<int> visible;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri* t = tris.GetTriAt(i);
        bool culled = false;
        for (const PLANE_3D& plane : planes) {
            bool allPositive = true;
            for (int k = 0; k < 3; ++k) {
                const PNT_3D p = VertexOf(tris, t, k);
                allPositive =
                    allPositive && plane.a * p.x + plane.b * p.y + plane.c * p.z + plane.d > 0.0;
            }
            culled = culled || allPositive;
        }
        if (!culled) visible.push_back(i);
    }
    return visible;
}

// Brute force: the horizontal plane at z crosses a triangle when vertex 1 or vertex 2 lies on
// the other side of it than vertex 0, or on it.
std::vector<int> CrossedByBruteForce(const CTris& tris, double z) {
    std::vector<int> crossed;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri* t = tris.GetTriAt(i);
        const double z0 = VertexOf(tris, t, 0).z - z;
        const double z1 = VertexOf(tris, t, 1).z - z;
        const double z2 = VertexOf(tris, t, 2).z - z;
        if (z1 * z0 <= 0.0 || z2 * z0 <= 0.0) crossed.push_back(i);
    }
    return crossed;
}

// The own colour a record carries, packed: 256 stands for the options' fixed colour, and the
// foreground colour 7 is black on a white background.
int ExpectedOwnColour(const CTris& tris, const CTri* t) {
    int index = t->GetColor();
    if (index == 256) index = tris.GetOptions().GetFixedColor();
    if (index == 7 && tris.GetBackgroundColor() == 0xFFFFFF) return 0;
    long r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(static_cast<short>(index), r, g, b);
    return static_cast<int>(r | g << 8 | b << 16);
}

// Every field of @p record against the network it describes.
void ExpectRecordDescribes(const CTris& tris, const TTriDraw& record) {
    ASSERT_GE(record.index, 0);
    ASSERT_LT(record.index, tris.GetNoTris());
    const CTri* t = tris.GetTriAt(record.index);
    for (int k = 0; k < 3; ++k) {
        const PNT_3D expected = VertexOf(tris, t, k);
        EXPECT_EQ(record.pnts[k].x, expected.x);
        EXPECT_EQ(record.pnts[k].y, expected.y);
        EXPECT_EQ(record.pnts[k].z, expected.z);
    }
    const int own = ExpectedOwnColour(tris, t);
    EXPECT_EQ(record.color, own);
    EXPECT_EQ(record.red, static_cast<float>(own & 0xFF) / 255.0f);
    EXPECT_EQ(record.green, static_cast<float>((own >> 8) & 0xFF) / 255.0f);
    EXPECT_EQ(record.blue, static_cast<float>((own >> 16) & 0xFF) / 255.0f);
    EXPECT_EQ(record.drawColor, tris.CalcColorTri(t));
    EXPECT_EQ(record.selected, tris.IsSelTri(record.index));
}

void ExpectCallDescribes(const CTris& tris, const IndexCall& call) {
    ASSERT_GE(call.index, 0);
    ASSERT_LT(call.index, tris.GetNoTris());
    const CTri* t = tris.GetTriAt(call.index);
    EXPECT_EQ(call.i0, t->GetVerIndex(0));
    EXPECT_EQ(call.i1, t->GetVerIndex(1));
    EXPECT_EQ(call.i2, t->GetVerIndex(2));
    EXPECT_EQ(call.selected, tris.IsSelTri(call.index));
    EXPECT_EQ(call.colour, tris.CalcColorTri(t));
}

// A network of @p count separate triangles in a row along x, triangle i at elevation i.
void FillRow(TestProject& project, int count) {
    std::vector<PNT_3D> vertices;
    std::vector<dtm_test::TriIndices> triangles;
    for (int i = 0; i < count; ++i) {
        const double x = 2.0 * i;
        vertices.emplace_back(x, 0.0, i);
        vertices.emplace_back(x + 1.0, 0.0, i);
        vertices.emplace_back(x, 1.0, i);
        triangles.push_back({3 * i, 3 * i + 1, 3 * i + 2});
    }
    project.Fill(vertices, triangles);
}

// Gives each triangle a colour among a few that exercise the record's colour rules, and
// selects about a third of them; the selected positions are returned.
std::vector<int> ColourAndSelect(CTris& tris, unsigned seed) {
    std::mt19937 random(seed);
    const int colours[] = {1, 3, 7, 30, 256};
    std::uniform_int_distribution<int> pickColour(0, 4);
    {
        kor::CEventGuard event(tris.GetContext());
        for (int i = 0; i < tris.GetNoTris(); ++i)
            tris.GetTriAt(i)->SetColor(&tris, colours[pickColour(random)]);
    }
    std::bernoulli_distribution pickSelected(1.0 / 3.0);
    std::vector<int> selected;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        if (pickSelected(random)) {
            tris.SelTri(i, false);
            selected.push_back(i);
        }
    }
    return selected;
}

// Random planes through points of the box [0, 100]² × [0, 10], some of them axis-aligned
// through a vertex so that vertices lie exactly on them.
std::vector<PLANE_3D> RandomPlanes(std::mt19937& random, const CTris& tris, int count) {
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_real_distribution<double> inside(0.0, 1.0);
    std::uniform_int_distribution<int> vertex(0, tris.GetNoTriVrts() - 1);
    std::vector<PLANE_3D> planes;
    for (int i = 0; i < count; ++i) {
        if (i % 2 == 1) {
            const PNT_3D& p = tris.GetPnts()[static_cast<std::size_t>(vertex(random))];
            const int axis = i % 3;
            planes.emplace_back(axis == 0 ? 1.0 : 0.0, axis == 1 ? -1.0 : 0.0,
                                axis == 2 ? 1.0 : 0.0, axis == 0 ? -p.x : (axis == 1 ? p.y : -p.z));
            continue;
        }
        const double a = unit(random);
        const double b = unit(random);
        const double c = unit(random);
        const PNT_3D through(100.0 * inside(random), 100.0 * inside(random), 10.0 * inside(random));
        planes.emplace_back(a, b, c, -(a * through.x + b * through.y + c * through.z));
    }
    return planes;
}

std::vector<RandomNetwork> RandomNetworks(unsigned seed) {
    return {dtm_test::MakeTriangleSoup(seed, 60, 400, 0, 0, 100, 10),
            dtm_test::MakeSmallTriangles(seed, 600, 0, 0, 100, 3, 10),
            dtm_test::MakeGridNetwork(12, 0, 0, 100.0 / 12)};
}

// The drawing record ------------------------------------------------------------------------

// Where @p field lies inside @p record, in bytes.
template <class Field>
std::ptrdiff_t OffsetIn(const TTriDraw& record, const Field& field) {
    return reinterpret_cast<const unsigned char*>(&field) -
           reinterpret_cast<const unsigned char*>(&record);
}

// The host reads the buffers of OnTris as raw memory, so the place of every field of a record
// is part of the interface: three points of three doubles, then the two packed colours, the
// three components, the position and the selection flag, without gaps. (A point derives from
// the plan point, so the record is not standard-layout and offsetof is not portable on it: the
// offsets are measured on a record.)
TEST(TriangleRecord, FieldsKeepTheirOrderAndOffsets) {
    const TTriDraw record;
    EXPECT_EQ(sizeof(PNT_3D), 3 * sizeof(double));
    EXPECT_EQ(OffsetIn(record, record.pnts[0].x), 0);
    EXPECT_EQ(OffsetIn(record, record.pnts[0].y), 8);
    EXPECT_EQ(OffsetIn(record, record.pnts[0].z), 16);
    EXPECT_EQ(OffsetIn(record, record.pnts[1]), 24);
    EXPECT_EQ(OffsetIn(record, record.pnts[2]), 48);
    EXPECT_EQ(OffsetIn(record, record.color), 72);
    EXPECT_EQ(OffsetIn(record, record.drawColor), 76);
    EXPECT_EQ(OffsetIn(record, record.red), 80);
    EXPECT_EQ(OffsetIn(record, record.green), 84);
    EXPECT_EQ(OffsetIn(record, record.blue), 88);
    EXPECT_EQ(OffsetIn(record, record.index), 92);
    EXPECT_EQ(OffsetIn(record, record.selected), 96);
    EXPECT_EQ(sizeof(record.color), 4u);
    EXPECT_EQ(sizeof(record.drawColor), 4u);
    EXPECT_EQ(sizeof(record.red), 4u);
    EXPECT_EQ(sizeof(record.index), 4u);
    EXPECT_EQ(sizeof(record.selected), 1u);
}

// GetTris ------------------------------------------------------------------------------------

TEST(GetTris, BufferOfFourOnTenTrianglesDeliversFourFourTwoInArrayOrder) {
    ArmedProject project;
    FillRow(project, 10);
    RecordingListener listener;
    project.Tris().GetTris(&listener, 4);
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{4, 4, 2}));
    EXPECT_EQ(listener.RecordIndexes(), AllPositions(project.Tris()));
    // One buffer, allocated once and reused after each hand-over.
    ASSERT_EQ(listener.bufferAddresses.size(), 3u);
    EXPECT_EQ(listener.bufferAddresses[1], listener.bufferAddresses[0]);
    EXPECT_EQ(listener.bufferAddresses[2], listener.bufferAddresses[0]);
    EXPECT_TRUE(listener.indexCalls.empty());
    for (const TTriDraw& record : listener.records) ExpectRecordDescribes(project.Tris(), record);
}

TEST(GetTris, ExactMultipleOfTheBufferHandsOverNoEmptyRemainder) {
    ArmedProject project;
    FillRow(project, 8);
    RecordingListener listener;
    project.Tris().GetTris(&listener, 4);
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{4, 4}));
}

TEST(GetTris, BufferLargerThanTheNetworkHandsOverOnce) {
    ArmedProject project;
    FillRow(project, 3);
    RecordingListener listener;
    project.Tris().GetTris(&listener, 1000);
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{3}));
    EXPECT_EQ(listener.RecordIndexes(), (std::vector<int>{0, 1, 2}));
}

TEST(GetTris, MinusOneGivesOneCallPerTriangleInArrayOrder) {
    ArmedProject project;
    FillRow(project, 10);
    CTris& tris = project.Tris();
    tris.SelTri(2, false);
    tris.SelTri(8, false);
    RecordingListener listener;
    tris.GetTris(&listener, -1);
    EXPECT_TRUE(listener.bufferCounts.empty());
    EXPECT_EQ(listener.CallIndexes(), AllPositions(tris));
    for (const IndexCall& call : listener.indexCalls) {
        ExpectCallDescribes(tris, call);
        EXPECT_EQ(call.selected, call.index == 2 || call.index == 8);
    }
}

TEST(GetTris, EmptyNetworkHandsOverNothing) {
    ArmedProject project;
    RecordingListener listener;
    project.Tris().GetTris(&listener, 4);
    project.Tris().GetTris(&listener, -1);
    EXPECT_TRUE(listener.bufferCounts.empty());
    EXPECT_TRUE(listener.indexCalls.empty());
}

TEST(GetTris, BadBufferSizeOrNullListenerIsACallerFault) {
    ArmedProject project;
    FillRow(project, 2);
    RecordingListener listener;
    EXPECT_THROW(project.Tris().GetTris(&listener, 0), std::invalid_argument);
    EXPECT_THROW(project.Tris().GetTris(&listener, -2), std::invalid_argument);
    EXPECT_THROW(project.Tris().GetTris(nullptr, 4), std::invalid_argument);
    EXPECT_THROW(project.Tris().GetTris(nullptr, -1), std::invalid_argument);
    EXPECT_THROW(project.Tris().GetTris_Clip(nullptr, {}, 4, false), std::invalid_argument);
    EXPECT_THROW(project.Tris().GetTris_Clip(&listener, {}, 0, false), std::invalid_argument);
    EXPECT_THROW(project.Tris().GetTris_Quote(nullptr, 0.0), std::invalid_argument);
    EXPECT_TRUE(listener.bufferCounts.empty());
}

TEST(GetTris, NetworkIsDrawnThroughItsInterface) {
    ArmedProject project;
    FillRow(project, 5);
    ITris& network = project.Tris();
    RecordingListener listener;
    network.GetTris(&listener, 2);
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{2, 2, 1}));
    EXPECT_EQ(network.GetNoTris(), 5);
    EXPECT_EQ(network.GetPnts().size(), 15u);
    EXPECT_FALSE(network.IsCld());
}

// Record colours --------------------------------------------------------------------------------

// Four triangles coloured 1 (red), 256 (by layer), 7 (foreground) and 5 (blue), under the fixed
// colour type with fixed colour 5 and layer colour 3 (green).
class RecordColourTest : public testing::Test {
protected:
    void SetUp() override {
        CTris& tris = project.Tris();
        tris.GetOptions().SetColorType(COpzTri::TRI_COLOR_FIXED);
        tris.GetOptions().SetFixedColor(5);
        tris.GetOptions().SetLayerColor(3);
        kor::CEventGuard event(project.Prj()->GetContext());
        const int colours[] = {1, 256, 7, 5};
        for (int i = 0; i < 4; ++i) {
            tris.AddTriVrt(PNT_3D(2.0 * i, 0, 0));
            tris.AddTriVrt(PNT_3D(2.0 * i + 1, 0, 0));
            tris.AddTriVrt(PNT_3D(2.0 * i, 1, 0));
            ASSERT_NE(tris.AddNewTri(colours[i], 3 * i, 3 * i + 1, 3 * i + 2), nullptr);
        }
    }

    // The record of the triangle coloured @p colour, from an enumeration of every triangle.
    TTriDraw RecordOfColour(int colour) {
        RecordingListener listener;
        project.Tris().GetTris(&listener, 10);
        for (const TTriDraw& record : listener.records) {
            if (project.Tris().GetTriAt(record.index)->GetColor() == colour) return record;
        }
        ADD_FAILURE() << "no triangle of colour " << colour;
        return TTriDraw{};
    }

    ArmedProject project;
};

TEST_F(RecordColourTest, OwnColourIsThePaletteEntryAndDrawingColourTheSameUnderFixedColours) {
    const TTriDraw red = RecordOfColour(1);
    EXPECT_EQ(red.color, PACKED_RED);
    EXPECT_EQ(red.drawColor, PACKED_RED);
    EXPECT_EQ(red.red, 1.0f);
    EXPECT_EQ(red.green, 0.0f);
    EXPECT_EQ(red.blue, 0.0f);
}

TEST_F(RecordColourTest, ByLayerIsTheFixedColourInTheRecordButTheLayerColourWhenDrawn) {
    const TTriDraw byLayer = RecordOfColour(256);
    EXPECT_EQ(byLayer.color, PACKED_BLUE);
    EXPECT_EQ(byLayer.red, 0.0f);
    EXPECT_EQ(byLayer.green, 0.0f);
    EXPECT_EQ(byLayer.blue, 1.0f);
    EXPECT_EQ(byLayer.drawColor, PACKED_GREEN);
}

TEST_F(RecordColourTest, ForegroundIsBlackOnlyOnAWhiteBackground) {
    project.Tris().CalcColors_Bkg(0xFFFFFF);
    TTriDraw foreground = RecordOfColour(7);
    EXPECT_EQ(foreground.color, 0);
    EXPECT_EQ(foreground.red, 0.0f);
    EXPECT_EQ(foreground.green, 0.0f);
    EXPECT_EQ(foreground.blue, 0.0f);
    EXPECT_EQ(foreground.drawColor, 0);

    project.Tris().CalcColors_Bkg(0xFFFFFE);
    foreground = RecordOfColour(7);
    EXPECT_EQ(foreground.color, PACKED_WHITE);
    EXPECT_EQ(foreground.red, 1.0f);
    EXPECT_EQ(foreground.green, 1.0f);
    EXPECT_EQ(foreground.blue, 1.0f);
    EXPECT_EQ(foreground.drawColor, PACKED_WHITE);
}

TEST_F(RecordColourTest, ByLayerWithFixedForegroundIsBlackOnWhite) {
    project.Tris().GetOptions().SetFixedColor(7);
    project.Tris().CalcColors_Bkg(0xFFFFFF);
    const TTriDraw byLayer = RecordOfColour(256);
    EXPECT_EQ(byLayer.color, 0);
    EXPECT_EQ(byLayer.blue, 0.0f);
    EXPECT_EQ(byLayer.drawColor, PACKED_GREEN);  // the layer colour is not the foreground
}

// GetTris_Clip -------------------------------------------------------------------------------

TEST(GetTrisClip, EmptyPlaneListHandsOverEveryTriangle) {
    ArmedProject project;
    const RandomNetwork network = dtm_test::MakeTriangleSoup(3, 40, 300, 0, 0, 100, 10);
    project.Fill(network.vertices, network.triangles);
    RecordingListener listener;
    project.Tris().GetTris_Clip(&listener, {}, 64, false);
    EXPECT_EQ(Sorted(listener.RecordIndexes()), AllPositions(project.Tris()));
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{64, 64, 64, 64, 44}));
}

// Triangle 0 is flat at z = 0, triangle 1 flat at z = 5, triangle 2 has one vertex at z = 0 and
// two at z = 1.
class ClipEdgeTest : public testing::Test {
protected:
    void SetUp() override {
        project.Fill(
            {PNT_3D(0, 0, 0), PNT_3D(1, 0, 0), PNT_3D(0, 1, 0), PNT_3D(2, 0, 5), PNT_3D(3, 0, 5),
             PNT_3D(2, 1, 5), PNT_3D(4, 0, 0), PNT_3D(5, 0, 1), PNT_3D(4, 1, 1)},
            {{0, 1, 2}, {3, 4, 5}, {6, 7, 8}});
    }
    // The x of the first vertex of each triangle handed over (0, 2 and 4 tell them apart),
    // sorted.
    std::vector<double> FirstXAfterClipping(const std::vector<PLANE_3D>& planes) {
        RecordingListener listener;
        project.Tris().GetTris_Clip(&listener, planes, 8, false);
        std::vector<double> firstX;
        for (const TTriDraw& record : listener.records) firstX.push_back(record.pnts[0].x);
        std::sort(firstX.begin(), firstX.end());
        return firstX;
    }
    ArmedProject project;
};

TEST_F(ClipEdgeTest, VerticesExactlyOnThePlaneAreNotCulled) {
    // z > 0 is the positive side: the flat triangle at z = 0 lies on the plane, and the third
    // triangle has one vertex on it; only the triangle at z = 5 lies wholly on the positive side.
    EXPECT_EQ(FirstXAfterClipping({PLANE_3D(0, 0, 1, 0)}), (std::vector<double>{0.0, 4.0}));
    // The same plane facing down culls nothing: no triangle has all vertices below z = 0.
    EXPECT_EQ(FirstXAfterClipping({PLANE_3D(0, 0, -1, 0)}), (std::vector<double>{0.0, 2.0, 4.0}));
}

TEST_F(ClipEdgeTest, AnyOnePlaneCulls) {
    // x > 3.5 culls the third triangle, z > 2 the second one.
    EXPECT_EQ(FirstXAfterClipping({PLANE_3D(1, 0, 0, -3.5), PLANE_3D(0, 0, 1, -2)}),
              (std::vector<double>{0.0}));
}

TEST_F(ClipEdgeTest, NetworkWithoutCloudIsBufferedEvenWhenAskedPerTriangle) {
    RecordingListener listener;
    project.Tris().GetTris_Clip(&listener, {}, 2, true);
    EXPECT_TRUE(listener.indexCalls.empty());
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{2, 1}));
}

TEST(GetTrisClip, EmptyNetworkHandsOverNothingWhateverTheArguments) {
    ArmedProject project;
    RecordingListener listener;
    project.Tris().GetTris_Clip(&listener, {}, 0, false);
    project.Tris().GetTris_Clip(&listener, {PLANE_3D(0, 0, 1, 0)}, 4, true);
    EXPECT_TRUE(listener.bufferCounts.empty());
    EXPECT_TRUE(listener.indexCalls.empty());
}

// Random networks and random planes against the brute-force filter: the same set of triangles,
// each once, with every field of its record right.
TEST(GetTrisClip, MatchesBruteForceOnRandomNetworks) {
    // Totals over every case, to make sure that the planes both cull and keep triangles.
    std::size_t handedTotal = 0;
    std::size_t triangleTotal = 0;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        for (const RandomNetwork& network : RandomNetworks(seed)) {
            ArmedProject project;
            project.Fill(network.vertices, network.triangles);
            CTris& tris = project.Tris();
            const std::vector<int> selected = ColourAndSelect(tris, seed);
            std::mt19937 random(seed * 31u);
            for (int planeCount = 1; planeCount <= 6; ++planeCount) {
                SCOPED_TRACE("seed " + std::to_string(seed) + ", " + std::to_string(planeCount) +
                             " planes, " + std::to_string(tris.GetNoTris()) + " triangles");
                const std::vector<PLANE_3D> planes = RandomPlanes(random, tris, planeCount);
                RecordingListener listener;
                tris.GetTris_Clip(&listener, planes, 50, false);
                const std::vector<int> handed = Sorted(listener.RecordIndexes());
                EXPECT_EQ(handed, VisibleByBruteForce(tris, planes));
                handedTotal += handed.size();
                triangleTotal += static_cast<std::size_t>(tris.GetNoTris());
                EXPECT_TRUE(std::adjacent_find(handed.begin(), handed.end()) == handed.end());
                for (const TTriDraw& record : listener.records) {
                    ExpectRecordDescribes(tris, record);
                    EXPECT_EQ(record.selected,
                              std::binary_search(selected.begin(), selected.end(), record.index));
                }
                for (std::size_t call = 0; call + 1 < listener.bufferCounts.size(); ++call)
                    EXPECT_EQ(listener.bufferCounts[call], 50);
            }
        }
    }
    EXPECT_GT(handedTotal, triangleTotal / 10);
    EXPECT_LT(handedTotal, triangleTotal - triangleTotal / 10);
}

// The octree prunes with node boxes kept in single precision. Coordinates beyond its range (over
// 3.4e38), or straddling its limit, must still give the same triangles as the plain test.
TEST(GetTrisClip, CoordinatesBeyondSinglePrecisionMatchBruteForce) {
    struct Placement {
        const char* name;
        double scale, offsetX, offsetY, scaleZ;
    };
    const Placement placements[] = {{"far beyond", 1e37, 3e39, -3e39, 1e38},
                                    {"across the limit", 1e37, -5e38, 0.0, 1e38}};
    for (const Placement& placement : placements) {
        for (const RandomNetwork& source : RandomNetworks(3)) {
            RandomNetwork network = source;
            for (PNT_3D& p : network.vertices)
                p = PNT_3D(p.x * placement.scale + placement.offsetX,
                           p.y * placement.scale + placement.offsetY, p.z * placement.scaleZ);
            ArmedProject project;
            project.Fill(network.vertices, network.triangles);
            CTris& tris = project.Tris();
            std::mt19937 random(7);
            std::uniform_real_distribution<double> unit(-1.0, 1.0);
            std::uniform_int_distribution<int> vertex(0, tris.GetNoTriVrts() - 1);
            std::size_t handedTotal = 0, casesTotal = 0;
            for (int planeCount = 1; planeCount <= 4; ++planeCount) {
                SCOPED_TRACE(std::string(placement.name) + ", " + std::to_string(planeCount) +
                             " planes");
                // Planes through vertices of the network, so that they cut it.
                std::vector<PLANE_3D> planes;
                for (int i = 0; i < planeCount; ++i) {
                    const PNT_3D& p = tris.GetPnts()[static_cast<std::size_t>(vertex(random))];
                    const double a = unit(random), b = unit(random), c = unit(random);
                    planes.emplace_back(a, b, c, -(a * p.x + b * p.y + c * p.z));
                }
                RecordingListener listener;
                tris.GetTris_Clip(&listener, planes, 50, false);
                const std::vector<int> handed = Sorted(listener.RecordIndexes());
                EXPECT_EQ(handed, VisibleByBruteForce(tris, planes));
                handedTotal += handed.size();
                casesTotal += static_cast<std::size_t>(tris.GetNoTris());
            }
            // Both outcomes occur, so the comparison says something about the pruning.
            EXPECT_GT(handedTotal, 0u) << placement.name;
            EXPECT_LT(handedTotal, casesTotal) << placement.name;
            for (int i = 0; i < 5; ++i) {
                const double z = tris.GetPnts()[static_cast<std::size_t>(vertex(random))].z;
                RecordingListener listener;
                tris.GetTris_Quote(&listener, z);
                EXPECT_EQ(Sorted(listener.RecordIndexes()), CrossedByBruteForce(tris, z))
                    << placement.name << ", z " << z;
            }
        }
    }
}

// A cloud-bound project over a random network, every point coloured, drawn with the cloud's
// colours.
class CloudProject {
public:
    explicit CloudProject(const RandomNetwork& network)
        : m_prj(kor::CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Nuvola", true, false))),
          m_cloud(kor::CRefPtr<dtm_test::ShrinkableCld>::Adopt(new dtm_test::ShrinkableCld)) {
        for (std::size_t i = 0; i < network.vertices.size(); ++i) {
            m_cloud->AddPnt(network.vertices[i], static_cast<unsigned char>(i * 7),
                            static_cast<unsigned char>(i * 13), static_cast<unsigned char>(i * 29));
        }
        CTris& tris = Tris();
        tris.GetOptions().SetColorType(COpzTri::TRI_COLOR_BY_CLOUD);
        { kor::CEventGuard arming(m_prj->GetContext()); }
        kor::CEventGuard event(m_prj->GetContext());
        tris.SetCld(m_cloud.Get());
        for (std::size_t i = 0; i < network.vertices.size(); ++i)
            tris.AddTriVrt(static_cast<int>(i));
        for (const dtm_test::TriIndices& t : network.triangles) tris.AddNewTri(1, t[0], t[1], t[2]);
    }
    CTris& Tris() const { return *m_prj->GetTris(); }

private:
    kor::CRefPtr<CDtmPrj> m_prj;
    kor::CRefPtr<dtm_test::ShrinkableCld> m_cloud;
};

TEST(GetTrisClip, CloudNetworkPerTriangleMatchesBruteForce) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        CloudProject project(dtm_test::MakeTriangleSoup(seed, 50, 200, 0, 0, 100, 10));
        CTris& tris = project.Tris();
        ASSERT_NE(tris.GetColors(), nullptr);
        for (int i = 0; i < tris.GetNoTris(); i += 3) tris.SelTri(i, false);
        std::mt19937 random(seed);
        for (int planeCount = 0; planeCount <= 4; ++planeCount) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", " + std::to_string(planeCount) +
                         " planes");
            const std::vector<PLANE_3D> planes = RandomPlanes(random, tris, planeCount);
            RecordingListener listener;
            tris.GetTris_Clip(&listener, planes, 16, true);
            EXPECT_TRUE(listener.bufferCounts.empty());
            EXPECT_EQ(Sorted(listener.CallIndexes()), VisibleByBruteForce(tris, planes));
            for (const IndexCall& call : listener.indexCalls) {
                ExpectCallDescribes(tris, call);
                EXPECT_EQ(call.selected, call.index % 3 == 0);
            }

            // Asked for records, the same network buffers them.
            RecordingListener buffered;
            tris.GetTris_Clip(&buffered, planes, 16, false);
            EXPECT_TRUE(buffered.indexCalls.empty());
            EXPECT_EQ(Sorted(buffered.RecordIndexes()), Sorted(listener.CallIndexes()));
            for (const TTriDraw& record : buffered.records) ExpectRecordDescribes(tris, record);
        }
    }
}

// GetTris_Quote ------------------------------------------------------------------------------

TEST(GetTrisQuote, MatchesBruteForceOnRandomNetworksOneRecordPerCall) {
    // Totals over every case, to make sure that the slices both cross and miss triangles.
    std::size_t handedTotal = 0;
    std::size_t triangleTotal = 0;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        for (const RandomNetwork& network : RandomNetworks(seed)) {
            ArmedProject project;
            project.Fill(network.vertices, network.triangles);
            CTris& tris = project.Tris();
            const std::vector<int> selected = ColourAndSelect(tris, seed);
            std::mt19937 random(seed);
            std::uniform_real_distribution<double> anyZ(tris.GetMinQuota() - 1.0,
                                                        tris.GetMaxQuota() + 1.0);
            std::uniform_int_distribution<int> vertex(0, tris.GetNoTriVrts() - 1);
            std::vector<double> elevations = {tris.GetMinQuota(), tris.GetMaxQuota(),
                                              tris.GetMaxQuota() + 1.0};
            for (int i = 0; i < 5; ++i) {
                elevations.push_back(anyZ(random));
                // Exactly a vertex's elevation: the slice test accepts it.
                elevations.push_back(tris.GetPnts()[static_cast<std::size_t>(vertex(random))].z);
            }
            for (const double z : elevations) {
                SCOPED_TRACE("seed " + std::to_string(seed) + ", z " + std::to_string(z));
                RecordingListener listener;
                tris.GetTris_Quote(&listener, z);
                const std::vector<int> handed = Sorted(listener.RecordIndexes());
                EXPECT_EQ(handed, CrossedByBruteForce(tris, z));
                handedTotal += handed.size();
                triangleTotal += static_cast<std::size_t>(tris.GetNoTris());
                EXPECT_EQ(listener.bufferCounts, std::vector<int>(handed.size(), 1));
                for (const TTriDraw& record : listener.records) {
                    ExpectRecordDescribes(tris, record);
                    EXPECT_EQ(record.selected,
                              std::binary_search(selected.begin(), selected.end(), record.index));
                }
            }
        }
    }
    EXPECT_GT(handedTotal, 0u);
    EXPECT_LT(handedTotal, triangleTotal / 2);
}

TEST(GetTrisQuote, ElevationOutsideTheNetworkAndEmptyNetworkHandOverNothing) {
    ArmedProject project;
    RecordingListener listener;
    project.Tris().GetTris_Quote(&listener, 0.0);
    FillRow(project, 4);  // elevations 0..3
    project.Tris().GetTris_Quote(&listener, 3.5);
    project.Tris().GetTris_Quote(&listener, -0.5);
    EXPECT_TRUE(listener.bufferCounts.empty());
    project.Tris().GetTris_Quote(&listener, 2.0);  // the flat triangle at z = 2 lies on it
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{1}));
}

// Broken network --------------------------------------------------------------------------------

// A cloud-bound network of three triangles with triangle 1 selected, broken by its cloud losing
// a point after the octree was built.
class BrokenDrawingTest : public dtm_test::CloudNetworkTest {
protected:
    void SetUp() override {
        for (int i = 0; i < 5; ++i) cloud->AddPnt(PNT_3D(i, i % 2, i), 10, 20, 30);
        tris.GetOptions().SetColorType(COpzTri::TRI_COLOR_FIXED);
        BindCloudAndAddEveryPoint();
        for (int i = 0; i < 3; ++i) ASSERT_NE(tris.AddNewTri(1, i, i + 1, i + 2), nullptr);
        tris.SelTri(1, false);
        cloud->missing = 1;
        tris.CheckBroken();
        ASSERT_TRUE(tris.IsBroken());
    }
};

TEST_F(BrokenDrawingTest, BrokenNetworkIsNotEnumerated) {
    RecordingListener listener;
    tris.GetTris(&listener, 4);
    tris.GetTris(&listener, -1);
    tris.GetTris_Clip(&listener, {}, 4, false);
    tris.GetTris_Clip(&listener, {}, 4, true);
    EXPECT_TRUE(listener.bufferCounts.empty());
    EXPECT_TRUE(listener.indexCalls.empty());
}

TEST_F(BrokenDrawingTest, ElevationSliceDeliberatelyIgnoresTheBrokenFlag) {
    // z = 2 is a vertex of every triangle (0, 1, 2), (1, 2, 3), (2, 3, 4).
    RecordingListener listener;
    tris.GetTris_Quote(&listener, 2.0);
    EXPECT_EQ(Sorted(listener.RecordIndexes()), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(listener.bufferCounts, (std::vector<int>{1, 1, 1}));
    // A broken network reports no selection.
    for (const TTriDraw& record : listener.records) EXPECT_FALSE(record.selected);
}

// Display options ------------------------------------------------------------------------------

TEST(GetTriDim, TextHeightOnlyWhenLabelsAreShown) {
    ArmedProject project;
    COpzTri& options = project.Tris().GetOptions();
    options.SetTextHeight(2.5);
    struct Case {
        bool secondFlag;
        COpzTri::enumTriSymbol symbol;
        double expected;
    };
    for (const Case& c :
         {Case{true, COpzTri::TRI_SYMBOL_1, 2.5}, Case{false, COpzTri::TRI_SYMBOL_1, -1.0},
          Case{true, COpzTri::TRI_SYMBOL_0, -1.0}, Case{true, COpzTri::TRI_SYMBOL_2, -1.0},
          Case{true, COpzTri::TRI_SYMBOL_3, -1.0}, Case{false, COpzTri::TRI_SYMBOL_0, -1.0}}) {
        SCOPED_TRACE("flag " + std::to_string(c.secondFlag) + ", symbol " +
                     std::to_string(c.symbol));
        options.SetSecondDisplayFlag(c.secondFlag);
        options.SetSymbol(c.symbol);
        EXPECT_EQ(project.Tris().GetTriDim(), c.expected);
    }
}

// A network of four triangles at elevations 0..3, all of colour 1, whose options are set by
// hand (plain stores) before each case, and a recorder of the change events.
class OptionsTest : public testing::Test {
protected:
    void SetUp() override {
        FillRow(project, 4);
        COpzTri& options = tris().GetOptions();
        options.SetFirstDisplayFlag(false);
        options.SetSecondDisplayFlag(false);
        options.SetColorType(COpzTri::TRI_COLOR_FIXED);
        options.SetFixedColor(5);
        options.SetLayerColor(3);
        options.SetColorClasses(Classes(1.5));
        options.SetSymbol(COpzTri::TRI_SYMBOL_0);
        options.SetTextHeight(2.5);
        options.SetScaleFactor(1.0);
        tris().GetContext()->Register(&recorder);
    }
    void TearDown() override { tris().GetContext()->Unregister(&recorder); }

    CTris& tris() { return project.Tris(); }

    // Red up to @p limit, then blue.
    static CColorClassComputer Classes(double limit) {
        CColorClassComputer classes;
        classes.AddEntry(0, limit, 1);
        classes.AddEntry(1, 10.0, 5);
        return classes;
    }

    std::vector<int> TriangleColours() {
        std::vector<int> colours;
        for (int i = 0; i < tris().GetNoTris(); ++i)
            colours.push_back(tris().GetTriAt(i)->GetColor());
        return colours;
    }

    ArmedProject project;
    ProjectEventRecorder recorder;
};

// Every option SetVisOptions takes.
struct VisOptions {
    bool firstFlag = false;
    bool secondFlag = false;
    COpzTri::enumTriColorType type = COpzTri::TRI_COLOR_FIXED;
    short fixedColour = 5;
    short layerColour = 3;
    double classLimit = 1.5;
    COpzTri::enumTriSymbol symbol = COpzTri::TRI_SYMBOL_0;
    double textHeight = 2.5;
    double scaleFactor = 1.0;
};

// A named change of some options.
struct Change {
    std::string name;
    std::function<void(VisOptions&)> apply;
};

// Every combination of a colour-related change (or none), a class change (or none) and a text
// change (or none), from each colour type, with the notifications the change must send, read
// from the flags of the one event the test brackets the call in.
TEST_F(OptionsTest, EachCombinationOfChangesSendsItsNotifications) {
    const std::vector<Change> colourChanges = {
        {"none", [](VisOptions&) {}},
        {"fixed colour", [](VisOptions& o) { o.fixedColour = 1; }},
        {"layer colour", [](VisOptions& o) { o.layerColour = 1; }},
        {"first flag", [](VisOptions& o) { o.firstFlag = true; }},
        {"second flag", [](VisOptions& o) { o.secondFlag = true; }},
        {"colour type",
         [](VisOptions& o) { o.type = static_cast<COpzTri::enumTriColorType>((o.type + 1) % 3); }}};
    const std::vector<Change> classChanges = {
        {"none", [](VisOptions&) {}}, {"classes", [](VisOptions& o) { o.classLimit = 2.5; }}};
    const std::vector<Change> textChanges = {
        {"none", [](VisOptions&) {}},
        {"text height", [](VisOptions& o) { o.textHeight = 3.0; }},
        {"scale factor", [](VisOptions& o) { o.scaleFactor = 2.0; }},
        {"symbol", [](VisOptions& o) { o.symbol = COpzTri::TRI_SYMBOL_1; }}};

    for (int startType = 0; startType < 3; ++startType) {
        for (const Change& colour : colourChanges) {
            for (const Change& classes : classChanges) {
                for (const Change& text : textChanges) {
                    SCOPED_TRACE("from type " + std::to_string(startType) + ": " + colour.name +
                                 " / " + classes.name + " / " + text.name);
                    ArmedProject fresh;
                    FillRow(fresh, 4);
                    CTris& network = fresh.Tris();
                    VisOptions before;
                    before.type = static_cast<COpzTri::enumTriColorType>(startType);
                    COpzTri& options = network.GetOptions();
                    options.SetFirstDisplayFlag(before.firstFlag);
                    options.SetSecondDisplayFlag(before.secondFlag);
                    options.SetColorType(before.type);
                    options.SetFixedColor(before.fixedColour);
                    options.SetLayerColor(before.layerColour);
                    options.SetColorClasses(Classes(before.classLimit));
                    options.SetSymbol(before.symbol);
                    options.SetTextHeight(before.textHeight);
                    options.SetScaleFactor(before.scaleFactor);

                    VisOptions after = before;
                    colour.apply(after);
                    classes.apply(after);
                    text.apply(after);
                    const bool colourChanged = colour.name != "none";
                    const bool classesChanged = classes.name != "none";
                    const bool textChanged = text.name != "none";
                    const bool expectLayers =
                        colourChanged ||
                        (classesChanged && after.type == COpzTri::TRI_COLOR_BY_CLASSES);

                    ProjectEventRecorder events;
                    network.GetContext()->Register(&events);
                    {
                        kor::CEventGuard bracket(network.GetContext());
                        network.SetVisOptions(after.firstFlag, after.secondFlag, after.type,
                                              after.fixedColour, after.layerColour,
                                              Classes(after.classLimit), after.symbol,
                                              after.textHeight, after.scaleFactor);
                    }
                    network.GetContext()->Unregister(&events);

                    ASSERT_EQ(events.events.size(), 1u);
                    EXPECT_EQ(events.events[0].triLayers, expectLayers);
                    EXPECT_EQ(events.events[0].triInnerDraw, textChanged);

                    // Every option is stored, whatever was sent.
                    EXPECT_EQ(options.IsFirstDisplayFlag(), after.firstFlag);
                    EXPECT_EQ(options.IsSecondDisplayFlag(), after.secondFlag);
                    EXPECT_EQ(options.GetColorType(), after.type);
                    EXPECT_EQ(options.GetFixedColor(), after.fixedColour);
                    EXPECT_EQ(options.GetLayerColor(), after.layerColour);
                    EXPECT_TRUE(options.GetColorClasses() == Classes(after.classLimit));
                    EXPECT_EQ(options.GetSymbol(), after.symbol);
                    EXPECT_EQ(options.GetTextHeight(), after.textHeight);
                    EXPECT_EQ(options.GetScaleFactor(), after.scaleFactor);

                    // The triangles' colours were re-derived exactly when the layers were
                    // reported: by layer under fixed colours, the class colour of the mean
                    // elevation (triangle i lies flat at z = i) under classes, unchanged under
                    // cloud colours.
                    for (int i = 0; i < network.GetNoTris(); ++i) {
                        const CTri* t = network.GetTriAt(i);
                        int expected = 1;
                        if (expectLayers && after.type == COpzTri::TRI_COLOR_FIXED) expected = 256;
                        if (expectLayers && after.type == COpzTri::TRI_COLOR_BY_CLASSES)
                            expected = VertexOf(network, t, 0).z <= after.classLimit ? 1 : 5;
                        EXPECT_EQ(t->GetColor(), expected);
                    }
                }
            }
        }
    }
}

TEST_F(OptionsTest, NothingChangedSendsNothing) {
    const COpzTri& o = tris().GetOptions();
    tris().SetVisOptions(o.IsFirstDisplayFlag(), o.IsSecondDisplayFlag(), o.GetColorType(),
                         o.GetFixedColor(), o.GetLayerColor(), Classes(1.5), o.GetSymbol(),
                         o.GetTextHeight(), o.GetScaleFactor());
    EXPECT_EQ(recorder.opened, 0);
}

TEST_F(OptionsTest, WithoutBracketLayersComeFirstThenColoursThenInnerDrawing) {
    const std::vector<CTri*> before = [this] {
        std::vector<CTri*> order;
        for (int i = 0; i < tris().GetNoTris(); ++i) order.push_back(tris().GetTriAt(i));
        return order;
    }();
    tris().SetVisOptions(false, false, COpzTri::TRI_COLOR_FIXED, 1, 3, Classes(1.5),
                         COpzTri::TRI_SYMBOL_0, 4.0, 1.0);
    // Each notification is an event of its own: the layers, the colour update (every triangle
    // goes from 1 to by layer), then the inner drawing.
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_TRUE(recorder.events[0].triLayers);
    EXPECT_FALSE(recorder.events[0].triInnerDraw);
    EXPECT_TRUE(recorder.events[0].triModified.empty());
    EXPECT_FALSE(recorder.events[1].triLayers);
    EXPECT_EQ(recorder.events[1].triModified.size(), before.size());
    EXPECT_FALSE(recorder.events[2].triLayers);
    EXPECT_TRUE(recorder.events[2].triInnerDraw);
    EXPECT_EQ(TriangleColours(), std::vector<int>(4, 256));
}

TEST_F(OptionsTest, ClassesUnderFixedColoursAreStoredSilently) {
    tris().SetVisOptions(false, false, COpzTri::TRI_COLOR_FIXED, 5, 3, Classes(2.5),
                         COpzTri::TRI_SYMBOL_0, 2.5, 1.0);
    EXPECT_EQ(recorder.opened, 0);
    EXPECT_TRUE(tris().GetOptions().GetColorClasses() == Classes(2.5));
    EXPECT_EQ(TriangleColours(), std::vector<int>(4, 1));
}

TEST_F(OptionsTest, FirstFlagAloneChangesOnlyThatFlagAndReportsTheLayers) {
    tris().SetVisOptions(false);
    EXPECT_EQ(recorder.opened, 0);

    tris().SetVisOptions(true);
    const COpzTri& o = tris().GetOptions();
    EXPECT_TRUE(o.IsFirstDisplayFlag());
    EXPECT_FALSE(o.IsSecondDisplayFlag());
    EXPECT_EQ(o.GetColorType(), COpzTri::TRI_COLOR_FIXED);
    EXPECT_EQ(o.GetFixedColor(), 5);
    EXPECT_EQ(o.GetLayerColor(), 3);
    EXPECT_TRUE(o.GetColorClasses() == Classes(1.5));
    EXPECT_EQ(o.GetSymbol(), COpzTri::TRI_SYMBOL_0);
    EXPECT_EQ(o.GetTextHeight(), 2.5);
    EXPECT_EQ(o.GetScaleFactor(), 1.0);
    ASSERT_FALSE(recorder.events.empty());
    EXPECT_TRUE(recorder.events[0].triLayers);
    for (const auto& event : recorder.events) EXPECT_FALSE(event.triInnerDraw);
    EXPECT_EQ(TriangleColours(), std::vector<int>(4, 256));
}

TEST_F(OptionsTest, TextOptionsUnchangedUnderSymbolOneSendNothing) {
    tris().GetOptions().SetSymbol(COpzTri::TRI_SYMBOL_1);
    tris().SetTextOptions(2.5);
    EXPECT_EQ(recorder.opened, 0);
}

TEST_F(OptionsTest, NewTextHeightIsStoredAndReportedAsInnerDrawing) {
    tris().GetOptions().SetSymbol(COpzTri::TRI_SYMBOL_1);
    tris().SetTextOptions(4.0);
    EXPECT_EQ(tris().GetOptions().GetTextHeight(), 4.0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triInnerDraw);
    EXPECT_FALSE(recorder.events[0].triLayers);
}

TEST_F(OptionsTest, SameTextHeightUnderAnotherSymbolIsStillReported) {
    // The symbol is not 1, so even the same height is stored and reported; the symbol itself
    // is left as it is.
    tris().SetTextOptions(2.5);
    EXPECT_EQ(tris().GetOptions().GetTextHeight(), 2.5);
    EXPECT_EQ(tris().GetOptions().GetSymbol(), COpzTri::TRI_SYMBOL_0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triInnerDraw);
    EXPECT_FALSE(recorder.events[0].triLayers);

    tris().SetTextOptions(3.0);
    EXPECT_EQ(tris().GetOptions().GetTextHeight(), 3.0);
    EXPECT_EQ(recorder.events.size(), 2u);
}

}  // namespace
