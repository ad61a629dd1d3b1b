// Snapshots: the values of a patcher's boxes, stored under a name, and recalled by hand or when the
// document has been loaded.
//
// The document holds them as "snapshots": {"restore": the name of the one that loading recalls,
// "list": {name: {box id: values}}}. They stay among the patcher's entries that nothing else knows,
// which are written back. A box takes part when its object answers "getvalueof" and "setvalueof",
// as for a preset. Recalling a value may free boxes and the patcher: it works on a copy, and asks
// for each box by its id. Main thread.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/dictionary.h>

#include "containers/internal.h"
#include "kernel/internal.h"
#include "patcher/box.h"
#include "patcher/document.h"
#include "patcher/patcher.h"

namespace kiv {

namespace {

// A sub-dictionary, made when it is not there and `make` says so; else null.
Dictionary *part_of(Dictionary *whole, Symbol *key, bool make) noexcept {
    Dictionary *part = nullptr;
    if (!whole || dictionary_getdictionary(whole, key, &part) == ErrorNone || !make) {
        return part;
    }
    part = dictionary_new();
    if (part && dictionary_appenddictionary(whole, key, part) != ErrorNone) {
        object_free(part);
        return nullptr;
    }
    return part;
}

Dictionary *snapshots_of(Patcher *patcher, bool make) noexcept {
    if (!patcher->unknown && make) {
        patcher->unknown = dictionary_new();
    }
    return part_of(patcher->unknown, "snapshots"_sym, make);
}

void store_value(Dictionary *values, Jbox *box) noexcept {
    Object *object = box_object(box);
    if (!zgetfn(object, "getvalueof"_sym) || !zgetfn(object, "setvalueof"_sym)) {
        return;
    }
    int32_t count = 0;
    Atom *atoms = nullptr;
    object_method(object, "getvalueof"_sym, &count, &atoms);
    if (count > 0 && atoms) {
        dictionary_appendatoms_flags(values, box->state->id, count, atoms, DictionaryClones);
    }
    sysmem_freeptr(atoms);
}

void store(Patcher *patcher, Symbol *name) noexcept {
    Owned<Dictionary> values(dictionary_new());
    BoxWalk walk(patcher);
    while (Jbox *box = values ? walk.next() : nullptr) {
        store_value(values.get(), box);
    }
    if (!walk.alive()) {
        return;
    }
    Dictionary *snapshots = snapshots_of(patcher, true);
    Dictionary *list = part_of(snapshots, "list"_sym, true);
    bool stored =
        values && list && dictionary_appenddictionary(list, name, values.get()) == ErrorNone;
    if (stored) {
        values.release();
        patcher_touch(patcher);
        stored = dictionary_appendsym(snapshots, "restore"_sym, name) == ErrorNone;
    }
    if (!stored) {
        object_error(as_object(patcher), "snapshot: out of memory");
    }
}

// False when there is no snapshot of that name.
bool restore(Patcher *patcher, Symbol *name) noexcept {
    Dictionary *list = part_of(snapshots_of(patcher, false), "list"_sym, false);
    const Owned<Dictionary> values(dictionary_clone(part_of(list, name, false)));
    int32_t count = 0;
    Symbol **ids = nullptr;
    if (!values || dictionary_getkeys_ordered(values.get(), &count, &ids) != ErrorNone) {
        return false;
    }
    const BoxWalk watch(patcher);
    for (int32_t i = 0; i < count && watch.alive(); ++i) {
        int32_t argc = 0;
        Atom *argv = nullptr;
        Jbox *box = patcher_box_by_id(patcher, ids[i]);
        if (box && zgetfn(box_object(box), "setvalueof"_sym) &&
            dictionary_getatoms(values.get(), ids[i], &argc, &argv) == ErrorNone) {
            object_method(box_object(box), "setvalueof"_sym, argc, argv);
        }
    }
    dictionary_freekeys(values.get(), count, ids);
    return true;
}

void remove(Patcher *patcher, Symbol *name) noexcept {
    Dictionary *snapshots = snapshots_of(patcher, false);
    Dictionary *list = part_of(snapshots, "list"_sym, false);
    Symbol *marked = nullptr;
    if (list && dictionary_deleteentry(list, name) == ErrorNone) {
        if (dictionary_getsym(snapshots, "restore"_sym, &marked) == ErrorNone && marked == name) {
            dictionary_deleteentry(snapshots, "restore"_sym);
        }
        patcher_touch(patcher);
    }
}

}  // namespace

void patcher_snapshot_message(Patcher *patcher, Symbol *word, Symbol *name) noexcept {
    if (!*name->name) {
        object_error(as_object(patcher), "missing arguments for message \"snapshot\"");
    } else if (word == "store"_sym) {
        store(patcher, name);
    } else if (word == "delete"_sym) {
        remove(patcher, name);
    } else if (word != "restore"_sym) {
        object_error(as_object(patcher), "snapshot: no such word: \"%s\"", word->name);
    } else {
        const BoxWalk watch(patcher);
        if (!restore(patcher, name) && watch.alive()) {
            object_error(as_object(patcher), "snapshot: no such snapshot: %s", name->name);
        }
    }
}

void patcher_restore_snapshot(Patcher *patcher) noexcept {
    Symbol *name = nullptr;
    Dictionary *snapshots = snapshots_of(patcher, false);
    if (snapshots && dictionary_getsym(snapshots, "restore"_sym, &name) == ErrorNone) {
        restore(patcher, name);
    }
}

}  // namespace kiv
