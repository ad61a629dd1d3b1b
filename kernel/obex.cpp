// The extension records of objects.
//
// 1. A record is made when something has to be kept for the object: a reference beyond the first, a
//    name, a client, a value. Most objects of a running patcher never need one.
// 2. Where it is: the class's extension offset > 0 names a pointer field of the instance; 0 means
//    the table below; < 0 means that the class's instances have none.
// 3. The table is divided into shards by the object's address, each an open-addressed array that
//    doubles when it is three quarters full, so that it neither slows down nor is fought over when
//    there are very many objects. Removing shifts later entries back: there are no tombstones.
//
// Thread safety: a shard's lock guards its array and the values of the records of its objects, also
// of those with a field of their own. No shard's lock is held across a call out.
#include <kiv/hashtab.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "kernel/object_private.h"

namespace kiv {

namespace {

constexpr size_t shard_count = 64;
constexpr size_t first_capacity = 64;

size_t hash_of(const void *address) {
    auto bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(address)) >> 4;
    bits *= 0x9e3779b97f4a7c15u;
    return static_cast<size_t>(bits >> 20);
}

class Shard {
  public:
    ObexRecord *find(const Object *x) const noexcept {
        if (!slots_) {
            return nullptr;
        }
        for (size_t i = home(x);; i = next(i)) {
            if (!slots_[i] || slots_[i]->owner == x) {
                return slots_[i];
            }
        }
    }
    bool insert(ObexRecord *record) noexcept {
        if (!reserve()) {
            return false;
        }
        place(record);
        ++count_;
        return true;
    }
    ObexRecord *remove(const Object *x) noexcept {
        if (!slots_) {
            return nullptr;
        }
        size_t hole = home(x);
        while (slots_[hole] && slots_[hole]->owner != x) {
            hole = next(hole);
        }
        ObexRecord *const removed = std::exchange(slots_[hole], nullptr);
        if (!removed) {
            return nullptr;
        }
        --count_;
        for (size_t i = next(hole); slots_[i]; i = next(i)) {
            // An entry may move into the hole unless its home lies behind the hole.
            const size_t distance = (i - home(slots_[i]->owner)) & (capacity_ - 1);
            if (distance >= ((i - hole) & (capacity_ - 1))) {
                slots_[hole] = std::exchange(slots_[i], nullptr);
                hole = i;
            }
        }
        return removed;
    }

    platform::CriticalSection lock;

  private:
    size_t home(const Object *x) const noexcept {
        return (hash_of(x) / shard_count) & (capacity_ - 1);
    }
    size_t next(size_t i) const noexcept { return (i + 1) & (capacity_ - 1); }
    void place(ObexRecord *record) noexcept {
        size_t i = home(record->owner);
        while (slots_[i]) {
            i = next(i);
        }
        slots_[i] = record;
    }
    bool reserve() noexcept {
        if (slots_ && (count_ + 1) * 4 <= capacity_ * 3) {
            return true;
        }
        const size_t old_capacity = slots_ ? capacity_ : 0;
        const size_t capacity = slots_ ? capacity_ * 2 : first_capacity;
        auto **const slots = static_cast<ObexRecord **>(
            sysmem_newptrclear(static_cast<int64_t>(capacity * sizeof(ObexRecord *))));
        if (!slots) {
            return false;
        }
        ObexRecord **const old = std::exchange(slots_, slots);
        capacity_ = capacity;
        for (size_t i = 0; i < old_capacity; ++i) {
            if (old[i]) {
                place(old[i]);
            }
        }
        sysmem_freeptr(old);
        return true;
    }

    ObexRecord **slots_ = nullptr;
    size_t capacity_ = 0;
    size_t count_ = 0;
};

Shard &shard_of(const Object *x) noexcept {
    // Never destroyed: objects outlive the end of main().
    using Shards = std::array<Shard, shard_count>;
    alignas(Shards) static std::byte storage[sizeof(Shards)];
    static Shards &shards = *new (storage) Shards;
    return shards[hash_of(x) % shard_count];
}

// Holds the lock of an object's record, made or not.
class ObexLock {
  public:
    explicit ObexLock(const Object *x) noexcept : shard_(shard_of(x)) { shard_.lock.enter(); }
    ~ObexLock() { shard_.lock.exit(); }
    ObexLock(const ObexLock &) = delete;
    ObexLock &operator=(const ObexLock &) = delete;
    Shard *operator->() const noexcept { return &shard_; }

  private:
    Shard &shard_;
};

ObexRecord *&field_of(const Object *x, int32_t offset) noexcept {
    return *reinterpret_cast<ObexRecord **>(reinterpret_cast<uintptr_t>(x) +
                                            static_cast<uintptr_t>(offset));
}

ObexRecord *record_locked(const Object *x, const ObexLock &lock) noexcept {
    const int32_t offset = class_of(x)->obex_offset;
    if (offset < 0) {
        return nullptr;
    }
    return offset > 0 ? field_of(x, offset) : lock->find(x);
}

// One of 63 bits for a key. A class remembers those of the keys that any instance ever kept a value
// under, so that asking for what none has (most objects have no attributes of their own) takes no
// lock.
uint64_t key_bit(const Symbol *key) noexcept {
    return uint64_t{1} << (hash_of(key) % 63);
}

bool may_have(const Object *x, const Symbol *key) noexcept {
    return std::atomic_ref(class_of(x)->value_keys).load(std::memory_order_acquire) & key_bit(key);
}

void value_free(const ObexValue &kept) {
    if (kept.flags & ContainerMemory) {
        sysmem_freeptr(kept.value);
    } else if (!(kept.flags & (ContainerReference | ContainerData)) && object_valid(kept.value)) {
        object_free(kept.value);
    }
}

ObexRecord *record_make(Object *x) {
    void *const block = sysmem_newptr(sizeof(ObexRecord));
    return block ? new (block) ObexRecord(x) : nullptr;
}

// The bit of a class's value keys that stands for no key: an instance has had a record.
constexpr uint64_t has_records = uint64_t{1} << 63;

ObexRecord *record_take(Object *x) noexcept {
    const int32_t offset = class_of(x)->obex_offset;
    const ObexLock lock(x);
    return offset > 0 ? std::atomic_ref(field_of(x, offset)).exchange(nullptr) : lock->remove(x);
}

}  // namespace

