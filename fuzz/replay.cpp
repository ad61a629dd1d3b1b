// Runs a fuzz target over stored inputs, as a test: every file named, and every file in the folders
// named. The last file begun is named on standard error when the target ends the program.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "kernel/startup.h"

namespace {

std::vector<std::filesystem::path> inputs(int argc, char **argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        if (std::filesystem::is_directory(argv[i])) {
            for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
                files.push_back(entry.path());
            }
        } else if (std::filesystem::exists(argv[i])) {
            files.emplace_back(argv[i]);
        }
    }
    return files;
}

}  // namespace

int main(int argc, char **argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    const std::vector<std::filesystem::path> files = inputs(argc, argv);
    for (const std::filesystem::path &file : files) {
        std::fprintf(stderr, "%s\n", file.string().c_str());
        std::ifstream stream(file, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    kiv::shutdown();
    std::fprintf(stderr, "%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
