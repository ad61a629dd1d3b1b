// A dictionary as a list of atoms, and back: the dictionary text syntax where every word is an atom
// already. What a symbol means there, its end decides: a colon makes it a key, a backslash a plain
// value without the backslash.
//
// Both directions are loops over a stack of their own.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <string_view>
#include <utility>

#include "containers/dictobj.h"
#include "containers/values.h"

namespace kiv {

namespace {

bool is_mark(std::string_view text) noexcept {
    return text == "{" || text == "}" || text == "[" || text == "]" || text == "null";
}

// The symbol whose name is `text` and `ending`.
Symbol *symbol_with(std::string_view text, const char *ending) {
    Text name(text);
    name += ending;
    return gensym(name.c_str());
}

class ToAtoms {
  public:
    bool run(const Dictionary *dictionary) {
        open(atom_of_object(const_cast<Dictionary *>(dictionary)), false);
        while (!open_.empty()) {
            if (open_.size() > static_cast<size_t>(max_nesting)) {
                error("dictobj_dictionarytoatoms: nested deeper than %d containers", max_nesting);
                return false;
            }
            step();
        }
        return true;
    }
    const Vector<Atom> &atoms() const noexcept { return atoms_; }

  private:
    struct Open {
        const Atomarray *array;  // null: a dictionary
        size_t begin;            // what remains: of pending_ or of the array
        size_t next;
        size_t end;
        const char *closing;  // null: not enclosed
    };

    void put(const char *mark) { atoms_.push_back(atom_of(gensym(mark))); }

    // A list of two values or more needs no brackets when it is the whole value of a key.
    void open(const Atom &value, bool enclosed) {
        const void *x = value.value.obj;
        if (is_atomarray(x)) {
            const auto *array = static_cast<const Atomarray *>(x);
            if (enclosed) {
                put("[");
            }
            open_.push_back(
                {array, 0, 0, static_cast<size_t>(array->count), enclosed ? "]" : nullptr});
            return;
        }
        const size_t first = pending_.size();
        dictionary_list(static_cast<const Dictionary *>(x), pending_);
        if (enclosed) {
            put("{");
        }
        open_.push_back({nullptr, first, first, pending_.size(), enclosed ? "}" : nullptr});
    }

    void step() {
        Open &top = open_.back();
        if (top.next == top.end) {
            const Open ended = top;
            open_.pop_back();
            if (!ended.array) {
                pending_.resize(ended.begin);
            }
            if (ended.closing) {
                put(ended.closing);
            }
            return;
        }
        const size_t i = top.next++;
        if (top.array) {
            put_value(top.array->atoms[i], true);
            return;
        }
        const EntryView &entry = pending_[i];
        atoms_.push_back(atom_of(symbol_with(entry.key->name, ":")));
        const Atom value = entry.value;
        const bool list = value.type == TypeObject && is_atomarray(value.value.obj) &&
                          static_cast<const Atomarray *>(value.value.obj)->count > 1;
        put_value(value, !list);
    }

    void put_value(const Atom &value, bool enclosed) {
        if (value.type == TypeNothing) {
            put("null");
        } else if (value.type == TypeSymbol) {
            put_text(value.value.sym ? value.value.sym->name : "");
        } else if (value.type != TypeObject) {
            atoms_.push_back(value);
        } else if (is_dictionary(value.value.obj) || is_atomarray(value.value.obj)) {
            open(value, enclosed);
        } else if (is_string(value.value.obj)) {
            const char *text = text_of(static_cast<const String *>(value.value.obj));
            if (std::strlen(text) < longest_symbol) {
                put_text(text);
            } else {
                atoms_.push_back(value);  // no symbol can hold it
            }
        } else {
            const Symbol *name = object_classname(value.value.obj);
            put_text(name ? name->name : "");
        }
    }

    void put_text(std::string_view text) {
        const bool plain = is_mark(text) || text.ends_with(':') || text.ends_with('\\');
        atoms_.push_back(atom_of(symbol_with(text, plain ? "\\" : "")));
    }

    Vector<Atom> atoms_;
    Vector<Open> open_;
    Vector<EntryView> pending_;
};

class FromAtoms {
  public:
    ~FromAtoms() {
        for (const Atom &value : values_) {
            if (value.type == TypeObject) {
                object_free(value.value.obj);
            }
        }
        for (const Open &open : open_) {
            object_free(open.dictionary);
        }
    }

    // Null when the atoms are wrong (posted) or on no memory.
    Dictionary *run(int32_t argc, const Atom *argv) {
        bool going = open(true);
        for (int32_t i = 0; going && i < argc; ++i) {
            going = take(argv[i]);
        }
        if (!going || !end_value()) {
            return nullptr;
        }
        if (open_.size() > 1) {
            fail(open_.back().dictionary ? "'}' expected" : "']' expected");
            return nullptr;
        }
        return std::exchange(open_[0].dictionary, nullptr);
    }

