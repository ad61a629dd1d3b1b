// The command line of kiv.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::app {

enum class ConsoleForm { text, json };

struct Options {
    std::vector<std::string> documents;  // "-" is standard input
    std::vector<std::string> paths;
    std::vector<std::string> sends;
    std::optional<double> run_seconds;
    std::string save_file;
    ConsoleForm console = ConsoleForm::text;
    bool until_idle = false;
    bool offline = false;
    bool interactive = false;
    bool overdrive = false;
    bool verbose = false;
};

// Reads the command line. An exit status when there is nothing to run: 0 after --help or --version,
// 2 when the command line is wrong (standard error says why).
std::optional<int> read_options(int argc, char **argv, Options &options);

}  // namespace kiv::app
