// The korvex tool's octree commands, run as a user would run them.
#include "tool_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<int> jsonTriangles(const std::string& json) {
    const size_t open = json.find('['), close = json.find(']');
    std::string body = json.substr(open + 1, close - open - 1);
    std::replace(body.begin(), body.end(), ',', ' ');
    std::istringstream in(body);
    std::vector<int> out;
    for (int t; in >> t;) out.push_back(t);
    return out;
}

const std::string kBunny = KORVEX_BUNNY_PATH;
const std::string kSquare = "--polygon \"300,200 500,200 500,400 300,400\"";

} // namespace

TEST(OctreeTool, PickThroughTheOctreeAgreesWithBruteForce) {
    for (const std::string& args :
         {std::string("pick --pixel 421,333"), std::string("pick --pixel 10,10"),
          "pick " + kBunny + " --pixel 420,330"}) {
        const ToolRun octree = runTool(args);
        ASSERT_EQ(octree.exitCode, 0) << octree.err;
        EXPECT_EQ(octree.out, runTool(args + " --brute").out) << args;
        EXPECT_EQ(octree.out.rfind(
                      args.find("10,10") == std::string::npos ? "hit triangle " : "no hit", 0),
                  0u)
            << octree.out;
    }
}

TEST(OctreeTool, SelectCountsListsAndWrites) {
    const ToolRun plain = runTool("select " + kSquare);
    ASSERT_EQ(plain.exitCode, 0) << plain.err;
    size_t count = 0;
    ASSERT_EQ(std::sscanf(plain.out.c_str(), "selected %zu triangles", &count), 1) << plain.out;
    EXPECT_GT(count, 100u);
    const ToolRun json = runTool("select " + kSquare + " --json");
    const std::vector<int> triangles = jsonTriangles(json.out);
    EXPECT_EQ(triangles.size(), count);
    EXPECT_TRUE(std::is_sorted(triangles.begin(), triangles.end()));
    EXPECT_EQ(json.out.rfind("{\"selected\":" + std::to_string(count) + ",", 0), 0u);
    // Back faces too with a threshold of -2 (a generous depth margin changes nothing here).
    EXPECT_GT(
        jsonTriangles(runTool("select " + kSquare + " --facing -2 --depth-margin 500 --json").out)
            .size(),
        count);

    // A lasso file with comments gives the same; -o writes the selected faces.
    const std::string lasso = ::testing::TempDir() + "korvex_octree_lasso.txt";
    const std::string obj = ::testing::TempDir() + "korvex_octree_selected.obj";
    std::ofstream(lasso) << "# a square around the centre\n300,200\n500,200  # top right\n"
                            "500,400\n300,400\n";
    EXPECT_EQ(runTool("select --polygon-file " + lasso + " -o " + obj).out, plain.out);
    std::ifstream written(obj);
    size_t faces = 0;
    for (std::string line; std::getline(written, line);) faces += line.rfind("f ", 0) == 0;
    EXPECT_EQ(faces, count);
    std::remove(obj.c_str());
    std::remove(lasso.c_str());
}

TEST(OctreeTool, SelectRejectsBadArgumentsWithOneLine) {
    for (const std::string& args :
         {std::string("select"), std::string("select --polygon \"1,2 3\""),
          std::string("select --polygon \"1,2 3,4\""),
          "select " + kSquare + " --polygon-file /nonexistent",
          std::string("select --polygon-file /nonexistent/lasso.txt"),
          "select " + kSquare + " --facing abc", "select " + kSquare + " --size 0x5",
          "select /nonexistent.obj " + kSquare, "select " + kSquare + " --brute",
          std::string("select --polygon \"10,10 20,10 20,20\" -o /tmp/korvex_nothing.obj")}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.exitCode, 2) << args << "\n" << run.out;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << "\n" << run.err;
    }
    EXPECT_EQ(runTool("select --help").exitCode, 0);
}
