// The folders the process knows: their identifiers and what is in them.
#pragma once

#include "files/internal.h"

namespace kiv {

// Contents of a folder as last read.
struct Listing {
    Vector<Text> files;        // sorted by bytes
    Vector<int16_t> folders;   // sorted by name, hidden ones left out
    int64_t modified = 0;      // of the folder when it was read
    double first_seen_ms = 0;  // when that modification time was seen first
    double read_ms = 0;
    bool known = false;

    bool holds(const Text &name) const noexcept;
};

// Guards everything below and the search path.
CriticalRef files_region() noexcept;

// The absolute path of a folder, kept for good; null for an unknown identifier.
const char *folder_name(int16_t path) noexcept;
int16_t folder_count() noexcept;  // identifiers run from 1 to this
// What is in a folder now. The reference stays good until the next call for the same folder. The
// caller holds the region; throws std::bad_alloc.
const Listing &folder_listing(int16_t path);

// Joins a folder and a name into `out` (KIV_PATH_SIZE bytes); false when it does not fit.
bool path_join(const char *folder, const char *name, char *out) noexcept;

// Calls visit(path, listing) for every folder that is searched, in order, until it answers true.
// The caller holds the region; throws std::bad_alloc.
bool search_folders(bool (*visit)(int16_t path, const Listing &listing, void *argument),
                    void *argument);

}  // namespace kiv
