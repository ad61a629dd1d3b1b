// External object modules: finding the file that defines a class and loading it, once.
//
// Invariants: a module file that loaded is never loaded again, whatever classes it made; one that
// failed is not tried again while its size and modification time stay as they were. `loading` is
// the class-loading record of the module whose entry point runs, innermost first.
//
// Thread safety: classes are looked up on any thread, so the modules' region is held for a whole
// load; entry points run with it held (it is recursive) and must not wait for another thread that
// looks up a class.
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/newobject.h>
#include <kiv/path.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "platform/platform.h"

namespace kiv {

namespace {

constexpr size_t module_name_limit = 511;

struct Loading {
    Symbol *class_name;
    const ClassFile *file;
    Loading *outer;
};

struct Alias {
    Symbol *name;
    Symbol *class_name;  // of the record it was added in, or null
};

struct State {
    CriticalRef region = nullptr;
    Map<Symbol *, Symbol *> name_table;  // class name to file name
    Map<Symbol *, FileStamp> bad;        // by full path
    Vector<Symbol *> loaded;             // full paths, those being loaded among them
    Vector<Alias> aliases;               // newest last
    Loading *loading = nullptr;
};
State state;

// Made with the first use, which is before any second thread looks up a class.
CriticalRef region() noexcept {
    if (!state.region) {
        critical_new(&state.region);
    }
    return state.region;
}

bool is_known_bad(Symbol *full_path, const ClassFile &file) noexcept {
    auto known = state.bad.find(full_path);
    if (known == state.bad.end()) {
        return false;
    }
    if (known->second == file_stamp(file.name, file.path)) {
        return true;
    }
    state.bad.erase(known);
    return false;
}

bool is_loaded(const Symbol *full_path) noexcept {
    for (const Symbol *loaded : state.loaded) {
        if (loaded == full_path) {
            return true;
        }
    }
    return false;
}

void note_bad(Symbol *full_path, const ClassFile &file) {
    state.bad[full_path] = file_stamp(file.name, file.path);
}

using EntryPoint = void (*)(void *module);

EntryPoint entry_point(platform::Library *library) noexcept {
    void *entry = platform::library_symbol(library, "ext_main");
    return reinterpret_cast<EntryPoint>(entry ? entry : platform::library_symbol(library, "main"));
}

// Gives the aliases made since `first` to the class they were made for.
void settle_aliases(size_t first, const Loading &record) noexcept {
    Class *c = class_getifloaded_casefree("box"_sym, record.class_name);
    if (!c) {
        return;
    }
    for (size_t i = first; i < state.aliases.size(); ++i) {
        if (state.aliases[i].class_name == record.class_name) {
            class_alias(c, state.aliases[i].name);
        }
    }
    class_setpath(c, record.file->path, record.file->name);
}

void run_entry(EntryPoint entry, platform::Library *library, Loading &record) noexcept {
    const size_t first_alias = state.aliases.size();
    state.loading = &record;
    try {
        entry(library);
    } catch (...) {
        error("%s: exception in ext_main", record.class_name->name);
    }
    state.loading = record.outer;
    settle_aliases(first_alias, record);
}

bool load(Symbol *class_name, const ClassFile &file, Symbol *full_path) {
    int32_t system_error = 0;
    platform::Library *library = platform::library_load(full_path->name, &system_error);
    if (!library) {
        error("Error %d loading external %s", system_error, class_name->name);
        note_bad(full_path, file);
        return false;
    }
    EntryPoint entry = entry_point(library);
    if (!entry) {
        error("invalid external %s, undefined ext_main or main", class_name->name);
        platform::library_unload(library);
        note_bad(full_path, file);
        return false;
    }
    state.loaded.push_back(full_path);
    Loading record{class_name, &file, state.loading};
    run_entry(entry, library, record);
    return true;
}

}  // namespace

void nametab_add(Symbol *class_name, Symbol *file_name) noexcept {
    if (!class_name) {
        return;
    }
    Guard guard(region());
    try {
        state.name_table[class_name] = file_name && file_name->name[0] ? file_name : class_name;
    } catch (const std::bad_alloc &) {
        error("%s: out of memory", class_name->name);
    }
}

Symbol *nametab_lookup(Symbol *class_name) noexcept {
    Guard guard(region());
    auto mapped = state.name_table.find(class_name);
    return mapped == state.name_table.end() ? class_name : mapped->second;
}

// A module anywhere along the search path comes before a document, a document before a text: notes
// beside a patcher hide no object.
bool class_file_locate(const char *file_name, ClassFile *file) noexcept {
    static constexpr uint32_t modules[] = {file_type("kv64")};
    static constexpr uint32_t documents[] = {file_type("JSON"), file_type("kivb")};
    static constexpr uint32_t texts[] = {file_type("TEXT")};
    static constexpr uint32_t others[] = {file_type("Lorx"), file_type("mPrj"), file_type("mZip"),
                                          file_type("mLsn"), file_type("mPak")};
    static constexpr std::span<const uint32_t> order[] = {modules, documents, texts, others};
    if (std::strlen(file_name) > module_name_limit) {
        return false;
    }
    std::strcpy(file->name, file_name);
    return std::any_of(std::begin(order), std::end(order), [file](std::span<const uint32_t> types) {
        return locatefile_extended(file->name, &file->path, &file->type, types.data(),
                                   static_cast<int16_t>(types.size())) == 0;
    });
}

bool module_search(Symbol *name_space, Symbol *class_name) noexcept {
    if (!class_name || class_name->name[0] == '\0') {
        return false;
    }
    const bool box = !name_space || name_space == "box"_sym;
    if (box && maker_understands(class_name)) {
        return false;
    }
    ClassFile file;
    return class_file_locate(nametab_lookup(class_name)->name, &file) &&
           file.type == file_type("kv64") && module_load(class_name, file);
}

bool module_load(Symbol *class_name, const ClassFile &file) noexcept {
    char full[KIV_PATH_SIZE];
    if (path_topathname(file.path, file.name, full) != ErrorNone) {
        return false;
    }
    Guard guard(region());
    try {
        Symbol *full_path = gensym(full);
        return !is_known_bad(full_path, file) && !is_loaded(full_path) &&
               load(class_name, file, full_path);
    } catch (const std::bad_alloc &) {
        error("%s: out of memory", class_name->name);
        return false;
    }
}

}  // namespace kiv

using namespace kiv;

Symbol *alias(const char *name) noexcept {
    if (!name) {
        return nullptr;
    }
    Guard guard(region());
    Symbol *symbol = gensym(name);
    try {
        state.aliases.push_back({symbol, state.loading ? state.loading->class_name : nullptr});
    } catch (const std::bad_alloc &) {
        error("%s: out of memory", name);
    }
    return symbol;
}
