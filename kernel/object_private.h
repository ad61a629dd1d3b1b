// What the object family's files share: the extension record.
#pragma once

#include <atomic>

#include "kernel/internal.h"
#include "sched/internal.h"

namespace kiv {

// One value kept for an object under a key.
struct ObexValue {
    Symbol *key;
    void *value;
    int32_t flags;  // ownership, as in the containers
};

// Flag bit of a record: its object is, or was, attached to others. A notification on another thread
// may still reach for it while it is freed, so its memory goes to memory_retire.
inline constexpr uint32_t obex_client = 0x10000;

// The extension record of an object, made the first time that anything has to be kept for it.
// Found through a pointer field of the instance or through a kernel-wide table (obex.cpp).
struct ObexRecord {
    explicit ObexRecord(Object *object) noexcept : owner(object) {}

    Object *const owner;
    std::atomic<int32_t> references{1};
    std::atomic<uint32_t> flags{0};
    std::atomic<Object *> box{nullptr};
    // The owner's "notify" method, looked up once: notify_unknown until then.
    std::atomic<uintptr_t> notify{notify_unknown};
    // Walks that call out pin the record, so that it outlives them; `dead` tells them to stop.
    std::atomic<int32_t> pins{1};
    std::atomic<bool> dead{false};
    platform::CriticalSection freeing;  // held while the owner is freed

    // Guarded by the record's lock (ObexLock).
    Vector<ObexValue> values;

    // Guarded by the kernel's global critical region.
    std::atomic<Symbol *> name{nullptr};  // null while unregistered; read without the region
    Symbol *name_space = nullptr;
    int32_t registrations = 0;
    Vector<Object *> clients;      // attached to the owner, in order of attaching
    uint32_t detached = 0;         // how often one was taken out
    Vector<Object *> attached_to;  // what the owner is a client of

    static constexpr uintptr_t notify_unknown = 74;
};

// Whether an object certainly has no record. Most never get one, and a field that is still empty,
// or a class none of whose instances ever had one, tells so without the lock, which freeing many
// objects would feel.
inline bool obex_none(const Object *x) noexcept {
    Class *const c = class_of(x);
    if (c->obex_offset > 0) {
        const auto field = reinterpret_cast<uintptr_t>(x) + static_cast<uintptr_t>(c->obex_offset);
        return !std::atomic_ref(*reinterpret_cast<ObexRecord **>(field)).load();
    }
    return c->obex_offset < 0 || std::atomic_ref(c->value_keys).load() == 0;
}

// The record of a live object; null when it has none.
ObexRecord *obex_look_up(const Object *x) noexcept;
inline ObexRecord *obex_find(const Object *x) noexcept {
    return obex_none(x) ? nullptr : obex_look_up(x);
}
// The same, made when missing; null when the class allows none or memory is exhausted.
ObexRecord *obex_enforce(Object *x) noexcept;
// Takes the record from an object that is being freed and frees the values it owns. The memory goes
// with the last pin.
void obex_take(Object *x) noexcept;
inline void obex_release(Object *x) noexcept {
    if (!obex_none(x)) {
        obex_take(x);
    }
}
ObexRecord *obex_pin(const Object *x) noexcept;
void obex_unpin(ObexRecord *record) noexcept;

// Keeps a record's memory for a scope.
class ObexPin {
  public:
    explicit ObexPin(const Object *x) noexcept : record_(obex_none(x) ? nullptr : obex_pin(x)) {}
    ~ObexPin() {
        if (record_) {
            obex_unpin(record_);
        }
    }
    ObexPin(const ObexPin &) = delete;
    ObexPin &operator=(const ObexPin &) = delete;
    explicit operator bool() const noexcept { return record_ != nullptr; }
    ObexRecord *operator->() const noexcept { return record_; }
    ObexRecord *get() const noexcept { return record_; }

  private:
    ObexRecord *record_;
};

// Ends every attachment and subscription of an object that is being freed.
void registry_forget(Object *x) noexcept;
// Gives up one registration (the last one ends it): true while others still hold it.
bool registry_unregister(Object *x) noexcept;
// An object registered under a name in any namespace, "nobox" first; null when there is none.
Object *registry_find_anywhere(Symbol *name) noexcept;

// Objects in the middle of being freed, in the whole process.
int32_t objects_being_freed() noexcept;

// True for a null pointer and for a record whose method reference is null. An address that cannot
// be an object's is not read.
KIV_READS_STALE inline bool object_lacks_methods(const void *x) noexcept {
    return !x || ((reinterpret_cast<uintptr_t>(x) & 7) == 0 && platform::readable_32(x) &&
                  !static_cast<const Object *>(x)->methods);
}

}  // namespace kiv
