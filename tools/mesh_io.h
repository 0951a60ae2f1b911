// Meshes in and out of the tool, through Assimp.
#pragma once

#include <korvex/records.h>

#include <string>
#include <vector>

namespace cli {

// Every mesh of the file, node transforms applied, triangulated, as one
// indexed mesh. Throws UsageError when the file cannot be read or holds no
// triangles.
MeshData loadMesh(const std::string& path);

// Writes the mesh in the format its extension names (obj, ply, stl, gltf,
// glb). Throws UsageError on an unknown extension or a failed write.
void saveMesh(const MeshData& mesh, const std::string& path);

// Throws the UsageError of saveMesh for an extension it cannot write, so that
// a command can refuse before it does any work.
void checkSavePath(const std::string& path);

// A UV sphere of radius 1 around the origin: the tool's built-in mesh.
MeshData makeUvSphere(int slices = 64, int stacks = 32);

// The mesh named on the command line, or the built-in sphere.
MeshData loadMeshOrDefault(const std::string* path);

// The mesh's triangles as free-standing records, in index order.
std::vector<Triangle> triangleSoup(const MeshData& mesh);

// The IN argument of the mesh-processing commands: a file Assimp reads, or
// the word "builtin" for the built-in sphere.
MeshData loadInputMesh(const std::string& in);

} // namespace cli
