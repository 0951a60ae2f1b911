// The korvex command-line tool: one subcommand per task of the library.
#include "cli.h"

#include <exception>
#include <iostream>

namespace {

void printOverview() {
    std::cout << "usage: korvex COMMAND [options]\n\ncommands:\n";
    for (const auto& [name, command] : cli::commands())
        std::cout << "  " << name << std::string(name.size() < 12 ? 12 - name.size() : 1, ' ')
                  << command.summary << "\n";
    std::cout << "\n'korvex COMMAND --help' describes one command.\n";
}

void printHelp(const cli::Command& command) {
    std::cout << "usage: korvex " << command.usage << "\n\n" << command.summary << "\n";
    if (command.options.empty()) return;
    std::cout << "\noptions:\n";
    for (const cli::OptionSpec& o : command.options)
        std::cout << "  " << o.name << (o.takesValue ? " " : "") << o.help << "\n";
    std::cout << "  --help  show this text\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        printOverview();
        return 0;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        printOverview();
        return 0;
    }
    const auto& table = cli::commands();
    const auto it = table.find(name);
    if (it == table.end()) {
        std::cerr << "korvex: unknown command '" << name << "' (try korvex --help)\n";
        return 2;
    }
    std::vector<std::string> words(argv + 2, argv + argc);
    for (const std::string& w : words)
        if (w == "--help" || w == "-h") {
            printHelp(it->second);
            return 0;
        }
    try {
        const cli::Args args(words, it->second.options);
        return it->second.run(args);
    } catch (const cli::UsageError& e) {
        std::cerr << "korvex " << name << ": " << e.what() << "\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "korvex " << name << ": " << e.what() << "\n";
        return 1;
    }
}
