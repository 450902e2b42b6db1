#include <dtm/support/LumoEng.h>

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

struct PaletteColour {
    std::uint8_t r;
    std::uint8_t g;
    std::uint8_t b;
};

constexpr int PALETTE_SIZE = 256;

// The nearest search covers the whole table, index 0 (black) included: leaving it out would turn
// a computed black into 18, a dark red, which no user would recognise as the colour between two
// dark classes. Every palette colour therefore comes back as an index of exactly that colour.
constexpr int FIRST_SEARCHED_INDEX = 0;

// What an index outside the palette (256 "by layer", negatives) is drawn as:
// the callers resolve those before they get here, and white is the CAD's default foreground.
constexpr PaletteColour OUTSIDE_PALETTE_COLOUR = {255, 255, 255};

// The palette is compiled in because its source file is not installed with the library;
// scripts/generate-palette.py prints this block from the CSV.
// clang-format off
constexpr PaletteColour PALETTE[PALETTE_SIZE] = {
    {  0,   0,   0}, {255,   0,   0}, {255, 255,   0}, {  0, 255,   0}, {  0, 255, 255},  // 0
    {  0,   0, 255}, {255,   0, 255}, {255, 255, 255}, {128, 128, 128}, {192, 192, 192},  // 5
    {255,   0,   0}, {255, 127, 127}, {165,   0,   0}, {165,  82,  82}, {127,   0,   0},  // 10
    {127,  63,  63}, { 76,   0,   0}, { 76,  38,  38}, { 38,   0,   0}, { 38,  19,  19},  // 15
    {255,  63,   0}, {255, 159, 127}, {165,  41,   0}, {165, 103,  82}, {127,  31,   0},  // 20
    {127,  79,  63}, { 76,  19,   0}, { 76,  47,  38}, { 38,   9,   0}, { 38,  23,  19},  // 25
    {255, 127,   0}, {255, 191, 127}, {165,  82,   0}, {165, 124,  82}, {127,  63,   0},  // 30
    {127,  95,  63}, { 76,  38,   0}, { 76,  57,  38}, { 38,  19,   0}, { 38,  28,  19},  // 35
    {255, 191,   0}, {255, 223, 127}, {165, 124,   0}, {165, 145,  82}, {127,  95,   0},  // 40
    {127, 111,  63}, { 76,  57,   0}, { 76,  66,  38}, { 38,  28,   0}, { 38,  33,  19},  // 45
    {255, 255,   0}, {255, 255, 127}, {165, 165,   0}, {165, 165,  82}, {127, 127,   0},  // 50
    {127, 127,  63}, { 76,  76,   0}, { 76,  76,  38}, { 38,  38,   0}, { 38,  38,  19},  // 55
    {191, 255,   0}, {223, 255, 127}, {124, 165,   0}, {145, 165,  82}, { 95, 127,   0},  // 60
    {111, 127,  63}, { 57,  76,   0}, { 66,  76,  38}, { 28,  38,   0}, { 33,  38,  19},  // 65
    {127, 255,   0}, {191, 255, 127}, { 82, 165,   0}, {124, 165,  82}, { 63, 127,   0},  // 70
    { 95, 127,  63}, { 38,  76,   0}, { 57,  76,  38}, { 19,  38,   0}, { 28,  38,  19},  // 75
    { 63, 255,   0}, {159, 255, 127}, { 41, 165,   0}, {103, 165,  82}, { 31, 127,   0},  // 80
    { 79, 127,  63}, { 19,  76,   0}, { 47,  76,  38}, {  9,  38,   0}, { 23,  38,  19},  // 85
    {  0, 255,   0}, {127, 255, 127}, {  0, 165,   0}, { 82, 165,  82}, {  0, 127,   0},  // 90
    { 63, 127,  63}, {  0,  76,   0}, { 38,  76,  38}, {  0,  38,   0}, { 19,  38,  19},  // 95
    {  0, 255,  63}, {127, 255, 159}, {  0, 165,  41}, { 82, 165, 103}, {  0, 127,  31},  // 100
    { 63, 127,  79}, {  0,  76,  19}, { 38,  76,  47}, {  0,  38,   9}, { 19,  38,  23},  // 105
    {  0, 255, 127}, {127, 255, 191}, {  0, 165,  82}, { 82, 165, 124}, {  0, 127,  63},  // 110
    { 63, 127,  95}, {  0,  76,  38}, { 38,  76,  57}, {  0,  38,  19}, { 19,  38,  28},  // 115
    {  0, 255, 191}, {127, 255, 223}, {  0, 165, 124}, { 82, 165, 145}, {  0, 127,  95},  // 120
    { 63, 127, 111}, {  0,  76,  57}, { 38,  76,  66}, {  0,  38,  28}, { 19,  38,  33},  // 125
    {  0, 255, 255}, {127, 255, 255}, {  0, 165, 165}, { 82, 165, 165}, {  0, 127, 127},  // 130
    { 63, 127, 127}, {  0,  76,  76}, { 38,  76,  76}, {  0,  38,  38}, { 19,  38,  38},  // 135
    {  0, 191, 255}, {127, 223, 255}, {  0, 124, 165}, { 82, 145, 165}, {  0,  95, 127},  // 140
    { 63, 111, 127}, {  0,  57,  76}, { 38,  66,  76}, {  0,  28,  38}, { 19,  33,  38},  // 145
    {  0, 127, 255}, {127, 191, 255}, {  0,  82, 165}, { 82, 124, 165}, {  0,  63, 127},  // 150
    { 63,  95, 127}, {  0,  38,  76}, { 38,  57,  76}, {  0,  19,  38}, { 19,  28,  38},  // 155
    {  0,  63, 255}, {127, 159, 255}, {  0,  41, 165}, { 82, 103, 165}, {  0,  31, 127},  // 160
    { 63,  79, 127}, {  0,  19,  76}, { 38,  47,  76}, {  0,   9,  38}, { 19,  23,  38},  // 165
    {  0,   0, 255}, {127, 127, 255}, {  0,   0, 165}, { 82,  82, 165}, {  0,   0, 127},  // 170
    { 63,  63, 127}, {  0,   0,  76}, { 38,  38,  76}, {  0,   0,  38}, { 19,  19,  38},  // 175
    { 63,   0, 255}, {159, 127, 255}, { 41,   0, 165}, {103,  82, 165}, { 31,   0, 127},  // 180
    { 79,  63, 127}, { 19,   0,  76}, { 47,  38,  76}, {  9,   0,  38}, { 23,  19,  38},  // 185
    {127,   0, 255}, {191, 127, 255}, { 82,   0, 165}, {124,  82, 165}, { 63,   0, 127},  // 190
    { 95,  63, 127}, { 38,   0,  76}, { 57,  38,  76}, { 19,   0,  38}, { 28,  19,  38},  // 195
    {191,   0, 255}, {223, 127, 255}, {124,   0, 165}, {145,  82, 165}, { 95,   0, 127},  // 200
    {111,  63, 127}, { 57,   0,  76}, { 66,  38,  76}, { 28,   0,  38}, { 33,  19,  38},  // 205
    {255,   0, 255}, {255, 127, 255}, {165,   0, 165}, {165,  82, 165}, {127,   0, 127},  // 210
    {127,  63, 127}, { 76,   0,  76}, { 76,  38,  76}, { 38,   0,  38}, { 38,  19,  38},  // 215
    {255,   0, 191}, {255, 127, 223}, {165,   0, 124}, {165,  82, 145}, {127,   0,  95},  // 220
    {127,  63, 111}, { 76,   0,  57}, { 76,  38,  66}, { 38,   0,  28}, { 38,  19,  33},  // 225
    {255,   0, 127}, {255, 127, 191}, {165,   0,  82}, {165,  82, 124}, {127,   0,  63},  // 230
    {127,  63,  95}, { 76,   0,  38}, { 76,  38,  57}, { 38,   0,  19}, { 38,  19,  28},  // 235
    {255,   0,  63}, {255, 127, 159}, {165,   0,  41}, {165,  82, 103}, {127,   0,  31},  // 240
    {127,  63,  79}, { 76,   0,  19}, { 76,  38,  47}, { 38,   0,   9}, { 38,  19,  23},  // 245
    { 51,  51,  51}, { 80,  80,  80}, {105, 105, 105}, {130, 130, 130}, {190, 190, 190},  // 250
    {255, 255, 255},  // 255
};
// clang-format on

