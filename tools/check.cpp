// korvex check: non-manifold edges and boundary loops of a mesh.
#include "cli.h"
#include "mesh_io.h"

#include <korvex/hasher.h>
#include <korvex/loops.h>
#include <korvex/mesh.h>
#include <korvex/plane.h>

#include <halvane.h>

#include <functional>
#include <iostream>
#include <numeric>
#include <unordered_map>
#include <unordered_set>

namespace {

struct BoundaryLoop {
    std::vector<vec3> points; // in walking order, as orderLoop gives them
    size_t edges = 0;         // boundary edges of the component walked
    bool closed = false;      // every edge walked, and the last point joins the first
    float length = 0.0f;      // along the points, with the closing segment if closed
};

struct Report {
    size_t vertices = 0, triangles = 0;
    std::vector<Edge> nonManifold;
    size_t boundaryEdges = 0;
    std::vector<BoundaryLoop> loops;
};

// Points are one point when their floats compare equal, as in orderLoop.
using PointIndex = std::unordered_map<vec3, size_t, HASHER::Vec3Hash>;

size_t find(std::vector<size_t>& parent, size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
}

// Boundary edges are used by exactly one triangle, counted by coordinates
// as the non-manifold search counts them; zero-length edges of degenerate
// triangles are no boundary. They are split into connected pieces, and each
// piece is walked into a loop by orderLoop.
std::vector<BoundaryLoop> boundaryLoops(const std::vector<Triangle>& soup, size_t& edgeCount) {
    std::unordered_map<Edge, int, EdgeHash> uses;
    std::vector<Edge> order;
    for (const Triangle& t : soup)
        for (const Edge& e : {MakeEdge(t.p0, t.p1), MakeEdge(t.p1, t.p2), MakeEdge(t.p2, t.p0)}) {
            auto [it, inserted] = uses.try_emplace(e, 0);
            if (inserted) order.push_back(e);
            ++it->second;
        }
    std::vector<Edge> boundary;
    for (const Edge& e : order) {
        const auto it = uses.find(e);
        if (it != uses.end() && it->second == 1 && !(e.a == e.b)) boundary.push_back(e);
    }
    edgeCount = boundary.size();

    PointIndex index;
    std::vector<size_t> parent;
    const auto pointOf = [&](const vec3& p) {
        auto [it, inserted] = index.try_emplace(p, parent.size());
        if (inserted) parent.push_back(parent.size());
        return it->second;
    };
    for (const Edge& e : boundary) {
        const size_t a = find(parent, pointOf(e.a)), b = find(parent, pointOf(e.b));
        parent[a] = b;
    }
    // Pieces in order of their first edge.
    std::unordered_map<size_t, size_t> pieceOf;
    std::vector<std::unordered_set<Edge, EdgeHash>> pieces;
    for (const Edge& e : boundary) {
        const size_t root = find(parent, index.at(e.a));
        auto [it, inserted] = pieceOf.try_emplace(root, pieces.size());
        if (inserted) pieces.emplace_back();
        pieces[it->second].insert(e);
    }

    std::vector<BoundaryLoop> loops;
    for (const auto& piece : pieces) {
        BoundaryLoop loop;
        loop.edges = piece.size();
        const bool walked = meshGeometry::orderLoop(piece, loop.points);
        loop.closed = walked && loop.points.size() == piece.size() &&
                      piece.count(Edge(loop.points.back(), loop.points.front())) != 0;
        for (size_t i = 0; i + 1 < loop.points.size(); ++i)
            loop.length += glm::length(loop.points[i + 1] - loop.points[i]);
        if (loop.closed) loop.length += glm::length(loop.points.front() - loop.points.back());
        loops.push_back(std::move(loop));
    }
    return loops;
}

void printText(const Report& r) {
    std::cout << "mesh: " << r.vertices << " verts, " << r.triangles << " triangles\n";
    std::cout << "non-manifold edges: " << r.nonManifold.size() << "\n";
    const size_t shown = std::min<size_t>(r.nonManifold.size(), 10);
    for (size_t i = 0; i < shown; ++i) {
        const Edge& e = r.nonManifold[i];
        std::cout << "  (" << e.a.x << ", " << e.a.y << ", " << e.a.z << ") - (" << e.b.x << ", "
                  << e.b.y << ", " << e.b.z << ")\n";
    }
    if (shown < r.nonManifold.size())
        std::cout << "  ... " << r.nonManifold.size() - shown << " more (--json lists all)\n";
    std::cout << "boundary edges: " << r.boundaryEdges << " in " << r.loops.size()
              << (r.loops.size() == 1 ? " loop\n" : " loops\n");
    for (size_t i = 0; i < r.loops.size(); ++i) {
        const BoundaryLoop& l = r.loops[i];
        std::cout << "  loop " << i + 1 << ": " << l.points.size() << " points, "
                  << (l.closed ? "closed"
                               : "open (walked " + std::to_string(l.points.size()) + " points of " +
                                     std::to_string(l.edges) + " edges)")
                  << ", length " << l.length << "\n";
    }
}

void printJson(const Report& r) {
    std::cout << "{\"vertices\":" << r.vertices << ",\"triangles\":" << r.triangles
              << ",\"nonManifoldEdges\":[";
    for (size_t i = 0; i < r.nonManifold.size(); ++i)
        std::cout << (i ? "," : "") << "[" << cli::jsonVec3(r.nonManifold[i].a) << ","
                  << cli::jsonVec3(r.nonManifold[i].b) << "]";
    std::cout << "],\"boundaryEdges\":" << r.boundaryEdges << ",\"boundaryLoops\":[";
    for (size_t i = 0; i < r.loops.size(); ++i) {
        const BoundaryLoop& l = r.loops[i];
        std::cout << (i ? "," : "") << "{\"edges\":" << l.edges
                  << ",\"closed\":" << (l.closed ? "true" : "false")
                  << ",\"length\":" << cli::jsonNumber(l.length) << ",\"points\":[";
        for (size_t k = 0; k < l.points.size(); ++k)
            std::cout << (k ? "," : "") << cli::jsonVec3(l.points[k]);
        std::cout << "]}";
    }
    std::cout << "]}\n";
}

int runCheck(const cli::Args& args) {
    args.expectPositional(1, 1);
    const MeshData mesh = cli::loadInputMesh(args.positional()[0]);
    const std::vector<Triangle> soup = cli::triangleSoup(mesh);

    Report report;
    report.vertices = mesh.vertices.size();
    report.triangles = soup.size();
    report.nonManifold = DetectNonManifoldEdges(soup);
    // The loop walker reports each stage to the host logger; that is noise
    // here unless asked for.
    if (!args.has("--verbose")) LOG.SetSink([](const std::string&) {});
    report.loops = boundaryLoops(soup, report.boundaryEdges);
    LOG.SetSink({});

    if (args.has("--json"))
        printJson(report);
    else
        printText(report);
    return 0;
}

const cli::Registrar registrar({
    "check",
    "Report the non-manifold edges and the boundary loops of a mesh.",
    "check IN [--json] [--verbose]\n"
    "\nIN is any mesh file Assimp reads (OBJ, PLY, STL, glTF, ...) or 'builtin' for a UV sphere\n"
    "of radius 1. Edges are matched by the coordinates of their end points. A non-manifold edge\n"
    "is used by more than two triangles; a boundary edge by exactly one. Boundary edges are\n"
    "split into connected pieces and each piece is walked into an ordered loop; a loop is\n"
    "closed when the walk used every edge of its piece and ends next to its start.",
    {
        {"--json", false, "            machine-readable output, every edge and loop point"},
        {"--verbose", false, "         show the loop walker's log lines on standard error"},
    },
    runCheck,
});

} // namespace
