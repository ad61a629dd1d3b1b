// The search path and the search for files along it.
//
// Order is part of the contract: the default path, then the added folders in the order of adding,
// each before its sub-folders and these in alphabetical order; in a folder, the name as given, then
// with the extensions of the wanted types in the order of the types. So a file beside the document
// hides one of the same name elsewhere, whatever its type.
//
// Thread safety: everything is guarded by the files' region.
#include <algorithm>
#include <cstring>
#include <span>

#include "files/file_type.h"
#include "files/folders.h"
#include "platform/platform.h"

namespace kiv {

namespace {

struct Root {
    int16_t path;
    bool recursive;
};

struct State {
    Root fallback{0, false};  // the default path
    Vector<Root> roots;
};
State state;

// One spelling of the wanted name.
struct Candidate {
    Text name;
    uint32_t type;
};

Vector<Candidate> candidates_of(const char *name, std::span<const uint32_t> types) {
    Vector<Candidate> candidates;
    const uint32_t own_type = file_type_of(name);
    if (types.empty() || std::find(types.begin(), types.end(), own_type) != types.end()) {
        candidates.push_back({name, own_type});
    }
    for (const uint32_t type : types) {
        for (const FileExtension &extension : file_extensions()) {
            if (extension.type == type) {
                Text spelling(name);
                spelling.append(extension.text);
                candidates.push_back({std::move(spelling), type});
            }
        }
    }
    return candidates;
}

struct Found {
    char file[KIV_PATH_SIZE];
    uint32_t type;
};

struct Search {
    const Vector<Candidate> *candidates;
    bool has_folders;  // in the name, so that a folder's own listing cannot tell
    Found *found;
};

bool is_file(const char *path) noexcept {
    const platform::FileInfo info = platform::file_info(path);
    return info.exists && !info.folder;
}

bool find_in_folder(int16_t path, const Listing &listing, void *argument) {
    const auto *search = static_cast<Search *>(argument);
    for (const Candidate &candidate : *search->candidates) {
        if ((search->has_folders || listing.holds(candidate.name)) &&
            path_join(folder_name(path), candidate.name.c_str(), search->found->file) &&
            is_file(search->found->file)) {
            search->found->type = candidate.type;
            return true;
        }
    }
    return false;
}

bool find_absolute(const Vector<Candidate> &candidates, Found &found) {
    for (const Candidate &candidate : candidates) {
        if (candidate.name.size() < sizeof found.file && is_file(candidate.name.c_str())) {
            std::memcpy(found.file, candidate.name.c_str(), candidate.name.size() + 1);
            found.type = candidate.type;
            return true;
        }
    }
    return false;
}

bool find(const char *name, std::span<const uint32_t> types, Found &found) {
    const Vector<Candidate> candidates = candidates_of(name, types);
    if (platform::path_is_absolute(name)) {
        return find_absolute(candidates, found);
    }
    Search search{&candidates, platform::last_separator(name) != nullptr, &found};
    return search_folders(find_in_folder, &search);
}

}  // namespace

bool search_folders(bool (*visit)(int16_t path, const Listing &listing, void *argument),
                    void *argument) {
    Vector<Root> waiting;  // the next folder is the last entry
    Vector<bool> visited;  // folders that appear twice, links in a circle among them
    waiting.assign(state.roots.rbegin(), state.roots.rend());
    waiting.push_back(state.fallback);
    while (!waiting.empty()) {
        const Root root = waiting.back();
        waiting.pop_back();
        const auto index = static_cast<size_t>(root.path);
        if (root.path == 0 || (index < visited.size() && visited[index])) {
            continue;
        }
        const Listing &listing = folder_listing(root.path);
        if (visited.size() <= index) {
            visited.resize(static_cast<size_t>(folder_count()) + 1);
        }
        visited[index] = true;
        if (visit(root.path, listing, argument)) {
            return true;
        }
        if (root.recursive) {
            for (auto child = listing.folders.rbegin(); child != listing.folders.rend(); ++child) {
                waiting.push_back({*child, true});
            }
        }
    }
    return false;
}

bool search_path_add(const char *folder, bool recursive) noexcept {
    const int16_t path = path_frompathname(folder);
    if (path == 0) {
        return false;
    }
    Guard guard(files_region());
    try {
        state.roots.push_back({path, recursive});
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

DefaultPath::DefaultPath(int16_t path) noexcept {
    Guard guard(files_region());
    outer_path_ = state.fallback.path;
    outer_recursive_ = state.fallback.recursive;
    path_setdefault(path, 0);
}

DefaultPath::~DefaultPath() {
    path_setdefault(outer_path_, outer_recursive_);
}

}  // namespace kiv

using namespace kiv;

int16_t locatefile_extended(char *name, int16_t *path, uint32_t *type, const uint32_t *types,
                            int16_t type_count) noexcept {
    if (name == nullptr || name[0] == '\0') {
        return -1;
    }
    const std::span<const uint32_t> wanted(types, types && type_count > 0 ? size_t(type_count) : 0);
    Found found;
    Guard guard(files_region());
    try {
        if (!find(name, wanted, found)) {
            return -1;
        }
    } catch (const std::bad_alloc &) {
        return -1;
    }
    const char *base = found.file;
    if (platform::last_separator(found.file)) {
        int16_t folder = 0;
        if (!path_split(found.file, &folder, &base)) {
            return -1;
        }
        if (path) {
            *path = folder;
        }
    } else if (std::strlen(base) >= KIV_FILENAME_SIZE) {
        return -1;
    }
    if (type) {
        *type = found.type;
    }
    std::memmove(name, base, std::strlen(base) + 1);
    return 0;
}

int16_t path_getdefault(void) noexcept {
    Guard guard(files_region());
    return state.fallback.path;
}

void path_setdefault(int16_t path, int32_t recursive) noexcept {
    Guard guard(files_region());
    state.fallback = {folder_name(path) ? path : int16_t{0}, recursive != 0};
}
