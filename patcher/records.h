// The records of patcher, box and cord, shared by the files of this folder only.
//
// Everything here belongs to the main thread: patchers, boxes and cords are made, changed, walked
// and freed there, and no lock guards them. Messages may run on any thread, but they travel through
// outlets and never touch these records.
//
// Ownership: a patcher owns its boxes and cords; a box owns the object it shows.
#pragma once

#include <kiv/dictionary.h>
#include <kiv/jbox.h>
#include <kiv/jpatcher.h>
#include <kiv/jpatchline.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <unordered_map>

#include "sched/internal.h"

// --- The box part --------------------------------------------------------------------------------

// Global, as Jbox names it. The values given here are the attributes' defaults; constant members
// of documents that hold them are not written.
struct BoxState {
    BoxState() noexcept;

    // Place in the patcher.
    struct Patcher *patcher = nullptr;  // null once the patcher is gone
    Jbox *next = nullptr;
    Jbox *previous = nullptr;
    int64_t serial = 0;      // grows with every box added to the patcher
    int32_t cord_count = 0;  // cords of the patcher that begin or end at the box

    Object *object = nullptr;  // owned; null: the box is its own object
    bool ready = false;        // jbox_ready has been called
    bool placeholder = false;  // stands for a box or an object that could not be made

    Symbol *id;
    Symbol *var_name;
    Symbol *class_name;  // "kivclass": the class asked for, when the box is a placeholder
    Symbol *text;
    Symbol *template_text = nullptr;  // what `filled_text` was made of, with "#1" in it; or null
    Symbol *filled_text = nullptr;
    double patching_rect[4] = {0., 0., 100., 20.};
    double presentation_rect[4] = {0., 0., 0., 0.};
    uint8_t presentation = 0;
    uint8_t hidden = 0;
    uint8_t ignore_click = 0;
    uint8_t background = 0;

    Symbol *font_name;
    double font_size = 12.;
    int32_t font_face = 0;  // bit 0 bold, bit 1 italic
    double color[4] = {0.85, 0.85, 0.85, 1.};
    double text_color[4] = {0., 0., 0., 1.};
    double alpha = 1.;
    Symbol *hint;
    Symbol *annotation;
    Symbol *prototype_name;
    double fixed_width = 0.;
    int32_t line_count = 0;
    int32_t presentation_line_count = 0;

    uint8_t hint_track = 0;
    uint8_t can_hilite = 0;
    uint8_t draw_first_in = 0;
    uint8_t draw_in_last = 0;
    uint8_t grow_y = 0;
    uint8_t grow_both = 0;
    uint8_t no_grow = 0;
    uint8_t outline = 0;
    uint8_t mouse_drag_delta = 0;
    uint8_t caption = 0;  // shown
    Object *text_field = nullptr;

    // What the document said of inlets and outlets: all that is known of a placeholder's.
    int32_t document_inlets = 0;
    int32_t document_outlets = 0;
    kiv::Vector<Symbol *> document_outlet_types;

    // The dictionary the box is being made from, borrowed until jbox_ready.
    Dictionary *source = nullptr;
    // Owned copies of the entries of the document that nothing here knows; null when there are
    // none.
    Dictionary *unknown = nullptr;
};

// --- The patcher ---------------------------------------------------------------------------------

namespace kiv {

struct SymbolHash {
    size_t operator()(const Symbol *symbol) const noexcept {
        return reinterpret_cast<uintptr_t>(symbol) >> 4;
    }
};
template <class V>
using SymbolMap = std::unordered_map<Symbol *, V, SymbolHash, std::equal_to<Symbol *>,
                                     SysAllocator<std::pair<Symbol *const, V>>>;

struct Patchline;
class BoxWalk;

// What stands first in the records of this folder's classes: it keeps the rest free to hold C++
// members (see object_construct).
struct RecordHead {
    Object ob;
    void *obex;
};

// An `inlet` or `outlet` object of a patcher, with the port of the patcher it stands behind.
struct Port {
    Object *object;
    Jbox *box;
    Inlet *inlet;    // of the patcher object; null for outlets
    Outlet *outlet;  // of the patcher object; null for inlets
    Outlet **slot;   // of the `outlet` object, told of every change
};

}  // namespace kiv

// Global, as BoxState names it. The values given here are the attributes' defaults.
struct Patcher {
    Patcher() noexcept;

