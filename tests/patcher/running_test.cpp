// A document that edits itself while it runs: clocks of the timer's thread send script messages,
// and send through the very cords and boxes that these add and remove on the main thread.
#include "documents.h"
#include "patcher/records.h"
#include "sched/internal.h"

namespace kiv {
namespace {

using namespace test;

std::string message_box(const std::string &id, const std::string &text) {
    return R"({"box":{"kivclass":"message","id":")" + id + R"(","text":")" + text + R"("}})";
}

// A metro that goes through a script over and over, and one that sends through what it makes.
std::string worker(const std::string &name) {
    const std::string make = "script newdefault " + name + " 10 10 + 1, script connect " + name +
                             "_from 0 " + name + " 0, script connect " + name + " 0 " + name +
                             "_to 0";
    const std::string undo =
        "script disconnect " + name + "_from 0 " + name + " 0, script delete " + name;
    const auto named = [&](const std::string &part, const std::string &text) {
        return box(name + part, text, ",\"varname\":\"" + name + part + "\"");
    };
    const std::string sub = patcher(
        {box("m", "metro 1"), box("c", "counter 1"), box("s", "select 0 1"), message_box("x", make),
         message_box("y", undo), box("t", "thispatcher"), named("_from", "int 1"),
         named("_to", "int"), box("f", "metro 1"), box("on", "loadmess 1")},
        {line("on", "m"), line("on", "f"), line("m", "c"), line("c", "s"), line("s", "x"),
         R"({"patchline":{"source":["s",1],"destination":["y",0]}})", line("x", "t"),
         line("y", "t"), line("f", name + "_from")});
    return box(name, "p " + name, ",\"patcher\":" + sub);
}

TEST_F(DocumentTest, BoxesAndCordsComeAndGoWhileClocksRun) {
    static constexpr int rounds = 60;
    Object *p = load_text(document({worker("a"), worker("b"), worker("c"), worker("d")}));
    ASSERT_EQ(take_texts(), Texts{});
    system_timer_start();
    overdrive_set(true);
    const Patcher *watched = as_patcher(jbox_get_object(jpatcher_get_firstobject(p)));
    const int64_t end = watched->next_box_serial + rounds;
    while (watched->next_box_serial < end) {
        main_queues_pass();
        systhread_sleep(1);
    }
    object_free(p);  // while its clocks run
    overdrive_set(false);
    system_timer_stop();
    main_queues_pass();
    for (const std::string &text : take_texts()) {
        // A queued script may find what another has removed meanwhile, never anything worse.
        EXPECT_NE(text.find("script"), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace kiv
