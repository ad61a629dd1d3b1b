// The registry: names, registration counts, attachments, subscriptions and notifications.
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "kernel/internal.h"
#include "support/console.h"

using namespace kiv;
using namespace kiv::literals;
using kiv::test::take_texts;

namespace {

using Texts = std::vector<std::string>;

// What the clients were told: "client:message(name)".
std::string told;
std::function<void(void *client, Symbol *message)> on_notify;

struct Client {
    Object ob;
    char letter;
};

void *client_notify(Client *client, Symbol *name, Symbol *message, void *, void *) {
    told += std::string(1, client->letter) + ":" + message->name + "(" + (name ? name->name : "") +
            ") ";
    if (on_notify) {
        on_notify(client, message);
    }
    return nullptr;
}

class Registry : public testing::Test {
  protected:
    void SetUp() override {
        class_ = make_class("registered");
        other_class_ = make_class("other");
        told.clear();
        on_notify = nullptr;
        take_texts();
    }
    void TearDown() override {
        on_notify = nullptr;
        EXPECT_EQ(class_free(class_), ErrorNone);
        EXPECT_EQ(class_free(other_class_), ErrorNone);
    }
    static Class *make_class(const char *name) {
        Class *const c = class_new(name, nullptr, nullptr, sizeof(Client), nullptr, 0);
        class_addmethod(c, reinterpret_cast<Method>(client_notify), "notify", TypeCant, 0);
        return c;
    }
    static void *make(Class *c, char letter = '?') {
        auto *const client = static_cast<Client *>(object_alloc(c));
        client->letter = letter;
        return client;
    }
    void *make(char letter) { return make(class_, letter); }
    void *make_named(char letter, Symbol *name) {
        return object_register(space_, name, make(letter));
    }

