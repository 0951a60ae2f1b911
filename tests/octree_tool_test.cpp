// The korvex tool's octree commands, run as a user would run them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

ToolRun korvex(const std::string& arguments) {
    const std::filesystem::path errFile = std::filesystem::temp_directory_path() /
                                          ("korvex_octree_err_" + std::to_string(::getpid()));
    const std::string command =
        std::string(KORVEX_TOOL_PATH) + " " + arguments + " 2>" + errFile.string();
    ToolRun run{-1, "", ""};
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return run;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, got);
    const int raw = ::pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ifstream err(errFile);
    run.err.assign(std::istreambuf_iterator<char>(err), std::istreambuf_iterator<char>());
    std::filesystem::remove(errFile);
    return run;
}

std::vector<int> jsonTriangles(const std::string& json) {
    std::vector<int> out;
    const size_t open = json.find('['), close = json.find(']');
    std::string body = json.substr(open + 1, close - open - 1);
    std::replace(body.begin(), body.end(), ',', ' ');
    std::istringstream in(body);
    for (int t; in >> t;) out.push_back(t);
    return out;
}

const std::string kBunny = KORVEX_BUNNY_PATH;
const std::string kSquare = "--polygon \"300,200 500,200 500,400 300,400\"";

} // namespace

TEST(OctreeTool, PickThroughTheOctreeAgreesWithBruteForce) {
    for (const std::string& args : std::vector<std::string>{
             "pick --pixel 421,333", "pick --pixel 10,10", "pick " + kBunny + " --pixel 420,330"}) {
        const ToolRun octree = korvex(args), brute = korvex(args + " --brute");
        ASSERT_EQ(octree.status, 0) << octree.err;
        EXPECT_EQ(octree.out, brute.out) << args;
        EXPECT_EQ(octree.out.rfind(
                      args.find("10,10") == std::string::npos ? "hit triangle " : "no hit", 0),
                  0u)
            << octree.out;
    }
    const ToolRun json = korvex("pick --json");
    EXPECT_NE(json.out.find("\"triangle\":"), std::string::npos);
    EXPECT_NE(json.out.find("\"point\":"), std::string::npos);
}

TEST(OctreeTool, SelectCountsListsAndWrites) {
    // The built-in sphere for most cases; the bunny once.
    const ToolRun plain = korvex("select " + kSquare);
    ASSERT_EQ(plain.status, 0) << plain.err;
    size_t count = 0;
    ASSERT_EQ(std::sscanf(plain.out.c_str(), "selected %zu triangles", &count), 1) << plain.out;
    EXPECT_GT(count, 100u);

    const ToolRun json = korvex("select " + kSquare + " --json");
    const std::vector<int> triangles = jsonTriangles(json.out);
    EXPECT_EQ(triangles.size(), count);
    EXPECT_TRUE(std::is_sorted(triangles.begin(), triangles.end()));
    EXPECT_EQ(json.out.rfind("{\"selected\":" + std::to_string(count) + ",", 0), 0u);

    // Back faces too with a threshold of -2; a file lasso with comments gives the same.
    // (A generous depth margin changes nothing for a mesh this close.)
    const ToolRun all = korvex("select " + kSquare + " --facing -2 --depth-margin 500 --json");
    EXPECT_GT(jsonTriangles(all.out).size(), count);
    const std::filesystem::path dir = std::filesystem::temp_directory_path();
    const std::filesystem::path lasso = dir / "korvex_octree_lasso.txt";
    std::ofstream(lasso) << "# a square around the centre\n300,200\n500,200  # top right\n"
                            "500,400\n300,400\n";
    EXPECT_EQ(korvex("select --polygon-file " + lasso.string()).out, plain.out);

    const std::filesystem::path obj = dir / "korvex_octree_selected.obj";
    std::filesystem::remove(obj);
    ASSERT_EQ(korvex("select " + kSquare + " -o " + obj.string()).status, 0);
    std::ifstream written(obj);
    size_t faces = 0;
    for (std::string line; std::getline(written, line);) faces += line.rfind("f ", 0) == 0;
    EXPECT_EQ(faces, count);
    std::filesystem::remove(obj);
    std::filesystem::remove(lasso);

    const ToolRun bunny = korvex("select " + kBunny + " " + kSquare + " --json");
    ASSERT_EQ(bunny.status, 0) << bunny.err;
    EXPECT_GT(jsonTriangles(bunny.out).size(), 1000u);
}

TEST(OctreeTool, SelectRejectsBadArgumentsWithOneLine) {
    for (const std::string& args : std::vector<std::string>{
             "select --polygon \"1,2 3\"", std::string("select"),
             std::string("select --polygon \"1,2 3,4\""),
             "select " + kSquare + " --polygon-file /nonexistent",
             std::string("select --polygon-file /nonexistent/lasso.txt"),
             "select " + kSquare + " --facing abc", "select " + kSquare + " --size 0x5",
             "select /nonexistent.obj " + kSquare, "select " + kSquare + " --brute",
             "select --polygon \"10,10 20,10 20,20\" -o /tmp/korvex_nothing.obj"}) {
        const ToolRun run = korvex(args);
        EXPECT_EQ(run.status, 2) << args << "\n" << run.out;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << "\n" << run.err;
    }
    EXPECT_EQ(korvex("select --help").status, 0);
}
