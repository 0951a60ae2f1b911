#include <korvex/loops.h>

#include <halvane.h>

#include <unordered_map>

namespace meshGeometry {

namespace {

// Points are keys only when their floats compare equal exactly: edges that
// should meet must carry identical coordinates.
struct ExactVec3Equal {
    bool operator()(const vec3& a, const vec3& b) const {
        return a.x == b.x && a.y == b.y && a.z == b.z;
    }
};

using Adjacency = std::unordered_map<vec3, std::vector<vec3>, HASHER::Vec3Hash, ExactVec3Equal>;
using PointSet = std::unordered_set<vec3, HASHER::Vec3Hash, ExactVec3Equal>;

// A fixed bound, independent of the input, so that the walk ends even on
// inputs that defeat the visited set (NaN points never compare equal).
constexpr int kMaxSteps = 10000;
constexpr float kCloseDistance = 0.0001f;

// The first neighbour of `point` not yet visited, or nullptr.
const vec3* firstUnvisitedNeighbour(const Adjacency& adjacency, const PointSet& visited,
                                    const vec3& point) {
    const auto entry = adjacency.find(point);
    if (entry == adjacency.end()) return nullptr; // only a NaN point has no entry
    for (const vec3& neighbour : entry->second) {
        if (visited.count(neighbour) == 0) return &neighbour;
    }
    return nullptr;
}

} // namespace

bool orderLoop(const std::unordered_set<Edge, EdgeHash>& edges, std::vector<vec3>& loop) {
    LOG.Info("Input edge count: ", static_cast<double>(edges.size()));
    if (edges.empty()) {
        LOG.String("Edge set is empty, cannot build loop.");
        return false;
    }

    // Neighbour lists keep the order in which the set delivers the edges; the
    // walk's choice at a branch depends on it.
    Adjacency adjacency;
    for (const Edge& edge : edges) {
        adjacency[edge.a].push_back(edge.b);
        adjacency[edge.b].push_back(edge.a);
    }
    LOG.Info("Adjacency map size: ", static_cast<double>(adjacency.size()));
    if (adjacency.size() < 3) {
        LOG.String("Too few unique points to build a loop.");
        return false;
    }

    const vec3 start = adjacency.begin()->first;
    vec3 current = start;
    PointSet visited;
    visited.insert(start);
    loop.clear();
    loop.push_back(start);
    LOG.String("Starting loop traversal...");

    int steps = 0;
    for (;;) {
        const vec3* next = firstUnvisitedNeighbour(adjacency, visited, current);
        if (next != nullptr) {
            current = *next;
            loop.push_back(current);
            visited.insert(current);
        }
        ++steps;
        if (next == nullptr) {
            // The normal end of a closed loop with exact coordinates.
            LOG.String("No unvisited neighbors found, terminating traversal.");
            break;
        }
        if (glm::distance(start, current) < kCloseDistance) {
            // A point that is not the start but lies on it: the loop is closed
            // within rounding, and that point stays as the last entry.
            LOG.String("Loop closed successfully.");
            break;
        }
        if (steps > kMaxSteps) {
            LOG.String("Loop traversal took too long \x97 possible infinite loop.");
            break;
        }
    }

    LOG.Info("Ordered loop size: ", static_cast<double>(loop.size()));
    if (loop.size() < 3) {
        LOG.String("Failed to build valid loop \x97 too few points.");
        return false;
    }
    LOG.String("Loop successfully built.");
    return true;
}

} // namespace meshGeometry
