#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/network/CCld.h>
#include <dtm/network/COpzTri.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Geom.h>
#include <dtm/support/LumoEng.h>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

#include "CloudNetworkTestSupport.h"
#include "Probes.h"

namespace {

using dtm_test::CloudNetworkTest;
using kor::geom::PNT_3D;
using ColorType = COpzTri::enumTriColorType;

// The standard colours at the start of the CAD palette, packed 0x00BBGGRR by hand.
constexpr int PACKED_RED = 0x0000FF;    // index 1
constexpr int PACKED_GREEN = 0x00FF00;  // index 3
constexpr int PACKED_BLUE = 0xFF0000;   // index 5
constexpr int PACKED_WHITE = 0xFFFFFF;  // index 7

TTriColor EngineColour(int index) {
    TTriColor colour{};
    CLumoEng::Index_to_RGB(static_cast<short>(index), colour.r, colour.g, colour.b);
    return colour;
}

void ExpectColour(const TTriColor& actual, float r, float g, float b) {
    EXPECT_EQ(actual.r, r);
    EXPECT_EQ(actual.g, g);
    EXPECT_EQ(actual.b, b);
}

void ExpectColour(const TTriColor& actual, const TTriColor& expected) {
    ExpectColour(actual, expected.r, expected.g, expected.b);
}

// The colour classes (15, red), (25, green), (35, blue): each elevation takes the colour of the
// class whose interval (previous value, own value] holds it, and the outer classes the rest.
CColorClassComputer RedGreenBlueClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, 15.0, 1);
    classes.AddEntry(1, 25.0, 3);
    classes.AddEntry(2, 35.0, 5);
    return classes;
}

// Two custom classes: up to 0.1 red, above it up to 1 green.
CColorClassComputer RedUpToATenthThenGreenClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, 0.1, 1);
    classes.AddEntry(1, 1.0, 3);
    return classes;
}

// Four cloud points over a 10 x 10 square with elevations 10, 20, 30, 40, the last one without
// colour, and two triangles: a colour-7 one (0, 1, 2) and a by-layer one (1, 3, 2).
class ColourTest : public CloudNetworkTest {
protected:
    void SetUp() override {
        cloud->AddPnt(PNT_3D(0, 0, 10), 180, 0, 255);
        cloud->AddPnt(PNT_3D(10, 0, 20), 235, 0, 0);
        cloud->AddPnt(PNT_3D(0, 10, 30), 137, 0, 0);
        cloud->AddPnt(PNT_3D(10, 10, 40));
        BindCloudAndAddEveryPoint();
        first = tris.AddNewTri(7, 0, 1, 2);
        second = tris.AddNewTri(256, 1, 3, 2);
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        options().SetLayerColor(3);
        options().SetFixedColor(5);
        options().SetColorType(COpzTri::TRI_COLOR_FIXED);
        tris.CalcColors_Bkg(0);
    }
    COpzTri& options() { return tris.GetOptions(); }
    void UseColourType(ColorType type) {
        options().SetColorType(type);
        tris.CalcColors();
    }

    CTri* first = nullptr;
    CTri* second = nullptr;
};

// A colour-7 triangle over three new cloud points whose elevations cancel only when vertex 1
// and vertex 0 are summed first: (-1e17 + 1e17) + 1 = 1, a mean of 1/3. Any other grouping
// adds the 1 to a value of magnitude 1e17 first, where the spacing of doubles is 16, so the 1
// is lost and the mean is 0.
CTri* AddTriangleWhoseMeanDependsOnTheOrderOfTheSum(CMemCld& cloud, CTris& tris) {
    const int first = cloud.GetNumPnts();
    cloud.AddPnt(PNT_3D(0, 0, 1e17));
    cloud.AddPnt(PNT_3D(10, 0, -1e17));
    cloud.AddPnt(PNT_3D(0, 10, 1));
    for (int i = first; i < first + 3; ++i) tris.AddTriVrt(i);
    return tris.AddNewTri(7, first, first + 1, first + 2);
}

// A network without cloud ----------------------------------------------------------------

