// The mesh commands of the korvex tool, run as a user runs them.
#include "mesh_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace {

struct ToolRun {
    int code;
    std::string out, err;
};

std::string scratch(const std::string& name) {
    return ::testing::TempDir() + "korvex_mesh_" + std::to_string(getpid()) + "_" + name;
}

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

ToolRun korvex(const std::string& arguments) {
    const std::string out = scratch("stdout"), err = scratch("stderr");
    const int status = std::system(
        (std::string(KORVEX_TOOL_PATH) + " " + arguments + " >" + out + " 2>" + err).c_str());
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(out), slurp(err)};
    std::remove(out.c_str());
    std::remove(err.c_str());
    return run;
}

// One line on standard error and exit code 2, as for every user error.
void expectUsageError(const ToolRun& run, const std::string& fragment) {
    EXPECT_EQ(run.code, 2) << run.err;
    EXPECT_NE(run.err.find(fragment), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
}

} // namespace

TEST(MeshTool, SimplifyWritesTheClusteredMesh) {
    const std::string obj = scratch("simplified.obj");
    const ToolRun run = korvex("simplify builtin -o " + obj + " --cell 0.1");
    ASSERT_EQ(run.code, 0) << run.err;
    const size_t at = run.out.find("[Simplify] Result: ");
    ASSERT_NE(at, std::string::npos) << run.out;
    // The file holds the triangles the result line reports.
    const MeshData written = meshtest::loadObj(obj);
    const std::string triangles = std::to_string(written.indices.size() / 3) + " triangles\n";
    EXPECT_NE(run.out.find(triangles, at), std::string::npos) << run.out;
    EXPECT_LT(written.indices.size(), 3u * 4096u);
    std::remove(obj.c_str());

    expectUsageError(korvex("simplify builtin -o " + obj), "exactly one of --cell");
    expectUsageError(korvex("simplify builtin -o " + obj + " --cell 1 --detail 2"),
                     "exactly one of --cell");
    expectUsageError(korvex("simplify builtin -o " + obj + " --cell 0"), "must be positive");
    expectUsageError(korvex("simplify builtin -o " + obj + " --detail -3"), "must be positive");
    expectUsageError(korvex("simplify builtin -o " + obj + " --cell 1e-12"), "32-bit");
    expectUsageError(korvex("simplify builtin -o " + obj + " --cell 10"), "collapsed");
    expectUsageError(korvex("simplify builtin -o " + scratch("x.txt") + " --cell 0.1"),
                     "cannot write");
    expectUsageError(korvex("simplify /no/such/mesh.obj -o " + obj + " --cell 1"),
                     "cannot read mesh");
}

TEST(MeshTool, SubdivideRefusesCountsBeyondIndicesOrMemory) {
    const std::string ply = scratch("subdivided.ply");
    const ToolRun run = korvex("subdivide builtin -o " + ply + " -n 1");
    ASSERT_EQ(run.code, 0) << run.err;
    // The sphere has 4096 triangles; one pass quadruples them.
    EXPECT_NE(run.out.find("[Subdivide] Result: "), std::string::npos);
    EXPECT_NE(run.out.find(" 16384 triangles\n"), std::string::npos) << run.out;
    std::remove(ply.c_str());

    // 4096 * 4^12 triangles cannot be addressed by 32-bit indices; the
    // refusal comes before any work and names the largest count that fits.
    const ToolRun tooMany = korvex("subdivide builtin -o " + ply + " -n 12");
    expectUsageError(tooMany, "32-bit indices");
    EXPECT_NE(tooMany.err.find("at most -n "), std::string::npos);
    EXPECT_EQ(tooMany.out, "");
    expectUsageError(korvex("subdivide builtin -o " + ply + " -n -1"), "0 or more");
    expectUsageError(korvex("subdivide builtin -o " + ply), "missing -n");
}

TEST(MeshTool, CheckReportsFinsAndBoundaryLoops) {
    // An open box (no top) with a fin on one bottom edge: one non-manifold
    // edge, a closed boundary loop round the top and the fin's two free edges.
    const std::string obj = scratch("box.obj");
    {
        std::ofstream out(obj);
        out << "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
               "v 0.5 -1 -1\n"
               "f 1 3 2\nf 1 4 3\n"                   // bottom
               "f 1 2 6\nf 1 6 5\nf 2 3 7\nf 2 7 6\n" // sides
               "f 3 4 8\nf 3 8 7\nf 4 1 5\nf 4 5 8\n"
               "f 1 2 9\n"; // the fin on edge 1-2
    }
    const ToolRun text = korvex("check " + obj);
    ASSERT_EQ(text.code, 0) << text.err;
    EXPECT_NE(text.out.find("mesh: 9 verts, 11 triangles\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("non-manifold edges: 1\n  (0, 0, 0) - (1, 0, 0)\n"), std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("boundary edges: 6 in 2 loops\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("loop 1: 4 points, closed, length 4\n"), std::string::npos) << text.out;
    EXPECT_EQ(text.err, ""); // the loop walker's log stays quiet

    const ToolRun json = korvex("check " + obj + " --json");
    ASSERT_EQ(json.code, 0) << json.err;
    EXPECT_EQ(
        json.out.rfind("{\"vertices\":9,\"triangles\":11,\"nonManifoldEdges\":[[[0,0,0],[1,0,0]]]"
                       ",\"boundaryEdges\":6,\"boundaryLoops\":[{\"edges\":4,\"closed\":true",
                       0),
        0u)
        << json.out;

    const ToolRun verbose = korvex("check " + obj + " --verbose");
    EXPECT_NE(verbose.err.find("Input edge count: 4"), std::string::npos) << verbose.err;
    std::remove(obj.c_str());

    // The scanned bunny is closed and manifold.
    const ToolRun bunny = korvex(std::string("check ") + KORVEX_BUNNY_PATH);
    EXPECT_NE(bunny.out.find("non-manifold edges: 0\nboundary edges: 0 in 0 loops\n"),
              std::string::npos)
        << bunny.out;
}