ObexRecord *obex_look_up(const Object *x) noexcept {
    const ObexLock lock(x);
    return record_locked(x, lock);
}

ObexRecord *obex_enforce(Object *x) noexcept {
    const int32_t offset = class_of(x)->obex_offset;
    if (offset < 0) {
        return nullptr;
    }
    const ObexLock lock(x);
    if (ObexRecord *const record = record_locked(x, lock)) {
        return record;
    }
    ObexRecord *const made = record_make(x);
    if (!made) {
        return nullptr;
    }
    if (offset > 0) {
        std::atomic_ref(field_of(x, offset)).store(made);
    } else if (!lock->insert(made)) {
        obex_unpin(made);
        return nullptr;
    } else {
        std::atomic_ref(class_of(x)->value_keys).fetch_or(has_records);
    }
    return made;
}

void obex_take(Object *x) noexcept {
    ObexRecord *const record = record_take(x);
    if (!record) {
        return;
    }
    record->dead.store(true);
    // The newest first, so that what was stored later may rest on what was stored before.
    for (;;) {
        ObexValue kept;
        {
            const ObexLock lock(x);
            if (record->values.empty()) {
                break;
            }
            kept = record->values.back();
            record->values.pop_back();
        }
        value_free(kept);
    }
    obex_unpin(record);
}

void obex_unpin(ObexRecord *record) noexcept {
    if (record->pins.fetch_sub(1) == 1) {
        record->~ObexRecord();
        sysmem_freeptr(record);
    }
}

ObexRecord *obex_pin(const Object *x) noexcept {
    const ObexLock lock(x);
    ObexRecord *const record = record_locked(x, lock);
    if (record) {
        record->pins.fetch_add(1);
    }
    return record;
}

uint32_t obex_flags(const Object *x) noexcept {
    const ObexPin record(x);
    return record ? record->flags.load() : 0;
}

bool obex_flags_set(Object *x, uint32_t bits) noexcept {
    ObexRecord *const record = obex_enforce(x);
    if (record) {
        record->flags.fetch_or(bits);
    }
    return record || class_of(x)->obex_offset < 0;
}

Object *object_box(const Object *x) noexcept {
    const ObexPin record(x);
    return record ? record->box.load() : nullptr;
}

void object_box_set(Object *x, Object *box) noexcept {
    if (ObexRecord *const record = box ? obex_enforce(x) : obex_find(x)) {
        record->box.store(box);
    }
}

}  // namespace kiv

using namespace kiv;

void *object_obex_enforce(void *x) noexcept {
    return object_valid(x) ? obex_enforce(static_cast<Object *>(x)) : nullptr;
}

ErrorCode object_obex_store(void *x, Symbol *key, void *value) noexcept {
    return object_obex_storeflags(x, key, value, ContainerReference);
}

ErrorCode object_obex_storeflags(void *x, Symbol *key, void *value, int32_t flags) noexcept {
    if (!x || !key) {
        return ErrorInvalidPointer;
    }
    auto *const object = static_cast<Object *>(x);
    ObexRecord *const record = object_valid(x) ? obex_enforce(object) : nullptr;
    if (!record) {
        return ErrorGeneric;
    }
    std::atomic_ref(class_of(x)->value_keys).fetch_or(key_bit(key), std::memory_order_release);
    ObexValue replaced{key, nullptr, ContainerReference};
    try {
        const ObexLock lock(object);
        const auto kept = std::find_if(record->values.begin(), record->values.end(),
                                       [key](const ObexValue &entry) { return entry.key == key; });
        if (kept == record->values.end()) {
            record->values.push_back({key, value, flags});
        } else {
            replaced = std::exchange(*kept, {key, value, flags});
        }
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
    if (replaced.value != value) {
        value_free(replaced);
    }
    return ErrorNone;
}

ErrorCode object_obex_lookup(void *x, Symbol *key, void **value) noexcept {
    if (!value) {
        return ErrorGeneric;
    }
    *value = nullptr;
    if (!key || !object_valid(x) || class_of(x)->obex_offset < 0) {
        return ErrorGeneric;
    }
    auto *const object = static_cast<Object *>(x);
    if (!may_have(object, key)) {
        return ErrorGeneric;
    }
    const ObexLock lock(object);
    if (const ObexRecord *const record = record_locked(object, lock)) {
        for (const ObexValue &kept : record->values) {
            if (kept.key == key) {
                *value = kept.value;
                return ErrorNone;
            }
        }
    }
    return ErrorGeneric;
}
