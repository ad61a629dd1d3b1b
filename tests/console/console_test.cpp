#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/jbox.h>
#include <kiv/newobject.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "console/internal.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "support/console.h"

namespace kiv::test {
namespace {

// A class whose objects answer "info" and "error".
struct Witness {
    Object ob;
    Object *shown;
    int errors;
    std::string *last_text;
    const void *last_source;
};

void *witness_info(Witness *x, Object **source, int32_t *extra) {
    *source = x->shown;
    *extra = 42;
    return nullptr;
}

void *witness_error(Witness *x, const char *text, void *source) {
    ++x->errors;
    *x->last_text = text;
    x->last_source = source;
    error("told again");  // must not come back here
    return nullptr;
}

Witness *make_witness(std::string *text) {
    static Class *const c = [] {
        Class *made =
            class_new("consoletest_witness", nullptr, nullptr, sizeof(Witness), nullptr, 0);
        class_addmethod(made, reinterpret_cast<Method>(witness_info), "info", TypeCant, 0);
        class_addmethod(made, reinterpret_cast<Method>(witness_error), "error", TypeCant, 0);
        class_register(gensym("nobox"), made);
        return made;
    }();
    auto *x = static_cast<Witness *>(object_alloc(c));
    x->last_text = text;
    return x;
}

// What a display of the test's own was shown.
struct Shown {
    int32_t extra;
    uint8_t kind;
    uint8_t level;
    int64_t stamp;
    std::string text;
    const Object *source;
    std::string box_id;
};
std::vector<Shown> shown;

void record(const ConsoleEntry *entry, void *) {
    shown.push_back({entry->extra, entry->kind, entry->level, entry->stamp, entry->text,
                     entry->source, entry->origin.box_id->name});
}

// For a scope the console's display is one of the test's own.
class Display {
  public:
    explicit Display(void (*show)(const ConsoleEntry *, void *) = record) {
        console_drain();
        shown.clear();
        console_set_display(show, nullptr);
    }
    ~Display() {
        console_drain();
        record_posts();
    }
    Display(const Display &) = delete;
    Display &operator=(const Display &) = delete;
};

TEST(Console, KindsSourcesAndCounts) {
    std::string unused;
    Witness *x = make_witness(&unused);
    errorcount_set(10);
    const int32_t nonplain = console_nonplain_count();
    take_posts();
    post("%s %d", "plain", 1);
    error("an error");
    object_post(x, "of an object");
    object_error(x, "its error");
    object_warn(x, "its warning");
    object_bug(x, "its bug");
    object_error_obtrusive(x, "without a patcher");
    poststring("100%");
    xsetpost();
    object_poststring(x, PostError, 3, "%s stays");
    object_error(nullptr, "of nobody");
    const struct {
        int kind;
        const char *text;
        const void *source;
    } expected[] = {{0, "plain 1", nullptr},     {1, "an error", nullptr}, {0, "of an object", x},
                    {1, "its error", x},         {2, "its warning", x},    {3, "its bug", x},
                    {1, "without a patcher", x}, {0, "100%", nullptr},     {0, "", nullptr},
                    {1, "%s stays", x},          {1, "of nobody", nullptr}};
    const std::vector<Posted> posts = take_posts();
    ASSERT_EQ(posts.size(), std::size(expected));
    for (size_t i = 0; i < posts.size(); ++i) {
        EXPECT_EQ(posts[i].kind, expected[i].kind) << i;
        EXPECT_EQ(posts[i].text, expected[i].text);
        EXPECT_EQ(posts[i].source, expected[i].source) << i;
        EXPECT_EQ(posts[i].class_name, expected[i].source ? "consoletest_witness" : "");
    }
    EXPECT_EQ(errorcount_get(), 14);
    EXPECT_EQ(console_nonplain_count() - nonplain, 7);
    object_free(x);
    object_error(x, "of a freed object");
    EXPECT_EQ(take_posts().at(0).class_name, "");
}

TEST(Console, ObtrusiveErrorIsPostedOnceForTheBox) {
    void *patcher = object_new(gensym("nobox"), gensym("jpatcher"), 0, nullptr);
    Object *box = newobject_fromboxtext(patcher, "print");
    ASSERT_NE(box, nullptr);
    errorcount_set(0);
    take_posts();
    for (void *source : {static_cast<void *>(box), static_cast<void *>(jbox_get_object(box))}) {
        object_error_obtrusive(source, "%d%%", 5);
        const std::vector<Posted> posts = take_posts();
        ASSERT_EQ(posts.size(), 1u);
        EXPECT_EQ(posts[0].kind, PostError);
        EXPECT_EQ(posts[0].text, "5%");
        EXPECT_EQ(posts[0].class_name, "print");
        EXPECT_EQ(posts[0].box_id, jbox_get_id(box)->name);
    }
    EXPECT_EQ(errorcount_get(), 2);
    object_free(patcher);
}

TEST(Console, TextsAreCutAt2047Characters) {
    const std::string text(3000, 'w');
    post("%s", text.c_str());
    object_poststring(nullptr, PostPlain, 7, text.c_str());
    object_poststring(nullptr, PostPlain, 7, nullptr);
    const std::string cut(2047, 'w');
    EXPECT_EQ(take_texts(), (std::vector<std::string>{cut, cut, ""}));
}

TEST(Console, QuestionsWithoutAWindowChangeNothing) {
    EXPECT_EQ(advise("save %s?", "it"), 3);
    EXPECT_EQ(advise_explain("delete?", "it is gone then", "Delete", "Keep", nullptr), 2);
    EXPECT_EQ(advise_explain("ok?", nullptr, "OK", "", nullptr), 1);
    errorcount_set(0);
    ouchstring("ouch %d", 1);
    EXPECT_EQ(errorcount_get(), 0);
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"save it?", "delete? it is gone then", "ok?", "ouch 1"}));
}

