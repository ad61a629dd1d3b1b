#include "app/preferences.h"

#include <kiv/kiv.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "files/internal.h"
#include "kernel/internal.h"

namespace kiv::app {

namespace {

constexpr const char *translation_file = "translation.kivpref";

// The conversions of a format ("%s", "%d"), in order. A translation that has others would read
// arguments that are not there.
std::string conversions_of(const char *format) {
    std::string found;
    for (const char *c = format; *c; ++c) {
        if (*c == '%') {
            const size_t length = std::strcspn(c + 1, "%cdeEfgGinopsuxX") + 1;
            found.append(c, std::min(length + 1, std::strlen(c)));
            c += std::min(length, std::strlen(c) - 1);
        }
    }
    return found;
}

void add_translation(DictionaryEntry *entry, void *table) {
    Symbol *const text = dictionary_entry_getkey(entry);
    Atom value;
    dictionary_entry_getvalue(entry, &value);
    Symbol *const translated = atom_getsym(&value);
    if (conversions_of(text->name) != conversions_of(translated->name)) {
        error("%s: \"%s\" and its translation want different arguments", translation_file,
              text->name);
    } else {
        hashtab_storesym(static_cast<Hashtab *>(table), text, translated);
    }
}

// The dictionary under a key, or null.
Dictionary *dictionary_at(Dictionary *dictionary, Symbol *key) {
    Dictionary *found = nullptr;
    return dictionary_getdictionary(dictionary, key, &found) == ErrorNone ? found : nullptr;
}

void set_translation(Dictionary *preferences) {
    Symbol *language = "en"_sym;
    dictionary_getdefsym(preferences, "current_translation"_sym, &language, "en"_sym);
    if (language == "en"_sym) {
        return;
    }
    Dictionary *const texts =
        dictionary_at(dictionary_at(preferences, "translations"_sym), language);
    if (!texts) {
        error("%s: there is no translation \"%s\"", translation_file, language->name);
        return;
    }
    Hashtab *const table = hashtab_new(0);  // lives as long as the process
    dictionary_funall(texts, add_translation, table);
    translation_set(table);
}

}  // namespace

void preferences_read() {
    char name[KIV_FILENAME_SIZE];
    std::strcpy(name, translation_file);
    int16_t path = 0;
    Dictionary *preferences = nullptr;
    if (locatefile_extended(name, &path, nullptr, nullptr, 0) == 0 &&
        dictionary_read(name, path, &preferences) == ErrorNone) {
        set_translation(preferences);
        object_free(preferences);
    }
}

}  // namespace kiv::app