TEST_F(ColourTest, NetworkWithoutCloudHasNeitherColoursNorNormalsWhateverTheColourType) {
    CTris& plain = tris;
    plain.DoRemoveAll();
    plain.SetCld(nullptr);
    plain.AddTriVrt(PNT_3D(0, 0, 0));
    plain.AddTriVrt(PNT_3D(1, 0, 1));
    plain.AddTriVrt(PNT_3D(0, 1, 2));
    ASSERT_NE(plain.AddNewTri(1, 0, 1, 2), nullptr);
    for (ColorType type :
         {COpzTri::TRI_COLOR_FIXED, COpzTri::TRI_COLOR_BY_CLASSES, COpzTri::TRI_COLOR_BY_CLOUD}) {
        plain.GetOptions().SetColorType(type);
        plain.CalcColors();
        plain.CalcNormals();
        plain.CalcColors_Bkg(PACKED_WHITE);
        EXPECT_EQ(plain.GetColors(), nullptr) << "colour type " << type;
        EXPECT_EQ(plain.GetNormals(), nullptr) << "colour type " << type;
    }
}

TEST_F(ColourTest, CloudWithoutVerticesHasNeitherColoursNorNormals) {
    tris.DoRemoveAll();
    tris.SetCld(cloud.Get());
    tris.CalcColors();
    tris.CalcNormals();
    EXPECT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
}

TEST_F(ColourTest, VerticesWithoutTrianglesHaveColoursButNoNormals) {
    tris.DoRemoveAll();
    BindCloudAndAddEveryPoint();
    tris.CalcColors();
    tris.CalcNormals();
    EXPECT_NE(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
}

TEST_F(ColourTest, BrokenNetworkDropsItsColoursAndNormals) {
    tris.CalcColors();
    tris.CalcNormals();
    ASSERT_NE(tris.GetColors(), nullptr);
    ASSERT_NE(tris.GetNormals(), nullptr);
    cloud->missing = 1;
    tris.CheckBroken();
    ASSERT_TRUE(tris.IsBroken());
    tris.CalcColors();
    tris.CalcNormals();
    EXPECT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
}

// Vertex colours -------------------------------------------------------------------------

TEST_F(ColourTest, FixedTypeGivesEveryVertexTheFixedColour) {
    options().SetFixedColor(5);
    UseColourType(COpzTri::TRI_COLOR_FIXED);
    const TTriColor* colours = tris.GetColors();
    ASSERT_NE(colours, nullptr);
    for (int i = 0; i < 4; ++i) ExpectColour(colours[i], 0.0f, 0.0f, 1.0f);
}

TEST_F(ColourTest, FixedForegroundColourIsBlackOnlyOnAWhiteBackground) {
    options().SetFixedColor(7);
    options().SetColorType(COpzTri::TRI_COLOR_FIXED);
    tris.CalcColors_Bkg(0xFFFFFF);
    EXPECT_EQ(tris.GetBackgroundColor(), 0xFFFFFF);
    ASSERT_NE(tris.GetColors(), nullptr);
    for (int i = 0; i < 4; ++i) ExpectColour(tris.GetColors()[i], 0.0f, 0.0f, 0.0f);

    tris.CalcColors_Bkg(0xFFFFFE);
    EXPECT_EQ(tris.GetBackgroundColor(), 0xFFFFFE);
    ASSERT_NE(tris.GetColors(), nullptr);
    for (int i = 0; i < 4; ++i) ExpectColour(tris.GetColors()[i], EngineColour(7));
}

TEST_F(ColourTest, FixedByLayerVertexColourIgnoresTheLayerColour) {
    options().SetFixedColor(256);
    options().SetLayerColor(1);
    UseColourType(COpzTri::TRI_COLOR_FIXED);
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[0], EngineColour(256));
    EXPECT_NE(tris.GetColors()[0].g, EngineColour(1).g);
}

