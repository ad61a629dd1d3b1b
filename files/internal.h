// Hooks between files/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/path.h>

#include "sched/internal.h"

namespace kiv {

void files_start() noexcept;
// Adds a folder to the end of the search path, with its sub-folders when `recursive`; false when
// it is no folder.
bool search_path_add(const char *folder, bool recursive) noexcept;

// Sets the default path for a scope.
class DefaultPath {
  public:
    explicit DefaultPath(int16_t path) noexcept;
    ~DefaultPath();
    DefaultPath(const DefaultPath &) = delete;
    DefaultPath &operator=(const DefaultPath &) = delete;

  private:
    int16_t outer_path_;
    bool outer_recursive_;
};

// Splits the path of a file into its folder's identifier and its name, which points into it; false
// when there is no such folder or a part is too long.
bool path_split(const char *file_path, int16_t *path, const char **name) noexcept;

// File types are four characters in one number, the first in the highest byte.
constexpr uint32_t file_type(const char (&code)[5]) {
    return static_cast<uint32_t>(static_cast<unsigned char>(code[0])) << 24 |
           static_cast<uint32_t>(static_cast<unsigned char>(code[1])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(code[2])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(code[3]));
}
uint32_t file_type_of(const char *file_name) noexcept;  // by extension; 0 when unknown
// Length of a file name without the extension of a known type; its whole length without one.
size_t file_stem_length(const char *file_name) noexcept;

// Reads a whole file; 0, the system's error code, or -4 when memory ran out.
int32_t file_read_all(const char *file_name, int16_t path, Text &out) noexcept;
// Reads the first `size` bytes of a file into `buffer` and tells how many there were.
int32_t file_read_head(const char *file_name, int16_t path, char *buffer, int64_t size,
                       int64_t *count) noexcept;
// Writes a file so that a crash at any moment leaves the old or the new one; 0, or the system's
// error code (-1 where the system gives none).
int32_t file_write_all(const char *file_name, int16_t path, const char *data,
                       int64_t size) noexcept;

// What tells one state of a file from another; equal stamps mean an unchanged file.
struct FileStamp {
    bool exists;
    int64_t size;
    int64_t modified;
    bool operator==(const FileStamp &) const noexcept = default;
};
FileStamp file_stamp(const char *file_name, int16_t path) noexcept;

// The package that lists an external of this name, found beside the "package-info.json" of a
// folder on the search path; null when none does.
Symbol *package_of_external(Symbol *name) noexcept;

// Lets the n-th step of writing files from now go wrong (1 = the next; a step is an opening, a
// write, a sync, a rename); 0 switches this off. A failed step is reported once; a stopped one
// leaves everything as it is, and nothing is written after it, as if the process had died. Tests.
enum class FileFault { fail, stop };
void files_fault_at(int64_t n, FileFault fault) noexcept;

}  // namespace kiv
