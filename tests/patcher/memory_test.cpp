// Every allocation made while a document with all built-in objects is loaded fails once in turn.
// The cases share the allocations out, so that each takes bounded time.
#include <algorithm>

#include "documents.h"
#include "kernel/internal.h"
#include "sched/internal.h"
#include "support/memory.h"

namespace kiv {
namespace {

using namespace test;

constexpr int shares = 8;

std::string whole_document() {
    std::vector<std::string> boxes;
    const auto add = [&](const std::string &text, const std::string &more = "") {
        boxes.push_back(box("obj-" + std::to_string(boxes.size() + 1), text, more));
    };
    for (const char *text :
         {"loadbang",    "t b i f s l", "print a b",    "loadmess 1 b", "patcherargs 1",
          "int 5",       "float 2.5",   "+ 1",          "- 1.",         "* 2",
          "/ 2",         "% 2",         "== 1",         "!= 1",         "<< 1",
          "&& 1",        "bangbang 3",  "pack 1 2. x",  "unpack i f s", "swap",
          "route a 1",   "select a 1",  "gate 2 1",     "switch 2 1",   "change",
          "counter 1 5", "random 10",   "metro 100",    "delay 100",    "pipe 1 2 5",
          "timer",       "send wire",   "receive wire", "value v 1",    "thispatcher",
          "pcontrol",    "preset",      "defer",        "schedule",     "append x",
          "prepend x",   "bag",         "accum 1",      "iaccum 1",     "missing 1 2"}) {
        add(text, R"(,"patching_rect":[1,2,30,20])");
    }
    add("p inside",
        ",\"patcher\":" + patcher({box("i", "inlet"), box("o", "outlet")}, {line("i", "o")}));
    for (const char *name :
         {"message", "toggle", "number", "flonum", "button", "comment", "bpatcher", "absent"}) {
        const std::string id = "obj-" + std::to_string(boxes.size() + 1);
        boxes.push_back(R"({"box":{"kivclass":")" + std::string(name) + R"(","id":")" + id +
                        R"(","text":"a $1","varname":"name","odd":{"key":[1,"x"]}}})");
    }
    return document(boxes, {line("obj-1", "obj-2"), line("obj-2", "obj-3"),
                            R"({"patchline":{"source":["obj-2",1],"destination":["obj-6",1],)"
                            R"("midpoints":[1,2],"odd":1}})"});
}

// True while a failure is still to come: the load made fewer allocations than were allowed, by a
// few more than a share steps over, since not every load makes the same number.
bool failure_waits() {
    bool waits = false;
    for (int i = 0; i < 8 * shares && !waits; ++i) {
        void *block = sysmem_newptr(8);
        waits = !block;
        sysmem_freeptr(block);
    }
    memory_fail_at(0);
    return waits;
}

class FailingAllocations : public DocumentTest, public testing::WithParamInterface<int> {};

TEST_P(FailingAllocations, LeaveAPatcherOrAnError) {
    // Names given back are used again once there are many, so that no box needs a new one.
    std::vector<Symbol *> names(11000);
    std::generate(names.begin(), names.end(), symbol_unique);
    std::for_each(names.begin(), names.end(), symbol_unique_release);
    warm_extension_records();
    const std::string text = whole_document();
    Object *p = load_text(text);
    const int32_t count = jpatcher_get_count(p);
    object_free(p);
    const Texts usual = take_texts();
    main_queues_pass();
    const int64_t blocks = memory_live_blocks();
    // Lets the n-th allocation fail; false when loading made fewer.
    const auto load_failing = [&](int64_t n) {
        memory_fail_at(n);
        Object *loaded = load_text(text);
        const bool done = !failure_waits();
        EXPECT_TRUE(!loaded || jpatcher_get_count(loaded) <= count) << n;
        const bool whole = loaded && jpatcher_get_count(loaded) == count;
        object_free(loaded);
        EXPECT_TRUE(!done || whole || take_texts() != usual) << n << ": lost a box silently";
        take_texts();
        main_queues_pass();
        return done;
    };
    int64_t n = 1 + GetParam();
    for (; load_failing(n); n += shares) {
        // The queue of names given back, as it moves through its memory, has at times one piece
        // more.
        ASSERT_LE(memory_live_blocks(), blocks + 1) << n;
        if (n % (shares * 16) == 1 + GetParam()) {
            p = load_text(text);
            EXPECT_EQ(jpatcher_get_count(p), count) << n;
            object_free(p);
            EXPECT_EQ(take_texts(), usual) << n;
            main_queues_pass();
        }
        ASSERT_LT(n, 100000) << "loading never ends";
    }
    EXPECT_GT(n, 1000);
}

INSTANTIATE_TEST_SUITE_P(Share, FailingAllocations, testing::Range(0, shares));

}  // namespace
}  // namespace kiv