    kiv::RecordHead head;

    // Boxes in drawing order, and cords in the order in which they were made.
    Jbox *first_box = nullptr;
    Jbox *last_box = nullptr;
    int32_t box_count = 0;
    int64_t next_box_serial = 1;
    uint32_t next_box_number = 1;  // of the next "obj-%ld"
    kiv::SymbolMap<Jbox *> boxes_by_id;
    kiv::SymbolMap<Jbox *> boxes_by_name;
    kiv::Patchline *first_line = nullptr;
    kiv::Patchline *last_line = nullptr;
    int64_t next_connection_stamp = 1;
    kiv::BoxWalk *walks = nullptr;  // walks under way, innermost first
    kiv::Vector<Object *> box_listeners;
    kiv::Vector<kiv::Port> inlets;   // in order of position once settled
    kiv::Vector<kiv::Port> outlets;  // likewise
    bool loading = false;            // its dictionary is being read
    bool freeing = false;

    // Where it stands.
    Jbox *box = nullptr;                // the box it is the content of
    Object *parent_at_birth = nullptr;  // the patcher that was receiving boxes when it was made
    Object *owner = nullptr;            // answers "parentpatcher" for a patcher without a box
    Object *controller = nullptr;       // owned, made when first asked for
    Object *box_font = nullptr;         // likewise
    Object *first_view = nullptr;
    Jbox *focus_box = nullptr;  // the last that asked for the focus
    Object *hub_holder = nullptr;

    // What it is called and where it came from.
    Symbol *name;
    Symbol *title;
    Symbol *file_name;
    int32_t path = 0;  // path identifier of the file; a 16-bit value
    Symbol *class_name;
    Symbol *parent_class;
    Symbol *class_namespace;
    Symbol *description;
    Symbol *digest;
    Symbol *tags;
    Symbol *global_name;
    Symbol *style;
    Symbol *subpatcher_template;
    Symbol *default_focus_box;
    int32_t file_version = 0;     // as the document said
    kiv::Vector<Atom> arguments;  // of an abstraction: ten atoms, the load number first

    uint8_t locked = 0;
    uint8_t no_edit = 0;
    uint8_t dirty = 0;
    uint8_t presentation = 0;
    uint8_t visible = 0;
    uint8_t is_help_file = 0;

    // The window.
    double rect[4] = {0., 0., 0., 0.};  // no size: it has had no window yet
    double open_rect[4] = {0., 0., 0., 0.};
    double background_color[4] = {0.9, 0.9, 0.9, 1.};
    double locked_background_color[4] = {0.9, 0.9, 0.9, 1.};
    double editing_background_color[4] = {0.8, 0.8, 0.8, 1.};
    uint8_t background_locked = 0;
    uint8_t open_in_presentation = 0;
    double default_font_size = 12.;
    int32_t default_font_face = 0;
    Symbol *default_font_name;
    uint8_t grid_on_open = 1;
    double grid_size[2] = {15., 15.};
    uint8_t grid_snap_on_open = 1;
    uint8_t objects_snap_on_open = 1;
    uint8_t status_bar_visible = 2;
    uint8_t toolbar_visible = 1;
    uint8_t left_toolbar_pinned = 0;
    uint8_t top_toolbar_pinned = 0;
    uint8_t right_toolbar_pinned = 0;
    uint8_t bottom_toolbar_pinned = 0;
    uint8_t toolbars_unpinned_last_save = 0;
    uint8_t tall_new_boxes = 0;
    int32_t box_animate_time = 200;
    uint8_t imprint = 0;
    uint8_t horizontal_scroll = 1;
    uint8_t vertical_scroll = 1;
    double device_width = 0.;
    uint8_t show_root_patcher_on_tab = 1;
    uint8_t show_on_tab = 0;
    uint8_t help_sidebar_closed = 0;
    uint8_t workspace_disabled = 0;
    uint8_t isolate_audio = 0;

    // Creation of boxes.
    Object *last_created = nullptr;  // by "newobject"; borrowed, forgotten when it is removed
    double paste_offset[2] = {0., 0.};
    bool hide_new_boxes = false;

    // Loadbang; kept by loading.
    Patcher *next_loadbang = nullptr;
    int64_t loadbang_generation = 0;  // the generation served last
    bool in_loadbang_queue = false;