TEST_F(ColourTest, ClassTypeColoursEachVertexByTheClassOfItsElevation) {
    options().SetColorClasses(RedGreenBlueClasses());
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    const TTriColor* colours = tris.GetColors();
    ASSERT_NE(colours, nullptr);
    ExpectColour(colours[0], 1.0f, 0.0f, 0.0f);  // 10: below the first class
    ExpectColour(colours[1], 0.0f, 1.0f, 0.0f);  // 20: in (15, 25]
    ExpectColour(colours[2], 0.0f, 0.0f, 1.0f);  // 30: in (25, 35]
    ExpectColour(colours[3], 0.0f, 0.0f, 1.0f);  // 40: above the last class
}

TEST_F(ColourTest, GradedClassesAreSpreadOverTheNetworkElevationRange) {
    CColorClassComputer graded;
    graded.AddEntry(0, 1);
    graded.AddEntry(1, 5);
    options().SetColorClasses(graded);
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    ASSERT_EQ(tris.GetMinQuota(), 10.0);
    ASSERT_EQ(tris.GetMaxQuota(), 40.0);
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[0], 1.0f, 0.0f, 0.0f);  // the lowest vertex: first class
    ExpectColour(tris.GetColors()[3], 0.0f, 0.0f, 1.0f);  // the highest vertex: last class
}

TEST_F(ColourTest, ClassColoursFollowTheCloudPointNotTheMovedVertex) {
    options().SetColorClasses(RedGreenBlueClasses());
    tris.SetTriVrtAt(0, PNT_3D(0, 0, 30));
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[0], 1.0f, 0.0f, 0.0f);
}

TEST_F(ColourTest, CloudTypeCopiesThePointColoursScaledToOne) {
    cloud->AddPnt(PNT_3D(5, 5, 25), 51, 255, 0);
    tris.AddTriVrt(4);
    UseColourType(COpzTri::TRI_COLOR_BY_CLOUD);
    const TTriColor* colours = tris.GetColors();
    ASSERT_NE(colours, nullptr);
    ExpectColour(colours[0], static_cast<float>(180 / 255.0), 0.0f, 1.0f);
    ExpectColour(colours[4], 0.2f, 1.0f, 0.0f);
}

TEST_F(ColourTest, CloudTypeLeavesPointsWithoutColourBlack) {
    UseColourType(COpzTri::TRI_COLOR_BY_CLOUD);
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[3], 0.0f, 0.0f, 0.0f);
}

TEST_F(ColourTest, UnknownColourTypeLeavesEveryVertexBlack) {
    UseColourType(static_cast<ColorType>(5));
    ASSERT_NE(tris.GetColors(), nullptr);
    for (int i = 0; i < 4; ++i) ExpectColour(tris.GetColors()[i], 0.0f, 0.0f, 0.0f);
}

TEST_F(ColourTest, ColoursFollowTheCloudIndicesNotTheVertexOrder) {
    tris.DoRemoveAll();
    tris.SetCld(cloud.Get());
    tris.AddTriVrt(2);
    tris.AddTriVrt(0);
    UseColourType(COpzTri::TRI_COLOR_BY_CLOUD);
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[0], static_cast<float>(137 / 255.0), 0.0f, 0.0f);
    ExpectColour(tris.GetColors()[1], static_cast<float>(180 / 255.0), 0.0f, 1.0f);
}

// Triangle drawing colours ---------------------------------------------------------------

TEST_F(ColourTest, FixedForegroundTriangleIsBlackOnAWhiteBackground) {
    UseColourType(COpzTri::TRI_COLOR_FIXED);
    tris.CalcColors_Bkg(0xFFFFFF);
    EXPECT_EQ(tris.CalcColorTri(first), 0);
    tris.CalcColors_Bkg(0xFFFFFE);
    EXPECT_EQ(tris.CalcColorTri(first), PACKED_WHITE);
}

TEST_F(ColourTest, FixedTriangleIsPackedRedInTheLowByte) {
    UseColourType(COpzTri::TRI_COLOR_FIXED);
    first->SetColor(&tris, 1);
    EXPECT_EQ(tris.CalcColorTri(first), PACKED_RED);
}

