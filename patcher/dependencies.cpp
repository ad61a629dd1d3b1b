// The "dependency_cache" of a document: the files that its patcher needs, worked out when it is
// written. Abstractions and external modules count, those inside other abstractions too; what is
// stored in the document itself does not.
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/path.h>

#include <algorithm>
#include <tuple>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/document.h"

namespace kiv {

namespace {

struct Dependency {
    Symbol *name;
    int16_t path;
    uint32_t type;
};
using Dependencies = Vector<Dependency>;

void add_file(Dependencies &files, Symbol *name, int16_t path) {
    const bool known = std::any_of(files.begin(), files.end(), [&](const Dependency &file) {
        return file.name == name && file.path == path;
    });
    if (!known) {
        files.push_back({name, path, file_type_of(name->name)});
    }
}

// Follows the nesting of patchers, which construction limits.
void collect(Patcher *patcher, Dependencies &files) {
    for (Jbox *box = patcher->first_box; box; box = box->state->next) {
        Object *object = box_object(box);
        if (Patcher *inner = as_patcher(object)) {
            if (patcher_is_file(inner)) {
                add_file(files, inner->file_name, static_cast<int16_t>(inner->path));
            }
            collect(inner, files);
        } else if (const Class *c = class_of(object); c->file_name && c->path != 0) {
            add_file(files, c->file_name, c->path);
        }
    }
}

// The way from one folder to another, both given by absolute paths: "." and "../lib" are such.
Text relative_path(std::string_view from, std::string_view to) {
    size_t common = 0;
    size_t i = 0;
    while (i < from.size() && i < to.size() && from[i] == to[i]) {
        common = to[i] == '/' ? i : common;
        ++i;
    }
    const bool from_ends = i == from.size() && (i == to.size() || to[i] == '/');
    const bool to_ends = i == to.size() && i < from.size() && from[i] == '/';
    common = from_ends || to_ends ? i : common;
    Text way;
    for (const char c : from.substr(common)) {
        if (c == '/') {
            way.append(way.empty() ? ".." : "/..");
        }
    }
    if (common < to.size()) {
        way.append(way.empty() ? "./" : "/").append(to.substr(common + 1));
    }
    return way.empty() ? Text(".") : way;
}

Symbol *type_name(uint32_t type) noexcept {
    const char text[] = {static_cast<char>(type >> 24), static_cast<char>(type >> 16 & 0xff),
                         static_cast<char>(type >> 8 & 0xff), static_cast<char>(type & 0xff), '\0'};
    return gensym(text);
}

Owned<Dictionary> describe(const Dependency &file, const char *patcher_folder) {
    char folder[KIV_PATH_SIZE];
    Owned<Dictionary> entry(dictionary_new());
    if (!entry || path_topathname(file.path, "", folder)) {
        return nullptr;
    }
    dictionary_appendsym(entry.get(), "name"_sym, file.name);
    dictionary_appendsym(entry.get(), "bootpath"_sym, gensym(folder));
    if (*patcher_folder) {
        dictionary_appendsym(entry.get(), "patcherrelativepath"_sym,
                             gensym(relative_path(patcher_folder, folder).c_str()));
    }
    dictionary_appendsym(entry.get(), "type"_sym, type_name(file.type));
    return dictionary_appendlong(entry.get(), "implicit"_sym, 1) ? nullptr : std::move(entry);
}

}  // namespace

bool patcher_write_dependencies(Patcher *patcher, Dictionary *dictionary) noexcept {
    try {
        Dependencies files;
        collect(patcher, files);
        std::sort(files.begin(), files.end(), [](const Dependency &a, const Dependency &b) {
            return std::tuple(std::string_view(a.name->name), a.path) <
                   std::tuple(std::string_view(b.name->name), b.path);
        });
        char folder[KIV_PATH_SIZE] = "";
        if (patcher->path != 0) {
            path_topathname(static_cast<int16_t>(patcher->path), "", folder);
        }
        Elements elements;
        for (const Dependency &file : files) {
            if (!elements.add(describe(file, folder))) {
                return false;
            }
        }
        return elements.store(dictionary, "dependency_cache"_sym);
    } catch (const std::bad_alloc &) {
        return false;
    }
}

}  // namespace kiv
