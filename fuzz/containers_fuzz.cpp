// Lists, tables and dictionaries: a program of two bytes an operation runs on each of them and on a
// plain model; they answer the same, and their structure stays whole.
#include <kiv/dictionary.h>
#include <kiv/hashtab.h>
#include <kiv/linklist.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "containers/hashtab_record.h"
#include "fuzz/fuzz.h"

using namespace kiv;

namespace {

using Model = std::vector<std::pair<Symbol *, int64_t>>;  // in order of insertion

Symbol *key_of(uint8_t byte) {
    return gensym(("fuzz" + std::to_string(byte % 40)).c_str());
}

Model::iterator find(Model &model, const Symbol *key) {
    return std::ranges::find(model, key, &Model::value_type::first);
}

void set(Model &model, Symbol *key, int64_t value) {
    if (const auto found = find(model, key); found != model.end()) {
        found->second = value;
    } else {
        model.emplace_back(key, value);
    }
}

void check_list(Linklist *list, const std::vector<void *> &model) {
    std::vector<void *> items(model.size() + 1);
    items.resize(static_cast<size_t>(
        linklist_makearray(list, items.data(), static_cast<int32_t>(items.size()))));
    fuzz::require(items == model, "the list holds what the model does");
    fuzz::require(!linklist_check(list), "the list is whole");
}

void run_list(const uint8_t *data, size_t size) {
    Linklist *list = linklist_new();
    linklist_flags(list, ContainerData);
    std::vector<void *> model;
    for (size_t i = 0; i + 1 < size; i += 2) {
        const auto count = static_cast<int32_t>(model.size());
        const int32_t index = data[i + 1] % 20;
        void *item = reinterpret_cast<void *>((i + 1) * 8);
        switch (data[i] % 6) {
            case 0:
                linklist_append(list, item);
                model.push_back(item);
                break;
            case 1:
                linklist_insertindex(list, item, index);
                model.insert(model.begin() + std::min(index, count), item);
                break;
            case 2:
                linklist_deleteindex(list, index);
                if (index < count) {
                    model.erase(model.begin() + index);
                }
                break;
            case 3:
                linklist_reverse(list);
                std::ranges::reverse(model);
                break;
            case 4:
                linklist_sort(list, [](void *a, void *b) -> int32_t { return a <= b; });
                std::ranges::sort(model);
                break;
            default: {
                // Removes every item of one remainder while the list is iterated over.
                struct Sieve {
                    Linklist *list;
                    uintptr_t remainder;
                } sieve{list, static_cast<uintptr_t>(index % 3)};
                const auto goes = [](void *x, uintptr_t remainder) {
                    return reinterpret_cast<uintptr_t>(x) / 8 % 3 == remainder;
                };
                linklist_funall(
                    list,
                    [](void *, void *arg) -> void * {
                        const auto *s = static_cast<const Sieve *>(arg);
                        for (int32_t n = linklist_getsize(s->list); n-- > 0;) {
                            void *x = linklist_getindex(s->list, n);
                            if (x && reinterpret_cast<uintptr_t>(x) / 8 % 3 == s->remainder) {
                                linklist_deleteobject(s->list, x);
                            }
                        }
                        return nullptr;
                    },
                    &sieve);
                std::erase_if(model, [&](void *x) { return goes(x, sieve.remainder); });
            }
        }
        check_list(list, model);
    }
    object_free(list);
}

void run_table(const uint8_t *data, size_t size) {
    Hashtab *table = hashtab_new(static_cast<int32_t>(1 + size % 3));
    Model model;
    for (size_t i = 0; i + 1 < size; i += 2) {
        Symbol *key = key_of(data[i + 1]);
        const auto found = find(model, key);
        if (data[i] % 3) {
            hashtab_storelong(table, key, data[i]);
            set(model, key, data[i]);
        } else {
            const bool present = found != model.end();
            fuzz::require((hashtab_delete(table, key) == 0) == present, "what is there can go");
            if (present) {
                model.erase(found);
            }
        }
        fuzz::require(!hashtab_check(table), "the table is whole");
        for (const auto &[stored, expected] : model) {
            int64_t value = 0;
            hashtab_lookuplong(table, stored, &value);
            fuzz::require(value == expected, "the table holds what the model does");
        }
    }
    object_free(table);
}

void check_dictionary(const Dictionary *dictionary, const Model &model) {
    int32_t count = 0;
    Symbol **keys = nullptr;
    dictionary_getkeys_ordered(dictionary, &count, &keys);
    fuzz::require(count == static_cast<int32_t>(model.size()) &&
                      dictionary_getentrycount(dictionary) == count,
                  "the dictionary has as many entries as the model");
    for (size_t i = 0; i < model.size(); ++i) {
        int64_t value = -1;
        dictionary_getlong(dictionary, keys[i], &value);
        fuzz::require(keys[i] == model[i].first && value == model[i].second,
                      "and the same in the same order");
    }
    dictionary_freekeys(nullptr, count, keys);
}

// Begins with the dictionary of a document, so that every change is tried on its packed form.
void run_dictionary(const uint8_t *data, size_t size) {
    std::string text = "{";
    Model model;
    for (uint8_t i = 0; i < data[0] % 20; ++i) {
        text += (i ? ",\"" : "\"") + std::string(key_of(i)->name) + "\":" + std::to_string(i);
        model.emplace_back(key_of(i), i);
    }
    Dictionary *dictionary = nullptr;
    dictobj_dictionaryfromstring(&dictionary, (text + "}").c_str(), 1, nullptr);
    check_dictionary(dictionary, model);
    for (size_t i = 1; i + 1 < size; i += 2) {
        Symbol *key = key_of(data[i + 1]);
        const auto found = find(model, key);
        switch (data[i] % 4) {
            case 0: {
                const ErrorCode result = data[i] & 4 ? dictionary_deleteentry(dictionary, key)
                                                     : dictionary_chuckentry(dictionary, key);
                fuzz::require((result == 0) == (found != model.end()), "what is there can go");
                if (found != model.end()) {
                    model.erase(found);
                }
                break;
            }
            case 1: {
                Dictionary *clone = dictionary_clone(dictionary);
                if (data[i] & 4) {
                    std::swap(clone, dictionary);
                } else {
                    dictionary_clone_to_existing(clone, dictionary);
                }
                object_free(clone);
                break;
            }
            default:
                dictionary_appendlong(dictionary, key, data[i]);
                set(model, key, data[i]);
        }
        check_dictionary(dictionary, model);
    }
    object_free(dictionary);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 0) {
        size = std::min<size_t>(size, 400);
        run_list(data, size);
        run_table(data, size);
        run_dictionary(data, size);
        fuzz::settle();
    }
    return 0;
}
