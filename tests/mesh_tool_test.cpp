// The mesh commands of the korvex tool, run as a user runs them.
#include "test_meshes.h"
#include "tool_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

std::string scratch(const std::string& name) {
    return ::testing::TempDir() + "korvex_mesh_" + name;
}

// One line on standard error and exit code 2, as for every user error.
ToolRun expectUsageError(const std::string& args, const std::string& fragment) {
    const ToolRun run = runTool(args);
    EXPECT_EQ(run.exitCode, 2) << args;
    EXPECT_NE(run.err.find(fragment), std::string::npos) << args << ": " << run.err;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    return run;
}

} // namespace

TEST(MeshTool, SimplifyWritesTheClusteredMesh) {
    const std::string obj = scratch("simplified.obj");
    const ToolRun run = runTool("simplify builtin -o " + obj + " --cell 0.1");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    // The file holds the triangles that the result line reports.
    const testmesh::Mesh written = testmesh::loadObj(obj);
    const size_t line = run.out.find("[Simplify] Result: ");
    EXPECT_NE(
        run.out.find(" verts, " + std::to_string(written.triangleCount()) + " triangles\n", line),
        std::string::npos)
        << run.out;
    EXPECT_LT(written.triangleCount(), 4096);
    std::remove(obj.c_str());

    const std::string to = "simplify builtin -o " + obj;
    expectUsageError(to, "exactly one of --cell");
    expectUsageError(to + " --cell 1 --detail 2", "exactly one of --cell");
    expectUsageError(to + " --cell 0", "must be positive");
    expectUsageError(to + " --detail -3", "must be positive");
    expectUsageError(to + " --cell 1e-12", "32-bit");
    expectUsageError(to + " --cell 10", "collapsed");
    expectUsageError("simplify builtin -o " + scratch("x.txt") + " --cell 0.1", "cannot write");
    expectUsageError("simplify /no/such/mesh.obj -o " + obj + " --cell 1", "cannot read mesh");
}

TEST(MeshTool, SubdivideRefusesCountsBeyondIndices) {
    const std::string ply = scratch("subdivided.ply");
    const ToolRun run = runTool("subdivide builtin -o " + ply + " -n 1");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("[Subdivide] Result: "), std::string::npos);
    EXPECT_NE(run.out.find(" 16384 triangles\n"), std::string::npos) << run.out; // 4 x 4096
    std::remove(ply.c_str());
    // 4096 * 4^12 triangles need more than 32-bit indices: refused before any work.
    EXPECT_EQ(expectUsageError("subdivide builtin -o " + ply + " -n 12", "at most -n ").out, "");
    expectUsageError("subdivide builtin -o " + ply + " -n -1", "0 or more");
    expectUsageError("subdivide builtin -o " + ply, "missing -n");
}

TEST(MeshTool, CheckReportsFinsAndBoundaryLoops) {
    // An open box (no top) with a fin on one bottom edge: one non-manifold edge, a boundary
    // loop round the top and the fin's two free edges.
    const std::string obj = scratch("box.obj");
    std::ofstream(obj) << "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\n"
                          "v 0 1 1\nv 0.5 -1 -1\n"
                          "f 1 3 2\nf 1 4 3\nf 1 2 6\nf 1 6 5\nf 2 3 7\nf 2 7 6\n"
                          "f 3 4 8\nf 3 8 7\nf 4 1 5\nf 4 5 8\nf 1 2 9\n";
    const ToolRun text = runTool("check " + obj);
    ASSERT_EQ(text.exitCode, 0) << text.err;
    for (const char* line :
         {"mesh: 9 verts, 11 triangles\n", "non-manifold edges: 1\n  (0, 0, 0) - (1, 0, 0)\n",
          "boundary edges: 6 in 2 loops\n", "loop 1: 4 points, closed, length 4\n"})
        EXPECT_NE(text.out.find(line), std::string::npos) << line << " in\n" << text.out;
    EXPECT_EQ(text.err, ""); // the loop walker's log stays quiet

    const ToolRun json = runTool("check " + obj + " --json");
    EXPECT_EQ(
        json.out.rfind("{\"vertices\":9,\"triangles\":11,\"nonManifoldEdges\":[[[0,0,0],[1,0,0]]]"
                       ",\"boundaryEdges\":6,\"boundaryLoops\":[{\"edges\":4,\"closed\":true",
                       0),
        0u)
        << json.out;
    EXPECT_NE(runTool("check " + obj + " --verbose").err.find("Input edge count: 4"),
              std::string::npos);
    std::remove(obj.c_str());

    const ToolRun bunny = runTool(std::string("check ") + KORVEX_BUNNY_PATH);
    EXPECT_NE(bunny.out.find("non-manifold edges: 0\nboundary edges: 0 in 0 loops\n"),
              std::string::npos)
        << bunny.out;
}
