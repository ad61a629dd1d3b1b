// The readability probe and the fault handler behind it.
//
// The probe is a fixed routine of two one-byte loads (32 bytes touch at most two pages). The fault
// handler knows its address range: a fault inside is turned into "not readable" by moving the
// program counter to the routine's failure exit, which is safe because the routine touches neither
// stack nor memory of its own. Every other fault goes to the handler that was there before, as if
// this one did not exist. Compilers and sanitizers do not look into the routine, so it may read
// freed memory.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#if defined(__linux__)
#include <linux/membarrier.h>
#include <sys/syscall.h>
#endif

#include <cerrno>

#include "platform/platform.h"

extern "C" const char kiv_probe_begin[], kiv_probe_end[], kiv_probe_failed[];

// The routine is readable_32 itself, under its name in object files.

#if defined(__x86_64__)
asm(R"(
    .text
    .p2align 4
    .globl _ZN3kiv8platform11readable_32EPKv
    .globl kiv_probe_begin, kiv_probe_end, kiv_probe_failed
    .hidden _ZN3kiv8platform11readable_32EPKv
    .hidden kiv_probe_begin, kiv_probe_end, kiv_probe_failed
    .type _ZN3kiv8platform11readable_32EPKv, @function
_ZN3kiv8platform11readable_32EPKv:
    .cfi_startproc
kiv_probe_begin:
    movzbl (%rdi), %eax
    movzbl 31(%rdi), %eax
kiv_probe_end:
    movl $1, %eax
    ret
kiv_probe_failed:
    xorl %eax, %eax
    ret
    .cfi_endproc
    .size _ZN3kiv8platform11readable_32EPKv, . - _ZN3kiv8platform11readable_32EPKv
)");
#elif defined(__aarch64__)
asm(R"(
    .text
    .p2align 4
    .globl _ZN3kiv8platform11readable_32EPKv
    .globl kiv_probe_begin, kiv_probe_end, kiv_probe_failed
    .hidden _ZN3kiv8platform11readable_32EPKv
    .hidden kiv_probe_begin, kiv_probe_end, kiv_probe_failed
    .type _ZN3kiv8platform11readable_32EPKv, %function
_ZN3kiv8platform11readable_32EPKv:
    .cfi_startproc
kiv_probe_begin:
    ldrb w1, [x0]
    ldrb w1, [x0, #31]
kiv_probe_end:
    mov w0, #1
    ret
kiv_probe_failed:
    mov w0, #0
    ret
    .cfi_endproc
    .size _ZN3kiv8platform11readable_32EPKv, . - _ZN3kiv8platform11readable_32EPKv
)");
#else
#error "the probe has no routine for this processor yet"
#endif

namespace kiv::platform {

namespace {

struct sigaction previous_segv, previous_bus;

bool skip_probe(ucontext_t *context) {
#if defined(__x86_64__)
    auto &counter = context->uc_mcontext.gregs[REG_RIP];
    using Counter = greg_t;
#else
    auto &counter = context->uc_mcontext.pc;
    using Counter = unsigned long long;
#endif
    const auto at = static_cast<uintptr_t>(counter);
    if (at < reinterpret_cast<uintptr_t>(kiv_probe_begin) ||
        at >= reinterpret_cast<uintptr_t>(kiv_probe_end)) {
        return false;
    }
    counter = static_cast<Counter>(reinterpret_cast<uintptr_t>(kiv_probe_failed));
    return true;
}

// What the system would have done without a handler. A real fault happens again on return and
// finds the default action; a signal that was sent is sent again.
void default_action(int signal, const siginfo_t *info) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    if (info->si_code <= 0) {
        pthread_kill(pthread_self(), signal);
    }
}

void on_fault(int signal, siginfo_t *info, void *context) {
    if (info->si_code > 0 && skip_probe(static_cast<ucontext_t *>(context))) {
        return;
    }
    const struct sigaction &previous = signal == SIGBUS ? previous_bus : previous_segv;
    if (previous.sa_flags & SA_SIGINFO) {
        previous.sa_sigaction(signal, info, context);
    } else if (previous.sa_handler == SIG_IGN && info->si_code <= 0) {
        return;
    } else if (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN) {
        default_action(signal, info);
    } else {
        previous.sa_handler(signal);
    }
}

// On the alternate stack of a thread that has one, as overflow handlers of others expect.
void install(int signal, struct sigaction *previous) {
    sigaction(signal, nullptr, previous);
    struct sigaction action {};
    action.sa_sigaction = on_fault;
    action.sa_mask = previous->sa_mask;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | (previous->sa_flags & (SA_NODEFER | SA_RESTART));
    sigaction(signal, &action, nullptr);
}

}  // namespace

void probe_start() noexcept {
    static const bool installed = [] {
        install(SIGSEGV, &previous_segv);
        install(SIGBUS, &previous_bus);
        return true;
    }();
    static_cast<void>(installed);
}

bool barrier_everywhere() noexcept {
#if defined(__linux__)
    const auto barrier = [](int command) { return syscall(SYS_membarrier, command, 0, 0) == 0; };
    static const bool registered = barrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
    return registered && barrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
#else
    return false;
#endif
}

namespace {

// Gives an advice for the pages of a size that lie wholly in a block.
void advise(void *block, size_t size, uintptr_t page, int advice) noexcept {
    const auto begin = reinterpret_cast<uintptr_t>(block);
    const uintptr_t first = (begin + page - 1) / page * page;
    const uintptr_t end = (begin + size) / page * page;
    if (first < end) {
        madvise(reinterpret_cast<void *>(first), end - first, advice);
    }
}

}  // namespace

void prefer_large_pages([[maybe_unused]] void *block, [[maybe_unused]] size_t size) noexcept {
#if defined(MADV_HUGEPAGE)
    advise(block, size, uintptr_t{1} << 21, MADV_HUGEPAGE);
#endif
}

void memory_discard(void *block, size_t size) noexcept {
    advise(block, size, static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)), MADV_DONTNEED);
}

}  // namespace kiv::platform
