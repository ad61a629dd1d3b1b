// The attributes of class `jpatcher`. Those marked as saved are written to documents when they
// differ from the values that a new Patcher has.
#include "patcher/patcher_attributes.h"

#include <kiv/console.h>
#include <kiv/path.h>

#include <cstdio>

#include "patcher/controller.h"
#include "patcher/creation.h"

using namespace kiv::literals;

Patcher::Patcher() noexcept
    : name(""_sym),
      title(""_sym),
      file_name(""_sym),
      class_name("jpatcher"_sym),
      parent_class(""_sym),
      class_namespace("box"_sym),
      description(""_sym),
      digest(""_sym),
      tags(""_sym),
      global_name(""_sym),
      style(""_sym),
      subpatcher_template(""_sym),
      default_focus_box(""_sym),
      default_font_name("Arial"_sym) {}

namespace kiv {

namespace {

using Getter = ErrorCode(void *, void *, int32_t *, Atom **) noexcept;

Patcher *self(void *x) noexcept {
    return static_cast<Patcher *>(x);
}

// A getter of one value that `compute` works out from the patcher.
template <auto compute>
ErrorCode computed(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    return value_to_atoms(compute(self(x)), argc, argv);
}

Object *first_box(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher->first_box);
}
Object *last_box(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher->last_box);
}
Object *first_line(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher->first_line);
}
Object *focus_box(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher->focus_box);
}
Object *containing_box(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher->box);
}
Object *parent(Patcher *patcher) noexcept {
    return reinterpret_cast<Object *>(patcher_parent(patcher));
}
Object *top(Patcher *patcher) noexcept {
    return as_object(patcher_top(patcher));
}
Symbol *shown_name(Patcher *patcher) noexcept {
    return patcher_name(patcher);
}
Symbol *shown_title(Patcher *patcher) noexcept {
    return *patcher->title->name ? patcher->title : patcher_name(patcher);
}

// A subpatcher's window says that it is one; an edited patcher's, that it has unsaved changes.
Symbol *full_title(Patcher *patcher) noexcept {
    Symbol *title = shown_title(patcher);
    char text[KIV_PATH_SIZE];
    const bool sub = patcher_parent(patcher) != nullptr;
    snprintf(text, sizeof text, "%s%s%s%s", sub ? "[" : "", title->name, sub ? "]" : "",
             patcher->dirty ? " *" : "");
    return gensym(text);
}

// The whole path of the file that the patcher, or for a subpatcher the patcher around it, is in.
Symbol *file_path(Patcher *patcher) noexcept {
    while (patcher && !patcher_is_file(patcher)) {
        patcher = patcher_parent(patcher);
    }
    char path[KIV_PATH_SIZE];
    if (!patcher ||
        path_topathname(static_cast<int16_t>(patcher->path), patcher->file_name->name, path)) {
        return ""_sym;
    }
    return gensym(path);
}

// The folder of that file.
Symbol *folder_path(Patcher *patcher) noexcept {
    char path[KIV_PATH_SIZE];
    if (!patcher_is_file(patcher) ||
        path_topathname(static_cast<int16_t>(patcher->path), "", path)) {
        return ""_sym;
    }
    return gensym(path);
}

// What the box that contains the patcher goes by: "patcher", "bpatcher", or an abstraction's name.
Symbol *parent_class(Patcher *patcher) noexcept {
    return *patcher->parent_class->name || !patcher->box ? patcher->parent_class
                                                         : object_classname(patcher->box);
}

// What was typed after the name of the abstraction that the patcher is or sits in: without the load
// number in front, and without the zeros that stand for arguments that were not given.
ErrorCode get_arguments(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    const Vector<Atom> *all = creation_arguments(self(x));
    size_t end = all ? all->size() : 0;
    while (end > 0 && (*all)[end - 1].type == TypeLong && (*all)[end - 1].value.i == 0) {
        --end;
    }
    if (end < 2) {
        *argc = 0;
        return ErrorNone;
    }
    uint8_t allocated = 0;
    if (ErrorCode failure =
            atom_alloc_array(static_cast<int32_t>(end - 1), argc, argv, &allocated)) {
        return failure;
    }
    std::copy_n(all->begin() + 1, end - 1, *argv);
    return ErrorNone;
}

ErrorCode set_global_name(void *x, void *, int32_t argc, Atom *argv) noexcept {
    Patcher *patcher = self(x);
    Symbol *name = argc > 0 && argv ? atom_getsym(argv) : ""_sym;
    if (patcher->global_name == name) {
        return ErrorNone;
    }
    if (patcher->global_name->thing == patcher) {
        patcher->global_name->thing = nullptr;
    }
    patcher->global_name = name;
    if (*name->name) {
        if (name->thing) {
            object_warn(x, "%s: global patcher name is already in use", name->name);
        } else {
            name->thing = patcher;
        }
    }
    return ErrorNone;
}

