// The readability probe and the fault handler behind it.
//
// The probe is a fixed routine of two one-byte loads (32 bytes touch at most two pages). A vectored
// handler knows its address range: a fault inside it goes on at the routine's failure exit, which
// is safe because the routine touches neither stack nor memory of its own, and as a leaf needs no
// unwinding. Every other fault is passed on.
#include "platform/platform.h"
#include "platform/win32/win32.h"

extern "C" const char kiv_probe_begin[], kiv_probe_end[], kiv_probe_failed[];

// The routine is readable_32 itself, under its name in object files.
#if defined(__x86_64__)
asm(R"(
    .text
    .p2align 4
    .globl _ZN3kiv8platform11readable_32EPKv
    .globl kiv_probe_begin, kiv_probe_end, kiv_probe_failed
    .def _ZN3kiv8platform11readable_32EPKv; .scl 2; .type 32; .endef
_ZN3kiv8platform11readable_32EPKv:
kiv_probe_begin:
    movzbl (%rcx), %eax
    movzbl 31(%rcx), %eax
kiv_probe_end:
    movl $1, %eax
    ret
kiv_probe_failed:
    xorl %eax, %eax
    ret
)");
#else
#error "the probe has no routine for this processor yet"
#endif

namespace kiv::platform {

namespace {

LONG CALLBACK on_fault(EXCEPTION_POINTERS *fault) {
    const DWORD code = fault->ExceptionRecord->ExceptionCode;
    if (code != EXCEPTION_ACCESS_VIOLATION && code != EXCEPTION_IN_PAGE_ERROR &&
        code != EXCEPTION_GUARD_PAGE) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    auto &counter = fault->ContextRecord->Rip;
    if (counter < reinterpret_cast<uintptr_t>(kiv_probe_begin) ||
        counter >= reinterpret_cast<uintptr_t>(kiv_probe_end)) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    counter = reinterpret_cast<uintptr_t>(kiv_probe_failed);
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

void probe_start() noexcept {
    static void *const installed = AddVectoredExceptionHandler(1, on_fault);
    static_cast<void>(installed);
}

bool barrier_everywhere() noexcept {
    FlushProcessWriteBuffers();
    return true;
}

// They are for processes with a privilege of their own.
void prefer_large_pages(void *, size_t) noexcept {}

void memory_discard(void *block, size_t size) noexcept {
    VirtualAlloc(block, size, MEM_RESET, PAGE_READWRITE);  // of the pages wholly in the block
}

}  // namespace kiv::platform
