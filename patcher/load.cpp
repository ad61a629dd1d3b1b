// Patcher documents from files, text and dictionaries, and the parse cache they share.
//
// Invariants: the cache lives while any load runs or a bulk load is open, and owns its
// dictionaries; a dictionary is in use only while its file stands on the stack of files being
// loaded, where it cannot be loaded a second time. What a load puts into a patcher dictionary it
// takes out again, since the next load of the same file starts from the same dictionary.
//
// Main thread.
#include <kiv/load.h>

#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/jpatcher.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <cstdio>
#include <string_view>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/document.h"
#include "patcher/text_form.h"

namespace kiv {

namespace {

constexpr int64_t head_size = 256;
constexpr int64_t size_limit = INT32_MAX;

struct State {
    int32_t depth = 0;
    int32_t bulk_loads = 0;
    Map<Symbol *, Dictionary *> cache;  // by file name and folder
};
State state;

bool cache_is_open() noexcept {
    return state.depth > 0 || state.bulk_loads > 0;
}

void close_cache_if_idle() noexcept {
    if (cache_is_open()) {
        return;
    }
    while (!state.cache.empty()) {
        const auto first = state.cache.begin();
        Dictionary *dictionary = first->second;
        state.cache.erase(first);
        object_free(dictionary);
    }
}

Symbol *cache_key(const char *file_name, int16_t path) {
    char number[16];
    std::snprintf(number, sizeof number, "+%d", path);
    Text key(file_name);
    key.append(number);
    return gensym(key.c_str());
}

// Gives the dictionary to the cache, which frees it in the end.
void keep_parsed(const char *file_name, int16_t path, Dictionary *dictionary) noexcept {
    try {
        if (file_name && cache_is_open() &&
            state.cache.emplace(cache_key(file_name, path), dictionary).second) {
            return;
        }
    } catch (const std::bad_alloc &) {
        // Parsed again next time.
    }
    object_free(dictionary);
}

// Replaces entries of a patcher dictionary for one load, and puts back what was there.
class LoadEntries {
  public:
    explicit LoadEntries(Dictionary *patcher) noexcept : patcher_(patcher) {}
    ~LoadEntries() {
        while (count_ > 0) {
            const Kept &kept = kept_[--count_];
            if (dictionary_hasentry(patcher_, kept.key)) {
                dictionary_deleteentry(patcher_, kept.key);
            }
            if (kept.there) {
                dictionary_appendatom(patcher_, kept.key, &kept.value);
            }
        }
    }
    LoadEntries(const LoadEntries &) = delete;
    LoadEntries &operator=(const LoadEntries &) = delete;

    void replace(Symbol *key, int32_t argc, const Atom *argv) noexcept {
        Kept &kept = kept_[count_++];
        kept.key = key;
        kept.there = dictionary_getatom(patcher_, key, &kept.value) == ErrorNone;
        if (kept.there) {
            dictionary_chuckentry(patcher_, key);
        }
        append_copies(patcher_, key, argc, argv);  // what is given stays its owner's
    }
    void replace(Symbol *key, Symbol *value) noexcept {
        Atom atom;
        atom_setsym(&atom, value);
        replace(key, 1, &atom);
    }
    void replace(Symbol *key, int64_t value) noexcept {
        Atom atom;
        atom_setlong(&atom, value);
        replace(key, 1, &atom);
    }

