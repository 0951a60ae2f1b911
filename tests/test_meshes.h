// Test meshes and capture helpers shared by the test files: an OBJ reader, the scanned
// Stanford bunny of glmark2-data, generated meshes, and capture of the host logger and of
// standard output.
#pragma once

#include <korvex/hasher.h>
#include <korvex/records.h>

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

namespace testmesh {

// An indexed triangle mesh with its positions twice: plain, and as vertex records with every
// field set (see vertexAt), for the operations that take either.
struct Mesh {
    std::vector<vec3> positions;
    std::vector<kvx::nsVertex> vertices;
    std::vector<unsigned int> indices; // three corners a triangle, 0-based

    void add(const vec3& p);
    int triangleCount() const { return static_cast<int>(indices.size() / 3); }
    std::vector<int> allTriangles() const; // 0, 1, ..., triangleCount() - 1
    vec3 corner(int t, int k) const { return positions[indices[3 * t + k]]; }
    MeshData meshData() const;
    std::vector<Triangle> soup() const; // corners by value
};

// "v" and "f" lines of an OBJ file ("f a/b/c" forms and negative indices are understood;
// polygons become fans). Empty if the file cannot be read.
Mesh loadObj(const std::string& path);

// The bunny (35,947 vertices, 69,666 triangles), read once per run.
const Mesh& bunny();

// Small triangles scattered through a cube of side `size` centred on the origin; three of four
// share a vertex with the one before.
Mesh randomSoup(int triangles, float size, unsigned seed);

// Squares of side `scale` in the three axis planes of an n x n x n lattice, two triangles each:
// boxes of zero width, and boxes that share faces, everywhere.
Mesh axisPlaneLattice(int n, float scale);

// A mesh of those points (each with every field set) and corners.
MeshData meshOf(const std::vector<vec3>& points, const std::vector<unsigned int>& indices);

// A vertex at `p` whose other fields all differ from vertex to vertex or from the defaults.
kvx::nsVertex vertexAt(const vec3& p);

bool sameRecord(const kvx::nsVertex& a, const kvx::nsVertex& b); // byte equality
bool sameBits(const vec3& a, const vec3& b);

// Where the plane y = c cuts the mesh: one segment per crossed triangle. A mesh edge's crossing
// is computed from its lower-numbered end, so neighbouring segments meet on equal floats.
std::unordered_set<Edge, EdgeHash> sliceEdges(const Mesh& mesh, float c);

// Collects every host logger line while alive; restores standard error after.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines;
};

// Runs `f` with std::cout redirected and returns what it wrote.
std::string captureStdout(const std::function<void()>& f);

} // namespace testmesh