const PaletteColour& ColourOf(short index) {
    if (index < 0 || index >= PALETTE_SIZE) return OUTSIDE_PALETTE_COLOUR;
    return PALETTE[index];
}

long SquaredDistance(const PaletteColour& colour, int r, int g, int b) {
    const long dr = colour.r - r;
    const long dg = colour.g - g;
    const long db = colour.b - b;
    return dr * dr + dg * dg + db * db;
}

// The RGB cube is cut into CELLS_PER_AXIS^3 cells, and each cell keeps, in ascending index
// order, the only palette entries that can be nearest to some colour inside it: those whose
// smallest possible distance to the cell does not exceed the smallest largest-distance of any
// entry. Every entry that is nearest (or tied nearest) to a colour of the cell passes that test,
// so scanning a cell's short list in index order with a strict '<' gives exactly the
// lowest-index nearest entry of a scan over the whole palette, at a fraction of the cost.
constexpr int CELL_SHIFT = 4;
constexpr int CELL_SIDE = 1 << CELL_SHIFT;
constexpr int CELLS_PER_AXIS = 256 / CELL_SIDE;

class NearestIndexGrid {
public:
    NearestIndexGrid() {
        m_firstCandidate.reserve(CELLS_PER_AXIS * CELLS_PER_AXIS * CELLS_PER_AXIS + 1);
        for (int cr = 0; cr < CELLS_PER_AXIS; ++cr)
            for (int cg = 0; cg < CELLS_PER_AXIS; ++cg)
                for (int cb = 0; cb < CELLS_PER_AXIS; ++cb) AddCell(cr, cg, cb);
        m_firstCandidate.push_back(static_cast<std::uint32_t>(m_candidates.size()));
    }

