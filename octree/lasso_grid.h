// A coarse grid over the lasso's rectangle that answers meshGeometry::isPointInPolygon at once
// for points in cells that no lasso edge comes near.
//
// The point test counts edge (a, c) when (a.y > p.y) != (c.y > p.y), that is when p.y lies in
// [min(a.y, c.y), max(a.y, c.y)), and its computed crossing x = (p.y - a.y) * (c.x - a.x) /
// (c.y - a.y + 1e-10) + a.x exceeds p.x. Over a cell:
// - an edge whose height range misses the cell is never counted there;
// - an edge whose crossings at the cell's heights, widened by a bound on the rounding of the
//   crossing x, lie wholly left of the cell is never counted there, and one whose crossings lie
//   wholly right of it is counted exactly where its height range holds.
// If every edge is of these kinds, the count changes only where a height range of an edge of
// the last kind starts or ends inside the cell. Where each such height is shared by an even
// number of those ends, the parity never changes within the cell, and the answer for any point
// in it is the answer for its centre, found with the same test. Every other cell is left open,
// and its points go to the full test.
#pragma once

#include <korvex/polygon.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace octree_detail {

class LassoGrid {
  public:
    enum Answer : uint8_t { kOpen, kOutside, kInside };

    // A grid that leaves every cell open.
    LassoGrid() = default;

    // `rect` is computePolygonBounds(polygon); `test` answers the point test for one point of
    // the rectangle.
    template <typename PointTest>
    LassoGrid(const std::vector<vec2>& polygon, const ScreenRect& rect, const PointTest& test)
        : minX_(rect.minX), minY_(rect.minY) {
        if (!usable(polygon, rect)) return;
        const float width = rect.maxX - rect.minX, height = rect.maxY - rect.minY;
        scaleX_ = static_cast<float>(kCells) / width;
        scaleY_ = static_cast<float>(kCells) / height;
        cells_.assign(kCells * kCells, kOpen);

        const size_t n = polygon.size();
        const double cellW = static_cast<double>(width) / kCells;
        const double cellH = static_cast<double>(height) / kCells;
        // A point is filed under a cell by rounded arithmetic, so it may lie a hair outside
        // the cell; each cell is judged over a domain a quarter of a cell wider on every side.
        const double marginX = 0.25 * cellW, marginY = 0.25 * cellH;
        // Edge i pairs vertex i with the one before it. Each goes to the rows it may reach;
        // a level edge is never counted.
        std::vector<std::vector<size_t>> edgesOfRow(kCells);
        const auto rowOf = [&](double y) {
            return static_cast<int>(
                std::clamp(std::floor((y - rect.minY) / cellH), -1.0, static_cast<double>(kCells)));
        };
        for (size_t i = 0; i < n; ++i) {
            const vec2 &a = polygon[i], &c = polygon[i == 0 ? n - 1 : i - 1];
            if (a.y == c.y) continue;
            const int first = std::max(0, rowOf(std::min(a.y, c.y) - marginY) - 1);
            const int last = std::min(kCells - 1, rowOf(std::max(a.y, c.y) + marginY) + 1);
            for (int row = first; row <= last; ++row) edgesOfRow[row].push_back(i);
        }
        std::vector<RowEdge> rowEdges;
        std::vector<float> ends;
        for (int row = 0; row < kCells; ++row) {
            const double y0 = rect.minY + row * cellH - marginY;
            const double y1 = rect.minY + (row + 1) * cellH + marginY;
            rowEdges.clear();
            bool rowOpen = false;
            for (size_t i : edgesOfRow[row]) {
                const vec2 &a = polygon[i], &c = polygon[i == 0 ? n - 1 : i - 1];
                const double low = std::min(a.y, c.y), high = std::max(a.y, c.y);
                if (high < y0 || low > y1) continue;
                // A very short height range lets the 1e-10 term move the crossing far.
                if (high - low < kShortestRise) rowOpen = true;
                // Where the edge runs within the row's heights, widened by the slack.
                const auto xAt = [&](double y) {
                    const double t = (std::clamp(y, low, high) - a.y) / (double(c.y) - a.y);
                    return a.x + t * (double(c.x) - a.x);
                };
                const double xLow = xAt(y0), xHigh = xAt(y1);
                const double slack = kRunSlack * std::fabs(double(c.x) - a.x) +
                                     kPlaceSlack * (std::fabs(a.x) + std::fabs(c.x)) +
                                     kAbsoluteSlack;
                rowEdges.push_back(RowEdge{std::min(xLow, xHigh) - slack,
                                           std::max(xLow, xHigh) + slack, a.y, c.y});
            }
            if (rowOpen) continue;
            for (int col = 0; col < kCells; ++col) {
                const double x0 = rect.minX + col * cellW - marginX;
                const double x1 = rect.minX + (col + 1) * cellW + marginX;
                bool open = false;
                ends.clear();
                for (const RowEdge& e : rowEdges) {
                    if (e.right < x0) continue; // never counted here
                    if (e.left <= x1) {
                        open = true;
                        break;
                    }
                    // Counted wherever its height range holds: note its ends in the cell.
                    for (float end : {e.endY0, e.endY1})
                        if (end >= y0 && end <= y1) ends.push_back(end);
                }
                if (open || !pairedUp(ends)) continue;
                const vec2 centre(static_cast<float>(rect.minX + (col + 0.5) * cellW),
                                  static_cast<float>(rect.minY + (row + 0.5) * cellH));
                cells_[row * kCells + col] = test(centre) ? kInside : kOutside;
            }
        }
    }

