// The generic loader: files by their type, one document inside another, documents by name.
//
// Invariants: `files` holds the files being loaded, the outermost first; a file that stands on it
// is refused, which also keeps an abstraction from containing itself. `open` holds the documents
// that nameload opened and that still live. Main thread.
#include <kiv/load.h>

#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/jpatcher.h>
#include <kiv/object.h>
#include <kiv/path.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "containers/internal.h"
#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "patcher/records.h"
#include "platform/platform.h"

namespace kiv {

namespace {

struct LoadingFile {
    Symbol *name;
    int16_t path;
    bool operator==(const LoadingFile &) const noexcept = default;
};

struct OpenDocument {
    LoadingFile file;
    Object *patcher;
};

struct State {
    Vector<LoadingFile> files;
    Vector<OpenDocument> open;
};
State state;

// Stands on the stack of files being loaded for a scope.
class OnStack {
  public:
    explicit OnStack(const LoadingFile &file) { state.files.push_back(file); }
    ~OnStack() { state.files.pop_back(); }
    OnStack(const OnStack &) = delete;
    OnStack &operator=(const OnStack &) = delete;
};

bool is_collective_type(uint32_t type) noexcept {
    return type == file_type("kivc") || type == file_type("kv@c");
}

// Snippets and lessons are patcher documents under other extensions.
bool is_patcher_type(uint32_t type) noexcept {
    return type == file_type("JSON") || type == file_type("kivb") || type == file_type("TEXT") ||
           type == file_type("mSnp") || type == file_type("mLsn");
}

bool refuse_recursion(const LoadingFile &file) noexcept {
    if (std::find(state.files.begin(), state.files.end(), file) == state.files.end()) {
        return false;
    }
    error("patcher attempting to load itself: %s", file.name->name);
    error(
        "perhaps you have mistakenly named a patcher file the same name as an object it contains. "
        "this is not permitted.");
    return true;
}

// What is to be loaded, and how.
struct Load {
    LoadingFile file;
    uint32_t type;
    Dictionary *document;  // what the file holds, when that has been read; or null
    int32_t argc;
    Atom *argv;
    Symbol *name_space;
    bool standalone;
};

void *load_by_type(const Load &load) {
    const char *name = load.file.name->name;
    if (load.document) {
        return jpatcher_load_fromdictionary_namespace(name, load.file.path, load.document,
                                                      load.argc, load.argv, load.name_space);
    }
    return is_collective_type(load.type)
               ? collective_load(name, load.file.path, load.argc, load.argv, load.name_space)
               : jpatcher_load_namespace(name, load.file.path, load.argc, load.argv,
                                         load.name_space);
}

Object *load_on_stack(const Load &load) {
    const OnStack on_stack(load.file);
    // A document of its own has no parent, whatever is being made while it is opened.
    const Binding receiving("#P"_sym, load.standalone ? nullptr : "#P"_sym->thing);
    const Binding building("#B"_sym, load.standalone ? nullptr : "#B"_sym->thing);
    return static_cast<Object *>(load_by_type(load));
}

Object *load_once(const Load &load) noexcept {
    if (refuse_recursion(load.file)) {
        return nullptr;
    }
    const bool outermost = load_depth() == 0;
    if (outermost) {
        loadbang_load_begins();
    }
    Object *patcher = nullptr;
    try {
        const LoadScope scope;
        patcher = load_on_stack(load);
    } catch (const std::bad_alloc &) {
        error("%s: can't load, out of memory", load.file.name->name);
    }
    if (outermost) {
        loadbang_load_ends();
    }
    if (patcher && (outermost || load.standalone)) {
        loadbang_deliver(patcher);
        return object_valid(patcher) ? patcher : nullptr;
    }
    return patcher;
}

void show(Object *patcher, const char *file_name) noexcept {
    constexpr std::string_view help = ".kivhelp";
    const std::string_view name = file_name;
    if (name.size() >= help.size() && same_casefree(name.substr(name.size() - help.size()), help)) {
        object_attr_setlong(patcher, "ishelpfile"_sym, 1);
    }
    object_method(patcher, "vis"_sym);
}

Object *find_open(const LoadingFile &file) noexcept {
    for (const OpenDocument &document : state.open) {
        if (document.file == file) {
            return document.patcher;
        }
    }
    return nullptr;
}

// A null path names the default path.
int16_t path_or_default(int16_t path) noexcept {
    return path != 0 ? path : path_getdefault();
}

// What the system says about a file that cannot be loaded; 0 when it can be opened.
int32_t opening_error(const char *file_path) noexcept {
    char byte;
    int64_t count = 0;
    return file_read_head(file_path, 0, &byte, 1, &count);
}

}  // namespace

Object *load_file(const char *file_name, int16_t path, uint32_t type, int32_t argc, Atom *argv,
                  Symbol *name_space, bool standalone) noexcept {
    if (!file_name || !file_name[0]) {
        return nullptr;
    }
    type = type != 0 ? type : file_type_of(file_name);
    if (!is_patcher_type(type) && !is_collective_type(type)) {
        return nullptr;
    }
    return load_once({{gensym(file_name), path_or_default(path)},
                      type,
                      nullptr,
                      argc,
                      argv,
                      name_space,
                      standalone});
}

Object *load_document(Dictionary *document, const ClassFile &file, int32_t argc, Atom *argv,
                      Symbol *name_space) noexcept {
    return load_once(
        {{gensym(file.name), file.path}, file.type, document, argc, argv, name_space, false});
}

void nameload_forget(Object *patcher) noexcept {
    state.open.erase(std::remove_if(state.open.begin(), state.open.end(),
                                    [patcher](const OpenDocument &document) {
                                        return document.patcher == patcher;
                                    }),
                     state.open.end());
}

Object *document_load(const char *file_path, int32_t *result) noexcept {
    int32_t ignored = 0;
    int32_t &code = result ? *result : ignored;
    code = file_path ? opening_error(file_path) : ErrorGeneric;
    int16_t path = 0;
    const char *name = nullptr;
    if (code == 0 && !path_split(file_path, &path, &name)) {
        code = ErrorGeneric;
    }
    if (code != 0) {
        error(translated("can't load patcher: error %d opening %s"), code,
              file_path ? file_path : "");
        return nullptr;
    }
    const bool collective = is_collective_type(file_type_of(name));
    if (!collective && !file_holds_patcher(name, path, &code)) {
        code = ErrorGeneric;
        error("%s: not a patcher document", file_path);
        return nullptr;
    }
    const DefaultPath beside(path);
    Object *patcher =
        load_file(name, path, file_type(collective ? "kivc" : "JSON"), 0, nullptr, "box"_sym, true);
    code = patcher ? 0 : ErrorGeneric;
    return patcher;
}

Object *document_load_text(const char *text, int64_t length) noexcept {
    const DefaultPath beside(path_frompathname("."));
    return static_cast<Object *>(lowload_jpatcher_frombuffer(text, length));
}

}  // namespace kiv

