// OpenMesh, the peer of the subdivision benchmark: a triangle mesh in
// OpenMesh's half-edge kernel and its uniform subdividers.
#pragma once

#include <korvex/records.h>

#include <cstddef>

namespace bench {

struct OpenMeshMesh;

// The mesh's positions and triangles in an OpenMesh TriMesh.
OpenMeshMesh* openMeshBuild(const MeshData& mesh);
OpenMeshMesh* openMeshCopy(const OpenMeshMesh* mesh);
void openMeshRelease(OpenMeshMesh* mesh);
size_t openMeshFaces(const OpenMeshMesh* mesh);

// One pass of OpenMesh::Subdivider::Uniform::MidpointT: vertices at the edge
// midpoints, one face per old face and one per old interior vertex.
void openMeshMidpointPass(OpenMeshMesh* mesh);
// One pass of OpenMesh::Subdivider::Uniform::LoopT: the same one-to-four split
// as LoopSubdivide, with Loop's smoothing weights on top.
void openMeshLoopPass(OpenMeshMesh* mesh);

} // namespace bench