  private:
    struct Open {
        Dictionary *dictionary;  // null: a list
        Symbol *key;
        size_t first;  // its part of values_
    };

    static bool fail(const char *what) noexcept {
        error("dictobj_dictionaryfromatoms: %s", what);
        return false;
    }

    bool open(bool dictionary) {
        if (open_.size() >= static_cast<size_t>(max_nesting)) {
            return fail("containers nested too deeply");
        }
        open_.push_back({nullptr, nullptr, values_.size()});
        open_.back().dictionary = dictionary ? dictionary_new() : nullptr;
        return !dictionary || open_.back().dictionary || fail("out of memory");
    }

    bool take(const Atom &atom) {
        if (atom.type == TypeObject) {
            void *clone = nullptr;
            if (!clone_value_object(atom.value.obj, &clone) || !clone) {
                return fail("object that cannot be cloned");
            }
            return add(atom_of_object(clone));
        }
        if (atom.type != TypeSymbol || !atom.value.sym) {
            return add(atom);
        }
        const std::string_view text = atom.value.sym->name;
        if (text == "{" || text == "[") {
            return begin_item() && open(text == "{");
        }
        if (text == "}" || text == "]") {
            return close(text == "}");
        }
        if (text == "null") {
            return add(Atom{});
        }
        if (text.ends_with(':')) {
            return key(text.substr(0, text.size() - 1));
        }
        return add(text.ends_with('\\') ? atom_of(symbol_with(text.substr(0, text.size() - 1), ""))
                                        : atom);
    }

    bool key(std::string_view name) {
        Open &top = open_.back();
        if (!top.dictionary) {
            return fail("key in a list");
        }
        if (!end_value()) {
            return false;
        }
        top.key = symbol_with(name, "");
        return top.key || fail("out of memory");
    }

    bool begin_item() const {
        const Open &top = open_.back();
        return !top.dictionary || top.key || fail("value without a key");
    }

    // Takes the atom's object over, whatever happens.
    bool add(Atom atom) {
        try {
            if (begin_item()) {
                values_.push_back(atom);
                return true;
            }
        } catch (const std::bad_alloc &) {
            fail("out of memory");
        }
        if (atom.type == TypeObject) {
            object_free(atom.value.obj);
        }
        return false;
    }

    // The values since the innermost container began, as an array.
    bool take_array(Atom *out) {
        const size_t first = open_.back().first;
        Atomarray *array =
            atomarray_adopt(static_cast<int32_t>(values_.size() - first), values_.data() + first);
        if (!array) {
            return fail("out of memory");
        }
        values_.resize(first);
        *out = atom_of_object(array);
        return true;
    }

    // Stores what followed the current key of the innermost dictionary.
    bool end_value() {
        Open &top = open_.back();
        if (!top.dictionary || !top.key) {
            return true;
        }
        if (values_.size() - top.first != 1) {
            Atom list;
            if (!take_array(&list) || !add(list)) {
                return false;
            }
        }
        if (dictionary_store(top.dictionary, top.key, values_.back(), 0) != ErrorNone) {
            return fail("out of memory");
        }
        values_.pop_back();
        top.key = nullptr;
        return true;
    }

    bool close(bool dictionary) {
        if (open_.size() == 1 || (open_.back().dictionary != nullptr) != dictionary) {
            return fail(dictionary ? "'}' unexpected" : "']' unexpected");
        }
        Atom value;
        if (!dictionary) {
            if (!take_array(&value)) {
                return false;
            }
        } else if (end_value()) {
            value = atom_of_object(open_.back().dictionary);
        } else {
            return false;
        }
        open_.pop_back();
        return add(value);
    }

    Vector<Open> open_;
    Vector<Atom> values_;  // not stored yet
};

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode dictobj_dictionarytoatoms(const Dictionary *dictionary, int32_t *argc,
                                    Atom **argv) noexcept {
    if (!dictionary || !argc || !argv) {
        return ErrorGeneric;
    }
    *argc = 0;
    *argv = nullptr;
    try {
        ToAtoms walk;
        if (!walk.run(dictionary)) {
            return ErrorGeneric;
        }
        const auto bytes = static_cast<int64_t>(walk.atoms().size() * sizeof(Atom));
        if (bytes == 0) {
            return ErrorNone;
        }
        *argv = static_cast<Atom *>(sysmem_newptr(bytes));
        if (!*argv) {
            return ErrorOutOfMemory;
        }
        sysmem_copyptr(walk.atoms().data(), *argv, bytes);
        *argc = static_cast<int32_t>(walk.atoms().size());
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

ErrorCode dictobj_dictionaryfromatoms(Dictionary **dictionary, int32_t argc,
                                      const Atom *argv) noexcept {
    if (!dictionary || (argc > 0 && !argv)) {
        return ErrorGeneric;
    }
    *dictionary = nullptr;
    try {
        *dictionary = FromAtoms().run(argc, argv);
    } catch (const std::bad_alloc &) {
    }
    return *dictionary ? ErrorNone : ErrorGeneric;
}