    Symbol *const space_ = "registry_test"_sym;
    Class *class_ = nullptr;
    Class *other_class_ = nullptr;
};

TEST_F(Registry, ATakenNameKeepsItsHolder) {
    void *const first = make_named('a', "name"_sym);
    void *const second = make('b');
    EXPECT_EQ(object_register(space_, "name"_sym, second), first);
    EXPECT_FALSE(object_valid(second));
    void *const stranger = make(other_class_);
    EXPECT_EQ(object_register(space_, "name"_sym, stranger), nullptr);
    EXPECT_FALSE(object_valid(stranger));
    EXPECT_EQ(object_unregister(first), ErrorGeneric);  // registered twice
    EXPECT_EQ(object_findregistered(space_, "name"_sym), first);
    EXPECT_EQ(object_unregister(first), ErrorNone);
    EXPECT_EQ(object_findregistered(space_, "name"_sym), nullptr);
    object_free(first);
    EXPECT_TRUE(object_valid(first));  // the second registration was a reference
    object_free(first);
    EXPECT_FALSE(object_valid(first));
}

TEST_F(Registry, RegisteringAgainCountsMovesOrIsRefused) {
    void *const x = make_named('a', "one"_sym);
    EXPECT_EQ(object_register(space_, "one"_sym, x), x);
    EXPECT_EQ(object_register("elsewhere"_sym, "one"_sym, x), nullptr);
    EXPECT_EQ(object_register(space_, "obj:one"_sym, x), nullptr);
    EXPECT_EQ(object_register(space_, "two"_sym, x), x);
    EXPECT_EQ(object_findregistered(space_, "one"_sym), nullptr);
    Symbol *space = nullptr;
    Symbol *name = nullptr;
    EXPECT_EQ(object_findregisteredbyptr(&space, &name, x), ErrorNone);
    EXPECT_EQ(space, space_);
    EXPECT_EQ(name, "two"_sym);
    EXPECT_EQ(object_register(space_, ""_sym, x), nullptr);  // takes one registration away
    EXPECT_EQ(object_register(space_, ""_sym, x), nullptr);
    EXPECT_NE(object_findregisteredbyptr(&space, &name, x), ErrorNone);
    EXPECT_EQ(take_texts(),
              (Texts{"object_register: object already registered in registry_test, cannot "
                     "reregister in elsewhere",
                     "object_register: trying to register object using single symbol registered "
                     "object syntax obj:one"}));
    object_free(x);
    object_free(x);
    EXPECT_FALSE(object_valid(x));
}

TEST_F(Registry, NamesOfANamespaceAreListed) {
    std::vector<void *> objects;
    for (int i = 0; i < 100; ++i) {
        objects.push_back(make_named('x', gensym(("n" + std::to_string(i)).c_str())));
    }
    int32_t count = 0;
    Symbol **names = nullptr;
    ASSERT_EQ(object_register_getnames(space_, &count, &names), ErrorNone);
    EXPECT_EQ(count, 100);
    EXPECT_NE(std::find(names, names + count, "n42"_sym), names + count);
    sysmem_freeptr(names);
    Symbol *few[3];
    names = few;
    count = 3;
    EXPECT_EQ(object_register_getnames(space_, &count, &names), ErrorNone);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(object_register_getnames("no such space"_sym, &count, &names), ErrorGeneric);
    for (void *const each : objects) {
        object_free(each);
    }
}

TEST_F(Registry, ClientsAreToldInOrderUntilTheyDetach) {
    void *const x = make_named('x', "x"_sym);
    void *const a = make('a');
    void *const b = make('b');
    EXPECT_EQ(object_attach(space_, "x"_sym, b), x);
    EXPECT_EQ(object_attach(space_, "x"_sym, a), x);
    EXPECT_EQ(object_attach(space_, "x"_sym, a), x);  // once is enough
    EXPECT_EQ(object_attach_byptr(x, x), ErrorNone);
    EXPECT_EQ(object_notify(x, "hello"_sym, nullptr), ErrorNone);
    EXPECT_EQ(told, "x:hello(x) b:hello(x) a:hello(x) ");
    told.clear();
    EXPECT_EQ(object_detach(space_, "x"_sym, b), ErrorNone);
    EXPECT_EQ(object_detach_byptr(x, x), ErrorNone);
    EXPECT_EQ(object_detach_byptr(b, x), ErrorGeneric);
    object_notify(x, "again"_sym, nullptr);
    EXPECT_EQ(told, "a:again(x) ");
    const Texts posted = take_texts();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_TRUE(posted[0].starts_with("object_detach: object ")) << posted[0];
    told.clear();
    object_free(x);
    EXPECT_EQ(told, "a:willfree(x) a:free(x) ");
    EXPECT_EQ(object_notify(x, "late"_sym, nullptr), ErrorGeneric);
    object_free(a);
    object_free(b);
}

TEST_F(Registry, AttachingByPointerNeedsARegisteredObject) {
    void *const x = make('x');
    void *const a = make(other_class_, 'a');
    EXPECT_EQ(object_attach_byptr(a, x), ErrorGeneric);
    EXPECT_EQ(take_texts(), Texts{"object_attach_byptr: registered is not registered. trying to "
                                  "attach other"});
    EXPECT_EQ(object_attach_byptr_register(a, x, space_), ErrorNone);
    Symbol *name = nullptr;
    EXPECT_EQ(object_findregisteredbyptr(nullptr, &name, x), ErrorNone);
    EXPECT_EQ(std::string(name->name).size(), 10u);
    object_notify(x, "m"_sym, nullptr);
    EXPECT_EQ(told, std::string("a:m(") + name->name + ") ");
    EXPECT_EQ(object_attach(space_, "nobody"_sym, a), nullptr);
    object_free(a);
    object_free(x);
}

TEST_F(Registry, SubscribersAreAttachedWhenTheObjectComes) {
    void *const early = make('e');
    void *const picky = make('p');
    EXPECT_EQ(object_subscribe(space_, "later"_sym, nullptr, early), nullptr);
    EXPECT_EQ(object_subscribe(space_, "later"_sym, "other"_sym, picky), nullptr);
    void *x = make_named('x', "later"_sym);
    EXPECT_EQ(told, "e:registered(later) ");
    void *const late = make('l');
    EXPECT_EQ(object_subscribe(space_, "later"_sym, "registered"_sym, late), x);
    EXPECT_EQ(object_subscribe(space_, "later"_sym, "registered"_sym, late), nullptr);
    object_free(x);
    told.clear();
    object_free(early);  // its subscription goes with it
    EXPECT_EQ(object_unsubscribe(space_, "later"_sym, "registered"_sym, late), ErrorNone);
    EXPECT_EQ(object_unsubscribe(space_, "later"_sym, "registered"_sym, late), ErrorGeneric);
    x = object_register(space_, "later"_sym, make(other_class_, 'y'));
    EXPECT_EQ(told, "p:registered(later) ");
    for (void *const each : {x, picky, late}) {
        object_free(each);
    }
}

// It could not be taken out of the list when it is freed.
TEST_F(Registry, ObjectsWithoutARecordAreNoClients) {
    void *const x = make_named('x', "name"_sym);
    Class *const bare = make_class("bare");
    class_obexoffset_set(bare, -1);
    void *const client = make(bare, 'b');
    EXPECT_EQ(object_attach(space_, "name"_sym, client), nullptr);
    EXPECT_EQ(object_attach_byptr(client, x), ErrorGeneric);
    EXPECT_EQ(object_subscribe(space_, "name"_sym, nullptr, client), nullptr);
    object_free(client);
    object_notify(x, "changed"_sym, nullptr);
    EXPECT_EQ(told, "");
    object_free(x);
    class_free(bare);
}

TEST_F(Registry, NotificationSurvivesWhatItsClientsDo) {
    enum class Deed { free_next, free_self, free_sender, detach_all, attach_more };
    for (const Deed deed : {Deed::free_next, Deed::free_self, Deed::free_sender, Deed::detach_all,
                            Deed::attach_more}) {
        SCOPED_TRACE(static_cast<int>(deed));
        void *const x = make_named('x', "x"_sym);
        std::vector<void *> clients;
        for (int i = 0; i < 30; ++i) {
            clients.push_back(make(static_cast<char>('A' + i)));
            object_attach_byptr(clients.back(), x);
        }
        on_notify = [&](void *client, Symbol *message) {
            if (message != "go"_sym || client != clients[0]) {
                return;
            }
            switch (deed) {
                case Deed::free_next:
                    object_free(std::exchange(clients[1], nullptr));
                    break;
                case Deed::free_self:
                    object_free(std::exchange(clients[0], nullptr));
                    break;
                case Deed::free_sender:
                    object_free(x);
                    break;
                case Deed::detach_all:
                    for (void *const each : clients) {
                        object_detach_byptr(each, x);
                    }
                    break;
                case Deed::attach_more:
                    clients.push_back(make('z'));
                    object_attach_byptr(clients.back(), x);
                    break;
            }
        };
        told.clear();
        object_notify(x, "go"_sym, nullptr);
        const auto calls = [](const char *what) {
            size_t n = 0;
            for (size_t at = told.find(what); at != std::string::npos;
                 at = told.find(what, at + 1)) {
                ++n;
            }
            return n;
        };
        const size_t expected[] = {29, 30, 1, 1, 30};
        EXPECT_EQ(calls(":go("), expected[static_cast<size_t>(deed)]);
        on_notify = nullptr;
        if (deed != Deed::free_sender) {
            object_free(x);
        }
        for (void *const client : clients) {
            object_free(client);
        }
    }
}

TEST_F(Registry, NotificationsGoOnToTheBox) {
    auto *const x = static_cast<Object *>(make_named('x', "x"_sym));
    auto *const box = static_cast<Object *>(make_named('b', "b"_sym));
    class_->flags |= ClassBox;
    object_attach_byptr(box, box);
    object_box_set(x, box);
    object_box_set(box, x);  // a ring ends
    object_box_set(box, box);
    object_notify(x, "hello"_sym, nullptr);
    EXPECT_EQ(told, "b:hello(b) ");
    EXPECT_EQ(object_box(x), box);
    told.clear();
    class_->flags |= ClassUi;
    object_notify(x, "hello"_sym, nullptr);
    EXPECT_EQ(told, "");
    object_free(x);
    object_free(box);
}

TEST_F(Registry, ThreadsMayRegisterAttachAndFreeAtOnce) {
    on_notify = nullptr;
    Class *const quiet = class_new("quiet", nullptr, nullptr, sizeof(Client), nullptr, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, quiet, t] {
            for (int i = 0; i < 500; ++i) {
                Symbol *const name = gensym(("s" + std::to_string((i + t) % 7)).c_str());
                void *const x = object_register(space_, name, object_alloc(quiet));
                void *const client = object_alloc(quiet);
                object_subscribe(space_, name, nullptr, client);
                object_attach_byptr(client, x);
                object_notify(x, "hello"_sym, nullptr);
                object_free(client);
                object_unregister(x);
                object_free(x);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    int32_t count = 0;
    Symbol **names = nullptr;
    object_register_getnames(space_, &count, &names);
    sysmem_freeptr(names);
    EXPECT_EQ(count, 0);
    take_texts();
    EXPECT_EQ(class_free(quiet), ErrorNone);
}

}  // namespace
