// A process that dies while it saves: the save runs in a child that is killed at its first, second,
// ... system call, and the file is each time all of the old document or all of the new one.
#include <sstream>

#include "documents.h"
#include "patcher/internal.h"
#include "platform/testing/testing.h"

namespace kiv {
namespace {

using namespace test;

std::string content(const std::filesystem::path &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

TEST_F(DocumentTest, AProcessKilledWhileSavingLeavesOneWholeDocument) {
    std::vector<std::string> boxes;
    for (int i = 0; i < 1000; ++i) {
        boxes.push_back(box("obj-" + std::to_string(i + 1), "print " + std::to_string(i)));
    }
    Object *p = load_text(document(boxes));
    const std::string path = file("saved.kivpat");
    const std::string old_text = document({box("old", "print")});
    put("reference.kivpat", "");
    ASSERT_EQ(patcher_save(p, file("reference.kivpat").c_str(), 0), 0);
    const std::string new_text = content(root / "reference.kivpat");
    int old_ones = 0;
    int new_ones = 0;
    Outcome outcome = Outcome::killed;
    for (int n = 0; outcome == Outcome::killed; ++n) {
        put("saved.kivpat", old_text);
        outcome = run_killed([&] { return patcher_save(p, path.c_str(), 0) == 0; }, n);
        if (outcome == Outcome::impossible) {
            GTEST_SKIP() << "a process cannot be stopped at its system calls here";
        }
        const std::string now = content(path);
        EXPECT_TRUE(now == old_text || now == new_text) << "killed at stop " << n;
        ++(now == old_text ? old_ones : new_ones);
        ASSERT_LT(n, 5000);
    }
    EXPECT_EQ(outcome, Outcome::ended_well);
    EXPECT_GT(old_ones, 5) << "it was killed too late to show anything";
    EXPECT_GT(new_ones, 1) << "it was never killed after the file had its name";
    object_free(p);
}

}  // namespace
}  // namespace kiv
