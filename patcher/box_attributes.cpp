// The attributes that jbox_initclass gives to a box class. All but the rectangles are the same for
// every box, so each is a line of a table; a box class may replace any of them by its own.
#include "patcher/patcher_attributes.h"

#include <kiv/inlets.h>

#include "kernel/internal.h"

using namespace kiv::literals;

BoxState::BoxState() noexcept
    : id(""_sym),
      var_name(""_sym),
      class_name(""_sym),
      text(""_sym),
      font_name("Arial"_sym),
      hint(""_sym),
      annotation(""_sym),
      prototype_name(""_sym) {}

namespace kiv {

namespace {

Jbox *self(void *x) noexcept {
    return static_cast<Jbox *>(x);
}

template <auto compute>
ErrorCode computed(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    return self(x)->state ? value_to_atoms(compute(self(x)), argc, argv) : ErrorGeneric;
}

Object *patcher_of_box(Jbox *box) noexcept {
    return reinterpret_cast<Object *>(box->state->patcher);
}
Object *next_box(Jbox *box) noexcept {
    return reinterpret_cast<Object *>(box->state->next);
}
Object *previous_box(Jbox *box) noexcept {
    return reinterpret_cast<Object *>(box->state->previous);
}
int32_t inlets(Jbox *box) noexcept {
    return box_inlet_count(box);
}
int32_t outlets(Jbox *box) noexcept {
    return box_outlet_count(box);
}

ErrorCode get_outlet_types(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    Jbox *box = self(x);
    if (!box->state) {
        return ErrorGeneric;
    }
    // Of a placeholder, what the document said: its number of outlets may be anything.
    const auto &known = box->state->document_outlet_types;
    const bool placeholder = box->state->placeholder;
    const int32_t count = placeholder ? static_cast<int32_t>(known.size()) : box_outlet_count(box);
    if (count == 0) {
        *argc = 0;
        return ErrorNone;
    }
    uint8_t allocated = 0;
    if (ErrorCode failure = atom_alloc_array(count, argc, argv, &allocated)) {
        return failure;
    }
    for (int32_t i = 0; i < count; ++i) {
        Symbol *type = placeholder ? known[static_cast<size_t>(i)]
                                   : outlet_type(outlet_nth(box_object(box), i));
        atom_setsym(*argv + i, type ? type : ""_sym);
    }
    return ErrorNone;
}

// A rectangle attribute: fewer than four numbers change its first ones.
template <auto member>
ErrorCode set_rect(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
    const ErrorCode result = Member<member>::set(x, attribute, argc, argv);
    Jbox *box = self(x);
    if (!result && box->state->patcher) {
        patcher_port_moved(box->state->patcher, box);
    }
    return result;
}

// Two of the four numbers of a rectangle: the position (first = 0) or the size (first = 2).
template <auto member, size_t first>
struct Half {
    static ErrorCode get(void *x, void *, int32_t *argc, Atom **argv) noexcept {
        BoxState *part = self(x)->state;
        return part ? values_to_atoms(std::span<double>(part->*member + first, 2), argc, argv)
                    : ErrorGeneric;
    }
    static ErrorCode set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
        BoxState *part = self(x)->state;
        if (!part || argc < 2 || !argv || !atom_is_number(argv[0]) || !atom_is_number(argv[1])) {
            return ErrorGeneric;
        }
        Atom rect[4];
        for (size_t i = 0; i < 4; ++i) {
            atom_setfloat(rect + i, (part->*member)[i]);
        }
        rect[first] = argv[0];
        rect[first + 1] = argv[1];
        return set_rect<member>(x, attribute, 4, rect);
    }
};

// Box text that is no symbol (a number, or several atoms) is taken as its text.
ErrorCode set_text(void *x, void *, int32_t argc, Atom *argv) noexcept {
    BoxState *part = self(x)->state;
    if (!part || argc < 1 || !argv) {
        return ErrorGeneric;
    }
    Symbol *text = symbol_of_atoms(argc, argv);
    part->text = text ? text : part->text;
    return text ? ErrorNone : ErrorOutOfMemory;
}

ErrorCode set_id(void *x, void *, int32_t argc, Atom *argv) noexcept {
    BoxState *part = self(x)->state;
    if (!part || argc < 1 || !argv || argv->type != TypeSymbol) {
        return ErrorGeneric;
    }
    if (part->patcher) {
        return patcher_set_box_id(part->patcher, self(x), argv->value.sym) ? ErrorNone
                                                                           : ErrorGeneric;
    }
    part->id = argv->value.sym;
    return ErrorNone;
}

// No atoms, or the empty symbol, take the name away. A number is a name too.
ErrorCode set_var_name(void *x, void *, int32_t argc, Atom *argv) noexcept {
    BoxState *part = self(x)->state;
    if (!part) {
        return ErrorGeneric;
    }
    Symbol *name = ""_sym;
    if (argc > 0 && argv) {
        name = symbol_of_atoms(1, argv);
        if (!name) {
            return ErrorOutOfMemory;
        }
    }
    if (part->patcher) {
        return patcher_set_box_name(part->patcher, self(x), name) ? ErrorNone : ErrorOutOfMemory;
    }
    part->var_name = name;
    return ErrorNone;
}

// Applied to a new box in this order.
constexpr Field document_fields[] = {
    {"rect", "float64", nullptr, set_rect<&BoxState::patching_rect>},  // of older documents
    {"patching_rect", "float64", Member<&BoxState::patching_rect>::get,
     set_rect<&BoxState::patching_rect>},
    {"patching_position", "float64", Half<&BoxState::patching_rect, 0>::get,
     Half<&BoxState::patching_rect, 0>::set},
    field<&BoxState::presentation>("presentation", "char"),
    {"presentation_rect", "float64", Member<&BoxState::presentation_rect>::get,
     set_rect<&BoxState::presentation_rect>},
    {"presentation_position", "float64", Half<&BoxState::presentation_rect, 0>::get,
     Half<&BoxState::presentation_rect, 0>::set},
    saved_field<&BoxState::hint>("hint", "symbol"),
    saved_field<&BoxState::hidden>("hidden", "char"),
    saved_field<&BoxState::font_name>("fontname", "symbol"),
    saved_field<&BoxState::font_face>("fontface", "long"),
    saved_field<&BoxState::font_size>("fontsize", "float64"),
    saved_field<&BoxState::color>("color", "float64"),
    saved_field<&BoxState::text_color>("textcolor", "float64"),
    {"varname", "symbol", Member<&BoxState::var_name>::get, set_var_name,
     Member<&BoxState::var_name>::same},
    {"id", "symbol", Member<&BoxState::id>::get, set_id},
    {"text", "symbol", Member<&BoxState::text>::get, set_text},
    saved_field<&BoxState::background>("background", "char"),
    saved_field<&BoxState::ignore_click>("ignoreclick", "char"),
    saved_field<&BoxState::alpha>("boxalpha", "float64"),
    saved_field<&BoxState::annotation>("annotation", "symbol"),
    saved_field<&BoxState::hint_track>("hinttrack", "char"),
    saved_field<&BoxState::prototype_name>("prototypename", "symbol"),
    {"orderbefore", "symbol", nullptr, nullptr},  // see jbox_new
    {"orderfront", "char", nullptr, nullptr},
    saved_field<&BoxState::fixed_width>("fixwidth", "float64"),
    saved_field<&BoxState::line_count>("linecount", "long"),
    saved_field<&BoxState::presentation_line_count>("presentation_linecount", "long"),
};

constexpr Field other_fields[] = {
    computed_field("patcher", "object", computed<patcher_of_box>),
    computed_field("nextobject", "object", computed<next_box>),
    computed_field("prevobject", "object", computed<previous_box>),
    read_only_field<&BoxState::class_name>("kivclass", "symbol"),
    computed_field("patching_size", "float64", Half<&BoxState::patching_rect, 2>::get,
                   Half<&BoxState::patching_rect, 2>::set),
    computed_field("presentation_size", "float64", Half<&BoxState::presentation_rect, 2>::get,
                   Half<&BoxState::presentation_rect, 2>::set),
    computed_field("numinlets", "long", computed<inlets>),
    computed_field("numoutlets", "long", computed<outlets>),
    computed_field("outlettype", "symbol", get_outlet_types),
    field<&BoxState::can_hilite>("canhilite", "char"),
    field<&BoxState::draw_first_in>("drawfirstin", "char"),
    field<&BoxState::draw_in_last>("drawinlast", "char"),
    field<&BoxState::grow_y>("growy", "char"),
    field<&BoxState::grow_both>("growboth", "char"),
    field<&BoxState::no_grow>("nogrow", "char"),
    field<&BoxState::outline>("outline", "char"),
    field<&BoxState::mouse_drag_delta>("mousedragdelta", "char"),
    field<&BoxState::text_field>("textfield", "object"),
    read_only_field<&BoxState::caption>("captionshown", "char"),
};

}  // namespace

std::span<const Field> box_document_fields() noexcept {
    return document_fields;
}

void box_add_attributes(Class *c) noexcept {
    class_add_fields(c, document_fields);
    class_add_fields(c, other_fields);
}

}  // namespace kiv
