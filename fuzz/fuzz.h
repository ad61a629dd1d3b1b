// What the fuzz targets share. A target defines LLVMFuzzerTestOneInput; the runtime is started once
// before its first input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace kiv::fuzz {

inline std::string_view as_text(const uint8_t *data, size_t size) noexcept {
    return {reinterpret_cast<const char *>(data), size};
}

// Ends the program, as a failure that the fuzzer keeps the input of, unless `holds`.
void require(bool holds, const char *what) noexcept;

// Empties the console, and looks for leaks. At the end of each input.
void settle() noexcept;

}  // namespace kiv::fuzz
