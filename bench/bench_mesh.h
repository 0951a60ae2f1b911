// Test meshes shared by the benchmarks.
#pragma once

#include <korvex/records.h>

#include <cstdint>
#include <vector>

namespace bench {

// A closed UV sphere of about `triangles` triangles (radius 1, origin).
MeshData makeSphere(size_t triangles);

// The mesh's triangles as free-standing records, in index order.
std::vector<Triangle> trianglesOf(const MeshData& mesh);

// `count` rays from a ring of camera positions towards points scattered over
// the sphere's box, deterministic.
std::vector<Ray> makeRays(size_t count, unsigned seed = 1);

// Rays through the pixels of a `side` x `side` view of the sphere from (0, 0, 3), row by row:
// the coherent rays of a screen, where one ray's path through a tree is mostly its
// neighbour's.
std::vector<Ray> makeCameraRays(int side);

// The ray set a benchmark's second argument names: 0 scattered (makeRays(4096)), 1 camera
// (makeCameraRays(64)).
std::vector<Ray> raySet(int64_t kind);

} // namespace bench
