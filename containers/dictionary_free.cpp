// Freeing of nested values.
//
// A dictionary frees its entries, an entry its value, a value may be a dictionary again: followed
// by calls alone, a deep document would exhaust the stack, and a destructor cannot report an error.
// So each thread counts how many containers it is in the middle of destroying; below
// `postpone_below` of them, what the next one owned goes on a chain that the outermost works off.
// The chains are laid through the dying values themselves, since freeing must not need memory.
//
// Values may be objects of other classes: their destructors may free, use or build any other
// container, but no longer reach the dying one.
#include <kiv/object.h>
#include <kiv/sysmem.h>

#include "containers/values.h"

namespace kiv {

namespace {

constexpr int postpone_below = 32;

// A block of object atoms packed for its place in the chain: the next block, then the number of
// pointers and the pointers. Where the block is a single atom, there is no room for the number: the
// lowest bit of the first word says so.
union Word {
    uintptr_t bits;
    void *pointer;
};

thread_local struct {
    int depth = 0;
    DictionaryEntry *entries = nullptr;
    Word *blocks = nullptr;
} dying;

void *chain_entry(void *item, void *) {
    auto *entry = static_cast<DictionaryEntry *>(item);
    entry->dying = dying.entries;
    dying.entries = entry;
    return nullptr;
}

void chain_block(int32_t count, Atom *atoms) noexcept {
    auto *words = reinterpret_cast<Word *>(atoms);
    if (count == 1) {
        void *x = atoms[0].type == TypeObject ? atoms[0].value.obj : nullptr;
        words[0].bits = reinterpret_cast<uintptr_t>(dying.blocks) | 1;
        words[1].pointer = x;
    } else {
        size_t kept = 0;
        for (int32_t i = 0; i < count; ++i) {
            if (atoms[i].type == TypeObject) {
                void *x = atoms[i].value.obj;
                words[kept++].pointer = x;
            }
        }
        std::memmove(words + 2, words, kept * sizeof(Word));
        words[0].pointer = dying.blocks;
        words[1].bits = kept;
    }
    dying.blocks = words;
}

void free_first_block() noexcept {
    Word *words = dying.blocks;
    if (words[0].bits & 1) {
        dying.blocks = reinterpret_cast<Word *>(words[0].bits & ~uintptr_t{1});
        object_free(words[1].pointer);
    } else {
        dying.blocks = static_cast<Word *>(words[0].pointer);
        for (uintptr_t i = 0; i < words[1].bits; ++i) {
            object_free(words[2 + i].pointer);
        }
    }
    sysmem_freeptr(words);
}

// Counts a container that is being destroyed; the outermost works off what was postponed.
class Dying {
  public:
    Dying() noexcept { ++dying.depth; }
    ~Dying() {
        while (dying.depth == 1 && (dying.entries || dying.blocks)) {
            if (DictionaryEntry *entry = dying.entries) {
                dying.entries = entry->dying;
                object_free(entry);
            } else {
                free_first_block();
            }
        }
        --dying.depth;
    }
    Dying(const Dying &) = delete;
    Dying &operator=(const Dying &) = delete;
    bool postponed() const noexcept { return dying.depth > postpone_below; }
};

}  // namespace

void free_order(Linklist *order) noexcept {
    if (!order) {
        return;
    }
    const Dying scope;
    if (scope.postponed()) {
        linklist_funall(order, chain_entry, nullptr);
        linklist_chuck(order);
    } else {
        object_free(order);
    }
}

void free_object_atoms(int32_t count, Atom *atoms) noexcept {
    if (!atoms) {
        return;
    }
    const Dying scope;
    if (scope.postponed()) {
        chain_block(count, atoms);
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        if (atoms[i].type == TypeObject) {
            object_free(atoms[i].value.obj);
        }
    }
    sysmem_freeptr(atoms);
}

void free_entry_value(DictionaryEntry *entry) noexcept {
    const Atom value = entry->value;
    entry->value = {};
    if (value.type != TypeObject || (entry->flags & (ContainerReference | ContainerData))) {
        return;
    }
    if (entry->flags & ContainerMemory) {
        sysmem_freeptr(value.value.obj);
    } else {
        object_free(value.value.obj);
    }
}

}  // namespace kiv
