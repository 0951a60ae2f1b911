// Test meshes shared by the benchmarks.
#pragma once

#include <korvex/records.h>

#include <vector>

namespace bench {

// A closed UV sphere of about `triangles` triangles (radius 1, origin).
MeshData makeSphere(size_t triangles);

// The mesh's triangles as free-standing records, in index order.
std::vector<Triangle> trianglesOf(const MeshData& mesh);

// `count` rays from a ring of camera positions towards points scattered over
// the sphere's box, deterministic.
std::vector<Ray> makeRays(size_t count, unsigned seed = 1);

} // namespace bench
