// Hooks between files/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/path.h>

#include "sched/internal.h"

namespace kiv {

void files_start() noexcept;
// Adds a folder to the end of the search path, with its sub-folders when `recursive`; false when
// it is no folder.
bool search_path_add(const char *folder, bool recursive) noexcept;

// File types are four characters in one number, the first in the highest byte.
constexpr uint32_t file_type(const char (&code)[5]) {
    return static_cast<uint32_t>(static_cast<unsigned char>(code[0])) << 24 |
           static_cast<uint32_t>(static_cast<unsigned char>(code[1])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(code[2])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(code[3]));
}
uint32_t file_type_of(const char *file_name) noexcept;  // by extension; 0 when unknown

// Reads a whole file; 0, or the system's error code.
int32_t file_read_all(const char *file_name, int16_t path, Text &out);
// Writes a file so that a crash at any moment leaves the old or the new one.
int32_t file_write_all(const char *file_name, int16_t path, const char *data,
                       int64_t size) noexcept;

}  // namespace kiv