    // The answer for p, a point of the rectangle, or kOpen when its cell cannot tell.
    Answer at(const vec2& p) const {
        if (cells_.empty()) return kOpen;
        return static_cast<Answer>(
            cells_[index((p.y - minY_) * scaleY_) * kCells + index((p.x - minX_) * scaleX_)]);
    }

  private:
    // An edge that reaches a row: the x range of its crossings at the row's heights, and the
    // heights of its ends.
    struct RowEdge {
        double left, right;
        float endY0, endY1;
    };

    static constexpr int kCells = 64; // per side
    static constexpr double kShortestRise = 1e-6;
    // The crossing x is a.x plus a term t * (c.x - a.x) with t in [0, 1]. Over a rise of at
    // least kShortestRise that term is computed to within about 1e-4 of |c.x - a.x| (six
    // roundings and the 1e-10 in the divisor), and the final sum adds a rounding of at most
    // 2^-24 of |a.x| + |c.x|; the slacks below are some ten times those. The absolute term
    // covers results too small for relative bounds.
    static constexpr double kRunSlack = 1.0 / 1024.0;
    static constexpr double kPlaceSlack = 1.0 / 1048576.0;
    static constexpr double kAbsoluteSlack = 1e-20;
    // Coordinates beyond this could overflow the products of the point test.
    static constexpr float kLargest = 1e15f;

    static bool usable(const std::vector<vec2>& polygon, const ScreenRect& rect) {
        if (!(rect.maxX - rect.minX > 0.0f) || !(rect.maxY - rect.minY > 0.0f)) return false;
        for (const vec2& v : polygon)
            if (!(std::fabs(v.x) < kLargest) || !(std::fabs(v.y) < kLargest)) return false;
        return true;
    }

    // True when every height occurs an even number of times.
    static bool pairedUp(std::vector<float>& ends) {
        if (ends.size() % 2) return false;
        std::sort(ends.begin(), ends.end());
        for (size_t i = 0; i < ends.size(); i += 2)
            if (ends[i] != ends[i + 1]) return false;
        return true;
    }

    static int index(float f) {
        if (!(f > 0.0f)) return 0;
        if (!(f < static_cast<float>(kCells))) return kCells - 1;
        return static_cast<int>(f);
    }

    float minX_ = 0.0f, minY_ = 0.0f;
    float scaleX_ = 0.0f, scaleY_ = 0.0f;
    std::vector<uint8_t> cells_; // row by row; empty when the grid is not used
};

} // namespace octree_detail