TEST_F(ColourTest, ByLayerTriangleIsDrawnInTheLayerColour) {
    UseColourType(COpzTri::TRI_COLOR_FIXED);
    options().SetLayerColor(3);
    EXPECT_EQ(tris.CalcColorTri(second), PACKED_GREEN);
    // The layer colour resolves first, so a white-foreground layer turns black on white too.
    options().SetLayerColor(7);
    tris.CalcColors_Bkg(0xFFFFFF);
    EXPECT_EQ(tris.CalcColorTri(second), 0);
}

TEST_F(ColourTest, ClassTriangleTakesTheClassOfItsMeanElevation) {
    options().SetColorClasses(RedGreenBlueClasses());
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    EXPECT_EQ(tris.CalcColorTri(first), PACKED_GREEN);  // (20 + 10 + 30) / 3 = 20
    EXPECT_EQ(tris.CalcColorTri(second), PACKED_BLUE);  // (40 + 20 + 30) / 3 = 30
}

TEST_F(ColourTest, ClassTriangleMeanSumsVertexOneAndVertexZeroFirst) {
    CTri* t = AddTriangleWhoseMeanDependsOnTheOrderOfTheSum(*cloud, tris);
    ASSERT_NE(t, nullptr);
    options().SetColorClasses(RedUpToATenthThenGreenClasses());
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    EXPECT_EQ(tris.CalcColorTri(t), PACKED_GREEN);  // 1/3, not 0
}

TEST_F(ColourTest, ClassTriangleOfTheForegroundColourStaysWhiteOnWhite) {
    CColorClassComputer white;
    white.AddEntry(0, 0.0, 7);
    white.AddEntry(1, 100.0, 7);
    options().SetColorClasses(white);
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    tris.CalcColors_Bkg(0xFFFFFF);
    EXPECT_EQ(tris.CalcColorTri(first), PACKED_WHITE);
}

TEST_F(ColourTest, ClassVertexOfTheForegroundColourStaysWhiteOnWhite) {
    // Only a fixed colour turns black on a white background; a class colour is taken as it is.
    CColorClassComputer white;
    white.AddEntry(0, 0.0, 7);
    white.AddEntry(1, 100.0, 7);
    options().SetColorClasses(white);
    options().SetColorType(COpzTri::TRI_COLOR_BY_CLASSES);
    tris.CalcColors_Bkg(0xFFFFFF);
    ASSERT_NE(tris.GetColors(), nullptr);
    for (int i = 0; i < 4; ++i) ExpectColour(tris.GetColors()[i], EngineColour(7));
    EXPECT_EQ(EngineColour(7).r, 1.0f);
}

TEST_F(ColourTest, CloudTriangleMeansItsVertexColoursIn32BitFloat) {
    UseColourType(COpzTri::TRI_COLOR_BY_CLOUD);
    // Red: the exact mean of 180, 235 and 137 is 184, but in 32-bit float the three scaled
    // channels sum to a value that, times 255 and over 3, gives 183.99998, truncated to 183.
    // Blue: (255 + 0 + 0) / 3 = 85 exactly.
    EXPECT_EQ(tris.CalcColorTri(first), 183 | 0 << 8 | 85 << 16);
}

TEST_F(ColourTest, CloudTriangleWithoutVertexColoursIsDrawnBlack) {
    UseColourType(COpzTri::TRI_COLOR_BY_CLOUD);
    cloud->missing = 1;
    tris.CheckBroken();
    tris.CalcColors();
    ASSERT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.CalcColorTri(first), 0);
}

// Negative vertex indices are not rejected when a triangle is created; such a triangle must not
// break the colouring of the others.
TEST_F(ColourTest, TriangleWithAMissingVertexIsColouredAsHavingNoElevationOrColour) {
    CTri* dangling = tris.AddNewTri(1, -1, 0, 1);
    ASSERT_NE(dangling, nullptr);
    options().SetColorClasses(RedGreenBlueClasses());
    UseColourType(COpzTri::TRI_COLOR_BY_CLASSES);
    EXPECT_EQ(tris.CalcColorTri(dangling), PACKED_RED);  // no elevation: the first class
    UseColourType(COpzTri::TRI_COLOR_BY_CLOUD);
    // The missing vertex counts as black: red (180 + 235 + 0) / 3 = 138.33, blue 255 / 3 = 85.
    EXPECT_EQ(tris.CalcColorTri(dangling), 138 | 0 << 8 | 85 << 16);
}

