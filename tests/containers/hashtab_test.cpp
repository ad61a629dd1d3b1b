#include <kiv/class.h>
#include <kiv/hashtab.h>
#include <kiv/linklist.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "containers/families.h"
#include "containers/hashtab_record.h"
#include "probe.h"
#include "support/console.h"

namespace kiv::test {

namespace {

// A client: what it is notified of, and what it then does.
struct Client {
    Object ob;
    std::vector<std::string> *heard;
    void (*react)(void *table);
};

void client_notify(Client *client, Symbol *, Symbol *message, void *sender, void *data) {
    const auto *key = static_cast<Symbol *>(data);
    client->heard->push_back(std::string(message->name) + (key ? " " : "") +
                             (key ? key->name : ""));
    if (client->react) {
        client->react(sender);
    }
}

void *probe_answer(Probe *probe, void *context) {
    static_cast<std::vector<void *> *>(context)->push_back(probe);
    return nullptr;
}

Client *client_of(Hashtab *table, std::vector<std::string> *heard) {
    static Class *const c = [] {
        Class *made = class_new("hashtab client", nullptr, nullptr, sizeof(Client), nullptr, 0);
        class_addmethod(made, method(client_notify), "notify", TypeCant, 0);
        return made;
    }();
    auto *client = static_cast<Client *>(object_alloc(c));
    client->heard = heard;
    object_attach_byptr_register(client, table, "hashtab test"_sym);
    heard->clear();
    return client;
}

// Keys in one slot of any table, so that its list grows long.
Symbol *key(size_t number, int32_t slot_count = 59) {
    return reinterpret_cast<Symbol *>(0x10000 * static_cast<size_t>(slot_count) * (number + 1));
}

Symbol *name(const std::string &text) {
    return gensym(text.c_str());
}

void *look_up(Hashtab *table, Symbol *k) {
    void *value = nullptr;
    hashtab_lookup(table, k, &value);
    return value;
}

template <class Visit>
void funall(Hashtab *table, Visit visit) {
    hashtab_funall(
        table,
        [](HashtabEntry *entry, void *context) -> void * {
            (*static_cast<Visit *>(context))(entry);
            return nullptr;
        },
        &visit);
}

}  // namespace

TEST(Hashtab, HasAnOddNumberOfSlots) {
    const std::pair<int32_t, int32_t> cases[] = {{0, 59}, {-5, 59}, {60, 61}, {101, 101}, {1, 1}};
    for (const auto &[asked, given] : cases) {
        Hashtab *table = hashtab_new(asked);
        EXPECT_EQ(table->slot_count, given);
        object_free(table);
    }
}

// Which values are freed: when replaced, when deleted, when the table is cleared.
TEST(Hashtab, FreesValuesAsTheFlagsSay) {
    struct Case {
        int32_t table_flags;
        int32_t entry_flags;
        bool replaced, deleted, cleared;
    };
    const Case cases[] = {
        {0, 0, true, true, true},
        {0, ContainerReference, false, false, false},
        {ContainerData, 0, false, false, false},
        {0, ContainerMemory, true, true, true},
        // As said of replacing and of destroying: they ask the bits in a different order.
        {0, ContainerReference | ContainerMemory, false, false, true},
    };
    for (const Case &c : cases) {
        const bool memory = (c.entry_flags & ContainerMemory) != 0;
        for (int way = 0; way < 4; ++way) {
            Hashtab *table = hashtab_new(0);
            hashtab_flags(table, c.table_flags);
            void *value = memory ? sysmem_newptr(8) : probe_new();
            hashtab_storeflags(table, "k"_sym, value, c.entry_flags);
            EXPECT_EQ(hashtab_getkeyflags(table, "k"_sym), c.entry_flags);
            probes_freed = 0;
            const int64_t blocks = memory_live_blocks();
            bool freed = false;
            if (way == 0) {
                hashtab_storeflags(table, "k"_sym, nullptr, ContainerData);
                freed = c.replaced;
                EXPECT_EQ(memory_live_blocks(), blocks - freed);
            } else if (way == 1) {
                EXPECT_EQ(hashtab_delete(table, "k"_sym), 0);
                freed = c.deleted;
            } else if (way == 2) {
                hashtab_clear(table);
                freed = c.cleared;
            } else {
                EXPECT_EQ(hashtab_chuckkey(table, "k"_sym), 0);
            }
            EXPECT_EQ(probes_freed, freed && !memory) << &c - cases << " way " << way;
            if (!freed) {
                memory ? sysmem_freeptr(value) : freeobject(value);
            }
            EXPECT_EQ(hashtab_check(table), nullptr);
            object_free(table);
        }
    }
}

TEST(Hashtab, AnswersForAbsentKeysAndNullArguments) {
    Hashtab *table = hashtab_new(0);
    auto *value = reinterpret_cast<void *>(1);
    int32_t flags = 7;
    EXPECT_EQ(hashtab_lookup(table, "a"_sym, nullptr), -1);
    EXPECT_EQ(hashtab_lookupflags(table, "a"_sym, &value, &flags), -1);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(hashtab_delete(table, "a"_sym), -1);
    EXPECT_EQ(hashtab_chuckkey(table, "a"_sym), -1);
    EXPECT_EQ(hashtab_keyflags(table, "a"_sym, 1), -1);
    EXPECT_EQ(hashtab_store(nullptr, "a"_sym, table), -1);
    int32_t count = 3;
    Symbol **keys = nullptr;
    EXPECT_EQ(hashtab_getkeys(table, &count, &keys), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(keys, nullptr);
    // A null key is a key.
    hashtab_storelong(table, nullptr, -5);
    int64_t number = 0;
    EXPECT_EQ(hashtab_lookuplong(table, nullptr, &number), 0);
    EXPECT_EQ(number, -5);
    hashtab_storesym(table, "a"_sym, "b"_sym);
    EXPECT_EQ(look_up(table, "a"_sym), "b"_sym);
    EXPECT_EQ(hashtab_store_safe(table, "a"_sym, "c"_sym), 0);
    EXPECT_EQ(hashtab_getkeyflags(table, "a"_sym), ContainerData);
    Symbol *few[1] = {};
    keys = few;
    count = 1;
    hashtab_getkeys(table, &count, &keys);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(few[0], nullptr) << "slot 0 comes first";
    object_free(table);
}

// A slot with 2000 keys has an index by then; with duplicates the oldest entry is found.
TEST(Hashtab, LongSlotsFindTheOldestOfDuplicates) {
    Hashtab *table = hashtab_new(0);
    const auto value = [](size_t n) { return reinterpret_cast<void *>(n); };
    for (size_t round = 1; round <= 2; ++round) {
        for (size_t n = 0; n < 1000; ++n) {
            hashtab_storeflags(table, key(n), value(round * 10000 + n),
                               ContainerData | ContainerDuplicate);
        }
    }
    EXPECT_EQ(hashtab_getsize(table), 2000);
    EXPECT_EQ(hashtab_getkeyflags(table, key(5)), ContainerData);
    ASSERT_EQ(hashtab_check(table), nullptr);
    for (size_t n = 0; n < 1000; ++n) {
        EXPECT_EQ(look_up(table, key(n)), value(10000 + n));
        hashtab_delete(table, key(n));
        EXPECT_EQ(look_up(table, key(n)), value(20000 + n));
    }
    EXPECT_EQ(hashtab_check(table), nullptr);
    object_free(table);
}

TEST(Hashtab, RunsLikeAMap) {
    const unsigned seed = 4711;
    std::mt19937 random(seed);
    Hashtab *table = hashtab_new(3);
    std::map<Symbol *, int64_t> model;
    for (int64_t step = 0; step < 20000; ++step) {
        Symbol *k = key(random() % 400, 1);
        int64_t found = 0;
        switch (random() % 4) {
            case 0:
            case 1:
                hashtab_storelong(table, k, step);
                model[k] = step;
                break;
            case 2:
                EXPECT_EQ(hashtab_delete(table, k), model.erase(k) ? 0 : -1);
                break;
            default:
                EXPECT_EQ(hashtab_lookuplong(table, k, &found), model.contains(k) ? 0 : -1);
                EXPECT_EQ(found, model.contains(k) ? model[k] : 0);
        }
        if (step % 500 == 0) {
            ASSERT_EQ(hashtab_check(table), nullptr) << "seed " << seed << " step " << step;
            ASSERT_EQ(hashtab_getsize(table), static_cast<int32_t>(model.size()));
        }
        if (step % 7000 == 6999) {
            hashtab_clear(table);
            model.clear();
        }
    }
    object_free(table);
}

TEST(Hashtab, WalksInKeyOrderAndSorted) {
    for (const int32_t slots : {0, 1}) {  // in one slot, entries get each other's memory
        Hashtab *table = hashtab_new(slots);
        for (const char *text : {"delta", "alpha", "charlie", "bravo"}) {
            hashtab_storesym(table, gensym(text), gensym(text));
        }
        int32_t count = 0;
        Symbol **keys = nullptr;
        hashtab_getkeys(table, &count, &keys);
        std::vector<Symbol *> walked;
        funall(table,
               [&](HashtabEntry *entry) { walked.push_back(static_cast<Symbol *>(entry->key)); });
        EXPECT_EQ(walked, std::vector<Symbol *>(keys, keys + count));
        sysmem_freeptr(keys);
        // The first visited removes the second, and adds one that is not visited.
        std::string order;
        struct Context {
            Hashtab *table;
            std::string *order;
        } context{table, &order};
        const auto visit = [](HashtabEntry *entry, void *arg) {
            const auto *c = static_cast<Context *>(arg);
            c->order->append(static_cast<Symbol *>(entry->key)->name).append(" ");
            hashtab_delete(c->table, "bravo"_sym);
            hashtab_storesym(c->table, "aaa"_sym, "aaa"_sym);
            return nullptr;
        };
        const auto by_name = [](HashtabEntry *a, HashtabEntry *b) -> int32_t {
            return std::string(static_cast<Symbol *>(a->key)->name) <
                   static_cast<Symbol *>(b->key)->name;
        };
        object_method(table, "funall_sorted"_sym, +visit, &context, +by_name);
        EXPECT_EQ(order, "alpha charlie delta ");
        auto *list = static_cast<Linklist *>(object_method(table, "tolinklist"_sym));
        EXPECT_EQ(linklist_getsize(list), 4);
        linklist_chuck(list);
        object_free(table);
    }
}

TEST(Hashtab, SendsToLiveObjectsOnly) {
    Hashtab *table = hashtab_new(0);
    class_addmethod(probe_class(), method(probe_answer), "answer", TypeCant, 0);
    Probe *alive = probe_new();
    Probe *referred = probe_new();
    Probe *data = probe_new();
    hashtab_store(table, "alive"_sym, alive);
    hashtab_storeflags(table, "referred"_sym, referred, ContainerReference);
    hashtab_storeflags(table, "data"_sym, data, ContainerData);
    hashtab_store(table, "null"_sym, nullptr);
    hashtab_store(table, "number"_sym, reinterpret_cast<void *>(12345));
    std::vector<void *> answered;
    hashtab_methodall(table, "answer"_sym, &answered);
    std::ranges::sort(answered);
    std::vector<void *> expected{alive, referred};
    std::ranges::sort(expected);
    EXPECT_EQ(answered, expected);
    answered.clear();
    const auto visit = [](void *value, void *arg) -> void * {
        static_cast<std::vector<void *> *>(arg)->push_back(value);
        return nullptr;
    };
    hashtab_objfunall(table, visit, &answered);
    EXPECT_EQ(answered.size(), 3u);
    void *found = nullptr;
    const auto is = [](void *value, void *arg) -> int32_t { return value == arg; };
    EXPECT_EQ(hashtab_findfirst(table, &found, is, data), 0);
    EXPECT_EQ(found, data);
    EXPECT_EQ(hashtab_findfirst(table, &found, is, table), -1);
    probes_freed = 0;
    object_free(table);
    EXPECT_EQ(probes_freed, 1);
    object_free(referred);
    object_free(data);
}

TEST(Hashtab, NotifiesItsClients) {
    std::vector<std::string> heard;
    Hashtab *table = hashtab_new(0);
    Client *client = client_of(table, &heard);
    hashtab_storelong(table, "a"_sym, 1);
    hashtab_storelong(table, "a"_sym, 2);
    hashtab_store_safe(table, "b"_sym, nullptr);
    hashtab_storeflags(table, "quiet"_sym, nullptr, ContainerNoNotify);
    hashtab_delete(table, "quiet"_sym);
    hashtab_delete(table, "a"_sym);
    hashtab_chuckkey(table, "b"_sym);
    hashtab_clear(table);
    EXPECT_EQ(heard, (std::vector<std::string>{"hashtab_entry_new a", "hashtab_entry_new a",
                                               "hashtab_entry_new b", "hashtab_entry_free a",
                                               "hashtab_entry_free b", "hashtab_free"}));
    heard.clear();
    hashtab_flags(table, ContainerNoNotify);
    hashtab_storelong(table, "c"_sym, 1);
    hashtab_clear(table);
    EXPECT_TRUE(heard.empty());
    object_free(table);
    object_free(client);
}

TEST(Hashtab, MayBeClearedOrFreedWhereverItCallsOut) {
    object_free(probe_new());  // makes the class
    for (int i = 0; i < 100; ++i) {
        name("end" + std::to_string(i));  // symbols stay
    }
    const int64_t blocks = memory_live_blocks();
    void (*const ends[])(void *) = {
        [](void *table) { hashtab_clear(static_cast<Hashtab *>(table)); },
        [](void *table) { object_free(table); }};
    for (const auto &end : ends) {
        const bool frees = &end != ends;
        for (int way = 0; way < 6; ++way) {
            Hashtab *table = hashtab_new(0);
            for (int i = 0; i < 100; ++i) {
                hashtab_storelong(table, name("end" + std::to_string(i)), i);
            }
            Probe *probe = probe_new();
            struct Context {
                Hashtab *table;
                void (*end)(void *);
                bool done;
            } context{table, end, false};
            probe->context = &context;
            probe->on_free = [](Probe *freed) {
                auto *c = static_cast<Context *>(freed->context);
                if (!std::exchange(c->done, true)) {
                    c->end(c->table);
                }
            };
            hashtab_store(table, "probe"_sym, probe);
            const auto visit = [](HashtabEntry *, void *arg) -> void * {
                auto *c = static_cast<Context *>(arg);
                if (!std::exchange(c->done, true)) {
                    c->end(c->table);
                }
                return nullptr;
            };
            const auto no_order = [](HashtabEntry *, HashtabEntry *) -> int32_t { return 1; };
            if (way == 0) {
                hashtab_funall(table, visit, &context);
            } else if (way == 1) {
                hashtab_funall_sorted(table, visit, &context,
                                      reinterpret_cast<LinklistCompare>(+no_order));
            } else if (way == 2) {
                hashtab_delete(table, "probe"_sym);
            } else if (way == 3) {
                hashtab_store(table, "probe"_sym, nullptr);
            } else if (way == 4) {
                hashtab_clear(table);
            } else {
                object_free(table);
                continue;
            }
            if (!frees) {
                EXPECT_EQ(hashtab_check(table), nullptr);
                object_free(table);
            }
        }
    }
    EXPECT_EQ(memory_live_blocks(), blocks);
    take_texts();
}

TEST(Hashtab, AClientMayChangeTheTableItIsToldOf) {
    void (*const reactions[])(void *) = {
        [](void *t) { hashtab_clear(static_cast<Hashtab *>(t)); },
        [](void *t) { object_free(t); },
        [](void *t) { hashtab_flags(static_cast<Hashtab *>(t), ContainerNoNotify); },
    };
    for (const auto &reaction : reactions) {
        std::vector<std::string> heard;
        Hashtab *table = hashtab_new(0);
        hashtab_storelong(table, "a"_sym, 1);
        Client *client = client_of(table, &heard);
        client->react = [](void *) {};
        static void (*now)(void *);
        now = reaction;
        client->react = [](void *t) {
            if (auto *once = std::exchange(now, nullptr)) {
                once(t);
            }
        };
        EXPECT_EQ(hashtab_delete(table, "a"_sym), 0);
        if (object_isvalid(table)) {
            EXPECT_EQ(hashtab_getsize(table), 0);
            object_free(table);
        }
        object_free(client);
    }
    take_texts();
}

TEST(Hashtab, LosesNothingWithoutMemory) {
    for (int64_t n = 1; n < 40; ++n) {
        const int64_t blocks = memory_live_blocks();
        Hashtab *table = hashtab_new(1);
        memory_fail_at(n);
        for (size_t i = 0; i < 20; ++i) {
            hashtab_storelong(table, key(i), static_cast<int64_t>(i + 1));
        }
        memory_fail_at(0);
        EXPECT_EQ(hashtab_check(table), nullptr);
        int32_t stored = 0;
        for (size_t i = 0; i < 20; ++i) {
            stored += look_up(table, key(i)) == reinterpret_cast<void *>(i + 1);
        }
        EXPECT_GE(stored, 19) << "only the one store may be lost";
        EXPECT_EQ(stored, hashtab_getsize(table));
        object_free(table);
        EXPECT_EQ(memory_live_blocks(), blocks);
    }
    take_texts();
}

TEST(Hashtab, EntriesOfReferencesOutliveTheirTable) {
    Hashtab *table = hashtab_new(0);
    HashtabEntry *entries[3] = {};
    for (int i = 0; i < 3; ++i) {
        Symbol *k = name("kept" + std::to_string(i));
        hashtab_store(table, k, linklist_new());
        void *owned = look_up(table, k);
        hashtab_keyflags(table, k, ContainerReference);
        EXPECT_EQ(hashtab_lookupentry(table, k, &entries[i]), 0);
        object_free(owned);
    }
    hashtab_delete(table, "kept0"_sym);
    hashtab_chuckkey(table, "kept1"_sym);
    object_free(table);
    for (HashtabEntry *entry : entries) {
        EXPECT_EQ(entry->owner, nullptr);
        EXPECT_EQ(object_free(entry), 0);
    }
}

TEST(Hashtab, SharedByThreads) {
    Hashtab *table = hashtab_new(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([table, t] {
            for (size_t i = 0; i < 2000; ++i) {
                Symbol *k = key(i * 4 + static_cast<size_t>(t), i % 2 ? 59 : 1);
                hashtab_storelong(table, k, static_cast<int64_t>(i) + 1);
                EXPECT_EQ(look_up(table, k), reinterpret_cast<void *>(i + 1));
                if (i % 2) {
                    EXPECT_EQ(hashtab_delete(table, k), 0);
                }
                if (i % 500 == 0) {
                    // Only counts: another thread may free the entry meanwhile.
                    int32_t count = 0;
                    hashtab_funall(
                        table,
                        [](HashtabEntry *, void *counted) -> void * {
                            ++*static_cast<int32_t *>(counted);
                            return nullptr;
                        },
                        &count);
                    EXPECT_GE(count, static_cast<int32_t>(i) / 2);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(hashtab_getsize(table), 4000);
    EXPECT_EQ(hashtab_check(table), nullptr);
    object_free(table);
}

TEST(Hashtab, PrintsItsSlots) {
    Hashtab *table = hashtab_new(3);
    for (size_t i = 0; i < 3; ++i) {
        hashtab_storelong(table, key(i, 3), 0);
    }
    hashtab_storelong(table, reinterpret_cast<Symbol *>(1), 0);
    take_texts();
    hashtab_print(table);
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"slot[0] contains 3 entries", "slot[1] contains 1 entries",
                                        "total size is 4 entries", "using 2 out of 3 slots",
                                        "average entries per non-empty slot is 2.000000",
                                        "maximum entries in a slot is 3"}));
    object_free(table);
}

}  // namespace kiv::test
