#include <dtm/support/LumoEng.h>

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TestPaths.h"

namespace {

struct Rgb {
    long r;
    long g;
    long b;
};

Rgb PaletteColour(short index) {
    Rgb colour{};
    CLumoEng::Index_to_RGB(index, colour.r, colour.g, colour.b);
    return colour;
}

unsigned long Pack(long r, long g, long b) {
    return (static_cast<unsigned long>(r) << 16) | (static_cast<unsigned long>(g) << 8) |
           static_cast<unsigned long>(b);
}

// The rule as stated, scanned over the whole palette: squared distance, strict '<' so that the
// lowest index wins a tie, every index searched.
short BruteForceNearest(long r, long g, long b) {
    short best = -1;
    long bestDistance = std::numeric_limits<long>::max();
    for (short index = 0; index <= 255; ++index) {
        const Rgb c = PaletteColour(index);
        const long distance = (c.r - r) * (c.r - r) + (c.g - g) * (c.g - g) + (c.b - b) * (c.b - b);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = index;
        }
    }
    return best;
}

void ExpectColour(short index, long r, long g, long b) {
    const Rgb c = PaletteColour(index);
    EXPECT_EQ(c.r, r) << "index " << index;
    EXPECT_EQ(c.g, g) << "index " << index;
    EXPECT_EQ(c.b, b) << "index " << index;
}

}  // namespace

TEST(LumoEng, KnownEntriesHaveTheirCadColours) {
    // A few entries checked without the CSV, so that a user's clone tests the table too.
    ExpectColour(0, 0, 0, 0);
    ExpectColour(1, 255, 0, 0);
    ExpectColour(2, 255, 255, 0);
    ExpectColour(3, 0, 255, 0);
    ExpectColour(4, 0, 255, 255);
    ExpectColour(5, 0, 0, 255);
    ExpectColour(6, 255, 0, 255);
    ExpectColour(7, 255, 255, 255);
    ExpectColour(8, 128, 128, 128);
    ExpectColour(9, 192, 192, 192);
    ExpectColour(11, 255, 127, 127);
    ExpectColour(18, 38, 0, 0);
    ExpectColour(143, 82, 145, 165);
    ExpectColour(249, 38, 19, 23);
    ExpectColour(250, 51, 51, 51);
    ExpectColour(254, 190, 190, 190);
    ExpectColour(255, 255, 255, 255);
}

TEST(LumoEng, CompiledPaletteEqualsTheCsvRowByRow) {
    const std::string path = dtm_test::SharedDataDir() + "/cad-colour-index.csv";
    if (!dtm_test::FileExists(path)) GTEST_SKIP() << path << " is not available";
    std::ifstream csv(path);
    ASSERT_TRUE(csv.good());
    std::string line;
    ASSERT_TRUE(std::getline(csv, line));
    EXPECT_EQ(line, "index,r,g,b");
    int rows = 0;
    while (std::getline(csv, line)) {
        if (line.empty()) continue;
        std::istringstream fields(line);
        long index = 0, r = 0, g = 0, b = 0;
        char comma1 = 0, comma2 = 0, comma3 = 0;
        fields >> index >> comma1 >> r >> comma2 >> g >> comma3 >> b;
        ASSERT_FALSE(fields.fail()) << "row " << rows << ": " << line;
        ASSERT_EQ(index, rows) << "rows must be in index order";
        ExpectColour(static_cast<short>(index), r, g, b);
        ++rows;
    }
    EXPECT_EQ(rows, 256);
}

TEST(LumoEng, FloatComponentsAreIntegerComponentsOver255) {
    for (short index = -2; index <= 258; ++index) {
        const Rgb c = PaletteColour(index);
        float r = -1, g = -1, b = -1;
        CLumoEng::Index_to_RGB(index, r, g, b);
        EXPECT_EQ(r, c.r / 255.0f) << "index " << index;
        EXPECT_EQ(g, c.g / 255.0f) << "index " << index;
        EXPECT_EQ(b, c.b / 255.0f) << "index " << index;
    }
    float r = 0, g = 0, b = 0;
    CLumoEng::Index_to_RGB(7, r, g, b);
    EXPECT_EQ(r, 1.0f);
    EXPECT_EQ(g, 1.0f);
    EXPECT_EQ(b, 1.0f);
}

TEST(LumoEng, IndexOutsideThePaletteGivesWhite) {
    for (short index : {short(256), short(257), short(-1), short(-256),
                        std::numeric_limits<short>::max(), std::numeric_limits<short>::min()}) {
        ExpectColour(index, 255, 255, 255);
        float r = 0, g = 0, b = 0;
        CLumoEng::Index_to_RGB(index, r, g, b);
        EXPECT_EQ(r, 1.0f) << "index " << index;
        EXPECT_EQ(g, 1.0f) << "index " << index;
        EXPECT_EQ(b, 1.0f) << "index " << index;
    }
}