TEST_F(ColourTest, UnknownColourTypeDrawsTheTriangleInItsOwnColour) {
    UseColourType(static_cast<ColorType>(5));
    options().SetLayerColor(3);
    EXPECT_EQ(tris.CalcColorTri(second), PACKED_GREEN);
}

// Normals --------------------------------------------------------------------------------

// The normal sums of a network computed here in double precision, from the vertices alone:
// each triangle adds its unnormalised downward-for-counter-clockwise normal to its vertices.
std::vector<PNT_3D> ExpectedNormals(const CTris& network) {
    std::vector<PNT_3D> sums(static_cast<std::size_t>(network.GetNoTriVrts()), PNT_3D(0, 0, 0));
    for (int t = 0; t < network.GetNoTris(); ++t) {
        const CTri* tri = network.GetTriAt(t);
        const PNT_3D& a = network.GetTriVrtAt(tri->GetVerIndex(0));
        const PNT_3D& b = network.GetTriVrtAt(tri->GetVerIndex(1));
        const PNT_3D& c = network.GetTriVrtAt(tri->GetVerIndex(2));
        const double ux = b.x - a.x, uy = b.y - a.y, uz = b.z - a.z;
        const double vx = c.x - a.x, vy = c.y - a.y, vz = c.z - a.z;
        const PNT_3D n(-(uy * vz - uz * vy), -(uz * vx - ux * vz), -(ux * vy - uy * vx));
        for (int k = 0; k < 3; ++k) {
            PNT_3D& sum = sums[static_cast<std::size_t>(tri->GetVerIndex(k))];
            sum = PNT_3D(sum.x + n.x, sum.y + n.y, sum.z + n.z);
        }
    }
    for (PNT_3D& sum : sums) {
        const double length = std::sqrt(sum.x * sum.x + sum.y * sum.y + sum.z * sum.z);
        sum = PNT_3D(sum.x / length, sum.y / length, sum.z / length);
    }
    return sums;
}

TEST_F(ColourTest, NormalsAreTheNormalisedSumsOfTheUnnormalisedTriangleNormals) {
    // A third, larger and steeper triangle makes the shared vertices lean its way.
    cloud->AddPnt(PNT_3D(40, -5, 90));
    tris.AddTriVrt(4);
    ASSERT_NE(tris.AddNewTri(1, 1, 4, 3), nullptr);
    tris.CalcNormals();
    const TTriNormal* normals = tris.GetNormals();
    ASSERT_NE(normals, nullptr);
    const std::vector<PNT_3D> expected = ExpectedNormals(tris);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(normals[i].x, expected[i].x, 1e-6) << "vertex " << i;
        EXPECT_NEAR(normals[i].y, expected[i].y, 1e-6) << "vertex " << i;
        EXPECT_NEAR(normals[i].z, expected[i].z, 1e-6) << "vertex " << i;
        const double length =
            std::sqrt(double(normals[i].x) * normals[i].x + double(normals[i].y) * normals[i].y +
                      double(normals[i].z) * normals[i].z);
        EXPECT_NEAR(length, 1.0, 1e-6) << "vertex " << i;
    }
}

TEST_F(ColourTest, TriangleWithAMissingVertexAddsNoNormal) {
    tris.CalcNormals();
    ASSERT_NE(tris.GetNormals(), nullptr);
    const std::vector<TTriNormal> before(tris.GetNormals(), tris.GetNormals() + 4);
    ASSERT_NE(tris.AddNewTri(1, -1, 0, 1), nullptr);
    ASSERT_NE(tris.AddNewTri(1, 2, -5, 3), nullptr);
    tris.CalcNormals();
    ASSERT_NE(tris.GetNormals(), nullptr);
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_NEAR(tris.GetNormals()[i].x, before[i].x, 1e-6) << "vertex " << i;
        EXPECT_NEAR(tris.GetNormals()[i].y, before[i].y, 1e-6) << "vertex " << i;
        EXPECT_NEAR(tris.GetNormals()[i].z, before[i].z, 1e-6) << "vertex " << i;
    }
}

