// Brute-force checks for text solids, written plainly: closedness with
// consistent winding, enclosed volume, front cap area.
#pragma once

#include <korvex/records.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace textcheck {

using Vertices = std::vector<kvx::nsVertex>;
using Indices = std::vector<unsigned>;

// Signed area of a ring.
inline double shoelace(const std::vector<vec2>& ring) {
    double s = 0.0;
    for (size_t i = 0, n = ring.size(); i < n; ++i)
        s += double(ring[i].x) * ring[(i + 1) % n].y - double(ring[i].y) * ring[(i + 1) % n].x;
    return 0.5 * s;
}

// Empty when every directed edge is met by exactly one edge running back;
// otherwise the first fault. Edges pair by vertex index first, as ring edges
// and cap diagonals of one polygon do. The rest pair by position: where
// rings of a polygon touch, vertices of different rings coincide, or one lies
// on another's edge (a T-junction), so those edges are first cut at every
// vertex on them. Paired edges stay whole: a diagonal passing near a point
// of a finely flattened curve is not cut.
inline std::string closedMeshProblem(const Vertices& v, const Indices& idx) {
    std::map<std::pair<unsigned, unsigned>, int> byIndex;
    for (size_t t = 0; t + 2 < idx.size(); t += 3)
        for (size_t k = 0; k < 3; ++k) ++byIndex[{idx[t + k], idx[t + (k + 1) % 3]}];
    std::vector<std::pair<unsigned, unsigned>> leftover;
    for (const auto& [edge, count] : byIndex) {
        const auto back = byIndex.find({edge.second, edge.first});
        if (count != 1 || back == byIndex.end() || back->second != 1)
            leftover.insert(leftover.end(), size_t(count), edge);
    }
    if (leftover.empty()) return "";

    std::map<std::tuple<float, float, float>, int> ids;
    std::vector<glm::dvec3> points;
    double extent = 1.0;
    for (const kvx::nsVertex& vertex : v) {
        const vec3& p = vertex.position;
        if (ids.emplace(std::make_tuple(p.x, p.y, p.z), int(points.size())).second)
            points.emplace_back(p);
        extent = std::max({extent, std::fabs(double(p.x)), std::fabs(double(p.y))});
    }
    // A few units in the last place of the largest coordinate: a touching
    // vertex comes out of the clipper's integers rounded to float.
    const double eps = extent * 5e-7;
    auto idOf = [&](unsigned i) {
        const vec3& p = v[i].position;
        return ids[std::make_tuple(p.x, p.y, p.z)];
    };
    std::map<std::pair<int, int>, int> byPosition;
    for (const auto& [i, j] : leftover) {
        const int a = idOf(i), b = idOf(j);
        if (a == b) return "zero-length edge";
        const glm::dvec3 d = points[size_t(b)] - points[size_t(a)];
        std::vector<std::pair<double, int>> cuts;
        for (int c = 0; c < int(points.size()); ++c) {
            const glm::dvec3 w = points[size_t(c)] - points[size_t(a)];
            const double along = glm::dot(w, d) / glm::dot(d, d);
            if (c != a && c != b && along > 0 && along < 1 && glm::length(w - along * d) < eps)
                cuts.emplace_back(along, c);
        }
        std::sort(cuts.begin(), cuts.end());
        int from = a;
        for (const auto& cut : cuts) ++byPosition[{from, cut.second}], from = cut.second;
        ++byPosition[{from, b}];
    }
    for (const auto& [edge, count] : byPosition) {
        const auto back = byPosition.find({edge.second, edge.first});
        const int reverse = back == byPosition.end() ? 0 : back->second;
        if (count != 1 || reverse != 1) {
            const glm::dvec3 p = points[size_t(edge.first)];
            return "an edge from (" + std::to_string(p.x) + ", " + std::to_string(p.y) + ", " +
                   std::to_string(p.z) + ") used " + std::to_string(count) + " times, " +
                   std::to_string(reverse) + " back";
        }
    }
    return "";
}

// Checks a solid extruded by `depth` > 0: closed, and enclosing its front
// cap area times the depth. `capArea` receives the signed xy area of the
// triangles whose three vertices face +z (wall triangles mix front and
// back). Returns the first fault, or "".
inline std::string solidProblem(const Vertices& v, const Indices& idx, double depth,
                                double& capArea) {
    double volume = 0.0;
    capArea = 0.0;
    for (size_t t = 0; t + 2 < idx.size(); t += 3) {
        const kvx::nsVertex &a = v[idx[t]], &b = v[idx[t + 1]], &c = v[idx[t + 2]];
        const glm::dvec3 p(a.position), q(b.position), r(c.position);
        volume += glm::dot(p, glm::cross(q, r)) / 6.0;
        if (a.normal.z > 0 && b.normal.z > 0 && c.normal.z > 0)
            capArea += 0.5 * ((q.x - p.x) * (r.y - p.y) - (r.x - p.x) * (q.y - p.y));
    }
    const std::string problem = closedMeshProblem(v, idx);
    if (!problem.empty()) return problem;
    if (std::fabs(volume - capArea * depth) > 1e-4 * std::fabs(capArea) * depth + 1e-9)
        return "volume " + std::to_string(volume) + " but cap area x depth " +
               std::to_string(capArea * depth);
    return "";
}

} // namespace textcheck
