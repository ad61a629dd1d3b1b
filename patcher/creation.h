// What box creation and loading offer to the patcher, box and cord model of the same folder, and
// what their own files share.
//
// During a creation these reserved symbols are bound (their `thing`), each restored afterwards:
//   "#P"  the patcher that receives the box (also the parent of a subpatcher being constructed)
//   "#B"  the box whose object is being made
//   "#PD" the patcher dictionary of the document being loaded (never of a subpatcher inside it)
//
// Everything here runs on the main thread.
#pragma once

#include <kiv/dictionary.h>
#include <kiv/types.h>

#include "sched/internal.h"

struct Patcher;

namespace kiv {

// --- Start-up ------------------------------------------------------------------------------------

// Registers the object box, the placeholders and the object maker, and the module search with the
// kernel. Called by patcher_start once the patcher, box and cord classes are registered.
void creation_start() noexcept;

// --- Methods of the patcher class that live with creation and loading ----------------------------

// "newobject" (argument type "gimmeback"): a dictionary, or a message that is sent to the patcher
// itself. The reply is the new box.
ErrorCode patcher_newobject_message(Object *patcher, Symbol *selector, int32_t argc, Atom *argv,
                                    Atom *reply) noexcept;
// Creates a box from its dictionary (or from one that holds it under "box"): never null while there
// is memory and the patcher lives, since what cannot be made becomes a placeholder. The dictionary
// stays the caller's.
Object *patcher_newobject(Object *patcher, Dictionary *dictionary) noexcept;
// "loadbang" (no arguments).
void patcher_loadbang(Object *patcher) noexcept;
// The post-load step of a new object's subpatchers while a document is being loaded.
void patcher_postload(Object *subpatcher) noexcept;
// Takes a patcher that is being freed out of the loadbang queue and the loader's tables.
void creation_forget(Object *patcher) noexcept;

// --- Creation ------------------------------------------------------------------------------------

// The name a patcher under construction is to take before its boxes are made (a subpatcher's first
// argument), or the empty symbol. A patcher with a file has its name from that.
Symbol *creation_patcher_name() noexcept;
// The arguments that "#0" to "#9" stand for in a patcher: those of the abstraction it is or sits
// in; null when there are none.
const Vector<Atom> *creation_arguments(Patcher *patcher) noexcept;
// The text of a box with the arguments in place of "#0" to "#9".
Text creation_substitute(const char *text, const Vector<Atom> &arguments);
// Equal but for the case of the letters a to z.
bool same_casefree(std::string_view a, std::string_view b) noexcept;
// Appends text that is to be read as one word.
void append_word(Text &out, const char *word);
// Gives a box dictionary that has only a position the rectangle that goes with it.
void creation_complete_rect(Dictionary *dictionary) noexcept;
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

// The creation of one box, innermost first in a chain.
struct CreationFrame {
    explicit CreationFrame(Dictionary *dictionary) noexcept;
    ~CreationFrame();
    CreationFrame(const CreationFrame &) = delete;
    CreationFrame &operator=(const CreationFrame &) = delete;

    // False when patchers are nested so deeply that the stack could run out.
    bool allowed() const noexcept;

    Dictionary *box_dictionary;
    Symbol *patcher_name;
    // A user-interface class that a maker was asked for: its instance must be a box.
    Class *ui_class = nullptr;
    CreationFrame *outer;
    int32_t depth;
};
CreationFrame *creation_frame() noexcept;  // the innermost, or null

// A message text as the active translation has it.
const char *translated(const char *text) noexcept;

// --- The parts of creation (each in the file of its name) ----------------------------------------

void newobj_start() noexcept;
void bpatcher_start() noexcept;
void bogus_start() noexcept;
void maker_start() noexcept;

// Marks what stands for an object that could not be made; null without memory.
Object *bogus_object_new() noexcept;
// The box that stands for a box that could not be made, made from a clone of its dictionary.
Object *bogus_box_new(Object *patcher, Dictionary *dictionary, Symbol *real_class) noexcept;
// An object's box text as atoms, arguments substituted.
Vector<Atom> box_text_atoms(const char *text, const Vector<Atom> *arguments);

// True when a maker has a method of its own for a name.
bool maker_understands(Symbol *name) noexcept;
Symbol *nametab_lookup(Symbol *class_name) noexcept;  // the class name itself when unmapped

// A file that may define a class.
struct ClassFile {
    char name[512];
    int16_t path;
    uint32_t type;
};
bool class_file_locate(const char *file_name, ClassFile *file) noexcept;
// Looks for the module of a class and loads it; true when one was loaded by this call.
bool module_search(Symbol *name_space, Symbol *class_name) noexcept;
// Loads a module file, once; false when it is bad or has been loaded before.
bool module_load(Symbol *class_name, const ClassFile &file) noexcept;

// What "#0" to "#9" stand for in an abstraction: the number of its load, which no other load has,
// then nine arguments, 0 where none was given.
struct AbstractionArguments {
    AbstractionArguments(int32_t argc, const Atom *argv) noexcept;
    static constexpr int32_t count = 10;
    Atom atoms[count];
};
// Makes an object from a class that is no built-in: by its file, or reports that there is none.
void *abstraction_make(Symbol *name_space, Symbol *class_name, Symbol *file_name, int32_t argc,
                       Atom *argv) noexcept;
void *subpatcher_make(int32_t argc, Atom *argv) noexcept;

// --- Loading -------------------------------------------------------------------------------------

// How many documents are being loaded inside one another: 0 when none is.
int32_t load_depth() noexcept;
// Counts a load for a scope. The outermost one owns the parse cache and the loadbang protocol.
class LoadScope {
  public:
    LoadScope() noexcept;
    ~LoadScope();
    LoadScope(const LoadScope &) = delete;
    LoadScope &operator=(const LoadScope &) = delete;
    bool outermost() const noexcept { return outermost_; }

  private:
    bool outermost_;
};
// True when the first bytes of a file look like a patcher document's; 0 or the system's error code
// in *result.
bool file_holds_patcher(const char *file_name, int16_t path, int32_t *result) noexcept;
// The generic loader: opens a file by its type and, when it is the outermost load (or
// `standalone`: the patcher will sit in no box), delivers loadbang to it.
Object *load_file(const char *file_name, int16_t path, uint32_t type, int32_t argc, Atom *argv,
                  Symbol *name_space, bool standalone) noexcept;
// The same for a document that has been read already, from the file of that name.
Object *load_document(Dictionary *document, const ClassFile &file, int32_t argc, Atom *argv,
                      Symbol *name_space) noexcept;
// Opens the patcher of a collective. Throws std::bad_alloc.
void *collective_load(const char *file_name, int16_t path, int32_t argc, Atom *argv,
                      Symbol *name_space);
// The document of a name in the collective that the patcher under construction comes from, with the
// rest of `file` filled in; null when there is none.
Dictionary *collective_document(ClassFile *file) noexcept;
void collective_forget(const Object *patcher) noexcept;

// The loadbang protocol around an outermost load.
void loadbang_load_begins() noexcept;
void loadbang_load_ends() noexcept;
// Delivers loadbang to a loaded patcher, or queues it while loadbang is suspended.
void loadbang_deliver(Object *patcher) noexcept;
void loadbang_forget(Object *patcher) noexcept;
void nameload_forget(Object *patcher) noexcept;

}  // namespace kiv
