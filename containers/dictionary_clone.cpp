// Deep copies of values, and the functions that copy entries from one dictionary to another.
//
// Nested dictionaries and arrays are copied by a loop over a stack of its own. A finished copy
// hangs in its parent from the moment it is made, so that freeing the root frees all of it. The
// source must not be changed meanwhile by another thread; objects of other classes clone
// themselves, and must not change it either.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <new>
#include <utility>

#include "containers/values.h"

namespace kiv {

namespace {

const char *class_name_of(const void *x) noexcept {
    const Symbol *name = object_classname(x);
    return name ? name->name : "";
}

class CloneWalk {
  public:
    ~CloneWalk() { object_free(root_); }

    // Null when it fails; what was made until then is freed with the walk.
    void *run(const void *source) {
        root_ = begin(source);
        bool going = root_ != nullptr;
        while (going && !open_.empty()) {
            going = step();
        }
        return going ? std::exchange(root_, nullptr) : nullptr;
    }

  private:
    // A copy that is being filled: one of the two.
    struct Open {
        Dictionary *dictionary = nullptr;
        Atomarray *array = nullptr;
        const Atom *source = nullptr;  // of an array
        size_t begin = 0;              // what remains to be copied: of pending_ or of the source
        size_t next = 0;
        size_t end = 0;
    };

    // Makes the empty copy of a container and opens it.
    void *begin(const void *source) {
        if (open_.size() >= static_cast<size_t>(max_nesting)) {
            error("%s: nested deeper than %d containers, cannot be copied", class_name_of(source),
                  max_nesting);
            return nullptr;
        }
        open_.emplace_back();
        Open open;
        void *copy = is_dictionary(source)
                         ? begin_dictionary(static_cast<const Dictionary *>(source), open)
                         : begin_array(static_cast<const Atomarray *>(source), open);
        open_.back() = open;
        return copy;
    }

    void *begin_dictionary(const Dictionary *source, Open &open) {
        open.begin = open.next = pending_.size();
        dictionary_list(source, pending_);
        open.end = pending_.size();
        open.dictionary = dictionary_new();
        return open.dictionary;
    }

    void *begin_array(const Atomarray *source, Open &open) noexcept {
        open.array = atomarray_duplicate(source);
        if (!open.array) {
            return nullptr;
        }
        for (int32_t i = 0; i < open.array->count; ++i) {
            if (open.array->atoms[i].type == TypeObject) {
                open.array->atoms[i] = {};  // until its copy is there
            }
        }
        atomarray_flags(open.array, source->flags | atomarray_owns);
        open.source = source->atoms;
        open.end = static_cast<size_t>(source->count);
        return open.array;
    }

    bool step() {
        Open &top = open_.back();
        if (top.next < top.end) {
            return top.dictionary ? step_dictionary(top) : step_array(top);
        }
        if (top.dictionary) {
            pending_.resize(top.begin);
        }
        open_.pop_back();
        return true;
    }

    bool step_dictionary(Open &top) {
        Dictionary *target = top.dictionary;
        const EntryView entry = pending_[top.next++];
        DictionaryEntry copy{};
        copy.value = entry.value;
        copy.flags = entry.flags;
        if (copy.value.type == TypeObject && !(copy.flags & (ContainerReference | ContainerData)) &&
            copy.value.value.obj) {
            void *x = nullptr;
            if (!(copy.flags & ContainerMemory ? copy_block(copy.value.value.obj, &x)
                                               : clone_one(copy.value.value.obj, &x))) {
                return false;
            }
            if (x) {
                copy.value.value.obj = x;
            } else {
                error("dictionary_appendatom_flags: non-clonable object; class is %s",
                      class_name_of(copy.value.value.obj));
                copy.flags |= ContainerReference;
            }
        }
        if (dictionary_store(target, entry.key, copy.value, copy.flags) == ErrorNone) {
            return true;
        }
        free_entry_value(&copy);
        return false;
    }

    bool step_array(Open &top) {
        Atomarray *array = top.array;
        const size_t i = top.next++;
        const Atom &source = top.source[i];
        void *x = nullptr;
        if (source.type != TypeObject) {
            return true;
        }
        if (!clone_one(source.value.obj, &x)) {
            return false;
        }
        array->atoms[i] = atom_of_object(x ? x : kept_object(source.value.obj));
        return true;
    }

