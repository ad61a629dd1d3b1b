// Starts the runtime once for a test program, records what it posts, then runs the tests.
#include "support/console.h"

#include <utility>

#include <gtest/gtest.h>

#include "console/internal.h"
#include "kernel/startup.h"
#include "sched/scheduler.h"

namespace kiv::test {

namespace {

std::vector<Posted> &recorded() {
    static std::vector<Posted> entries;
    return entries;
}

void record(const ConsoleEntry *entry, void *) {
    recorded().push_back({entry->kind, entry->text, entry->source,
                          entry->origin.class_name ? entry->origin.class_name->name : "",
                          entry->origin.box_id ? entry->origin.box_id->name : ""});
}

// What a test must not leave to the next one in its process.
class Traces : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo &) override {
        double time = 0.0;
        EXPECT_FALSE(next_clock_time(&time)) << "a clock still waits for " << time;
        EXPECT_FALSE(overdrive_get());
        EXPECT_FALSE(time_is_offline());
        EXPECT_FALSE(scheduler_is_suspended());
        take_posts();
    }
};

}  // namespace

void record_posts() {
    console_set_display(record, nullptr);
}

std::vector<Posted> take_posts() {
    console_drain();
    return std::exchange(recorded(), {});
}

std::vector<std::string> take_texts() {
    std::vector<std::string> texts;
    for (const Posted &posted : take_posts()) {
        texts.push_back(posted.text);
    }
    return texts;
}

}  // namespace kiv::test

int main(int argc, char **argv) {
    // A test's own process must not be the copy of one that has threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    testing::InitGoogleTest(&argc, argv);
    kiv::startup();
    kiv::test::record_posts();
    testing::UnitTest::GetInstance()->listeners().Append(new kiv::test::Traces);
    const int result = RUN_ALL_TESTS();
    kiv::shutdown();
    return result;
}
