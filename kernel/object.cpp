// The life of an object: allocated for a class, constructed by the class's name, counted, freed in
// a fixed order.
//
// 1. An object without an extension record has exactly one reference: freeing it frees it.
// 2. Freeing calls out (the "willfree" and "free" notifications, the free functions). What is run
//    may free the same object again, on the same thread: such a call does nothing.
// 3. The magic is cleared last before the memory goes, so the object can still be sent messages by
//    its own free function, and every later use of a stale pointer fails the validity test.
//
// Thread safety: any thread. References are counted atomically; the last one to go frees.
#include <kiv/console.h>
#include <kiv/hashtab.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstring>

#include "kernel/class_private.h"
#include "kernel/dispatch_call.h"
#include "kernel/object_private.h"

namespace kiv {

namespace {

struct {
    std::atomic<int32_t> being_freed{0};
    KernelHooks hooks{};
} state;

// Objects that the calling thread is freeing, innermost first, and how many of them there are of
// each hash: the chain of a deeply nested structure need not be walked for every part of it.
struct FreeFrame {
    const Object *object;
    FreeFrame *outer;
};
struct Freeing {
    FreeFrame *innermost;
    std::array<uint32_t, 256> counts;

    uint32_t &count(const Object *x) noexcept {
        return counts[(reinterpret_cast<uintptr_t>(x) >> 4) * 0x9e3779b97f4a7c15u >> 56];
    }
};
constinit thread_local Freeing freeing{};

bool is_freeing(const Object *x) {
    if (freeing.count(x) == 0) {
        return false;
    }
    const FreeFrame *frame = freeing.innermost;
    while (frame && frame->object != x) {
        frame = frame->outer;
    }
    return frame != nullptr;
}

class FreeScope {
  public:
    explicit FreeScope(const Object *x) noexcept
        : frame_{x, freeing.innermost}, count_(freeing.count(x)) {
        freeing.innermost = &frame_;
        ++count_;
    }
    ~FreeScope() {
        freeing.innermost = frame_.outer;
        --count_;
    }
    FreeScope(const FreeScope &) = delete;
    FreeScope &operator=(const FreeScope &) = delete;

  private:
    FreeFrame frame_;
    uint32_t &count_;
};

int64_t header_size(const Class *c) {
    constexpr int64_t light = offsetof(Object, outlets);
    return c->lightweight ? light : static_cast<int64_t>(sizeof(Object));
}

KIV_CALLS_ANY_TYPE void *call_free(Method function, Object *x) {
    reinterpret_cast<void (*)(void *)>(function)(x);
    return nullptr;
}

void call_free_functions(Object *x) {
    for (const Class *c = class_of(x); c; c = c->super) {
        if (is_real(c->free_function)) {
            call_guarded("free"_sym, [&] { return call_free(c->free_function, x); });
        }
    }
}

void cancel_waiting(Object *x, const ObexRecord *record) {
    // Of an object that cannot have a record, nobody knows whether it has clocks.
    const bool unknown = class_of(x)->obex_offset < 0;
    const uint32_t bits = record ? record->flags.load() : 0;
    if (state.hooks.cancel_clocks && (unknown || (bits & (ObexHasClocks | ObexHasDeferred)))) {
        state.hooks.cancel_clocks(x);
    }
}

int64_t size_of_instance(const Class *c) {
    return std::max(int64_t{c->instance_size}, header_size(c));
}

// Threads that make and free instances of one class would feel the counter.
void count_instance(Class *c, int64_t difference) {
    if (!(class_flags(c) & ClassPermanent)) {
        std::atomic_ref(c->users).fetch_add(difference, std::memory_order_relaxed);
    }
}

void release_memory(Object *x, bool was_client) {
    Class *const c = class_of(x);
    // What was kept for the object while it and its parts were freed.
    if (obex_find(x)) {
        while (registry_unregister(x)) {
        }
        registry_forget(x);
        obex_release(x);
    }
    // As an atomic, so that no compiler leaves out a store to memory that is about to be freed.
    std::atomic_ref(x->magic).store(0, std::memory_order_release);
    if (was_client || (class_flags(c) & ClassRetired)) {
        memory_retire(x);
    } else {
        sysmem_freeptr(x);
    }
    count_instance(c, -1);
}

void free_parts(Object *x, const ObexRecord *record) {
    cancel_waiting(x, record);
    obex_release(x);
}

// True when the object stays: other references or registrations still hold it.
bool still_held(Object *x, const ObexPin &record) {
    if (!record) {
        return false;
    }
    if (record->references.fetch_sub(1) > 1) {
        return true;
    }
    object_notify(x, "willfree"_sym, nullptr);
    record->freeing.enter();
    state.being_freed.fetch_add(1);
    if (registry_unregister(x)) {
        state.being_freed.fetch_sub(1);
        record->freeing.exit();
        return true;
    }
    registry_forget(x);
    return false;
}

void free_object(Object *x) {
    const ObexPin record(x);
    const FreeScope scope(x);
    if (still_held(x, record)) {
        return;
    }
    cancel_waiting(x, record.get());  // nothing may run for it while its free functions do
    call_free_functions(x);
    if (class_of(x)->lightweight) {
        obex_release(x);
    } else {
        free_parts(x, record.get());
    }
    if (record) {
        state.being_freed.fetch_sub(1);
        record->freeing.exit();
    }
    if (!class_of(x)->lightweight) {
        object_free_inlets_outlets(x);
    }
    release_memory(x, record && (record->flags.load() & obex_client));
}

Class *find_constructor(Symbol *name_space, Symbol *class_name) {
    Class *const c = class_findbyname(name_space, class_name);
    return c && c->constructor.function ? c : nullptr;
}

}  // namespace

KernelHooks &kernel_hooks() noexcept {
    return state.hooks;
}

int32_t objects_being_freed() noexcept {
    return state.being_freed.load();
}

Object *object_begin(void *memory, const Class *c) noexcept {
    std::memset(memory, 0, static_cast<size_t>(size_of_instance(c)));
    auto *const x = static_cast<Object *>(memory);
    x->methods = c->method_list + 1;
    x->magic = KIV_OBJECT_MAGIC;
    return x;
}

Object *object_alloc_extra(Class *c, int64_t extra) noexcept {
    void *const memory = sysmem_newptr(size_of_instance(c) + extra);
    if (!memory) {
        return nullptr;
    }
    if (std::atomic_ref(c->instantiated).load(std::memory_order_relaxed) == 0) {
        std::atomic_ref(c->instantiated).store(1, std::memory_order_relaxed);
    }
    count_instance(c, 1);
    return object_begin(memory, c);
}

}  // namespace kiv

