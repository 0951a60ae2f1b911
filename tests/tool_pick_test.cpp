#include "tool_support.h"

#include <gtest/gtest.h>

#include <fstream>

TEST(ToolPick, CentreOfTheBuiltInSphereIsItsFrontPole) {
    const ToolRun run = runTool("pick");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("hit triangle"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("at (0, 0, 1)"), std::string::npos) << run.out;

    const ToolRun json = runTool("pick --json");
    ASSERT_EQ(json.exitCode, 0);
    EXPECT_EQ(json.out.rfind("{\"hit\":true,\"triangle\":", 0), 0u) << json.out;
    EXPECT_NE(json.out.find("\"point\":[0,0,0.99999"), std::string::npos) << json.out;

    // A corner pixel of the default view misses the sphere.
    const ToolRun corner = runTool("pick --pixel 0,0 --json");
    EXPECT_EQ(corner.out.rfind("{\"hit\":false", 0), 0u) << corner.out;
}

TEST(ToolPick, PicksARealScannedMesh) {
    if (!std::ifstream(KORVEX_BUNNY_PATH)) GTEST_SKIP() << "bunny mesh not installed";
    const ToolRun run = runTool(std::string("pick ") + KORVEX_BUNNY_PATH + " --json");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out.rfind("{\"hit\":true", 0), 0u) << run.out;
    // Looking from far below at the bunny misses it.
    const ToolRun away =
        runTool(std::string("pick ") + KORVEX_BUNNY_PATH + " --eye 0,-50,0 --target 0,-100,0");
    EXPECT_EQ(away.out, "no hit\n");
}

TEST(ToolPick, BadInputIsOneLineAndExitCodeTwo) {
    for (const char* args : {"pick --bogus", "pick --pixel 1", "pick --fov abc", "pick --size 0x5",
                             "pick /no/such/mesh.obj", "pick a.obj b.obj", "nosuchcommand"}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.exitCode, 2) << args;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << ": " << run.err;
        EXPECT_TRUE(run.out.empty()) << args;
    }
    const ToolRun help = runTool("pick --help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("usage: korvex pick"), std::string::npos);
}
