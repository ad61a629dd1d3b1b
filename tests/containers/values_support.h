// What the tests of dictionaries, JSON and atom arrays share.
#pragma once

#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/dictionary.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "containers/internal.h"
#include "support/console.h"

namespace kiv::test {

struct FreeObject {
    void operator()(void *x) const { object_free(x); }
};
struct FreeClass {
    void operator()(Class *c) const { class_free(c); }
};
using OwnedDictionary = std::unique_ptr<Dictionary, FreeObject>;
using OwnedArray = std::unique_ptr<Atomarray, FreeObject>;

inline OwnedDictionary make_dictionary() {
    return OwnedDictionary(dictionary_new());
}

// The dictionary of a JSON text, or null with what the reader says in *message.
inline OwnedDictionary read_json(const std::string &text, std::string *message = nullptr) {
    Dictionary *dictionary = nullptr;
    char error_text[256] = "";
    dictobj_dictionaryfromstring(&dictionary, text.c_str(), 1, error_text);
    if (message) {
        *message = error_text;
    }
    return OwnedDictionary(dictionary);
}

inline std::string write_json(const Dictionary *dictionary) {
    JsonText text;
    EXPECT_TRUE(json_from_dictionary(dictionary, text));
    return std::string(text.view());
}

// On one line, for comparing what a dictionary holds.
inline std::string in_short(const Dictionary *dictionary) {
    std::string text;
    for (const char c : write_json(dictionary)) {
        if (c != '\r' && c != '\n' && c != '\t') {
            text += c;
        }
    }
    return text;
}

inline std::string ordered_keys(const Dictionary *dictionary) {
    int32_t count = 0;
    Symbol **keys = nullptr;
    dictionary_getkeys_ordered(dictionary, &count, &keys);
    std::string text;
    for (int32_t i = 0; i < count; ++i) {
        text += keys[i]->name;
    }
    dictionary_freekeys(nullptr, count, keys);
    return text;
}

inline std::string text_of_atoms(int32_t count, const Atom *atoms) {
    int64_t size = 0;
    char *text = nullptr;
    atom_gettext(count, atoms, &size, &text, 0);
    std::string result = text ? text : "";
    sysmem_freeptr(text);
    return result;
}

inline Atom float_atom(double value) {
    Atom atom;
    atom_setfloat(&atom, value);
    return atom;
}
inline Atom long_atom(int64_t value) {
    Atom atom;
    atom_setlong(&atom, value);
    return atom;
}
inline Atom symbol_atom(const char *name) {
    Atom atom;
    atom_setsym(&atom, gensym(name));
    return atom;
}
inline Atom object_atom(void *x) {
    Atom atom;
    atom_setobj(&atom, x);
    return atom;
}

// Runs `operation` with its first allocation failing, then its second, and so on, until it goes on
// succeeding (answers true). It may do without a single allocation, a lock's, say; each failure
// must give back what it took. A first round, unchecked, has names interned and the console's store
// grow.
template <class Operation>
void fail_each_allocation(Operation operation) {
    for (const bool checked : {false, true}) {
        int failures = 0;
        for (int n = 1, successes = 0; successes < 8; ++n) {
            ASSERT_LT(n, 1000) << "never succeeds";
            const int64_t before = memory_live_blocks();
            memory_fail_at(n);
            const bool done = operation();
            memory_fail_at(0);
            take_posts();
            if (checked) {
                ASSERT_EQ(memory_live_blocks(), before) << "allocation " << n;
            }
            successes = done ? successes + 1 : 0;
            failures += !done;
        }
        EXPECT_GT(failures, 0);
    }
}

}  // namespace kiv::test