    // False on failure. A container is opened, to be filled later; *copy stays null for an object
    // that cannot be cloned.
    bool clone_one(void *x, void **copy) {
        if (is_dictionary(x) || is_atomarray(x)) {
            *copy = begin(x);
            return *copy;
        }
        return clone_value_object(x, copy);
    }

    static bool copy_block(void *block, void **copy) noexcept {
        const int64_t size = sysmem_ptrsize(block);
        *copy = sysmem_newptr(size);
        if (*copy) {
            sysmem_copyptr(block, *copy, size);
        }
        return *copy;
    }

    void *root_ = nullptr;
    Vector<Open> open_;
    Vector<EntryView> pending_;  // what the open dictionaries have to copy
};

// Copies the entries for which `wanted` answers true.
template <class Wanted>
ErrorCode copy_entries(const Dictionary *source, Dictionary *target, Wanted wanted) noexcept {
    if (!source || !target) {
        return ErrorGeneric;
    }
    if (source == target) {
        return ErrorNone;
    }
    try {
        Vector<EntryView> entries;
        dictionary_list(source, entries);
        for (const EntryView &entry : entries) {
            const bool owned =
                !(entry.flags & (ContainerReference | ContainerData | ContainerMemory));
            const int32_t flags = owned ? entry.flags | append_clones
                                        : (entry.flags & ~ContainerMemory) | ContainerReference;
            if (wanted(entry.key)) {
                const ErrorCode result = dictionary_store(target, entry.key, entry.value, flags);
                if (result != ErrorNone) {
                    return result;
                }
            }
        }
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

}  // namespace

bool clone_value_object(const void *x, void **copy) noexcept {
    *copy = nullptr;
    try {
        if (is_dictionary(x) || is_atomarray(x)) {
            *copy = CloneWalk().run(x);
            return *copy;
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    if (is_string(x)) {
        const char *text = static_cast<const String *>(x)->text;
        *copy = string_new(text);
        return *copy;
    }
    *copy = object_valid(x) ? object_clone(const_cast<void *>(x)) : nullptr;
    return true;
}

void *kept_object(void *x) noexcept {
    error("cloneatoms: non-clonable object; class is %s", class_name_of(x));
    return object_retain(x) == ErrorNone ? x : nullptr;
}

bool clone_object_atoms(int32_t count, Atom *atoms) noexcept {
    for (int32_t i = 0; i < count; ++i) {
        void *copy = nullptr;
        if (atoms[i].type != TypeObject) {
            continue;
        }
        if (!clone_value_object(atoms[i].value.obj, &copy)) {
            for (int32_t made = 0; made < i; ++made) {
                object_free(atom_getobj(atoms + made));
            }
            return false;
        }
        atoms[i].value.obj = copy ? copy : kept_object(atoms[i].value.obj);
    }
    return true;
}

}  // namespace kiv

using namespace kiv;

Dictionary *dictionary_clone(const Dictionary *dictionary) noexcept {
    void *copy = nullptr;
    if (dictionary) {
        clone_value_object(dictionary, &copy);
    }
    return static_cast<Dictionary *>(copy);
}

ErrorCode dictionary_clone_to_existing(const Dictionary *source, Dictionary *target) noexcept {
    if (!source || !target) {
        return ErrorGeneric;
    }
    Dictionary *copy = source == target ? nullptr : dictionary_clone(source);
    if (!copy) {
        return source == target ? ErrorNone : ErrorOutOfMemory;
    }
    dictionary_empty(target);
    std::swap(copy->table, target->table);
    std::swap(copy->order, target->order);
    object_free(copy);
    return ErrorNone;
}

ErrorCode dictionary_copyentries(const Dictionary *source, Dictionary *target,
                                 Symbol **keys) noexcept {
    if (!keys) {
        return ErrorGeneric;
    }
    return copy_entries(source, target, [keys](const Symbol *wanted) {
        for (Symbol **key = keys; *key; ++key) {
            if (*key == wanted) {
                return true;
            }
        }
        return false;
    });
}

ErrorCode dictionary_copyunique(Dictionary *target, const Dictionary *source) noexcept {
    return copy_entries(source, target,
                        [target](const Symbol *key) { return !dictionary_has(target, key); });
}

ErrorCode dictionary_merge_to_existing(const Dictionary *source, Dictionary *target) noexcept {
    return copy_entries(source, target, [](const Symbol *) { return true; });
}
