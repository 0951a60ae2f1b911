// Runs the korvex tool from the tests, capturing what it prints.
#pragma once

#include <string>

struct ToolRun {
    int exitCode;
    std::string out; // standard output
    std::string err; // standard error
};

// Runs `korvex ARGS` through the shell from the tests' working directory.
ToolRun runTool(const std::string& args);