TEST(Console, ListenerIsToldOfErrorsButNotOfItsOwn) {
    std::string told;
    Witness *listener = make_witness(&told);
    Witness *source = make_witness(&told);
    console_set_listener(&listener->ob);
    errorcount_set(0);
    object_error(source, "first %d", 1);
    EXPECT_EQ(told, "first 1");
    EXPECT_EQ(listener->last_source, source);
    object_warn(source, "a warning");
    error("second");
    EXPECT_EQ(told, "second");
    EXPECT_EQ(listener->last_source, nullptr);
    EXPECT_EQ(listener->errors, 2);
    EXPECT_EQ(errorcount_get(), 4);
    object_free(listener);
    error("to nobody");
    console_set_listener(nullptr);
    object_free(source);
    take_posts();
}

TEST(Console, SourceSuppliesItsDetails) {
    std::string unused;
    Witness *target = make_witness(&unused);
    Witness *x = make_witness(&unused);
    x->shown = &target->ob;
    const Display display;
    const OriginHook former = console_set_origin_hook(
        [](Object *, ConsoleOrigin *origin) { origin->box_id = gensym("b1"); });
    object_poststring(x, PostInfo, 5, "details");
    object_poststring(nullptr, PostInfo, 300, "without a source");
    console_set_origin_hook(former);
    console_drain();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].source, &target->ob);
    EXPECT_EQ(shown[0].extra, 42);
    EXPECT_EQ(shown[0].kind, PostPlain);
    EXPECT_EQ(shown[0].level, 5);
    EXPECT_EQ(shown[0].box_id, "b1");
    EXPECT_EQ(shown[1].extra, 0);
    EXPECT_EQ(shown[1].box_id, "");
    EXPECT_LT(shown[0].stamp, shown[1].stamp);
    object_free(target);
    object_free(x);
}

TEST(Console, EntriesOfThreadsWaitForTheMainThreadInOrder) {
    const Display display;
    constexpr int per_thread = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < per_thread; ++i) {
                post("%d %d", t, i);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(shown.empty());
    main_queues_pass();
    ASSERT_EQ(shown.size(), 4u * per_thread);
    std::map<int, int> next;
    for (size_t i = 0; i < shown.size(); ++i) {
        int thread = 0;
        int number = 0;
        ASSERT_EQ(std::sscanf(shown[i].text.c_str(), "%d %d", &thread, &number), 2);
        ASSERT_EQ(number, next[thread]++);
        ASSERT_TRUE(i == 0 || shown[i - 1].stamp < shown[i].stamp);
    }
}

// Far more than the console holds; the numbers of what was shown and dropped add up.
constexpr int flood = 20000;

void post_flood(Object *x) {
    const std::string padding(1000, '.');
    for (int i = 0; i < flood; ++i) {
        object_post(x, "%d %s", i, padding.c_str());
    }
}

TEST(Console, FloodOfAThreadIsDroppedAndReported) {
    std::string unused;
    Witness *x = make_witness(&unused);
    const Display display;
    std::thread([x] {
        post_flood(&x->ob);
        error("%s", std::string(1000, '!').c_str());
    }).join();
    console_drain();
    ASSERT_GT(shown.size(), 3000u);
    const size_t kept = shown.size() - 2;
    for (size_t i = 0; i < kept; ++i) {
        ASSERT_EQ(std::stoul(shown[i].text), i);
    }
    EXPECT_EQ(shown[kept].text,
              "console overflow: " + std::to_string(flood - kept) + " messages dropped");
    EXPECT_EQ(shown[kept].kind, PostWarning);
    EXPECT_EQ(shown[kept].source, &x->ob);
    EXPECT_EQ(shown[kept + 1].text, "console overflow: 1 messages dropped");
    EXPECT_EQ(shown[kept + 1].source, nullptr);
    shown.clear();
    post("room again");
    console_drain();
    EXPECT_EQ(shown.size(), 1u);
    object_free(x);
}

TEST(Console, FloodOfTheMainThreadIsShown) {
    const Display display;
    post_flood(nullptr);
    console_drain();
    ASSERT_EQ(shown.size(), static_cast<size_t>(flood));
    for (size_t i = 0; i < shown.size(); ++i) {
        ASSERT_EQ(std::stoul(shown[i].text), i);
    }
}

TEST(Console, DisplayMayPostAndDrain) {
    const Display display([](const ConsoleEntry *entry, void *) {
        record(entry, nullptr);
        post("after %s", entry->text);
        console_drain();
    });
    post("one");
    post("two");
    console_drain();
    console_set_display(record, nullptr);
    console_drain();
    std::vector<std::string> texts;
    for (const Shown &entry : shown) {
        texts.push_back(entry.text);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"one", "two", "after one", "after two"}));
}

TEST(Console, ImmediateModeShowsBeforePostingReturns) {
    const Display display;
    console_set_immediate(true);
    post("now");
    EXPECT_EQ(shown.size(), 1u);
    std::thread([] { post("from a thread"); }).join();
    EXPECT_EQ(shown.size(), 1u);
    console_set_immediate(false);
    console_drain();
    EXPECT_EQ(shown.size(), 2u);
}

TEST(Console, EchoGoesToTheDebugOutput) {
    console_set_echo(true);
    debug_capture_start();
    error("echoed %d", 1);
    cpost("raw");
    console_set_echo(false);
    post("not echoed");
    EXPECT_EQ(debug_capture_end(), "echoed 1\nraw");
    take_posts();
}

}  // namespace
}  // namespace kiv::test
