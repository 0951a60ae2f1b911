// Brute-force checks for text solids: closedness with consistent winding,
// enclosed volume, cap area. Written plainly, for small meshes.
#pragma once

#include <korvex/records.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace textcheck {

inline double shoelace(const std::vector<vec2>& ring) {
    double s = 0.0;
    for (size_t i = 0, n = ring.size(); i < n; ++i) {
        const vec2& a = ring[i];
        const vec2& b = ring[(i + 1) % n];
        s += double(a.x) * b.y - double(a.y) * b.x;
    }
    return 0.5 * s;
}

// Signed area in the xy plane of the triangles [first, last) (triangle
// numbers).
inline double capArea(const std::vector<kvx::nsVertex>& v, const std::vector<unsigned>& idx,
                      size_t first, size_t last) {
    double sum = 0.0;
    for (size_t t = first; t < last; ++t) {
        const vec3& a = v[idx[3 * t]].position;
        const vec3& b = v[idx[3 * t + 1]].position;
        const vec3& c = v[idx[3 * t + 2]].position;
        sum += 0.5 * ((double(b.x) - a.x) * (double(c.y) - a.y) -
                      (double(b.y) - a.y) * (double(c.x) - a.x));
    }
    return sum;
}

// Volume enclosed by an outward-wound mesh (divergence theorem, double).
inline double volume(const std::vector<kvx::nsVertex>& v, const std::vector<unsigned>& idx) {
    double sum = 0.0;
    for (size_t k = 0; k + 2 < idx.size(); k += 3) {
        const vec3& a = v[idx[k]].position;
        const vec3& b = v[idx[k + 1]].position;
        const vec3& c = v[idx[k + 2]].position;
        sum += double(a.x) * (double(b.y) * c.z - double(b.z) * c.y) -
               double(a.y) * (double(b.x) * c.z - double(b.z) * c.x) +
               double(a.z) * (double(b.x) * c.y - double(b.y) * c.x);
    }
    return sum / 6.0;
}

// Empty when every edge of the mesh is used by exactly two triangles that
// run it in opposite directions; otherwise a description of the first fault.
// Vertices are merged by position, and an edge that passes through another
// vertex (where rings of a polygon touch, or a cap edge spans a collinear
// ring point) is split at it first.
//
// Two relaxations, each still demanding as many uses one way as the other:
// where two rings meet at a point (the even-odd union of crossing rings
// leaves such pinches) each ring has its own vertices, so an edge between two
// such points may be used by several pairs; and with `seams`, any edge may,
// for union results whose separate pieces abut along an edge (the clipper
// does not always merge them), which leaves a double wall inside the solid.
inline std::string closedMeshProblem(const std::vector<kvx::nsVertex>& v,
                                     const std::vector<unsigned>& idx, bool seams = false) {
    using Key = std::tuple<float, float, float>;
    std::map<Key, int> ids;
    std::vector<vec3> points;
    std::vector<int> id(v.size()), copies;
    for (size_t i = 0; i < v.size(); ++i) {
        const vec3& p = v[i].position;
        auto it = ids.emplace(Key(p.x, p.y, p.z), int(points.size())).first;
        if (it->second == int(points.size())) points.push_back(p), copies.push_back(0);
        id[i] = it->second;
        ++copies[id[i]];
    }
    // Edges by merged end points, as the triangles use them.
    std::vector<std::pair<int, int>> edges;
    std::map<std::pair<int, int>, int> plain;
    for (size_t k = 0; k + 2 < idx.size(); k += 3)
        for (int e = 0; e < 3; ++e) {
            const int a = id[idx[k + e]], b = id[idx[k + (e + 1) % 3]];
            if (a == b) return "triangle " + std::to_string(k / 3) + " has a zero-length edge";
            edges.emplace_back(a, b);
            ++plain[{a, b}];
        }
    // An edge without its partner may be a long edge facing several short
    // ones (a T-junction): split it at the points that lie on it. Matched
    // edges stay whole, so a diagonal that only passes near a point of a
    // finely flattened curve is not cut.
    std::map<std::pair<int, int>, int> directed;
    for (const auto& [a, b] : edges) {
        const auto back = plain.find({b, a});
        if (back != plain.end() && back->second == plain[{a, b}]) {
            ++directed[{a, b}];
            continue;
        }
        const vec3 pa = points[a], pb = points[b];
        const vec3 d = pb - pa;
        const double len2 = double(d.x) * d.x + double(d.y) * d.y + double(d.z) * d.z;
        std::vector<std::pair<double, int>> on;
        for (int q = 0; q < int(points.size()); ++q) {
            if (q == a || q == b) continue;
            const vec3 w = points[q] - pa;
            const double t = (double(w.x) * d.x + double(w.y) * d.y + double(w.z) * d.z) / len2;
            if (t <= 1e-7 || t >= 1 - 1e-7) continue;
            const double ex = w.x - t * d.x, ey = w.y - t * d.y, ez = w.z - t * d.z;
            if (ex * ex + ey * ey + ez * ez < 1e-12 * (1.0 + len2)) on.emplace_back(t, q);
        }
        std::sort(on.begin(), on.end());
        int from = a;
        for (const auto& step : on) {
            ++directed[{from, step.second}];
            from = step.second;
        }
        ++directed[{from, b}];
    }
    for (const auto& [edge, count] : directed) {
        const auto back = directed.find({edge.second, edge.first});
        const int reverse = back == directed.end() ? 0 : back->second;
        const bool pinch = copies[edge.first] > 1 && copies[edge.second] > 1;
        if (count != reverse || (count != 1 && !pinch && !seams)) {
            const vec3 p = points[edge.first], q = points[edge.second];
            return "edge (" + std::to_string(p.x) + ", " + std::to_string(p.y) + ", " +
                   std::to_string(p.z) + ") -> (" + std::to_string(q.x) + ", " +
                   std::to_string(q.y) + ", " + std::to_string(q.z) + ") used " +
                   std::to_string(count) + " times forward, " + std::to_string(reverse) +
                   " backward";
        }
    }
    return "";
}

} // namespace textcheck