constexpr Field own_fields[] = {
    read_only_field<&Patcher::box_count>("count", "long"),
    computed_field("firstobject", "object", computed<first_box>),
    computed_field("lastobject", "object", computed<last_box>),
    computed_field("firstline", "object", computed<first_line>),
    field<&Patcher::first_view>("firstview", "object"),
    computed_field("focusbox", "object", computed<focus_box>),
    computed_field("box", "object", computed<containing_box>),
    computed_field("parentpatcher", "object", computed<parent>),
    computed_field("toppatcher", "object", computed<top>),
    field<&Patcher::owner>("owner", "object"),
    computed_field("name", "symbol", computed<shown_name>, Member<&Patcher::name>::set),
    computed_field("title", "symbol", computed<shown_title>, Member<&Patcher::title>::set),
    computed_field("fulltitle", "symbol", computed<full_title>),
    field<&Patcher::file_name>("filename", "symbol"),
    computed_field("filepath", "symbol", computed<file_path>),
    computed_field("savefilepath", "symbol", computed<file_path>),
    field<&Patcher::path>("vol", "long"),
    computed_field("pathname", "symbol", computed<folder_path>),
    field<&Patcher::locked>("locked", "char"),
    field<&Patcher::no_edit>("noedit", "char"),
    field<&Patcher::dirty>("dirty", "char"),
    field<&Patcher::presentation>("presentation", "char"),
    field<&Patcher::visible>("visible", "char"),
    field<&Patcher::is_help_file>("ishelpfile", "char"),
    field<&Patcher::rect>("rect", "float64"),
    field<&Patcher::open_rect>("openrect", "float64"),
    computed_field("controller", "object", computed<patcher_controller>),
    field<&Patcher::hub_holder>("hubholder", "object"),
    field<&Patcher::class_name>("kivclass", "symbol"),
    computed_field("parentclass", "symbol", computed<parent_class>,
                   Member<&Patcher::parent_class>::set),
    field<&Patcher::class_namespace>("classnamespace", "symbol"),
    read_only_field<&Patcher::file_version>("fileversion", "long"),
    computed_field("arguments", "atom", get_arguments),
    computed_field("globalpatchername", "symbol", Member<&Patcher::global_name>::get,
                   set_global_name),
    field<&Patcher::default_focus_box>("defaultfocusbox", "symbol"),
};

// Saved when they differ from the default, in this order.
constexpr Field document_fields[] = {
    saved_field<&Patcher::background_color>("bgcolor", "float64"),
    saved_field<&Patcher::locked_background_color>("locked_bgcolor", "float64"),
    saved_field<&Patcher::editing_background_color>("editing_bgcolor", "float64"),
    saved_field<&Patcher::background_locked>("bglocked", "char"),
    saved_field<&Patcher::open_in_presentation>("openinpresentation", "char"),
    saved_field<&Patcher::default_font_size>("default_fontsize", "float64"),
    saved_field<&Patcher::default_font_face>("default_fontface", "long"),
    saved_field<&Patcher::default_font_name>("default_fontname", "symbol"),
    saved_field<&Patcher::grid_on_open>("gridonopen", "char"),
    saved_field<&Patcher::grid_size>("gridsize", "float64"),
    saved_field<&Patcher::grid_snap_on_open>("gridsnaponopen", "char"),
    saved_field<&Patcher::objects_snap_on_open>("objectsnaponopen", "char"),
    saved_field<&Patcher::status_bar_visible>("statusbarvisible", "char"),
    saved_field<&Patcher::toolbar_visible>("toolbarvisible", "char"),
    saved_field<&Patcher::left_toolbar_pinned>("lefttoolbarpinned", "char"),
    saved_field<&Patcher::top_toolbar_pinned>("toptoolbarpinned", "char"),
    saved_field<&Patcher::right_toolbar_pinned>("righttoolbarpinned", "char"),
    saved_field<&Patcher::bottom_toolbar_pinned>("bottomtoolbarpinned", "char"),
    saved_field<&Patcher::toolbars_unpinned_last_save>("toolbars_unpinned_last_save", "char"),
    saved_field<&Patcher::tall_new_boxes>("tallnewobj", "char"),
    saved_field<&Patcher::box_animate_time>("boxanimatetime", "long"),
    saved_field<&Patcher::imprint>("imprint", "char"),
    saved_field<&Patcher::horizontal_scroll>("enablehscroll", "char"),
    saved_field<&Patcher::vertical_scroll>("enablevscroll", "char"),
    saved_field<&Patcher::device_width>("devicewidth", "float64"),
    saved_field<&Patcher::description>("description", "symbol"),
    saved_field<&Patcher::digest>("digest", "symbol"),
    saved_field<&Patcher::tags>("tags", "symbol"),
    saved_field<&Patcher::style>("style", "symbol"),
    saved_field<&Patcher::subpatcher_template>("subpatcher_template", "symbol"),
    saved_field<&Patcher::show_root_patcher_on_tab>("showrootpatcherontab", "char"),
    saved_field<&Patcher::show_on_tab>("showontab", "char"),
    saved_field<&Patcher::help_sidebar_closed>("helpsidebarclosed", "char"),
    saved_field<&Patcher::workspace_disabled>("workspacedisabled", "char"),
    saved_field<&Patcher::isolate_audio>("isolateaudio", "char"),
};

}  // namespace

std::span<const Field> patcher_document_fields() noexcept {
    return document_fields;
}

void patcher_add_attributes(Class *c) noexcept {
    class_add_fields(c, own_fields);
    class_add_fields(c, document_fields);
}

}  // namespace kiv