    // Owned copies of what the document holds and nothing here knows, each null when there is none:
    // entries of the patcher dictionary, and elements of "boxes" and "lines" of which no box or
    // cord could be made.
    Dictionary *unknown = nullptr;
    Atomarray *stray_boxes = nullptr;
    Atomarray *stray_lines = nullptr;
};

namespace kiv {

// A cord. `connected` tells whether the outlet has a connection for it: a cord whose outlet or
// inlet does not exist, or at a placeholder, stays in the patcher and in the document without one.
struct Patchline {
    Patchline() noexcept = default;

    RecordHead head;
    Patcher *patcher = nullptr;
    Patchline *next = nullptr;
    Jbox *box1 = nullptr;
    Jbox *box2 = nullptr;
    int32_t outlet = 0;
    int32_t inlet = 0;
    bool connected = false;
    // The later a connection was made, the greater its stamp, and the earlier its outlet serves it.
    int64_t stamp = 0;
    Vector<double> midpoints;  // x/y pairs
    uint8_t hidden = 0;
    uint8_t disabled = 0;
    uint8_t has_color = 0;
    uint8_t straight_start = 0;
    uint8_t straight_end = 0;
    double color[4] = {0.6, 0.6, 0.6, 1.};
    double straight_threshold = 0.;
    struct PaintMethod *paint_methods = nullptr;  // owned
    Dictionary *unknown = nullptr;                // owned entries of the document, or null
};

// Makes an instance of a class whose record has C++ members: object_alloc gives zeroed memory with
// the object header filled in, which construction must not lose. Null without memory.
template <class T>
T *object_construct(Class *c) noexcept {
    auto *record = static_cast<T *>(object_alloc(c));
    if (record) {
        const RecordHead head = record->head;
        new (record) T();
        record->head = head;
    }
    return record;
}

// --- Patchers (patcher.cpp) ----------------------------------------------------------------------

Class *patcher_class() noexcept;
// The patcher an object pointer is, or null when it is no live patcher.
Patcher *as_patcher(void *x) noexcept;
inline Object *as_object(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher);  // also for null
}
inline Object *as_object(Jbox *box) noexcept {
    return reinterpret_cast<Object *>(box);
}
// Appends a box to the order, giving it an id when it has none or another box bears its id, and a
// free scripting name; tells the listeners. False without memory.
bool patcher_add_box(Patcher *patcher, Jbox *box) noexcept;
// Takes a box out: its cords, names and place in the order. The box stays alive.
void patcher_unlink_box(Patcher *patcher, Jbox *box) noexcept;
// Moves a box in the order: before another box, or to the end (`before` null).
void patcher_move_box(Patcher *patcher, Jbox *box, Jbox *before) noexcept;
Jbox *patcher_box_by_id(Patcher *patcher, Symbol *id) noexcept;
Jbox *patcher_box_by_name(Patcher *patcher, Symbol *name) noexcept;
// Changes id and scripting name, keeping the tables right; a name in use is made unique.
bool patcher_set_box_id(Patcher *patcher, Jbox *box, Symbol *id) noexcept;
bool patcher_set_box_name(Patcher *patcher, Jbox *box, Symbol *name) noexcept;
Patcher *patcher_parent(Patcher *patcher) noexcept;  // null for a top-level patcher
Patcher *patcher_top(Patcher *patcher) noexcept;
// Its name: as given, else its file's name without the extension, else the empty symbol.
Symbol *patcher_name(const Patcher *patcher) noexcept;
// The message "snapshot": stores the values of the boxes under a name, restores or deletes them.
void patcher_snapshot_message(Patcher *patcher, Symbol *word, Symbol *name) noexcept;
// Restores the snapshot that the document marks, if it marks one. May free the patcher.
void patcher_restore_snapshot(Patcher *patcher) noexcept;
void patcher_touch(Patcher *patcher) noexcept;  // marks it as changed, unless it is loading
// True for one that was loaded from a file of its own (a document or an abstraction).
inline bool patcher_is_file(const Patcher *patcher) noexcept {
    return patcher->file_name->name[0] != '\0';
}

// Walks the boxes in order while what is called for each of them may free or add boxes or free the
// patcher itself: the patcher keeps its walks in a chain and moves them on when it loses a box.
class BoxWalk {
  public:
    explicit BoxWalk(Patcher *patcher) noexcept;
    ~BoxWalk();
    BoxWalk(const BoxWalk &) = delete;
    BoxWalk &operator=(const BoxWalk &) = delete;
    // The next box, or null at the end or when the patcher has been freed.
    Jbox *next() noexcept;
    // False once the patcher has been freed.
    bool alive() const noexcept { return patcher_ != nullptr; }

