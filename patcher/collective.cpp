// Collectives: one file that holds several documents, one of which is opened; the others are the
// abstractions it needs.
//
// The file is a dictionary {"collective": {"open": name, "files": {name: document}}}. What its
// patchers name is looked for in it first, as long as the opened patcher lives. Main thread.
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/load.h>
#include <kiv/object.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "files/internal.h"
#include "patcher/creation.h"
#include "patcher/document.h"

namespace kiv {

namespace {

struct Collective {
    Dictionary *content;  // owned
    Dictionary *files;    // in it
    int16_t path;
    Object *patcher;  // null while it is being made
};

struct State {
    Vector<Collective> open;  // newest last
};
State state;

// The collective that the patcher under construction belongs to, or null: the newest when it is
// still being opened, else the one of the top-level patcher.
const Collective *active() noexcept {
    if (!state.open.empty() && !state.open.back().patcher) {
        return &state.open.back();
    }
    Patcher *patcher = as_patcher("#P"_sym->thing);
    const Object *top = patcher ? as_object(patcher_top(patcher)) : nullptr;
    const auto found = std::find_if(state.open.begin(), state.open.end(),
                                    [top](const Collective &c) { return c.patcher == top; });
    return top && found != state.open.end() ? &*found : nullptr;
}

// Reads the file and adds it to those that are open; the name of the document to open, or null
// after saying why not.
Symbol *read(const char *file_name, int16_t path) {
    Dictionary *content = nullptr;
    if (dictionary_read(file_name, path, &content) != ErrorNone) {
        return nullptr;
    }
    Owned<Dictionary> owned(content);
    Dictionary *collective = nullptr;
    Dictionary *files = nullptr;
    Symbol *name = nullptr;
    if (dictionary_getdictionary(content, "collective"_sym, &collective) != ErrorNone ||
        dictionary_getdictionary(collective, "files"_sym, &files) != ErrorNone ||
        dictionary_getsym(collective, "open"_sym, &name) != ErrorNone) {
        error("%s: not a collective", file_name);
        return nullptr;
    }
    state.open.push_back({content, files, path, nullptr});
    owned.release();
    return name;
}

}  // namespace

void *collective_load(const char *file_name, int16_t path, int32_t argc, Atom *argv,
                      Symbol *name_space) {
    Symbol *const name = read(file_name, path);
    if (!name) {
        return nullptr;
    }
    Dictionary *document = nullptr;
    dictionary_getdictionary(state.open.back().files, name, &document);
    void *patcher =
        jpatcher_load_fromdictionary_namespace(name->name, path, document, argc, argv, name_space);
    const auto opened = std::find_if(state.open.rbegin(), state.open.rend(),
                                     [](const Collective &c) { return !c.patcher; });
    if (patcher) {
        opened->patcher = static_cast<Object *>(patcher);
    } else {
        object_free(opened->content);
        state.open.erase(std::next(opened).base());
    }
    return patcher;
}

Dictionary *collective_document(ClassFile *file) noexcept {
    const Collective *collective = active();
    if (!collective) {
        return nullptr;
    }
    Dictionary *document = nullptr;
    const std::string_view wanted = file->name;
    for (const std::string_view ending : {"", ".kivpat"}) {
        char name[sizeof file->name] = "";
        if (wanted.size() + ending.size() >= sizeof name) {
            continue;
        }
        ending.copy(name + wanted.copy(name, wanted.size()), ending.size());
        if (dictionary_getdictionary(collective->files, gensym(name), &document) == ErrorNone) {
            std::memcpy(file->name, name, sizeof name);
            file->path = collective->path;
            file->type = file_type("JSON");
            return document;
        }
    }
    return nullptr;
}

void collective_forget(const Object *patcher) noexcept {
    const auto closed =
        std::find_if(state.open.begin(), state.open.end(),
                     [patcher](const Collective &c) { return c.patcher == patcher; });
    if (closed != state.open.end()) {
        object_free(closed->content);
        state.open.erase(closed);
    }
}

}  // namespace kiv
