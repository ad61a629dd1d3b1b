// Interning names, beside hash sets of strings.
//
// Insertions: each run puts in names that were never there before, in a table that only grows; so
// they run once, and ours first, when the table is as it is after start-up.
#include <benchmark/benchmark.h>
#include <memory>
#include <string_view>
#include <unordered_set>

#include "bench/kernel_bench.h"

#ifdef HAVE_ABSEIL
#include <absl/container/flat_hash_set.h>
#endif
#ifdef HAVE_BOOST
#include <boost/unordered/unordered_flat_set.hpp>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace kiv::bench {
namespace {

struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>()(text);
    }
};

// The tables measured: put(text) finds a name or makes it.
struct Kiv {
    const void *put(const char *text) { return gensym(text); }
};
struct StdSet {
    std::unordered_set<std::string, Hash, std::equal_to<>> set;
    const void *put(const char *text) {
        const auto found = set.find(std::string_view(text));
        return found != set.end() ? &*found : &*set.emplace(text).first;
    }
};
#ifdef HAVE_ABSEIL
struct AbslSet {
    absl::flat_hash_set<std::string> set;
    const void *put(const char *text) {
        return &*set.lazy_emplace(absl::string_view(text),
                                  [text](const auto &make) { make(text); });
    }
};
#endif
#ifdef HAVE_BOOST
struct BoostSet {
    boost::unordered_flat_set<std::string, Hash, std::equal_to<>> set;
    const void *put(const char *text) {
        const auto found = set.find(std::string_view(text));
        return found != set.end() ? &*found : &*set.emplace(text).first;
    }
};
#endif
#ifdef HAVE_GLIB
struct GlibIntern {
    const void *put(const char *text) { return g_intern_string(text); }
};
#endif

std::vector<std::string> names(const std::string &beginning, int count) {
    std::vector<std::string> made;
    for (int i = 0; i < count; ++i) {
        made.push_back(beginning + std::to_string(i * 7919 % count));
    }
    return made;
}

template <class Table>
void insert(benchmark::State &state, const std::string &beginning, int count) {
    const std::vector<std::string> texts = names(beginning, count);
    // Kept, as ours is: no table grows into memory that another one has already touched.
    auto *const table = new Table;
    for (auto _ : state) {
        for (const std::string &text : texts) {
            benchmark::DoNotOptimize(table->put(text.c_str()));
        }
    }
    state.SetItemsProcessed(count);
}
template <class Table>
void InsertMillion(benchmark::State &state) {
    insert<Table>(state, "name", 1000000);
}
// All share their first sixteen characters.
template <class Table>
void InsertPrefixed(benchmark::State &state) {
    insert<Table>(state, "sixteen of these", 100000);
}

// Names of all kinds, a few hundred of them: what a running patcher looks up.
const std::vector<std::string> &common_names() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> made;
        for (int i = 0; i < 128; ++i) {
            made.push_back("f" + std::to_string(i));
            made.push_back("frequency" + std::to_string(i));
            made.push_back("a-name-longer-than-most-are-" + std::to_string(i));
        }
        for (const char *text : {"bang", "int", "float", "list", "symbol", "set", "clear"}) {
            made.push_back(text);
        }
        return made;
    }();
    return texts;
}

template <class Table>
Table *common_table() {
    auto *const made = new Table;
    for (const std::string &text : common_names()) {
        made->put(text.c_str());
    }
    return made;
}

template <class Table>
void hit(benchmark::State &state, Table &table) {
    const std::vector<std::string> &texts = common_names();
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(table.put(texts[at].c_str()));
        at = at + 1 == texts.size() ? 0 : at + 1;
    }
    state.SetItemsProcessed(state.iterations());
}
template <class Table>
void Hit(benchmark::State &state) {
    static Table &shared = *common_table<Table>();
    hit(state, shared);
}
// Each thread with a table of its own: what the machine gives to threads that share nothing.
template <class Table>
void HitApart(benchmark::State &state) {
    const std::unique_ptr<Table> own(common_table<Table>());
    hit(state, *own);
}

#define KIV_TABLES(benchmark_name, options)          \
    BENCHMARK_TEMPLATE(benchmark_name, Kiv) options; \
    KIV_PEERS(benchmark_name, options)
#ifdef HAVE_ABSEIL
#define KIV_ABSEIL(benchmark_name, options) BENCHMARK_TEMPLATE(benchmark_name, AbslSet) options;
#else
#define KIV_ABSEIL(benchmark_name, options)
#endif
#ifdef HAVE_BOOST
#define KIV_BOOST(benchmark_name, options) BENCHMARK_TEMPLATE(benchmark_name, BoostSet) options;
#else
#define KIV_BOOST(benchmark_name, options)
#endif
#ifdef HAVE_GLIB
#define KIV_GLIB(benchmark_name, options) BENCHMARK_TEMPLATE(benchmark_name, GlibIntern) options;
#else
#define KIV_GLIB(benchmark_name, options)
#endif
#define KIV_PEERS(benchmark_name, options) \
    KIV_ABSEIL(benchmark_name, options)    \
    KIV_BOOST(benchmark_name, options)     \
    KIV_GLIB(benchmark_name, options)      \
    BENCHMARK_TEMPLATE(benchmark_name, StdSet) options;

KIV_TABLES(InsertPrefixed, ->Iterations(1)->Unit(benchmark::kMillisecond))
KIV_TABLES(InsertMillion, ->Iterations(1)->Unit(benchmark::kMillisecond))
KIV_TABLES(Hit, )
BENCHMARK_TEMPLATE(Hit, Kiv)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_TEMPLATE(HitApart, StdSet)->ThreadRange(1, 2)->UseRealTime();

}  // namespace
}  // namespace kiv::bench
