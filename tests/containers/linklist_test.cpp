#include <kiv/class.h>
#include <kiv/linklist.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "containers/families.h"
#include "containers/linklist_record.h"
#include "probe.h"
#include "support/console.h"

namespace kiv::test {

namespace {

void *item(intptr_t value) {
    return reinterpret_cast<void *>(value);
}

intptr_t value(const void *stored) {
    return reinterpret_cast<intptr_t>(stored);
}

using Values = std::vector<intptr_t>;

// Every kind of list, each of plain data.
enum class Kind { critical, shared, unlocked, readonly, global };

Linklist *list_of(const Values &values, Kind kind = Kind::critical) {
    Linklist *list = kind == Kind::shared     ? linklist_new_shared()
                     : kind == Kind::unlocked ? linklist_new_unlocked()
                     : kind == Kind::readonly ? linklist_new_with_readonly(1)
                                              : linklist_new();
    if (kind == Kind::global) {
        critical_free(static_cast<CriticalRef>(list->lock));
        list->lock = reinterpret_cast<void *>(UINTPTR_MAX);
    }
    linklist_flags(list, ContainerData);
    for (const intptr_t v : values) {
        linklist_append(list, item(v));
    }
    return list;
}

Values values_of(Linklist *list) {
    std::vector<void *> items(static_cast<size_t>(linklist_getsize(list)) + 1);
    const int32_t count =
        linklist_makearray(list, items.data(), static_cast<int32_t>(items.size()));
    Values values;
    for (int32_t i = 0; i < count; ++i) {
        values.push_back(value(items[static_cast<size_t>(i)]));
    }
    EXPECT_EQ(linklist_check(list), nullptr);
    return values;
}

int32_t is_smaller(void *a, void *b) {
    return value(a) < value(b);
}

int32_t tens_not_above(void *a, void *b) {
    return value(a) / 10 <= value(b) / 10;
}

int32_t tens_below(void *a, void *b) {
    return value(a) / 10 < value(b) / 10;
}

int32_t is_even(void *stored, void *) {
    return value(stored) % 2 == 0;
}

// A callback written as a lambda.
template <class Visit>
void funall(Linklist *list, Visit visit) {
    linklist_funall(
        list,
        [](void *stored, void *context) -> void * {
            (*static_cast<Visit *>(context))(stored);
            return nullptr;
        },
        &visit);
}

class EveryKind : public testing::TestWithParam<Kind> {};
INSTANTIATE_TEST_SUITE_P(Linklist, EveryKind,
                         testing::Values(Kind::critical, Kind::shared, Kind::unlocked,
                                         Kind::readonly, Kind::global));

}  // namespace

TEST_P(EveryKind, PlacesWhereTheIndexSays) {
    Linklist *list = list_of({}, GetParam());
    EXPECT_EQ(linklist_append(list, item(1)), 1);
    // Appending by index to a list answers the index of the element before the new one.
    EXPECT_EQ(linklist_insertindex(list, item(4), 99), 0);
    EXPECT_EQ(linklist_insertindex(list, item(3), 1), 1);
    EXPECT_EQ(linklist_insertindex(list, item(5), 3), 2);
    EXPECT_EQ(linklist_insertindex(list, item(9), -7), 0);
    EXPECT_EQ(values_of(list), (Values{9, 1, 3, 4, 5}));
    EXPECT_NE(linklist_insertbeforeobjptr(list, item(2), item(3)), nullptr);
    EXPECT_NE(linklist_insertafterobjptr(list, item(6), item(5)), nullptr);
    EXPECT_EQ(linklist_insertafterobjptr(list, item(6), item(77)), nullptr);
    EXPECT_NE(linklist_moveafterobjptr(list, item(9), item(6)), nullptr);
    EXPECT_NE(linklist_movebeforeobjptr(list, item(9), item(9)), nullptr);
    EXPECT_EQ(linklist_insert_sorted(list, item(7), is_smaller), 6);
    EXPECT_EQ(values_of(list), (Values{1, 2, 3, 4, 5, 6, 7, 9}));
    for (int32_t i = 0; i < 8; ++i) {
        EXPECT_EQ(linklist_objptr2index(list, linklist_getindex(list, i)), i);
    }
    EXPECT_EQ(linklist_getindex(list, -1), nullptr);
    EXPECT_EQ(linklist_getindex(list, 8), nullptr);
    EXPECT_EQ(linklist_append_if_absent(list, item(5)), 0);
    EXPECT_EQ(linklist_append_if_absent(list, item(10)), 9);
    EXPECT_EQ(linklist_deleteindex(list, 9), -1);
    EXPECT_EQ(linklist_chuckindex(list, 8), 8);
    object_free(list);
}

TEST_P(EveryKind, StepsFromItemToItemBothWays) {
    Linklist *list = list_of({1, 2, 3, 2}, GetParam());
    Values forward;
    void *at = linklist_getindex(list, 0);
    // The cursor tells the two items 2 apart: a walk from the head each time would go round.
    for (; at && forward.size() < 9; linklist_next(list, at, &at)) {
        forward.push_back(value(at));
    }
    EXPECT_EQ(forward, (Values{1, 2, 3, 2}));
    linklist_last(list, &at);
    linklist_prev(list, at, &at);
    EXPECT_EQ(value(at), 3);
    // A cursor on an element that goes away must not be followed.
    linklist_chuckobject(list, item(3));
    linklist_prev(list, item(2), &at);
    EXPECT_EQ(value(at), 1);
    EXPECT_EQ(linklist_next(nullptr, item(1), &at), 0);
    EXPECT_EQ(at, nullptr);
    object_free(list);
}

TEST_P(EveryKind, ReordersWithoutLosingItems) {
    struct Case {
        Values before;
        void (*change)(Linklist *);
        Values after;
    };
    const Case cases[] = {
        {{1, 2, 3}, [](Linklist *l) { linklist_rotate(l, 1); }, {3, 1, 2}},
        {{1, 2, 3}, [](Linklist *l) { linklist_rotate(l, -1); }, {2, 3, 1}},
        {{1, 2, 3}, [](Linklist *l) { linklist_rotate(l, -5); }, {3, 1, 2}},
        {{1, 2, 3}, [](Linklist *l) { linklist_rotate(l, INT32_MIN); }, {3, 1, 2}},
        {{1}, [](Linklist *l) { linklist_rotate(l, 1); }, {1}},
        {{1, 2, 3}, [](Linklist *l) { linklist_reverse(l); }, {3, 2, 1}},
        {{1, 2, 3}, [](Linklist *l) { linklist_swap(l, 0, 2); }, {3, 2, 1}},
        {{1, 2, 3}, [](Linklist *l) { linklist_swap(l, 0, 3); }, {1, 2, 3}},
        {{1, 2, 3}, [](Linklist *l) { linklist_substitute(l, 1, item(8)); }, {1, 8, 3}},
        {{31, 11, 32, 12, 21},
         [](Linklist *l) { linklist_sort(l, tens_not_above); },
         {11, 12, 21, 31, 32}},
        {{31, 11, 32, 12, 21, 33},
         [](Linklist *l) { linklist_sort(l, tens_below); },
         {12, 11, 21, 33, 32, 31}},
        {{}, [](Linklist *l) { linklist_sort(l, tens_below); }, {}},
        {{1, 2, 3, 4}, [](Linklist *l) { linklist_prune(l, is_even, nullptr, 0); }, {1, 3}},
    };
    for (const Case &c : cases) {
        Linklist *list = list_of(c.before, GetParam());
        c.change(list);
        EXPECT_EQ(values_of(list), c.after) << "case " << &c - cases;
        object_free(list);
    }
    Linklist *list = list_of({1, 2, 3, 4, 5, 6}, GetParam());
    linklist_shuffle(list);
    Values shuffled = values_of(list);
    std::ranges::sort(shuffled);
    EXPECT_EQ(shuffled, (Values{1, 2, 3, 4, 5, 6}));
    object_free(list);
}

TEST_P(EveryKind, FindsAndStops) {
    Linklist *list = list_of({1, 2, 3, 4}, GetParam());
    void *found = nullptr;
    EXPECT_EQ(linklist_findfirst(list, &found, is_even, nullptr), 1);
    EXPECT_EQ(value(found), 2);
    EXPECT_EQ(linklist_findfirst(list, &found, linklist_match, item(9)), -1);
    EXPECT_EQ(found, nullptr);
    Linklist *all = nullptr;
    linklist_findall(list, &all, is_even, nullptr);
    EXPECT_EQ(values_of(all), (Values{2, 4}));
    EXPECT_EQ(linklist_getflags(all), 0);
    linklist_chuck(all);
    linklist_findall(list, &all, linklist_match, item(9));
    EXPECT_EQ(all, nullptr);
    Values seen;
    const auto until_three = [](void *stored, void *context) {
        static_cast<Values *>(context)->push_back(value(stored));
        return item(value(stored) == 3);
    };
    EXPECT_EQ(linklist_funall_break(list, until_three, &seen), 1);
    EXPECT_EQ(seen, (Values{1, 2, 3}));
    EXPECT_EQ(value(linklist_funindex(list, 2, until_three, &seen)), 1);
    EXPECT_EQ(linklist_funindex(list, 4, until_three, &seen), nullptr);
    object_free(list);
}

TEST(Linklist, FreesItemsAsTheFlagsSay) {
    struct Case {
        int64_t list_flags;
        int64_t item_flags;
        bool freed;
    };
    const Case cases[] = {{0, 0, true},
                          {0, ContainerReference, false},
                          {0, ContainerData, false},
                          {ContainerReference, 0, false},
                          {ContainerData, 0, false}};
    void (*const ways[])(Linklist *) = {
        [](Linklist *list) { linklist_deleteindex(list, 0); },
        [](Linklist *list) { linklist_clear(list); },
        [](Linklist *list) { linklist_deleteobject(list, linklist_getindex(list, 0)); },
        [](Linklist *list) { linklist_prune(list, linklist_match, linklist_getindex(list, 0), 0); },
    };
    for (const Case &c : cases) {
        for (const auto &way : ways) {
            Linklist *list = linklist_new();
            Probe *probe = probe_new();
            linklist_append(list, probe);
            linklist_flags(list, c.list_flags);
            object_method(list, "objptrflags"_sym, probe, c.item_flags);
            EXPECT_EQ(value(object_method(list, "getobjptrflags"_sym, probe)), c.item_flags);
            probes_freed = 0;
            way(list);
            EXPECT_EQ(probes_freed, c.freed) << "case " << &c - cases << " way " << &way - ways;
            EXPECT_EQ(linklist_getsize(list), 0);
            if (!c.freed) {
                object_free(probe);
            }
            object_free(list);
        }
    }
    // Memory blocks, and what is never freed.
    const int64_t blocks = memory_live_blocks();
    Linklist *list = linklist_new();
    linklist_flags(list, ContainerMemory);
    linklist_append(list, sysmem_newptr(8));
    object_free(list);
    probes_freed = 0;
    list = linklist_new();
    Probe *probe = probe_new();
    linklist_append(list, probe);
    linklist_chuckindex(list, 0);
    LinklistElement *element = linklist_append_element(list, probe);
    EXPECT_EQ(linklist_chuckptr(list, element), 0);
    linklist_append(list, probe);
    linklist_prune(list, linklist_match, probe, 1);
    linklist_append(list, probe);
    linklist_chuck(list);
    EXPECT_EQ(probes_freed, 0);
    object_free(probe);
    EXPECT_EQ(memory_live_blocks(), blocks);
}

TEST(Linklist, PostponesDeletionWhileIterating) {
    Linklist *list = list_of({1, 2, 3, 4, 5});
    Values seen;
    funall(list, [&](void *stored) {
        seen.push_back(value(stored));
        if (value(stored) == 2) {
            EXPECT_EQ(linklist_deleteindex(list, 3), -1);
            EXPECT_EQ(linklist_deleteobject(list, item(1)), 0);
            EXPECT_EQ(linklist_getsize(list), 5);
            EXPECT_EQ(linklist_getindex(list, 3), nullptr);
            EXPECT_EQ(linklist_objptr2index(list, item(5)), 4);
            // What is gone is passed over, and comparisons never see it.
            void *next = nullptr;
            linklist_next(list, item(3), &next);
            EXPECT_EQ(value(next), 5);
            linklist_sort(list, is_smaller);
            // The current one goes at once.
            EXPECT_EQ(linklist_deleteobject(list, item(2)), 0);
            EXPECT_EQ(linklist_getsize(list), 4);
            EXPECT_EQ(value(object_method(list, "isiterating"_sym)), 1);
        }
    });
    EXPECT_EQ(seen.front(), 1);
    EXPECT_EQ(std::ranges::count(seen, 4), 0);
    EXPECT_EQ(values_of(list), (Values{3, 5}));
    EXPECT_EQ(linklist_getsize(list), 2);
    object_free(list);
}

// An inner iteration may delete, as its current element, the one that the outer visits next.
TEST(Linklist, NestedIterationsSurviveDeletionOfEachOthersElements) {
    Linklist *list = list_of({1, 2, 3, 4});
    Values outer;
    funall(list, [&](void *stored) {
        outer.push_back(value(stored));
        if (value(stored) == 1) {
            funall(list, [&](void *inner) {
                if (value(inner) <= 2) {
                    linklist_deleteobject(list, inner);
                }
            });
            EXPECT_EQ(linklist_check(list), nullptr);
        }
    });
    EXPECT_EQ(outer, (Values{1, 3, 4}));
    EXPECT_EQ(values_of(list), (Values{3, 4}));
    object_free(list);
}

TEST(Linklist, ClearNeverWaitsForAnIteration) {
    const int64_t blocks = memory_live_blocks();
    Linklist *list = list_of({1, 2, 3});
    Values seen;
    funall(list, [&](void *stored) {
        seen.push_back(value(stored));
        linklist_clear(list);
        EXPECT_EQ(linklist_getsize(list), 0);
        linklist_append(list, item(7));
    });
    EXPECT_EQ(seen, (Values{1}));
    EXPECT_EQ(values_of(list), (Values{7}));
    object_free(list);
    EXPECT_EQ(memory_live_blocks(), blocks);
}

TEST(Linklist, MayBeFreedFromItsOwnCallbacks) {
    object_free(probe_new());  // makes the class
    const int64_t blocks = memory_live_blocks();
    Linklist *list = list_of({1, 2, 3});
    funall(list, [&](void *) { funall(list, [&](void *) { object_free(list); }); });
    list = list_of({1, 2, 3});
    const auto free_list = [](void *, void *context) -> int32_t {
        object_free(context);
        return 1;
    };
    linklist_prune(list, free_list, list, 0);
    // An item that frees its list, by each way of being freed.
    const auto free_owner = [](Probe *probe) { object_free(probe->context); };
    void (*const ways[])(Linklist *) = {[](Linklist *l) { linklist_clear(l); },
                                        [](Linklist *l) { linklist_deleteindex(l, 0); },
                                        [](Linklist *l) { object_free(l); }};
    for (const auto &way : ways) {
        list = linklist_new();
        for (int i = 0; i < 2; ++i) {
            Probe *probe = probe_new();
            probe->on_free = i == 0 ? +free_owner : nullptr;
            probe->context = list;
            linklist_append(list, probe);
        }
        way(list);
    }
    EXPECT_EQ(memory_live_blocks(), blocks);
    take_texts();
}

TEST(Linklist, FreesDeeplyNestedListsWithoutDeepStack) {
    Linklist *outermost = linklist_new();
    Linklist *list = outermost;
    for (int i = 0; i < 100000; ++i) {
        Linklist *inner = linklist_new();
        linklist_append(list, inner);
        list = inner;
    }
    probes_freed = 0;
    linklist_append(list, probe_new());
    object_free(outermost);
    EXPECT_EQ(probes_freed, 1);
}

TEST(Linklist, StaysAsItWasWithoutMemory) {
    Linklist *list = list_of({1, 2});
    int32_t (*const ways[])(Linklist *) = {
        [](Linklist *l) { return linklist_append(l, item(3)); },
        [](Linklist *l) { return linklist_insertindex(l, item(3), 0); },
        [](Linklist *l) { return linklist_insert_sorted(l, item(3), is_smaller); },
        [](Linklist *l) { return linklist_insertafterobjptr(l, item(3), item(1)) ? 0 : -1; }};
    for (const auto &way : ways) {
        memory_fail_at(1);
        EXPECT_EQ(way(list), -1);
        memory_fail_at(0);
        EXPECT_EQ(values_of(list), (Values{1, 2}));
    }
    object_free(list);
    for (int64_t n = 1; n <= 2; ++n) {
        const int64_t blocks = memory_live_blocks();
        memory_fail_at(n);
        EXPECT_EQ(linklist_new(), nullptr);
        memory_fail_at(0);
        EXPECT_EQ(memory_live_blocks(), blocks);
    }
}

TEST(Linklist, ReadOnlyKeepsOtherThreadsOut) {
    Linklist *list = list_of({1});
    linklist_readonly(list, 1);
    linklist_readonly(list, 1);
    const auto others_enter = [&] {
        bool entered = false;
        std::thread([&] {
            auto *lock = static_cast<CriticalRef>(list->lock);
            entered = critical_tryenter(lock) != 0;
            if (entered) {
                critical_exit(lock);
            }
        }).join();
        return entered;
    };
    EXPECT_FALSE(others_enter());
    linklist_readonly(list, 0);
    EXPECT_TRUE(others_enter());
    object_free(list);
    list = linklist_new_with_readonly(1);
    EXPECT_EQ(list->lock, nullptr);
    linklist_readonly(list, 0);
    EXPECT_NE(list->lock, nullptr);
    object_free(list);
}

// Threads append, delete, iterate and step at the same time; nothing is lost or seen twice.
TEST(Linklist, SharedByThreads) {
    for (const Kind kind : {Kind::critical, Kind::shared, Kind::global}) {
        Linklist *list = list_of({}, kind);
        std::vector<std::thread> threads;
        for (intptr_t t = 1; t <= 4; ++t) {
            threads.emplace_back([list, t] {
                for (intptr_t i = 0; i < 300; ++i) {
                    void *mine = item(t * 1000 + i);
                    linklist_append(list, mine);
                    void *next = nullptr;
                    linklist_next(list, mine, &next);
                    if (i % 3 == 0) {
                        funall(list, [=](void *stored) {
                            if (stored == mine) {
                                linklist_deleteobject(list, mine);
                            }
                        });
                    }
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(values_of(list).size(), 4u * 200u);
        object_free(list);
    }
}

TEST(Linklist, RunsLikeAVector) {
    const unsigned seed = 20240611;
    std::mt19937 random(seed);
    Linklist *list = list_of({});
    Values model;
    for (intptr_t step = 1; step <= 4000; ++step) {
        const auto size = static_cast<int32_t>(model.size());
        const auto index = static_cast<int32_t>(random() % static_cast<unsigned>(size + 2)) - 1;
        const bool inside = index >= 0 && index < size;
        switch (random() % 6) {
            case 0:
            case 1:
                linklist_insertindex(list, item(step), index);
                model.insert(model.begin() + std::clamp(index, 0, size), step);
                break;
            case 2:
                EXPECT_EQ(linklist_deleteindex(list, index), inside ? index : -1);
                if (inside) {
                    model.erase(model.begin() + index);
                }
                break;
            case 3:
                EXPECT_EQ(value(linklist_getindex(list, index)),
                          inside ? model[static_cast<size_t>(index)] : 0);
                break;
            case 4: {
                linklist_rotate(list, index);
                const int32_t lead = size > 0 ? ((-index % size) + size) % size : 0;
                std::ranges::rotate(model, model.begin() + lead);
                break;
            }
            default:
                if (random() % 8 == 0) {
                    linklist_sort(list, is_smaller);
                    std::ranges::sort(model);
                } else {
                    linklist_reverse(list);
                    std::ranges::reverse(model);
                }
        }
        ASSERT_EQ(values_of(list), model) << "seed " << seed << " step " << step;
    }
    object_free(list);
}

}  // namespace kiv::test