  private:
    struct Kept {
        Symbol *key;
        bool there;
        Atom value;
    };
    Dictionary *patcher_;
    Kept kept_[4];
    int32_t count_ = 0;
};

const char *text_or_empty(const char *text) noexcept {
    return text ? text : "";
}

// Parses a document; null after reporting why not.
Dictionary *parse(const char *file_name, const char *text, int64_t length) noexcept {
    if (text_form_is(text, length)) {
        return text_form_read(file_name, text, length);
    }
    auto *reader = static_cast<Object *>(object_new("nobox"_sym, "jsonreader"_sym));
    if (!reader) {
        error("%s: can't load, out of memory", text_or_empty(file_name));
        return nullptr;
    }
    Object *value = nullptr;
    const auto code = static_cast<ErrorCode>(
        reinterpret_cast<intptr_t>(object_method(reader, "parse_len"_sym, text, length, &value)));
    if (code != ErrorNone) {
        const auto *reason =
            static_cast<const char *>(object_method(reader, "errorstring"_sym, nullptr));
        error(translated("error parsing patcher file %s"), text_or_empty(file_name));
        error("%s", text_or_empty(reason));
    } else if (!object_classname_compare(value, "dictionary"_sym)) {
        error("patcher file %s missing patcher!", text_or_empty(file_name));
        object_free(value);
        value = nullptr;
    }
    object_free(reader);
    return reinterpret_cast<Dictionary *>(value);
}

void set_load_entries(LoadEntries &entries, const char *file_name, int16_t path, int32_t argc,
                      const Atom *argv, Symbol *name_space) noexcept {
    if (argc > 0 && argv) {
        entries.replace("arguments"_sym, argc, argv);
    }
    if (file_name && file_name[0] && path != 0) {
        entries.replace("filename"_sym, gensym(file_name));
        entries.replace("vol"_sym, int64_t{path});
    }
    const bool given = name_space && name_space->name[0];
    entries.replace("classnamespace"_sym, given ? name_space : "box"_sym);
}

Dictionary *cached(const char *file_name, int16_t path) noexcept {
    try {
        auto known = state.cache.find(cache_key(file_name, path));
        return known == state.cache.end() ? nullptr : known->second;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

// Reads a file and loads it, its text gone before its boxes are made: documents nest.
void *load_uncached(const char *file_name, int16_t path, int32_t argc, Atom *argv,
                    Symbol *name_space) noexcept {
    Dictionary *dictionary = nullptr;
    {
        Text text;
        const int32_t result = file_read_all(file_name, path, text);
        if (result == ErrorOutOfMemory) {
            error("%s: can't load, out of memory", file_name);
            return nullptr;
        }
        if (result != 0) {
            error(translated("can't load patcher: error %d opening %s"), result, file_name);
            return nullptr;
        }
        const auto length = static_cast<int64_t>(text.size());
        if (length > size_limit) {
            error("jpatcher_load_namespace: patcher [%s] is too big!", file_name);
            return nullptr;
        }
        dictionary = parse(file_name, text.c_str(), length);
    }
    if (!dictionary) {
        return nullptr;
    }
    void *patcher =
        jpatcher_load_fromdictionary_namespace(file_name, path, dictionary, argc, argv, name_space);
    keep_parsed(file_name, path, dictionary);
    return patcher;
}

}  // namespace

int32_t load_depth() noexcept {
    return state.depth;
}

LoadScope::LoadScope() noexcept : outermost_(state.depth == 0) {
    ++state.depth;
}

LoadScope::~LoadScope() {
    --state.depth;
    close_cache_if_idle();
}

bool file_holds_patcher(const char *file_name, int16_t path, int32_t *result) noexcept {
    char head[head_size];
    int64_t count = 0;
    *result = file_read_head(file_name, path, head, head_size, &count);
    return *result == 0 &&
           (text_form_is(head, count) ||
            std::string_view(head, static_cast<size_t>(count)).find("\"patcher\"") !=
                std::string_view::npos);
}

}  // namespace kiv

using namespace kiv;

void *jpatcher_load(const char *file_name, int16_t path, int32_t argc, Atom *argv) noexcept {
    return jpatcher_load_namespace(file_name, path, argc, argv, "box"_sym);
}

void *jpatcher_load_namespace(const char *file_name, int16_t path, int32_t argc, Atom *argv,
                              Symbol *name_space) noexcept {
    if (!file_name) {
        return nullptr;
    }
    int32_t result = 0;
    if (!file_holds_patcher(file_name, path, &result)) {
        if (result != 0) {
            error(translated("can't load patcher: error %d opening %s"), result, file_name);
        }
        return nullptr;
    }
    const LoadScope scope;
    if (Dictionary *dictionary = cached(file_name, path)) {
        return jpatcher_load_fromdictionary_namespace(file_name, path, dictionary, argc, argv,
                                                      name_space);
    }
    return load_uncached(file_name, path, argc, argv, name_space);
}

void *jpatcher_load_frombuffer(const char *file_name, int16_t path, const char *text,
                               int64_t length, int32_t argc, Atom *argv) noexcept {
    return jpatcher_load_frombuffer_namespace(file_name, path, text, length, argc, argv, "box"_sym);
}

void *jpatcher_load_frombuffer_namespace(const char *file_name, int16_t path, const char *text,
                                         int64_t length, int32_t argc, Atom *argv,
                                         Symbol *name_space) noexcept {
    if (!text || length <= 0) {
        return object_new_typed("nobox"_sym, "jpatcher"_sym, 0, nullptr);
    }
    const LoadScope scope;
    Dictionary *dictionary = parse(file_name, text, length);
    if (!dictionary) {
        return nullptr;
    }
    void *patcher =
        jpatcher_load_fromdictionary_namespace(file_name, path, dictionary, argc, argv, name_space);
    keep_parsed(file_name, path, dictionary);
    return patcher;
}

void *jpatcher_load_fromdictionary(const char *file_name, int16_t path, Dictionary *dictionary,
                                   int32_t argc, Atom *argv) noexcept {
    return jpatcher_load_fromdictionary_namespace(file_name, path, dictionary, argc, argv,
                                                  "box"_sym);
}

void *jpatcher_load_fromdictionary_namespace(const char *file_name, int16_t path,
                                             Dictionary *dictionary, int32_t argc, Atom *argv,
                                             Symbol *name_space) noexcept {
    Dictionary *patcher = nullptr;
    if (dictionary_getdictionary(dictionary, "patcher"_sym, &patcher) != ErrorNone || !patcher) {
        error("patcher file %s missing patcher!", text_or_empty(file_name));
        return nullptr;
    }
    const LoadScope scope;
    LoadEntries entries(patcher);
    set_load_entries(entries, file_name, path, argc, argv, name_space);
    const Binding document("#PD"_sym, patcher);
    Atom argument;
    atom_setobj(&argument, patcher);
    return object_new_typed("nobox"_sym, "jpatcher"_sym, 1, &argument);
}

void jpatcher_bulk_load_begin(void) noexcept {
    ++state.bulk_loads;
}

void jpatcher_bulk_load_end(void) noexcept {
    if (state.bulk_loads > 0) {
        --state.bulk_loads;
        close_cache_if_idle();
    }
}