    short Nearest(int r, int g, int b) const {
        const int cell = ((r >> CELL_SHIFT) * CELLS_PER_AXIS + (g >> CELL_SHIFT)) * CELLS_PER_AXIS +
                         (b >> CELL_SHIFT);
        short best = 0;
        long bestDistance = std::numeric_limits<long>::max();
        for (std::uint32_t i = m_firstCandidate[cell]; i < m_firstCandidate[cell + 1]; ++i) {
            const short index = m_candidates[i];
            const long distance = SquaredDistance(PALETTE[index], r, g, b);
            if (distance < bestDistance) {
                bestDistance = distance;
                best = index;
            }
        }
        return best;
    }

private:
    // Distances along one axis from component c to the cell's integer range [low, low + side).
    static long NearestOnAxis(int c, int low) {
        const int high = low + CELL_SIDE - 1;
        if (c < low) return low - c;
        if (c > high) return c - high;
        return 0;
    }
    static long FarthestOnAxis(int c, int low) {
        const int high = low + CELL_SIDE - 1;
        return c - low > high - c ? c - low : high - c;
    }

    void AddCell(int cr, int cg, int cb) {
        const int lowR = cr * CELL_SIDE, lowG = cg * CELL_SIDE, lowB = cb * CELL_SIDE;
        std::array<long, PALETTE_SIZE> nearest{};
        long bound = std::numeric_limits<long>::max();
        for (int index = FIRST_SEARCHED_INDEX; index < PALETTE_SIZE; ++index) {
            const PaletteColour& c = PALETTE[index];
            const long nr = NearestOnAxis(c.r, lowR), ng = NearestOnAxis(c.g, lowG),
                       nb = NearestOnAxis(c.b, lowB);
            const long fr = FarthestOnAxis(c.r, lowR), fg = FarthestOnAxis(c.g, lowG),
                       fb = FarthestOnAxis(c.b, lowB);
            nearest[index] = nr * nr + ng * ng + nb * nb;
            const long farthest = fr * fr + fg * fg + fb * fb;
            if (farthest < bound) bound = farthest;
        }
        m_firstCandidate.push_back(static_cast<std::uint32_t>(m_candidates.size()));
        for (int index = FIRST_SEARCHED_INDEX; index < PALETTE_SIZE; ++index)
            if (nearest[index] <= bound) m_candidates.push_back(static_cast<short>(index));
    }

    std::vector<std::uint32_t> m_firstCandidate;  // per cell, then one past the last
    std::vector<short> m_candidates;
};

const NearestIndexGrid& Grid() {
    static const NearestIndexGrid grid;  // built on first use, once: a few milliseconds
    return grid;
}

}  // namespace

void CLumoEng::Index_to_RGB(short index, float& r, float& g, float& b) {
    const PaletteColour& colour = ColourOf(index);
    r = colour.r / 255.0f;
    g = colour.g / 255.0f;
    b = colour.b / 255.0f;
}

void CLumoEng::Index_to_RGB(short index, long& r, long& g, long& b) {
    const PaletteColour& colour = ColourOf(index);
    r = colour.r;
    g = colour.g;
    b = colour.b;
}

short CLumoEng::RGB_to_Index(unsigned long packedRgb) {
    const int r = static_cast<int>((packedRgb >> 16) & 0xFF);
    const int g = static_cast<int>((packedRgb >> 8) & 0xFF);
    const int b = static_cast<int>(packedRgb & 0xFF);
    return Grid().Nearest(r, g, b);
}
