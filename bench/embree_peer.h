// Embree 3, the peer that the ray-query benchmarks are measured against: the
// same mesh in one triangle geometry, closest hit with rtcIntersect1.
#pragma once

#include <korvex/records.h>

namespace bench {

struct EmbreeScene;

// Builds and commits a scene over the mesh's triangles (one device per scene).
EmbreeScene* embreeBuild(const MeshData& mesh);
void embreeRelease(EmbreeScene* scene);

// Closest hit along the ray from t = 0; on a hit, the distance in units of
// the direction's length and the triangle number.
bool embreeIntersect(const EmbreeScene* scene, const Ray& ray, float& distance, unsigned& triangle);

} // namespace bench
