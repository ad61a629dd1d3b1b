// The package index: which package offers an external that is not installed.
//
// A folder on the search path that holds "package-info.json" is a package; the file's "name" names
// it and "externals" in its "filelist" lists what it offers. Parsed files are kept until they
// change, because a document full of missing objects asks once for each. Main thread.
#include <kiv/atom.h>
#include <kiv/atomarray.h>
#include <kiv/dictionary.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <string_view>

#include "files/folders.h"

namespace kiv {

namespace {

constexpr const char *info_name = "package-info.json";

struct Package {
    FileStamp stamp{};
    Symbol *name = nullptr;
    Vector<Symbol *> externals;  // without extension
};

struct State {
    Map<int16_t, Package> packages;
};
State state;

bool note_package(int16_t path, const Listing &listing, void *argument) {
    if (listing.holds(info_name)) {
        static_cast<Vector<int16_t> *>(argument)->push_back(path);
    }
    return false;
}

void read_package(Dictionary *info, Package &package) {
    dictionary_getsym(info, "name"_sym, &package.name);
    Dictionary *files = nullptr;
    int32_t count = 0;
    Atom *names = nullptr;
    if (dictionary_getdictionary(info, "filelist"_sym, &files) != ErrorNone ||
        dictionary_getatoms(files, "externals"_sym, &count, &names) != ErrorNone) {
        return;
    }
    for (const Atom *atom = names; atom < names + count; ++atom) {
        if (atom_gettype(atom) == TypeSymbol) {
            const char *name = atom_getsym(atom)->name;
            const Text stem(name, file_stem_length(name));
            package.externals.push_back(gensym(stem.c_str()));
        }
    }
}

const Package &package_at(int16_t path) {
    Package &package = state.packages[path];
    const FileStamp stamp = file_stamp(info_name, path);
    if (stamp == package.stamp) {
        return package;
    }
    package = Package();
    Dictionary *info = nullptr;
    if (dictionary_read(info_name, path, &info) == ErrorNone && info) {
        try {
            read_package(info, package);
        } catch (const std::bad_alloc &) {
            object_free(info);
            throw;
        }
        object_free(info);
    }
    package.stamp = stamp;
    return package;
}

}  // namespace

Symbol *package_of_external(Symbol *name) noexcept {
    if (name == nullptr) {
        return nullptr;
    }
    try {
        Vector<int16_t> folders;
        {
            Guard guard(files_region());
            search_folders(note_package, &folders);
        }
        const Text stem(name->name, file_stem_length(name->name));
        Symbol *wanted = gensym(stem.c_str());
        for (const int16_t path : folders) {
            const Package &package = package_at(path);
            if (package.name && std::find(package.externals.begin(), package.externals.end(),
                                          wanted) != package.externals.end()) {
                return package.name;
            }
        }
    } catch (const std::bad_alloc &) {
    }
    return nullptr;
}

}  // namespace kiv