using namespace kiv;

void *object_alloc(Class *c) noexcept {
    if (!c) {
        return nullptr;
    }
    if (Object *const prepared = ConstructScope::allocate(&c)) {
        return prepared;
    }
    return object_alloc_extra(c, 0);
}

void *object_new_imp(Symbol *name_space, Symbol *class_name, void *p1, void *p2, void *p3, void *p4,
                     void *p5, void *p6, void *p7, void *p8) noexcept {
    Class *const c = find_constructor(name_space, class_name);
    if (!c) {
        return nullptr;
    }
    const ConstructScope scope(c);
    void *const words[8] = {p1, p2, p3, p4, p5, p6, p7, p8};
    return construct_words(c->constructor, words);
}

// Reads eight words whatever was passed: a constructor that declares fewer ignores the rest.
void *(object_new)(Symbol *name_space, Symbol *class_name, ...) noexcept {
    void *p[8];
    va_list arguments;
    va_start(arguments, class_name);
    for (void *&word : p) {
        word = va_arg(arguments, void *);
    }
    va_end(arguments);
    return object_new_imp(name_space, class_name, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
}

void *object_new_typed(Symbol *name_space, Symbol *class_name, int32_t argc, Atom *argv) noexcept {
    Class *const c = find_constructor(name_space, class_name);
    if (!c) {
        return nullptr;
    }
    const ConstructScope scope(c);
    return construct_typed(c->constructor, class_name, argv && argc > 0 ? argc : 0, argv);
}

ErrorCode object_free(void *x) noexcept {
    if (!x) {
        return ErrorInvalidPointer;
    }
    if (object_lacks_methods(x)) {
        return ErrorInvalidPointer;
    }
    freeobject(x);
    return ErrorNone;
}

ErrorCode object_release(void *x) noexcept {
    return object_free(x);
}

ErrorCode object_retain(void *x) noexcept {
    ObexRecord *const record = object_valid(x) ? obex_enforce(static_cast<Object *>(x)) : nullptr;
    if (!record) {
        return ErrorGeneric;
    }
    record->references.fetch_add(1);
    return ErrorNone;
}

void freeobject(void *x) noexcept {
    if (!object_valid(x)) {
        // The address in the width of the message's conversion, which differs between systems.
        error("freeobject: %lx: bad object",
              static_cast<unsigned long>(reinterpret_cast<uintptr_t>(x)));
        return;
    }
    auto *const object = static_cast<Object *>(x);
    if (!is_freeing(object)) {
        free_object(object);
    }
}

void *object_clone(void *x) noexcept {
    if (!object_valid(x) || !object_find_method(static_cast<Object *>(x), "object_clone"_sym)) {
        return nullptr;
    }
    return object_method(x, "object_clone"_sym);
}

int32_t object_isvalid(const void *x) noexcept {
    return object_valid(x);
}

Class *object_class(const void *x) noexcept {
    return object_valid(x) ? class_of(x) : nullptr;
}

Symbol *object_classname(const void *x) noexcept {
    return object_valid(x) ? class_of(x)->name : nullptr;
}

int32_t object_classname_compare(const void *x, Symbol *name) noexcept {
    return name && object_classname(x) == name;
}

Symbol *object_namespace(const void *x) noexcept {
    return object_valid(x) ? class_of(x)->name_space : nullptr;
}
