#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/testing/testing.h"
#if defined(__linux__) && !defined(__SANITIZE_THREAD__)
#include <sys/ptrace.h>
#include <sys/wait.h>
#endif

namespace kiv::test {

// Debug output goes to standard error.
void debug_capture_start() {
    testing::internal::CaptureStderr();
}

std::string debug_capture_end() {
    return testing::internal::GetCapturedStderr();
}

double processor_ms() {
    return static_cast<double>(std::clock()) * 1e3 / CLOCKS_PER_SEC;
}

int64_t resident_memory() {
    std::ifstream pages("/proc/self/statm");
    int64_t total = 0;
    int64_t resident = 0;
    pages >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

HalfReadable::HalfReadable(size_t half) : half_(half) {
    begin_ = static_cast<char *>(
        mmap(nullptr, 2 * half, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(middle(), half, PROT_NONE);
}

HalfReadable::~HalfReadable() {
    munmap(begin_, 2 * half_);
}

FaultStack::FaultStack() : memory_(1 << 16, '\0') {
    stack_t stack{};
    stack.ss_sp = memory_.data();
    stack.ss_size = memory_.size();
    sigaltstack(&stack, nullptr);
}

FaultStack::~FaultStack() {
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
}

bool FaultStack::in_place() const {
    stack_t present{};
    return sigaltstack(nullptr, &present) == 0 && present.ss_sp == memory_.data();
}

void environment_set(const char *name, const std::string &value) {
    setenv(name, value.c_str(), 1);
}

#if defined(__linux__) && !defined(__SANITIZE_THREAD__)
Outcome run_killed(const std::function<bool()> &function, int n) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(3);
        }
        raise(SIGSTOP);
        _exit(function() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) {
        return Outcome::impossible;
    }
    for (int i = 0; WIFSTOPPED(status); ++i) {
        if (i == n) {
            kill(child, SIGKILL);
        } else {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        }
        waitpid(child, &status, 0);
    }
    if (WIFSIGNALED(status)) {
        return Outcome::killed;
    }
    return WEXITSTATUS(status) == 0 ? Outcome::ended_well : Outcome::ended_badly;
}
#else
Outcome run_killed(const std::function<bool()> &, int) {
    return Outcome::impossible;
}
#endif

}  // namespace kiv::test
