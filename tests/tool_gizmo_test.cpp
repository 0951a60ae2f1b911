#include "tool_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

TEST(ToolGizmo, CubeAtTheCentreRingOnItsCircle) {
    const ToolRun run = runTool("gizmo");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "cube handle: 2 (z)\nring handle: -1 (none)\n");

    // 536,300 lies on the z ring of radius 1 in the default view.
    const ToolRun ring = runTool("gizmo --pixel 536,300 --json");
    ASSERT_EQ(ring.exitCode, 0) << ring.err;
    EXPECT_EQ(ring.out.rfind("{\"cube\":-1,\"ring\":2,\"ray\":", 0), 0u) << ring.out;
    EXPECT_EQ(
        runTool("gizmo --pixel 536,300 --axes xy --json").out.rfind("{\"cube\":-1,\"ring\":-1", 0),
        0u);
    // A larger tolerance still picks it from a little off the ring.
    EXPECT_EQ(runTool("gizmo --pixel 545,300 --json").out.rfind("{\"cube\":-1,\"ring\":-1", 0), 0u);
    EXPECT_EQ(runTool("gizmo --pixel 545,300 --tolerance 0.2 --json")
                  .out.rfind("{\"cube\":-1,\"ring\":2", 0),
              0u);
    // The gizmo moves with its centre and the default camera follows it.
    EXPECT_EQ(runTool("gizmo --center 5,-2,1 --pixel 536,300 --json")
                  .out.rfind("{\"cube\":-1,\"ring\":2", 0),
              0u);
}

TEST(ToolGizmo, BadInputIsOneLineAndExitCodeTwo) {
    for (const char* args : {"gizmo --axes w", "gizmo --radius -1", "gizmo --tolerance x",
                             "gizmo --center 1,2", "gizmo extra"}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.exitCode, 2) << args;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << ": " << run.err;
    }
    EXPECT_NE(runTool("gizmo --help").out.find("usage: korvex gizmo"), std::string::npos);
}

TEST(ToolPickBvh, SameAnswerAsTheBruteForcePick) {
    // A hit and a miss on the built-in sphere (the bunny is checked in the BVH tests).
    for (const std::string args : {"--json --pixel 380,260", "--json --pixel 0,0"}) {
        const ToolRun viaBvh = runTool("pick --bvh " + args);
        ASSERT_EQ(viaBvh.exitCode, 0) << viaBvh.err;
        EXPECT_EQ(viaBvh.out.rfind(args.find("0,0") == std::string::npos ? "{\"hit\":true"
                                                                         : "{\"hit\":false",
                                   0),
                  0u)
            << viaBvh.out;
        EXPECT_EQ(viaBvh.out, runTool("pick " + args).out) << args;
    }
}
