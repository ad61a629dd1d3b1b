// A process that dies while it saves: the save runs in a child that is killed at its first, second,
// ... system call, and the file is each time all of the old document or all of the new one.
#include "documents.h"
#include "patcher/internal.h"

#if defined(__linux__) && !defined(__SANITIZE_THREAD__)

#include <csignal>
#include <sstream>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kiv {
namespace {

using namespace test;

std::string content(const std::filesystem::path &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// Saves in a child and kills it at its n-th stop at a system call (there are two for each). True
// when it came to its end before that; `*traced` is false where processes cannot be traced.
bool save_until(Object *patcher, const std::string &path, int n, bool *traced) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(3);
        }
        raise(SIGSTOP);
        _exit(patcher_save(patcher, path.c_str(), 0) ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    *traced = WIFSTOPPED(status);
    for (int i = 0; *traced && WIFSTOPPED(status); ++i) {
        if (i == n) {
            kill(child, SIGKILL);
        } else {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        }
        waitpid(child, &status, 0);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
    bool traced = true;
    bool ended = false;
    for (int n = 0; !ended; ++n) {
        put("saved.kivpat", old_text);
        ended = save_until(p, path, n, &traced);
        if (!traced) {
            GTEST_SKIP() << "processes cannot be traced here";
        }
        const std::string now = content(path);
        EXPECT_TRUE(now == old_text || now == new_text) << "killed at stop " << n;
        ++(now == old_text ? old_ones : new_ones);
        ASSERT_LT(n, 5000);
    }
    EXPECT_GT(old_ones, 5) << "it was killed too late to show anything";
    EXPECT_GT(new_ones, 1) << "it was never killed after the file had its name";
    object_free(p);
}

}  // namespace
}  // namespace kiv

#endif
