// Eight threads in the kernel at once. What each sees is checked; the thread sanitizer checks the
// rest.
#include <kiv/attr.h>

#include <atomic>
#include <thread>

#include "kernel/internal.h"
#include "recorder.h"
#include "support/console.h"

#include <gtest/gtest.h>

namespace kiv::test {
namespace {

constexpr int thread_count = 8;
constexpr int rounds = 300;

// Starts all threads at one moment.
template <class Work>
void on_threads(Work work) {
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&ready, &work, t] {
            ++ready;
            while (ready < thread_count) {
                std::this_thread::yield();
            }
            work(t);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

struct Node {
    Object ob;
    std::atomic<int64_t> *sums;  // by inlet
    std::atomic<int64_t> *notified;
    Proxy *proxy;
    Outlet *out;
    int64_t level;
};

void node_int(Node *x, int64_t value) {
    x->sums[proxy_getinlet(x)] += value;
}
void node_notify(Node *x, Symbol *, Symbol *, void *, void *) {
    ++*x->notified;
}
void node_free(Node *x) {
    object_free(x->proxy);
}

Class *node_class() {
    static Class *const c = [] {
        Class *made = class_new("node", nullptr, method(node_free), sizeof(Node), nullptr, 0);
        class_addmethod(made, method(node_int), "int", TypeLong, 0);
        class_addmethod(made, method(node_notify), "notify", TypeCant, 0);
        class_addattr(made, attr_offset_new("level", gensym("atom_long"), 0, nullptr, nullptr,
                                            offsetof(Node, level)));
        class_register(nullptr, made);
        return made;
    }();
    return c;
}

Node *node(std::atomic<int64_t> *sums, std::atomic<int64_t> *notified) {
    auto *const x = static_cast<Node *>(object_alloc(node_class()));
    x->sums = sums;
    x->notified = notified;
    x->proxy = proxy_new(x, 1, nullptr);
    x->out = intout(x);
    return x;
}

TEST(Threads, InternNamesOfTheirOwnAndNamesOfAll) {
    std::vector<std::vector<Symbol *>> shared(thread_count);
    on_threads([&shared](int t) {
        for (int i = 0; i < 20 * rounds; ++i) {
            shared[static_cast<size_t>(t)].push_back(gensym(("all" + std::to_string(i)).c_str()));
            const std::string own = std::to_string(t) + "own" + std::to_string(i);
            Symbol *const symbol = gensym(own.c_str());
            ASSERT_EQ(symbol->name, own);
            ASSERT_EQ(gensym(own.c_str()), symbol);
        }
    });
    for (const auto &names : shared) {
        EXPECT_EQ(names, shared.front());
    }
}

// One receiver for all, through its left inlet and its proxy; cords are made and cut meanwhile.
TEST(Threads, SendToOneReceiverThroughItsProxy) {
    std::atomic<int64_t> sums[2] = {};
    std::atomic<int64_t> notified{0};
    Node *const receiver = node(sums, &notified);
    on_threads([&](int t) {
        Node *const sender = node(sums, &notified);
        void *const end = t % 2 ? static_cast<void *>(receiver)
                                : static_cast<void *>(proxy_getinletptr(receiver->proxy));
        for (int i = 0; i < rounds; ++i) {
            ASSERT_EQ(outlet_add(sender->out, end), 0);
            outlet_int(sender->out, 1);
            outlet_int(sender->out, 1);
            outlet_rm(sender->out, end);
            outlet_int(sender->out, 1000000);
        }
        object_free(sender);
    });
    EXPECT_EQ(sums[0], thread_count / 2 * rounds * 2);
    EXPECT_EQ(sums[1], thread_count / 2 * rounds * 2);
    object_free(receiver);
}

// Every thread watches the shared object and one of its own, and frees what it made.
TEST(Threads, RegisterAttachSetAndNotify) {
    std::atomic<int64_t> sums[2] = {};
    std::atomic<int64_t> notified{0};
    Node *const shared = node(sums, &notified);
    object_register(nullptr, gensym("shared node"), shared);
    on_threads([&](int t) {
        Symbol *const name = gensym(("node " + std::to_string(t)).c_str());
        std::atomic<int64_t> mine{0};
        for (int i = 0; i < rounds; ++i) {
            Node *const own = node(sums, &mine);
            ASSERT_EQ(object_register(nullptr, name, own), own);
            Node *const client = node(sums, &mine);
            ASSERT_EQ(object_attach(nullptr, name, client), own);
            ASSERT_EQ(object_attach(nullptr, gensym("shared node"), client), shared);
            const int64_t before = mine;
            object_attr_setlong(own, "level"_sym, i);
            ASSERT_GT(mine, before);
            object_notify(shared, "changed"_sym, nullptr);
            object_free(client);
            object_free(own);
            ASSERT_EQ(object_findregistered(nullptr, name), nullptr);
        }
    });
    object_free(shared);
    take_texts();
}

}  // namespace
}  // namespace kiv::test
