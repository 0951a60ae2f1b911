// meshGeometry::isPointInPolygon for many points against one polygon, with the polygon's edges
// sorted into horizontal bands so that a point meets only the edges that span its height.
#pragma once

#include <korvex/polygon.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace octree_detail {

class LassoIndex {
  public:
    // `rect` is computePolygonBounds(polygon); only points inside it may be asked about.
    LassoIndex(const std::vector<vec2>& polygon, const ScreenRect& rect) : polygon_(polygon) {
        const size_t n = polygon.size();
        const float height = rect.maxY - rect.minY;
        bands_ = std::max<size_t>(1, std::min<size_t>(n, 256));
        minY_ = rect.minY;
        scale_ =
            height > 0.0f && std::isfinite(height) ? static_cast<float>(bands_) / height : 0.0f;
        std::vector<std::vector<unsigned>> edges(bands_);
        for (size_t i = 0; i < n; ++i) {
            // Edge i pairs vertex i with the one before it, as the point test walks them.
            const float yi = polygon[i].y, yj = polygon[i == 0 ? n - 1 : i - 1].y;
            // An edge with a NaN end never counts: its computed x is NaN.
            if (std::isnan(yi) || std::isnan(yj)) continue;
            // The test counts an edge only for min(yi, yj) <= y < max(yi, yj); the band of a
            // height never decreases with the height, so the edge need only be in the bands
            // from that of its lower end to that of its upper end.
            for (size_t b = band(std::min(yi, yj)); b <= band(std::max(yi, yj)); ++b)
                edges[b].push_back(static_cast<unsigned>(i));
        }
        start_.assign(bands_ + 1, 0);
        for (size_t b = 0; b < bands_; ++b) start_[b + 1] = start_[b] + edges[b].size();
        for (const auto& list : edges) order_.insert(order_.end(), list.begin(), list.end());
    }

    // isPointInPolygon(p, polygon) for p inside the rectangle: the same crossings are counted,
    // with the same arithmetic, and the answer is their parity, whatever their order.
    bool inside(const vec2& p) const {
        const size_t b = band(p.y);
        const size_t n = polygon_.size();
        bool flag = false;
        for (size_t k = start_[b]; k < start_[b + 1]; ++k) {
            const size_t i = order_[k];
            const vec2& a = polygon_[i];
            const vec2& c = polygon_[i == 0 ? n - 1 : i - 1];
            if ((a.y > p.y) != (c.y > p.y)) {
                const float x = (p.y - a.y) * (c.x - a.x) / (c.y - a.y + 1e-10f) + a.x;
                if (x > p.x) flag = !flag;
            }
        }
        return flag;
    }

  private:
    size_t band(float y) const {
        const float f = (y - minY_) * scale_;
        if (!(f > 0.0f)) return 0; // also NaN
        if (!(f < static_cast<float>(bands_))) return bands_ - 1;
        return static_cast<size_t>(f);
    }

    const std::vector<vec2>& polygon_;
    size_t bands_;
    float minY_;
    float scale_;
    std::vector<size_t> start_;
    std::vector<unsigned> order_;
};

} // namespace octree_detail
