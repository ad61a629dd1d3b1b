#include <kiv/hashtab.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kernel/internal.h"
#include "sched/internal.h"

namespace kiv::test {
namespace {

// The record of a symbol made at run time.
struct Chained {
    Symbol symbol;
    Chained *next;
};

// The chain a name belongs to, written down independently of the table.
uint32_t chain_of(const std::string &name) {
    size_t at = name.size() > 16 && name.compare(0, 4, "obj:") == 0 ? name.size() - 16 : 0;
    uint32_t hash = 1;
    for (int i = 0; i < 16 && at < name.size(); ++i, ++at) {
        const int32_t character = static_cast<signed char>(name[at]);
        hash = (hash + static_cast<uint32_t>(character)) * static_cast<uint32_t>(character);
    }
    return hash % 32749;
}

// For names that no test has made before: they live as long as the process.
std::string new_ending() {
    static int made = 0;
    return " (" + std::to_string(++made) + ")";
}

TEST(Symbol, PredefinedNamesStandInTheirOrder) {
    const struct {
        const char *name;
        int index;
    } cases[] = {{"kiv", 0},      {"new", 1}, {"#N", 2},  {"#BP", 11},
                 {"patcher", 12}, {"f", 531}, {"e", 530}, {"", 532}};
    const Symbol *first = gensym("kiv");
    for (const auto &c : cases) {
        EXPECT_EQ(gensym(c.name) - first, c.index) << c.name;
    }
    EXPECT_EQ(gensym("in9") - gensym("in1"), 8);
    EXPECT_EQ(gensym("ft1") - gensym("in9"), 1);
    EXPECT_EQ(gensym(std::string("empty").substr(5).c_str()), ""_sym);
}

TEST(Symbol, CommonTableIsSortedButForItsLastEntry) {
    void **table = common_symbols_gettable();
    EXPECT_EQ(reinterpret_cast<intptr_t>(table[0]), 500);
    const auto name = [table](int i) { return static_cast<Symbol *>(table[i])->name; };
    const std::map<int, const char *> fixed = {
        {1, "_preset"},         {2, "abbrev"},      {3, "abbrev_rowcomponent"},
        {4, "abbrev_setvalue"}, {5, "acceptsdrag"}, {1451, "zoomfactor"},
        {1452, "zorder"},       {1453, "zzz"},      {1454, "Sans Serif"}};
    for (const auto &[index, expected] : fixed) {
        EXPECT_STREQ(name(index), expected);
    }
    for (int i = 2; i <= 1453; ++i) {
        EXPECT_LT(std::strcmp(name(i - 1), name(i)), 0) << name(i - 1) << " before " << name(i);
        EXPECT_EQ(gensym(name(i)), table[i]);
    }
    EXPECT_EQ(common_symbols_gettable(), table);
}

TEST(Symbol, EqualTextsAreOneSymbol) {
    for (const char *text : {"bang", "a name of some length", "\xc3\xa9t\xc3\xa9", " "}) {
        const std::string copy = text;
        EXPECT_EQ(gensym(text), gensym(copy.c_str()));
        EXPECT_STREQ(gensym(text)->name, text);
        EXPECT_NE(static_cast<const void *>(gensym(text)->name), copy.c_str());
    }
    EXPECT_NE(gensym("Bang"), gensym("bang"));
    EXPECT_NE(gensym("some name"), gensym("some Name"));
    EXPECT_EQ(gensym(nullptr), ""_sym);
    EXPECT_EQ(gensym("never seen before")->thing, nullptr);
}

TEST(Symbol, LongNamesAreCut) {
    const std::string longest(32767, 'x');
    Symbol *whole = gensym(longest.c_str());
    EXPECT_EQ(whole->name, longest);
    EXPECT_EQ(gensym(longest.c_str()), whole);
    // A longer text equals no name, so each call makes one; the cut text finds the newest.
    Symbol *first = gensym((longest + "a").c_str());
    Symbol *second = gensym((longest + "a").c_str());
    EXPECT_NE(first, second);
    EXPECT_EQ(second->name, longest);
    EXPECT_EQ(gensym(longest.c_str()), second);
    EXPECT_STREQ(gensym("short again")->name, "short again");
}

// Two names of one chain: the later record links to the earlier, which shows the hash.
TEST(Symbol, ChainsFollowTheHash) {
    const char *families[] = {"chain-", "\xe4\xf6\xfc-", "obj:someowner-",
                              "sixteen first ones count "};
    for (const std::string family : families) {
        const std::string first = family + "0";
        const auto *older = reinterpret_cast<Chained *>(gensym(first.c_str()));
        std::string second;
        for (int i = 1; second.empty(); ++i) {
            if (std::string name = family + std::to_string(i); chain_of(name) == chain_of(first)) {
                second = name;
            }
        }
        EXPECT_EQ(reinterpret_cast<Chained *>(gensym(second.c_str()))->next, older) << second;
        EXPECT_EQ(reinterpret_cast<Chained *>(gensym(first.c_str())), older);
    }
}

// Were one long chain walked for each name, this would run into the time limit.
TEST(Symbol, NamesWithOneBeginningStayFast) {
    std::vector<Symbol *> made;
    const std::string beginning = "names that share their first characters ";
    for (int i = 0; i < 200000; ++i) {
        made.push_back(gensym((beginning + std::to_string(i)).c_str()));
    }
    for (int i = 0; i < 200000; i += 7) {
        ASSERT_EQ(gensym((beginning + std::to_string(i)).c_str()), made[static_cast<size_t>(i)]);
        ASSERT_EQ(made[static_cast<size_t>(i)]->name, beginning + std::to_string(i));
    }
}

TEST(Symbol, ThreadsInterningTheSameNamesAgree) {
    constexpr size_t thread_count = 4;
    const std::string own = new_ending();
    std::vector<std::string> names;
    for (int i = 0; i < 3000; ++i) {
        names.push_back("thread " + std::to_string(i) + own);
        names.push_back("a beginning that all threads share " + std::to_string(i) + own);
    }
    const int64_t before = symbols_count_dynamic();
    std::vector<std::vector<Symbol *>> found(thread_count);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < thread_count; ++t) {
        threads.emplace_back([&names, &mine = found[t], t] {
            std::vector<size_t> order(names.size());
            for (size_t i = 0; i < order.size(); ++i) {
                order[i] = i;
            }
            std::shuffle(order.begin(), order.end(), std::mt19937(static_cast<unsigned>(t)));
            mine.resize(names.size());
            for (const size_t i : order) {
                mine[i] = gensym(names[i].c_str());
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(found[0][i]->name, names[i]);
        for (size_t t = 1; t < thread_count; ++t) {
            ASSERT_EQ(found[t][i], found[0][i]);
        }
    }
    EXPECT_EQ(symbols_count_dynamic() - before, static_cast<int64_t>(names.size()));
}

TEST(Symbol, ContextNumberTakesThePlaceOfThreeHyphens) {
    const struct {
        int number;
        const char *text;
        const char *name;
    } cases[] = {{12, "---x", "012x"},   {7, "---foo", "007foo"}, {7, "---", "007"},
                 {7, "----x", "----x"},  {7, "--x", "--x"},       {7, "x---", "x---"},
                 {1234, "---y", "234y"}, {-5, "---z", "005z"}};
    EXPECT_EQ(utils_usecontext(5), 0);
    EXPECT_EQ(utils_contextinuse(), 1);
    for (const auto &c : cases) {
        utils_setcontext(nullptr, c.number);
        EXPECT_STREQ(gensym(c.text)->name, c.name);
        EXPECT_EQ(utils_getcontextnumber(), std::abs(c.number) % 1000);
    }
    const std::string longest = "---" + std::string(40000, 'y');
    EXPECT_EQ(std::strlen(gensym(longest.c_str())->name), 32767u);
    EXPECT_EQ(utils_usecontext(0), 1);
    EXPECT_STREQ(gensym("---x")->name, "---x");
}

TEST(Symbol, UniqueNamesAreReusedBeyondTenThousand) {
    Symbol *name = symbol_unique();
    EXPECT_EQ(std::strlen(name->name), 10u);
    EXPECT_EQ(std::strspn(name->name + 1, "0123456789"), 9u);
    EXPECT_NE(symbol_unique(), name);
    for (const char *other : {"u12345678", "u1234567890", "x123456789", "u12345678a"}) {
        symbol_unique_release(gensym(other));
    }
    std::vector<Symbol *> released;
    for (int i = 0; i < 10000; ++i) {
        released.push_back(symbol_unique());
        symbol_unique_release(released.back());
        symbol_unique_release(released.back());  // already waiting
    }
    EXPECT_EQ(std::count(released.begin(), released.end(), symbol_unique()), 0);
    symbol_unique_release(name);
    EXPECT_EQ(symbol_unique(), released.front());
    EXPECT_NE(symbol_unique(), released[1]);  // no more than 10000 wait
}

TEST(Symbol, ArraySortsByUnsignedBytes) {
    std::vector<Symbol *> symbols;
    for (const char *name : {"abc", "a", "\xc3\xa9", "B", "ab", "", "z"}) {
        symbols.push_back(gensym(name));
    }
    EXPECT_EQ(symbolarray_sort(static_cast<int32_t>(symbols.size()), symbols.data()), ErrorNone);
    std::vector<std::string> names;
    for (const Symbol *symbol : symbols) {
        names.push_back(symbol->name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"", "B", "a", "ab", "abc", "z", "\xc3\xa9"}));
    EXPECT_EQ(symbolarray_sort(1, nullptr), ErrorGeneric);
    EXPECT_EQ(symbolarray_sort(0, nullptr), ErrorNone);
}

TEST(Symbol, TranslationFallsBackToTheSymbol) {
    EXPECT_EQ(gensym_tr("yes"), gensym("yes"));
    Hashtab *table = hashtab_new(0);
    hashtab_storesym(table, gensym("yes"), gensym("ja"));
    hashtab_storesym(table, gensym("no"), nullptr);
    translation_set(table);
    EXPECT_EQ(gensym_tr("yes"), gensym("ja"));
    EXPECT_EQ(gensym_tr("no"), gensym("no"));
    EXPECT_EQ(gensym_tr("perhaps"), gensym("perhaps"));
    EXPECT_EQ(symbol_tr(nullptr), nullptr);
    translation_set(nullptr);
    object_free(table);
}

TEST(Symbol, ExhaustedMemoryLeavesTheTableWhole) {
    int failures = 0;
    const std::string text = std::string(200, 'm') + new_ending();
    const int64_t before = symbols_count_dynamic();
    for (int i = 0; i < 1000; ++i) {
        const std::string name = text + std::to_string(i);
        memory_fail_at(1);
        Symbol *symbol = gensym(name.c_str());
        memory_fail_at(0);
        if (!symbol) {
            ++failures;
            symbol = gensym(name.c_str());
        }
        ASSERT_NE(symbol, nullptr);
        ASSERT_EQ(symbol->name, name);
        ASSERT_EQ(gensym(name.c_str()), symbol);
    }
    EXPECT_EQ(symbols_count_dynamic() - before, 1000);
    EXPECT_GE(failures, 6);  // blocks of records alone
}

}  // namespace
}  // namespace kiv::test
