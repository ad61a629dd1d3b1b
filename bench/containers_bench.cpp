// Lists, tables and dictionaries beside the containers that one would otherwise use, each with a
// mutex, since ours may be shared by threads. A thread is started first: the program always has
// some, and in a process that never had a second one the C library leaves out a mutex's atomic
// instructions.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <algorithm>
#include <list>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>
#ifdef HAVE_ABSEIL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef HAVE_JSONC
#include <json-c/json.h>
#endif

namespace kiv {
namespace {

const bool has_had_threads = (std::thread([] {}).join(), true);

void *item(int64_t i) {
    return reinterpret_cast<void *>((i + 1) * 16);
}

std::vector<Symbol *> symbols(int64_t count) {
    std::vector<Symbol *> made;
    for (int64_t i = 0; i < count; ++i) {
        made.push_back(gensym(("key-" + std::to_string(i * 7919 % 1000003)).c_str()));
    }
    return made;
}

// --- Lists: 1,000 items --------------------------------------------------------------------------

constexpr int64_t list_size = 1000;

struct LockedList {
    void append(void *x) {
        const std::scoped_lock guard(lock);
        items.push_back(x);
    }
    std::mutex lock;
    std::list<void *> items;
};

void ListAppendKiv(benchmark::State &state) {
    Linklist *list = linklist_new();
    linklist_flags(list, ContainerData);
    for (auto _ : state) {
        for (int64_t i = 0; i < list_size; ++i) {
            linklist_append(list, item(i));
        }
        linklist_clear(list);
    }
    state.SetItemsProcessed(state.iterations() * list_size);
    object_free(list);
}
BENCHMARK(ListAppendKiv);

void ListAppendStd(benchmark::State &state) {
    LockedList list;
    for (auto _ : state) {
        for (int64_t i = 0; i < list_size; ++i) {
            list.append(item(i));
        }
        list.items.clear();
    }
    state.SetItemsProcessed(state.iterations() * list_size);
}
BENCHMARK(ListAppendStd);

void *count_item(void *x, void *sum) {
    *static_cast<uintptr_t *>(sum) += reinterpret_cast<uintptr_t>(x);
    return nullptr;
}

void ListIterateKiv(benchmark::State &state) {
    Linklist *list = linklist_new();
    linklist_flags(list, ContainerData);
    for (int64_t i = 0; i < list_size; ++i) {
        linklist_append(list, item(i));
    }
    uintptr_t sum = 0;
    for (auto _ : state) {
        linklist_funall(list, count_item, &sum);
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * list_size);
    object_free(list);
}
BENCHMARK(ListIterateKiv);

// As ours does, it lets go of the lock around each call.
void ListIterateStd(benchmark::State &state) {
    LockedList list;
    for (int64_t i = 0; i < list_size; ++i) {
        list.append(item(i));
    }
    void *(*volatile function)(void *, void *) = count_item;
    uintptr_t sum = 0;
    for (auto _ : state) {
        std::unique_lock guard(list.lock);
        for (void *x : list.items) {
            guard.unlock();
            function(x, &sum);
            guard.lock();
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * list_size);
}
BENCHMARK(ListIterateStd);

std::vector<void *> shuffled_items() {
    std::vector<void *> items;
    for (int64_t i = 0; i < list_size; ++i) {
        items.push_back(item(i));
    }
    std::shuffle(items.begin(), items.end(), std::mt19937(1));
    return items;
}

int32_t not_larger(void *a, void *b) {
    return a <= b;
}

void ListSortKiv(benchmark::State &state) {
    const std::vector<void *> items = shuffled_items();
    Linklist *list = linklist_new();
    linklist_flags(list, ContainerData);
    for (auto _ : state) {
        for (void *x : items) {
            linklist_append(list, x);
        }
        linklist_sort(list, not_larger);
        linklist_clear(list);
    }
    state.SetItemsProcessed(state.iterations() * list_size);
    object_free(list);
}
BENCHMARK(ListSortKiv);

void ListSortStd(benchmark::State &state) {
    const std::vector<void *> items = shuffled_items();
    int32_t (*volatile compare)(void *, void *) = not_larger;
    LockedList list;
    for (auto _ : state) {
        for (void *x : items) {
            list.append(x);
        }
        {
            const std::scoped_lock guard(list.lock);
            list.items.sort([&](void *a, void *b) { return !compare(b, a); });
        }
        list.items.clear();
    }
    state.SetItemsProcessed(state.iterations() * list_size);
}
BENCHMARK(ListSortStd);

// --- Tables: storing that many keys in a new table, and finding each -----------------------------

void TableStoreKiv(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    for (auto _ : state) {
        Hashtab *table = hashtab_new(0);
        for (Symbol *key : keys) {
            hashtab_storelong(table, key, 1);
        }
        object_free(table);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void TableFindKiv(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    Hashtab *table = hashtab_new(0);
    for (Symbol *key : keys) {
        hashtab_storelong(table, key, 1);
    }
    int64_t sum = 0;
    for (auto _ : state) {
        for (Symbol *key : keys) {
            int64_t value = 0;
            hashtab_lookuplong(table, key, &value);
            sum += value;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    object_free(table);
}

template <class Map>
struct LockedMap {
    void store(Symbol *key, int64_t value) {
        const std::scoped_lock guard(lock);
        map[key] = value;
    }
    int64_t find(Symbol *key) {
        const std::scoped_lock guard(lock);
        const auto found = map.find(key);
        return found != map.end() ? found->second : 0;
    }
    std::mutex lock;
    Map map;
};

template <class Map>
void TableStore(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    for (auto _ : state) {
        LockedMap<Map> table;
        for (Symbol *key : keys) {
            table.store(key, 1);
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void TableFind(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    LockedMap<Map> table;
    for (Symbol *key : keys) {
        table.store(key, 1);
    }
    int64_t sum = 0;
    for (auto _ : state) {
        for (Symbol *key : keys) {
            sum += table.find(key);
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark *run) {
    run->Arg(10)->Arg(1000)->Arg(100000);
}

using StdMap = std::unordered_map<Symbol *, int64_t>;
BENCHMARK(TableStoreKiv)->Apply(sizes);
BENCHMARK_TEMPLATE(TableStore, StdMap)->Apply(sizes);
BENCHMARK(TableFindKiv)->Apply(sizes);
BENCHMARK_TEMPLATE(TableFind, StdMap)->Apply(sizes);
#ifdef HAVE_ABSEIL
using AbseilMap = absl::flat_hash_map<Symbol *, int64_t>;
BENCHMARK_TEMPLATE(TableStore, AbseilMap)->Apply(sizes);
BENCHMARK_TEMPLATE(TableFind, AbseilMap)->Apply(sizes);
#endif

// --- Dictionaries: ordered, with typed values ----------------------------------------------------

void DictionaryBuildKiv(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    for (auto _ : state) {
        Dictionary *dictionary = dictionary_new();
        for (Symbol *key : keys) {
            dictionary_appendlong(dictionary, key, 1);
        }
        object_free(dictionary);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(DictionaryBuildKiv)->Apply(sizes);

void DictionaryReadKiv(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    Dictionary *dictionary = dictionary_new();
    for (Symbol *key : keys) {
        dictionary_appendlong(dictionary, key, 1);
    }
    int64_t sum = 0;
    for (auto _ : state) {
        for (Symbol *key : keys) {
            int64_t value = 0;
            dictionary_getlong(dictionary, key, &value);
            sum += value;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    object_free(dictionary);
}
BENCHMARK(DictionaryReadKiv)->Apply(sizes);

#ifdef HAVE_JSONC
void DictionaryBuildJsonc(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    for (auto _ : state) {
        json_object *object = json_object_new_object();
        for (const Symbol *key : keys) {
            json_object_object_add(object, key->name, json_object_new_int64(1));
        }
        json_object_put(object);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(DictionaryBuildJsonc)->Apply(sizes);

void DictionaryReadJsonc(benchmark::State &state) {
    const std::vector<Symbol *> keys = symbols(state.range(0));
    json_object *object = json_object_new_object();
    for (const Symbol *key : keys) {
        json_object_object_add(object, key->name, json_object_new_int64(1));
    }
    int64_t sum = 0;
    for (auto _ : state) {
        for (const Symbol *key : keys) {
            json_object *value = nullptr;
            json_object_object_get_ex(object, key->name, &value);
            sum += json_object_get_int64(value);
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    json_object_put(object);
}
BENCHMARK(DictionaryReadJsonc)->Apply(sizes);
#endif

}  // namespace
}  // namespace kiv
