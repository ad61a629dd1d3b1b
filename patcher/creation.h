// What box creation and loading offer to the patcher, box and cord model of the same folder.
//
// During a creation these reserved symbols are bound (their `thing`), each restored afterwards:
//   "#P"  the patcher that receives the box (also the parent of a subpatcher being constructed)
//   "#B"  the box whose object is being made
//   "#PD" the patcher dictionary of the document being loaded (never of a subpatcher inside it)
// Everything here runs on the main thread.
#pragma once

#include <kiv/dictionary.h>
#include <kiv/types.h>

#include "sched/internal.h"

namespace kiv {

// --- Start-up ------------------------------------------------------------------------------------

// Registers the object box, the placeholders, the object maker and the loader's state. Called by
// patcher_start once the patcher, box and cord classes are registered.
void creation_start() noexcept;

// --- Methods of the patcher class that live with creation and loading ----------------------------

// "newobject" (argument type "gimmeback"): a dictionary, or a message that is sent to the patcher
// itself. The reply is the new box.
ErrorCode patcher_newobject_message(Object *patcher, Symbol *selector, int32_t argc, Atom *argv,
                                    Atom *reply) noexcept;
// Creates a box from its dictionary (or from one that holds it under "box"): never null while there
// is memory, since what cannot be made becomes a placeholder. The dictionary stays the caller's.
Object *patcher_newobject(Object *patcher, Dictionary *dictionary) noexcept;
// "loadbang" (no arguments).
void patcher_loadbang(Object *patcher) noexcept;
// The post-load step of a new object's subpatchers while a document is being loaded.
void patcher_postload(Object *subpatcher) noexcept;
// Takes a patcher that is being freed out of the loadbang queue and the loader's tables.
void creation_forget(Object *patcher) noexcept;

// --- Creation ------------------------------------------------------------------------------------

// The dictionary of the box whose object is being made right now, or null: where the constructor of
// a subpatcher finds the "patcher" entry, and a placeholder its inlet and outlet counts.
Dictionary *creation_box_dictionary() noexcept;
// The name a patcher under construction is to take before its boxes are made (a subpatcher's first
// argument, a file name without its extension), or the empty symbol.
Symbol *creation_patcher_name() noexcept;
// A class of the patcher's namespace, case-free; loads its module when need be.
Class *creation_find_class(Symbol *name_space, Symbol *name) noexcept;
// The object that makes the objects of a namespace: "#N" for "box", else a class factory.
Object *creation_maker(Symbol *name_space) noexcept;
// Binds a symbol for a scope.
class Binding {
  public:
    Binding(Symbol *symbol, void *value) noexcept : symbol_(symbol), outer_(symbol->thing) {
        symbol_->thing = value;
    }
    ~Binding() { symbol_->thing = outer_; }
    Binding(const Binding &) = delete;
    Binding &operator=(const Binding &) = delete;

  private:
    Symbol *symbol_;
    void *outer_;
};

// --- Loading -------------------------------------------------------------------------------------

// How many documents are being loaded inside one another: 0 when none is.
int32_t load_depth() noexcept;

}  // namespace kiv
