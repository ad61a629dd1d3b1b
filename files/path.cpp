// Path identifiers, the default path and the contents of folders.
//
// Invariants: an identifier is an index into the list of folder names, whose entries are interned
// absolute paths, so both live as long as the process. A listing may be used again while its
// folder keeps the modification time it was read at, but only if it was read some time after that
// time was seen first: two changes within one tick of the file system's clock look the same.
//
// Thread safety: everything is guarded by the files' region.
#include <kiv/symbol.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "files/folders.h"
#include "platform/platform.h"

namespace kiv {

namespace {

constexpr double clock_tick_ms = 20;

struct State {
    CriticalRef region = nullptr;
    Vector<Symbol *> names;  // index is the identifier; entry 0 stands for "no folder"
    Map<Symbol *, int16_t> identifiers;
    Map<int16_t, Listing> listings;
};
State *state = nullptr;

struct Reading {
    Vector<Text> files;
    Vector<Text> folders;
    bool out_of_memory = false;
};

void note_entry(const char *name, bool folder, void *argument) {
    auto *reading = static_cast<Reading *>(argument);
    try {
        (folder ? reading->folders : reading->files).emplace_back(name);
    } catch (const std::bad_alloc &) {
        reading->out_of_memory = true;
    }
}

// The identifier of a folder given in absolute, normalised form; 0 when there are no more.
int16_t identifier_of(const char *absolute) {
    Symbol *name = gensym(absolute);
    if (auto known = state->identifiers.find(name); known != state->identifiers.end()) {
        return known->second;
    }
    if (state->names.empty()) {
        state->names.push_back(nullptr);
    }
    if (state->names.size() > INT16_MAX) {
        return 0;
    }
    const auto identifier = static_cast<int16_t>(state->names.size());
    state->names.push_back(name);
    try {
        state->identifiers.emplace(name, identifier);
    } catch (const std::bad_alloc &) {
        state->names.pop_back();
        throw;
    }
    return identifier;
}

int16_t identifier_of_path(const char *folder) {
    char absolute[KIV_PATH_SIZE];
    if (!platform::path_absolute(folder, absolute, sizeof absolute)) {
        return 0;
    }
    const platform::FileInfo info = platform::file_info(absolute);
    return info.exists && info.folder ? identifier_of(absolute) : int16_t{0};
}

void read_listing(const char *folder, Listing &listing) {
    Reading reading;
    platform::folder_visit(folder, note_entry, &reading);
    if (reading.out_of_memory) {
        throw std::bad_alloc();
    }
    std::sort(reading.files.begin(), reading.files.end());
    std::sort(reading.folders.begin(), reading.folders.end());
    listing.folders.clear();
    for (const Text &name : reading.folders) {
        char path[KIV_PATH_SIZE];
        if (name[0] != '.' && path_join(folder, name.c_str(), path)) {
            if (const int16_t identifier = identifier_of_path(path)) {
                listing.folders.push_back(identifier);
            }
        }
    }
    listing.files.swap(reading.files);
}

}  // namespace

bool Listing::holds(const Text &name) const noexcept {
    return std::binary_search(files.begin(), files.end(), name);
}

void files_start() noexcept {
    static State the_state;
    state = &the_state;
    critical_new(&state->region);
}

CriticalRef files_region() noexcept {
    return state->region;
}

const char *folder_name(int16_t path) noexcept {
    Guard guard(state->region);
    return path > 0 && path <= folder_count() ? state->names[static_cast<size_t>(path)]->name
                                              : nullptr;
}

int16_t folder_count() noexcept {
    return state->names.empty() ? int16_t{0} : static_cast<int16_t>(state->names.size() - 1);
}

const Listing &folder_listing(int16_t path) {
    Listing &listing = state->listings[path];
    const char *folder = folder_name(path);
    const platform::FileInfo info =
        folder ? platform::file_info(folder) : platform::FileInfo{false, false, 0, 0};
    if (!info.exists || !info.folder) {
        listing = Listing();
        return listing;
    }
    const double now = platform::time_ms();
    if (!listing.known || listing.modified != info.modified) {
        listing.known = false;
        listing.modified = info.modified;
        listing.first_seen_ms = now;
    }
    if (!listing.known || listing.read_ms - listing.first_seen_ms < clock_tick_ms) {
        listing.known = false;
        read_listing(folder, listing);
        listing.read_ms = now;
        listing.known = true;
    }
    return listing;
}

bool path_join(const char *folder, const char *name, char *out) noexcept {
    const size_t folder_length = std::strlen(folder);
    const size_t name_length = std::strlen(name);
    const char *const last = platform::last_separator(folder);
    const bool slash = folder_length > 0 && last != folder + folder_length - 1 && name_length > 0;
    if (folder_length + name_length + (slash ? 1 : 0) >= KIV_PATH_SIZE) {
        return false;
    }
    std::memcpy(out, folder, folder_length);
    char *end = out + folder_length;
    if (slash) {
        *end++ = '/';
    }
    std::memcpy(end, name, name_length + 1);
    return true;
}

bool path_split(const char *file_path, int16_t *path, const char **name) noexcept {
    const char *slash = platform::last_separator(file_path);
    *name = slash ? slash + 1 : file_path;
    if (!slash) {
        *path = path_frompathname(".");
    } else {
        char folder[KIV_PATH_SIZE];
        const auto length = static_cast<size_t>(slash - file_path) + 1;
        if (length >= sizeof folder) {
            return false;
        }
        std::memcpy(folder, file_path, length);
        folder[length] = '\0';
        *path = path_frompathname(folder);
    }
    return *path != 0 && std::strlen(*name) < KIV_FILENAME_SIZE;
}

}  // namespace kiv

using namespace kiv;

int16_t path_frompathname(const char *folder) noexcept {
    if (folder == nullptr || folder[0] == '\0') {
        return 0;
    }
    Guard guard(files_region());
    try {
        return identifier_of_path(folder);
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

ErrorCode path_topathname(int16_t path, const char *file_name, char *out) noexcept {
    if (out == nullptr) {
        return ErrorInvalidPointer;
    }
    const char *name = file_name ? file_name : "";
    const char *folder = path == 0 || platform::path_is_absolute(name) ? "" : folder_name(path);
    if (folder == nullptr || !path_join(folder, name, out)) {
        out[0] = '\0';
        return ErrorGeneric;
    }
    return ErrorNone;
}
