#pragma once

// Reaches the calculator's private steps, for every test file of the profile: the full scan that
// stays the reference for any faster route, and the sort-and-merge step on hand-made lists.

#include <dtm/profile/CCalcIntersect.h>

#include <vector>

struct CCalcIntersectTestAccess {
    static void Scan(const CCalcIntersect& calc, const kor::geom::LINE_2D& line,
                     std::vector<TLineProgPnt>& out) {
        calc.CalcQuotedPntsByScan(line, out);
    }
    static void SortAndDeleteDuplicates(std::vector<TLineProgPnt>& pnts) {
        CCalcIntersect::SortAndDeleteDuplicates(pnts);
    }
};
