// The document form of boxes.
#include <kiv/atom.h>
#include <kiv/attr.h>

#include "kernel/internal.h"
#include "patcher/box.h"
#include "patcher/document.h"
#include "patcher/patcher_attributes.h"

namespace kiv {

namespace {

bool same_atoms(int32_t argc, const Atom *argv, const Vector<Atom> &other) noexcept {
    if (static_cast<size_t>(argc) != other.size()) {
        return false;
    }
    for (size_t i = 0; i < other.size(); ++i) {
        const bool numbers = atom_is_number(argv[i]) && atom_is_number(other[i]);
        if (numbers ? atom_getfloat(argv + i) != atom_getfloat(&other[i])
                    : argv[i].type != other[i].type || argv[i].value.i != other[i].value.i) {
            return false;
        }
    }
    return true;
}

bool write_rect(Dictionary *dictionary, Symbol *key, const double *rect) noexcept {
    Atom atoms[4];
    atom_setdouble_array(4, atoms, 4, rect);
    return !dictionary_appendatoms(dictionary, key, 4, atoms);
}

// The attributes of the box itself or of the object in it that their class wants saved.
bool write_saved(Object *x, Dictionary *dictionary) noexcept {
    const BoxClass *known = box_class(class_of(x));
    bool done = known != nullptr;
    for (size_t i = 0; done && i < known->saved.size(); ++i) {
        const SavedAttribute &attribute = known->saved[i];
        int32_t argc = 0;
        Atom *argv = nullptr;
        if (object_attr_getvalueof(x, attribute.name, &argc, &argv)) {
            continue;
        }
        if (attribute.fallback.empty() || !same_atoms(argc, argv, attribute.fallback)) {
            done &= append_copies(dictionary, attribute.name, argc, argv);
        }
        sysmem_freeptr(argv);
    }
    return done;
}

bool write_ports(Jbox *box, Dictionary *dictionary) noexcept {
    dictionary_appendlong(dictionary, "numinlets"_sym, box_inlet_count(box));
    dictionary_appendlong(dictionary, "numoutlets"_sym, box_outlet_count(box));
    int32_t argc = 0;
    Atom *argv = nullptr;
    if (object_attr_getvalueof(box, "outlettype"_sym, &argc, &argv)) {
        return false;
    }
    const ErrorCode failure = dictionary_appendatoms(dictionary, "outlettype"_sym, argc, argv);
    sysmem_freeptr(argv);
    return !failure;
}

bool write_geometry(const BoxState *part, Dictionary *dictionary) noexcept {
    bool done = write_rect(dictionary, "patching_rect"_sym, part->patching_rect);
    if (part->presentation) {
        done &= !dictionary_appendlong(dictionary, "presentation"_sym, 1) &&
                write_rect(dictionary, "presentation_rect"_sym, part->presentation_rect);
    }
    return done;
}

bool write_fields(Jbox *box, Dictionary *dictionary) noexcept {
    static const BoxState defaults;
    const BoxClass *known = box_class(class_of(box));
    const auto fields = box_document_fields();
    bool done = known != nullptr;
    for (size_t i = 0; done && i < fields.size(); ++i) {
        if (fields[i].same && !known->replaced[i] && !fields[i].same(box->state, &defaults)) {
            done &= field_write(fields[i], box, dictionary);
        }
    }
    return done;
}

// What the object in an object box has to say for itself: its saved attributes, and whatever its
// own "appendtodictionary" adds. What the document said of these when it was loaded is out of date.
bool write_object(Jbox *box, Dictionary *dictionary) noexcept {
    Object *object = box->state->object;
    if (!object || as_patcher(object)) {
        return true;
    }
    bool done = write_saved(object, dictionary);
    if (zgetfn(object, "appendtodictionary"_sym)) {
        object_method(object, "appendtodictionary"_sym, dictionary);
    }
    return done;
}

bool write_unknown(Jbox *box, Dictionary *dictionary) noexcept {
    const BoxState *part = box->state;
    if (!part->object || as_patcher(part->object) || !part->unknown) {
        return add_missing(part->unknown, dictionary);
    }
    Owned<Dictionary> rest(dictionary_clone(part->unknown));
    const BoxClass *known = box_class(class_of(part->object));
    if (!rest || !known) {
        return false;
    }
    for (const SavedAttribute &attribute : known->saved) {
        if (dictionary_hasentry(rest.get(), attribute.name)) {
            dictionary_deleteentry(rest.get(), attribute.name);
        }
    }
    return add_missing(rest.get(), dictionary);
}

// A subpatcher is part of its box's document, unless it has a file of its own and the box does not
// embed that.
bool write_subpatcher(Jbox *box, Dictionary *dictionary) noexcept {
    Patcher *patcher = as_patcher(box->state->object);
    if (!patcher || (patcher_is_file(patcher) && !object_attr_getlong(box, "embed"_sym))) {
        return true;
    }
    Owned<Dictionary> content(dictionary_new());
    if (!content || !patcher_write_dictionary(patcher, content.get()) ||
        dictionary_appenddictionary(dictionary, "patcher"_sym, content.get())) {
        return false;
    }
    content.release();
    return true;
}

}  // namespace

bool box_write_dictionary(Jbox *box, Dictionary *dictionary) noexcept {
    const BoxState *part = box->state;
    if (!part) {
        return false;
    }
    dictionary_appendsym(dictionary, "kivclass"_sym, part->class_name);
    dictionary_appendsym(dictionary, "id"_sym, part->id);
    if (*part->text->name) {
        const bool filled = part->template_text && part->text == part->filled_text;
        dictionary_appendsym(dictionary, "text"_sym, filled ? part->template_text : part->text);
    }
    return write_ports(box, dictionary) && write_geometry(part, dictionary) &&
           write_fields(box, dictionary) && write_saved(as_object(box), dictionary) &&
           write_object(box, dictionary) && box_write_settings(box, dictionary) &&
           write_unknown(box, dictionary) && write_subpatcher(box, dictionary);
}

}  // namespace kiv