TEST_F(ColourTest, VertexUsedByNoTriangleHasANaNNormal) {
    cloud->AddPnt(PNT_3D(50, 50, 50));
    tris.AddTriVrt(4);
    tris.CalcNormals();
    ASSERT_NE(tris.GetNormals(), nullptr);
    EXPECT_TRUE(std::isnan(tris.GetNormals()[4].x));
    EXPECT_TRUE(std::isnan(tris.GetNormals()[4].y));
    EXPECT_TRUE(std::isnan(tris.GetNormals()[4].z));
    EXPECT_FALSE(std::isnan(tris.GetNormals()[0].z));
}

TEST_F(ColourTest, VertexOnlyInTrianglesWithoutAreaHasANaNNormal) {
    // Three points on a line, one triangle over them and one that repeats a vertex: neither has
    // a normal to give, so their vertices share no direction, as a vertex of no triangle.
    cloud->AddPnt(PNT_3D(20, 20, 5));
    cloud->AddPnt(PNT_3D(30, 30, 5));
    cloud->AddPnt(PNT_3D(40, 40, 5));
    for (int i = 4; i < 7; ++i) tris.AddTriVrt(i);
    ASSERT_NE(tris.AddNewTri(1, 4, 5, 6), nullptr);
    ASSERT_NE(tris.AddNewTri(1, 4, 4, 5), nullptr);
    tris.CalcNormals();
    ASSERT_NE(tris.GetNormals(), nullptr);
    for (int i = 4; i < 7; ++i) {
        EXPECT_TRUE(std::isnan(tris.GetNormals()[i].x)) << "vertex " << i;
        EXPECT_TRUE(std::isnan(tris.GetNormals()[i].z)) << "vertex " << i;
    }
    EXPECT_FALSE(std::isnan(tris.GetNormals()[0].z));
}

// A flat network of two triangles sharing the edge (10,0)-(0,10), both stored in the order
// that @p counterClockwise asks for.
class FlatNormalTest : public CloudNetworkTest, public testing::WithParamInterface<bool> {};

TEST_P(FlatNormalTest, FlatNetworkNormalsPointAgainstTheCrossProduct) {
    const bool counterClockwise = GetParam();
    cloud->AddPnt(PNT_3D(0, 0, 7));
    cloud->AddPnt(PNT_3D(10, 0, 7));
    cloud->AddPnt(PNT_3D(0, 10, 7));
    cloud->AddPnt(PNT_3D(10, 10, 7));
    BindCloudAndAddEveryPoint();
    if (counterClockwise) {
        ASSERT_NE(tris.AddNewTri(1, 0, 1, 2), nullptr);
        ASSERT_NE(tris.AddNewTri(1, 1, 3, 2), nullptr);
    } else {
        ASSERT_NE(tris.AddNewTri(1, 0, 2, 1), nullptr);
        ASSERT_NE(tris.AddNewTri(1, 1, 2, 3), nullptr);
    }
    const CTri* tri = tris.GetTriAt(0);
    const double crossZ = kor::geom::CrossProduct(tris.GetTriVrtAt(tri->GetVerIndex(0)),
                                                  tris.GetTriVrtAt(tri->GetVerIndex(1)),
                                                  tris.GetTriVrtAt(tri->GetVerIndex(2)))
                              .z;
    const float expectedZ = crossZ > 0 ? -1.0f : 1.0f;
    EXPECT_EQ(expectedZ, counterClockwise ? -1.0f : 1.0f);

    tris.CalcNormals();
    const TTriNormal* normals = tris.GetNormals();
    ASSERT_NE(normals, nullptr);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(normals[i].x, 0.0f) << "vertex " << i;
        EXPECT_EQ(normals[i].y, 0.0f) << "vertex " << i;
        EXPECT_EQ(normals[i].z, expectedZ) << "vertex " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(BothOrientations, FlatNormalTest, testing::Bool());

// Re-deriving the stored triangle colours ------------------------------------------------

class UpdateTriColorsTest : public ColourTest {
protected:
    void SetUp() override {
        ColourTest::SetUp();
        prj->GetContext()->Register(&recorder);
    }
    void TearDown() override { prj->GetContext()->Unregister(&recorder); }

    dtm_test::ProjectEventRecorder recorder;
};

TEST_F(UpdateTriColorsTest, FixedTypeResetsEveryTriangleToByLayerInOneEvent) {
    options().SetColorType(COpzTri::TRI_COLOR_FIXED);
    options().SetFixedColor(3);
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(first->GetColor(), 256);
    EXPECT_EQ(second->GetColor(), 256);
    ASSERT_EQ(recorder.events.size(), 1u);
    // The by-layer triangle did not change and is not reported.
    EXPECT_EQ(recorder.events[0].triModified, (std::vector<CTri*>{first}));
    EXPECT_EQ(recorder.events[0].triChangeType, 1);
    // The vertex colours were recomputed with the new fixed colour.
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[0], 0.0f, 1.0f, 0.0f);
}

