#include "tool_support.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {
std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}
} // namespace

ToolRun runTool(const std::string& args) {
    const std::string base = "korvex-tool-test-" + std::to_string(::getpid());
    const std::string outPath = base + ".out", errPath = base + ".err";
    const std::string command =
        std::string(KORVEX_TOOL_PATH) + " " + args + " >" + outPath + " 2>" + errPath;
    const int status = std::system(command.c_str());
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(outPath), slurp(errPath)};
    std::remove(outPath.c_str());
    std::remove(errPath.c_str());
    return run;
}