TEST(LumoEng, EveryPaletteColourGivesItsOwnIndexExceptRepeats) {
    // The repeated colours come back as their lower index.
    const std::map<short, short> remapped = {{10, 1},  {50, 2},  {90, 3}, {130, 4},
                                             {170, 5}, {210, 6}, {255, 7}};
    for (short index = 0; index <= 255; ++index) {
        const Rgb c = PaletteColour(index);
        const auto found = remapped.find(index);
        const short expected = found == remapped.end() ? index : found->second;
        EXPECT_EQ(CLumoEng::RGB_to_Index(Pack(c.r, c.g, c.b)), expected) << "index " << index;
    }
}

TEST(LumoEng, RepeatedColoursAreExactlyTheRemappedOnes) {
    // Guards the rule above against a palette change: the remapped indexes are precisely those
    // whose colour also belongs to a lower index.
    std::vector<short> repeats;
    for (short index = 0; index <= 255; ++index) {
        const Rgb c = PaletteColour(index);
        for (short lower = 0; lower < index; ++lower) {
            const Rgb l = PaletteColour(lower);
            if (l.r == c.r && l.g == c.g && l.b == c.b) {
                repeats.push_back(index);
                break;
            }
        }
    }
    EXPECT_EQ(repeats, (std::vector<short>{10, 50, 90, 130, 170, 210, 255}));
}

TEST(LumoEng, BlackAndNearBlackGiveIndexZero) {
    EXPECT_EQ(CLumoEng::RGB_to_Index(0x000000), 0);
    EXPECT_EQ(CLumoEng::RGB_to_Index(0x010101), 0);
    for (unsigned long packed = 0; packed < 0x202020; packed += 0x010305) {
        const long r = static_cast<long>((packed >> 16) & 0xFF);
        const long g = static_cast<long>((packed >> 8) & 0xFF);
        const long b = static_cast<long>(packed & 0xFF);
        EXPECT_EQ(CLumoEng::RGB_to_Index(packed), BruteForceNearest(r, g, b)) << std::hex << packed;
    }
}

TEST(LumoEng, BitsAbove23AreIgnored) {
    const unsigned long colour = 0x7F3F1Fu;
    const short expected = CLumoEng::RGB_to_Index(colour);
    EXPECT_EQ(CLumoEng::RGB_to_Index(colour | 0xFF000000ul), expected);
    EXPECT_EQ(CLumoEng::RGB_to_Index(0xFFFFFFFFul), 7);
    EXPECT_EQ(CLumoEng::RGB_to_Index(0xFF000000ul), 0);
    if (sizeof(unsigned long) > 4) {
        const unsigned long high = ~0ul << 24;
        EXPECT_EQ(CLumoEng::RGB_to_Index(colour | high), expected);
    }
}

TEST(LumoEng, NearestIndexMatchesBruteForceOnRandomColours) {
    const unsigned seed = 20240611u;
    std::mt19937 random(seed);
    std::uniform_int_distribution<long> component(0, 255);
    for (int step = 0; step < 200000; ++step) {
        const long r = component(random), g = component(random), b = component(random);
        ASSERT_EQ(CLumoEng::RGB_to_Index(Pack(r, g, b)), BruteForceNearest(r, g, b))
            << "seed " << seed << ", step " << step << ", colour " << r << "," << g << "," << b;
    }
}

TEST(LumoEng, NearestIndexMatchesBruteForceAtCellBordersAndHalfways) {
    // Colours on both sides of every 16-step border, and points halfway between two palette
    // colours (where ties happen), are where a precomputed search would first go wrong.
    std::vector<long> levels;
    for (long v = 0; v < 256; v += 16) {
        levels.push_back(v);
        levels.push_back(v + 15);
    }
    for (long r : levels)
        for (long g : levels)
            for (long b : levels)
                ASSERT_EQ(CLumoEng::RGB_to_Index(Pack(r, g, b)), BruteForceNearest(r, g, b))
                    << r << "," << g << "," << b;
    for (short first = 1; first <= 255; first += 3) {
        for (short second = 2; second <= 255; second += 5) {
            const Rgb a = PaletteColour(first), c = PaletteColour(second);
            const long r = (a.r + c.r) / 2, g = (a.g + c.g) / 2, b = (a.b + c.b) / 2;
            ASSERT_EQ(CLumoEng::RGB_to_Index(Pack(r, g, b)), BruteForceNearest(r, g, b))
                << "between " << first << " and " << second;
        }
    }
}