TEST_F(UpdateTriColorsTest, AnUpdateThatChangesNoTriangleSendsNoEvent) {
    options().SetColorType(COpzTri::TRI_COLOR_FIXED);
    CTrisTestAccess::UpdateTriColors(tris);
    ASSERT_EQ(recorder.events.size(), 1u);
    // Every triangle is by layer now: a second update, with another fixed colour, changes none.
    options().SetFixedColor(5);
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(recorder.events.size(), 1u);
    // The vertex colours still follow the new fixed colour.
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[0], 0.0f, 0.0f, 1.0f);
}

TEST_F(UpdateTriColorsTest, ClassTypeGivesEachTriangleTheClassOfItsMeanElevation) {
    options().SetColorClasses(RedGreenBlueClasses());
    options().SetColorType(COpzTri::TRI_COLOR_BY_CLASSES);
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(first->GetColor(), 3);
    EXPECT_EQ(second->GetColor(), 5);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triModified.size(), 2u);
}

TEST_F(UpdateTriColorsTest, ClassTypeSumsVertexOneAndVertexZeroFirstForTheMean) {
    CTri* t = AddTriangleWhoseMeanDependsOnTheOrderOfTheSum(*cloud, tris);
    ASSERT_NE(t, nullptr);
    options().SetColorClasses(RedUpToATenthThenGreenClasses());
    options().SetColorType(COpzTri::TRI_COLOR_BY_CLASSES);
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(t->GetColor(), 3);  // 1/3, not 0
}

TEST_F(UpdateTriColorsTest, CloudTypeKeepsTriangleColoursButRecomputesVertexColours) {
    options().SetColorType(COpzTri::TRI_COLOR_BY_CLOUD);
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(first->GetColor(), 7);
    EXPECT_EQ(second->GetColor(), 256);
    EXPECT_TRUE(recorder.events.empty());
    // The fixed blue of the set-up gives way to the point's own colour.
    ASSERT_NE(tris.GetColors(), nullptr);
    ExpectColour(tris.GetColors()[2], static_cast<float>(137 / 255.0), 0.0f, 0.0f);
}

TEST_F(UpdateTriColorsTest, UnknownColourTypeKeepsTriangleColours) {
    options().SetColorType(static_cast<ColorType>(5));
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(first->GetColor(), 7);
    EXPECT_EQ(second->GetColor(), 256);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(UpdateTriColorsTest, BrokenNetworkIsLeftAsItIs) {
    cloud->missing = 1;
    tris.CheckBroken();
    ASSERT_TRUE(tris.IsBroken());
    options().SetColorType(COpzTri::TRI_COLOR_FIXED);
    CTrisTestAccess::UpdateTriColors(tris);
    EXPECT_EQ(first->GetColor(), 7);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(UpdateTriColorsTest, InsideAnOpenEventTheChangesJoinIt) {
    options().SetColorType(COpzTri::TRI_COLOR_FIXED);
    {
        kor::CEventGuard outer(prj->GetContext());
        CTrisTestAccess::UpdateTriColors(tris);
        EXPECT_TRUE(recorder.events.empty());
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triModified, (std::vector<CTri*>{first}));
}

}  // namespace