  private:
    friend void patcher_walks_skip(Patcher *patcher, Jbox *box) noexcept;
    friend void patcher_walks_end(Patcher *patcher) noexcept;
    Patcher *patcher_;
    Jbox *next_;
    BoxWalk *outer_;
};

// --- Boxes (box.cpp) -----------------------------------------------------------------------------

// The box an object pointer is, or null when it is no live box with a box part.
Jbox *as_box(void *x) noexcept;
// The object that answers for a box: the one it shows, or itself. Never null.
inline Object *box_object(Jbox *box) noexcept {
    return box->state && box->state->object ? box->state->object : &box->ob;
}
// Hands a box the object it shows (the box owns it from now on) and ties the object to the box.
void box_set_object(Jbox *box, Object *object) noexcept;
// Marks a box as standing for something that could not be made; `real_class` is what documents
// keep as its class.
void box_set_placeholder(Jbox *box, Symbol *real_class) noexcept;
// The class name a person knows the box by: the object's class, or for a patcher in the box the
// word it was made with.
Symbol *box_shown_class(Jbox *box) noexcept;
int32_t box_inlet_count(Jbox *box) noexcept;
int32_t box_outlet_count(Jbox *box) noexcept;

// --- Cords (patchline.cpp) -----------------------------------------------------------------------

// Makes a cord and connects it, newest first. Null when there is no memory; *connected (may be
// null) tells whether the objects are connected.
Patchline *patcher_connect(Patcher *patcher, Jbox *box1, int32_t outlet, Jbox *box2, int32_t inlet,
                           bool *connected) noexcept;
// The two steps of it: a cord at the end of the patcher's list, and its connection, newest first.
Patchline *patcher_add_line(Patcher *patcher, Jbox *box1, int32_t outlet, Jbox *box2,
                            int32_t inlet) noexcept;
bool line_connect(Patchline *line) noexcept;
// Connects the cords of one outlet anew, in the order of their stamps.
void patcher_relink(Patcher *patcher, Jbox *box1, int32_t outlet) noexcept;
Patchline *patcher_find_line(Patcher *patcher, Jbox *box1, int32_t outlet, Jbox *box2,
                             int32_t inlet) noexcept;
// Disconnects and frees a cord of a patcher.
void patcher_delete_line(Patcher *patcher, Patchline *line) noexcept;
void patcher_delete_lines_of(Patcher *patcher, Jbox *box) noexcept;
// Disconnects the cords at a box whose object goes away, and connects those that can be connected
// again once the box has an object; the cords stay.
void patcher_detach_lines(Patcher *patcher, Jbox *box) noexcept;
void patcher_attach_lines(Patcher *patcher, Jbox *box) noexcept;

// --- Ports of a subpatcher (patcher_ports.cpp) ---------------------------------------------------

// Makes the patcher's inlets and outlets for the `inlet` and `outlet` objects found while loading.
void patcher_settle_ports(Patcher *patcher) noexcept;
// Renumbers them after a box moved, when it is one of theirs.
void patcher_port_moved(Patcher *patcher, Jbox *box) noexcept;

// --- Documents (document.cpp) --------------------------------------------------------------------

// Reads a patcher dictionary into a new patcher: attributes, boxes, cords.
void patcher_read_dictionary(Patcher *patcher, Dictionary *dictionary) noexcept;
// Their document forms, added to `dictionary`. False when memory ran out.
bool patcher_write_dictionary(Patcher *patcher, Dictionary *dictionary) noexcept;
bool box_write_dictionary(Jbox *box, Dictionary *dictionary) noexcept;

// Keeps an object alive for a scope. Without memory for the extension record that counts references
// it holds nothing, and releases nothing.
class Retained {
  public:
    explicit Retained(void *x) noexcept : x_(object_retain(x) == ErrorNone ? x : nullptr) {}
    ~Retained() {
        if (x_) {
            object_release(x_);
        }
    }
    Retained(const Retained &) = delete;
    Retained &operator=(const Retained &) = delete;

  private:
    void *x_;
};

}  // namespace kiv
