// What box classes look like to the files that make, load and save boxes.
#pragma once

#include "patcher/fields.h"

namespace kiv {

// An attribute that a class wants saved, with the value that need not be.
struct SavedAttribute {
    Symbol *name;
    Vector<Atom> fallback;  // empty: written whatever its value is
};

// What is worked out once for each class whose instances sit in boxes, or are boxes.
struct BoxClass {
    // For each of box_document_fields: its key, and whether the class replaced the attribute.
    Vector<Symbol *> field_names;
    Vector<bool> replaced;
    // The class's own attributes that are saved, by name.
    Vector<SavedAttribute> saved;
    // Every key of a box dictionary that somebody here reads.
    SymbolMap<bool> keys;
};
const BoxClass *box_class(Class *c) noexcept;  // null without memory

// The settings of single attributes ("saved_attribute_attributes"): applied to the box and the
// object in it, and written as they are now. Writing answers false without memory.
void box_read_settings(Jbox *box, Dictionary *dictionary) noexcept;
bool box_write_settings(Jbox *box, Dictionary *dictionary) noexcept;

// Puts a deep copy of a value into a dictionary, which is made when it is not there yet.
void keep_entry(Dictionary **target, Symbol *key, const Atom &value) noexcept;

}  // namespace kiv