using namespace kiv;

void *lowload_jpatcher_frombuffer(const char *text, int64_t length) noexcept {
    const bool outermost = load_depth() == 0;
    if (outermost) {
        loadbang_load_begins();
    }
    Object *patcher = nullptr;
    {
        const Binding receiving("#P"_sym, nullptr);
        const Binding building("#B"_sym, nullptr);
        patcher =
            static_cast<Object *>(jpatcher_load_frombuffer(nullptr, 0, text, length, 0, nullptr));
    }
    if (outermost) {
        loadbang_load_ends();
    }
    if (patcher) {
        loadbang_deliver(patcher);
    }
    return object_valid(patcher) ? patcher : nullptr;
}

void *lowload_jpatcher_frombuffer_withobexprototype(const char *text, int64_t length,
                                                    Dictionary *prototype) noexcept {
    jpatcher_setnextobexprototype(prototype);
    void *patcher = lowload_jpatcher_frombuffer(text, length);
    jpatcher_setnextobexprototype(nullptr);
    return patcher;
}

void *fileload(const char *name, int16_t path) noexcept {
    return fileload_type(name, path, 0);
}

void *fileload_type(const char *name, int16_t path, uint32_t type) noexcept {
    return load_file(name, path, type, 0, nullptr, "box"_sym, true);
}

void *fileload_extended(const char *name, int16_t path, uint32_t type, int32_t argc, Atom *argv,
                        void **result) noexcept {
    void *patcher = nullptr;
    {
        const DefaultPath beside(path_or_default(path));
        patcher = load_file(name, path, type, argc, argv, "box"_sym, true);
    }
    if (result) {
        *result = nullptr;
    }
    return patcher;
}

void *intload(const char *name, int16_t path, uint32_t type, int32_t argc, Atom *argv,
              int32_t) noexcept {
    return load_file(name, path, type, argc, argv, "box"_sym, false);
}

void *nameload(const char *name, int16_t path, uint32_t type, int32_t flags) noexcept {
    return nameload_unique(name, path, type, flags, 0);
}

void *nameload_unique(const char *name, int16_t path, uint32_t type, int32_t flags,
                      int32_t unique) noexcept {
    if (!name || !name[0] || (type != 0 ? type : file_type_of(name)) == file_type("mLsn")) {
        return nullptr;  // lessons are not opened by name
    }
    const LoadingFile file{gensym(name), path_or_default(path)};
    if (Object *open = unique ? find_open(file) : nullptr) {
        if (flags != 0) {
            object_method(open, "front"_sym);
        }
        return open;
    }
    AbstractionArguments arguments(0, nullptr);
    Object *patcher =
        load_file(name, path, type, arguments.count, arguments.atoms, "box"_sym, true);
    if (!patcher) {
        return nullptr;
    }
    try {
        state.open.push_back({file, patcher});
    } catch (const std::bad_alloc &) {
        // Opened once more when asked for again.
    }
    if (flags != 0) {
        show(patcher, name);
    }
    return patcher;
}

void *stringload(const char *name) noexcept {
    static constexpr uint32_t types[] = {file_type("JSON"), file_type("kivb"), file_type("TEXT"),
                                         file_type("mSnp"), file_type("kivc")};
    char found[KIV_FILENAME_SIZE];
    int16_t path = 0;
    uint32_t type = 0;
    if (!name || std::strlen(name) >= sizeof found) {
        return nullptr;
    }
    std::strcpy(found, name);
    if (locatefile_extended(found, &path, &type, types, static_cast<int16_t>(std::size(types))) !=
        0) {
        return nullptr;
    }
    return nameload(found, path, type, 1);
}
