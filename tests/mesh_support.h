// Shared helpers of the mesh-processing tests: a small OBJ reader for the
// real scanned bunny, capture of the result lines on standard output, and
// vertices with every field set.
#pragma once

#include <korvex/records.h>

#include <functional>
#include <string>
#include <vector>

namespace meshtest {

// Positions and faces of an OBJ file ("v" and "f" lines; "f a/b/c" forms and
// negative indices are understood; polygons become fans). Every vertex field
// is set: normal, tangent, bitangent and uv are derived from the position so
// that they differ from vertex to vertex. Returns an empty mesh if the file
// cannot be read.
MeshData loadObj(const std::string& path);

// The bunny of the glmark2-data package (the path is set by the build).
const MeshData& bunny();

// A vertex at `p` with all fields defined and distinguishable: normal and
// tangent derived from p, uv = (p.x, p.y), a colour and extra words that the
// library must carry along unchanged where it copies records.
kvx::nsVertex vertexAt(const vec3& p);

// Runs `f` with std::cout redirected and returns what it wrote.
std::string captureStdout(const std::function<void()>& f);

// The mesh's triangles as a soup, corners by value.
std::vector<Triangle> toSoup(const MeshData& mesh);

// Byte equality of two vertex records (NaN-safe, covers every field).
bool sameRecord(const kvx::nsVertex& a, const kvx::nsVertex& b);

} // namespace meshtest
