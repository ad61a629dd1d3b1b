// Class `jpatchline`: the cords of a patcher and the connections they stand for.
//
// Invariants: a cord in a patcher stands in its list and counts in `cord_count` of both its boxes,
// which are boxes of the patcher. Among the cords of one outlet, stamps fall in the order in which
// the outlet serves their connections; a cord without a connection keeps its stamp, and so its
// place among the others in documents.
#include "patcher/patchline.h"

#include <kiv/console.h>
#include <kiv/inlets.h>

#include <cstddef>
#include <memory>

#include "kernel/internal.h"
#include "patcher/fields.h"

namespace kiv {

// A function that draws a cord, for views. Newest first.
struct PaintMethod {
    Method function;
    void *argument;
    PaintMethod *next;
};

namespace {

struct {
    Class *line_class;
} state;

// --- Attributes ----------------------------------------------------------------------------------

Patchline *self(void *x) noexcept {
    return static_cast<Patchline *>(x);
}

template <auto compute>
ErrorCode computed(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    return value_to_atoms(compute(self(x)), argc, argv);
}

Object *source_box(Patchline *line) noexcept {
    return reinterpret_cast<Object *>(line->box1);
}
Object *destination_box(Patchline *line) noexcept {
    return reinterpret_cast<Object *>(line->box2);
}
Object *next_line(Patchline *line) noexcept {
    return reinterpret_cast<Object *>(line->next);
}
int32_t midpoint_count(Patchline *line) noexcept {
    return static_cast<int32_t>(line->midpoints.size() / 2);
}
uint8_t pending(Patchline *line) noexcept {
    return !line->connected && !line->disabled;
}

// Ports are spread evenly along an edge of their box, the outermost ones this far from its corners.
constexpr double port_inset = 10.;

template <bool is_start>
ErrorCode get_end(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    Patchline *line = self(x);
    Jbox *box = is_start ? line->box1 : line->box2;
    double point[2] = {0., 0.};
    if (box) {
        const double *rect = box->state->patching_rect;
        const int32_t count = is_start ? box_outlet_count(box) : box_inlet_count(box);
        const int32_t index = is_start ? line->outlet : line->inlet;
        const double step = count > 1 ? (rect[2] - 2 * port_inset) / (count - 1) : 0.;
        point[0] = rect[0] + port_inset + index * step;
        point[1] = rect[1] + (is_start ? rect[3] : 0.);
    }
    return values_to_atoms(std::span<double>(point), argc, argv);
}

ErrorCode get_midpoints(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    Vector<double> &midpoints = self(x)->midpoints;
    if (midpoints.empty()) {
        *argc = 0;
        return ErrorNone;
    }
    return values_to_atoms(std::span<double>(midpoints), argc, argv);
}

ErrorCode set_midpoints(void *x, void *, int32_t argc, Atom *argv) noexcept {
    if (argc < 0 || (argc > 0 && !argv) || !std::all_of(argv, argv + argc, atom_is_number)) {
        return ErrorGeneric;
    }
    try {
        Vector<double> midpoints(static_cast<size_t>(argc - argc % 2));
        for (size_t i = 0; i < midpoints.size(); ++i) {
            midpoints[i] = atom_getfloat(argv + i);
        }
        self(x)->midpoints.swap(midpoints);
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
    return ErrorNone;
}

ErrorCode set_color(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
    const ErrorCode result = Member<&Patchline::color>::set(x, attribute, argc, argv);
    self(x)->has_color |= result == ErrorNone;
    return result;
}

// A disabled cord has no connection; enabling it restores its place in the outlet's order.
ErrorCode set_disabled(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
    Patchline *line = self(x);
    const uint8_t before = line->disabled;
    const ErrorCode result = Member<&Patchline::disabled>::set(x, attribute, argc, argv);
    if (!result && line->patcher && !before != !line->disabled) {
        patcher_relink(line->patcher, line->box1, line->outlet);
        patcher_touch(line->patcher);
    }
    return result;
}

constexpr Field line_fields[] = {
    computed_field("box1", "object", computed<source_box>),
    read_only_field<&Patchline::outlet>("outletnum", "long"),
    computed_field("box2", "object", computed<destination_box>),
    read_only_field<&Patchline::inlet>("inletnum", "long"),
    computed_field("nextline", "object", computed<next_line>),
    computed_field("startpoint", "float64", get_end<true>),
    computed_field("endpoint", "float64", get_end<false>),
    computed_field("nummidpoints", "long", computed<midpoint_count>),
    computed_field("midpoints", "float64", get_midpoints, set_midpoints),
    field<&Patchline::hidden>("hidden", "char"),
    computed_field("disabled", "char", Member<&Patchline::disabled>::get, set_disabled),
    computed_field("patchlinecolor", "float64", Member<&Patchline::color>::get, set_color),
    field<&Patchline::straight_threshold>("straightthresh", "float64"),
    field<&Patchline::straight_start>("straightstart", "char"),
    field<&Patchline::straight_end>("straightend", "char"),
    computed_field("pending", "char", computed<pending>),
};

// --- The list of a patcher's cords ---------------------------------------------------------------

Patchline *predecessor(const Patchline *line) noexcept {
    Patchline *previous = nullptr;
    for (Patchline *at = line->patcher->first_line; at && at != line; at = at->next) {
        previous = at;
    }
    return previous;
}

void line_disconnect(Patchline *line) noexcept {
    if (line->connected) {
        line->connected = false;
        outlet_rm(jbox_getoutlet(line->box1, line->outlet), jbox_getinlet(line->box2, line->inlet));
    }
}

// Takes a cord out of its patcher's list, of which `previous` is the cord before it, and breaks its
// connection.
void leave_patcher(Patchline *line, Patchline *previous) noexcept {
    Patcher *patcher = line->patcher;
    line_disconnect(line);
    (previous ? previous->next : patcher->first_line) = line->next;
    if (patcher->last_line == line) {
        patcher->last_line = previous;
    }
    --line->box1->state->cord_count;
    --line->box2->state->cord_count;
    line->next = nullptr;
    line->patcher = nullptr;
    line->box1 = line->box2 = nullptr;
    patcher_touch(patcher);
}

void line_free(Patchline *line) noexcept {
    if (line->patcher) {
        leave_patcher(line, predecessor(line));
    }
    while (PaintMethod *paint = line->paint_methods) {
        line->paint_methods = paint->next;
        sysmem_freeptr(paint);
    }
    if (line->unknown) {
        object_free(line->unknown);
    }
    std::destroy_at(&line->midpoints);
}

}  // namespace

void patchline_start() noexcept {
    Class *c = class_new("jpatchline", nullptr, reinterpret_cast<Method>(line_free),
                         sizeof(Patchline), nullptr, 0);
    class_obexoffset_set(c, offsetof(RecordHead, obex));
    class_add_fields(c, line_fields);
    class_addmethod(c, reinterpret_cast<Method>(line_write_dictionary), "appendtodictionary",
                    TypeCant, 0);
    state.line_class = c;
    class_register("nobox"_sym, c);
}

Patchline *as_patchline(void *x) noexcept {
    return object_valid(x) && class_of(x) == state.line_class ? static_cast<Patchline *>(x)
                                                              : nullptr;
}

// --- Connecting ----------------------------------------------------------------------------------

Patchline *patcher_add_line(Patcher *patcher, Jbox *box1, int32_t outlet, Jbox *box2,
                            int32_t inlet) noexcept {
    auto *line = object_construct<Patchline>(state.line_class);
    if (!line) {
        return nullptr;
    }
    line->patcher = patcher;
    line->box1 = box1;
    line->outlet = outlet;
    line->box2 = box2;
    line->inlet = inlet;
    (patcher->last_line ? patcher->last_line->next : patcher->first_line) = line;
    patcher->last_line = line;
    ++box1->state->cord_count;
    ++box2->state->cord_count;
    patcher_touch(patcher);
    return line;
}

bool line_connect(Patchline *line) noexcept {
    if (line->stamp == 0) {
        line->stamp = line->patcher->next_connection_stamp++;
    }
    Outlet *outlet = jbox_getoutlet(line->box1, line->outlet);
    void *receiver = jbox_getinlet(line->box2, line->inlet);
    if (outlet && receiver && !line->disabled && !line->connected) {
        line->connected = outlet_add(outlet, receiver) == 0;
    }
    return line->connected;
}

Patchline *patcher_connect(Patcher *patcher, Jbox *box1, int32_t outlet, Jbox *box2, int32_t inlet,
                           bool *connected) noexcept {
    Patchline *line = patcher_add_line(patcher, box1, outlet, box2, inlet);
    const bool done = line && line_connect(line);
    if (connected) {
        *connected = done;
    }
    return line;
}

void patcher_relink(Patcher *patcher, Jbox *box1, int32_t outlet) noexcept {
    Vector<Patchline *> group;
    try {
        for (Patchline *line = patcher->first_line; line; line = line->next) {
            if (line->box1 == box1 && line->outlet == outlet) {
                group.push_back(line);
            }
        }
    } catch (const std::bad_alloc &) {
        object_error(as_object(patcher), "out of memory: cords were not connected");
        return;
    }
    std::sort(group.begin(), group.end(),
              [](const Patchline *a, const Patchline *b) { return a->stamp < b->stamp; });
    for (Patchline *line : group) {
        line_disconnect(line);
    }
    for (Patchline *line : group) {
        line_connect(line);
    }
}

Patchline *patcher_find_line(Patcher *patcher, Jbox *box1, int32_t outlet, Jbox *box2,
                             int32_t inlet) noexcept {
    Patchline *line = patcher->first_line;
    while (line && (line->box1 != box1 || line->outlet != outlet || line->box2 != box2 ||
                    line->inlet != inlet)) {
        line = line->next;
    }
    return line;
}

void patcher_delete_line(Patcher *patcher, Patchline *line) noexcept {
    if (line->patcher == patcher) {
        object_free(line);
    }
}

namespace {

// Does something with each cord at a box; stops early once all of them have been seen.
template <class Function>
void each_line_of(Patcher *patcher, const Jbox *box, Function function) noexcept {
    Patchline *previous = nullptr;
    Patchline *next = nullptr;
    for (Patchline *line = patcher->first_line; line; line = next) {
        next = line->next;
        if ((line->box1 != box && line->box2 != box) || !function(line, previous)) {
            previous = line;
        }
    }
}

}  // namespace

void patcher_delete_lines_of(Patcher *patcher, Jbox *box) noexcept {
    if (box->state->cord_count == 0) {
        return;
    }
    each_line_of(patcher, box, [](Patchline *line, Patchline *previous) {
        leave_patcher(line, previous);
        object_free(line);
        return true;
    });
}

void patcher_detach_lines(Patcher *patcher, Jbox *box) noexcept {
    each_line_of(patcher, box, [](Patchline *line, Patchline *) {
        line_disconnect(line);
        return false;
    });
}

void patcher_attach_lines(Patcher *patcher, Jbox *box) noexcept {
    each_line_of(patcher, box, [patcher](Patchline *line, Patchline *) {
        if (!line->connected) {
            patcher_relink(patcher, line->box1, line->outlet);
        }
        return false;
    });
}

void patcher_renumber_lines(Patcher *patcher, Jbox *box, Side side,
                            const Vector<int32_t> &index_of) noexcept {
    each_line_of(patcher, box, [&](Patchline *line, Patchline *previous) {
        int32_t *index = side == Side::outlet && line->box1 == box  ? &line->outlet
                         : side == Side::inlet && line->box2 == box ? &line->inlet
                                                                    : nullptr;
        if (!index || *index < 0 || static_cast<size_t>(*index) >= index_of.size()) {
            return false;
        }
        *index = index_of[static_cast<size_t>(*index)];
        if (*index >= 0) {
            return false;
        }
        leave_patcher(line, previous);
        object_free(line);
        return true;
    });
}

void patcher_free_lines_at(Patcher *patcher, void *end) noexcept {
    const Side side = object_classname_compare(end, "outlet"_sym) ? Side::outlet : Side::inlet;
    Object *owner = side == Side::outlet ? outlet_owner(static_cast<Outlet *>(end))
                                         : inlet_owner(static_cast<Inlet *>(end));
    Object *holder = owner ? object_box(owner) : nullptr;
    Jbox *box = as_box(holder ? holder : owner);
    if (!box || box->state->patcher != patcher || box->state->cord_count == 0) {
        return;
    }
    const int32_t count = side == Side::outlet ? box_outlet_count(box) : box_inlet_count(box);
    try {
        Vector<int32_t> index_of(static_cast<size_t>(std::max(count, 0)));
        int32_t next = 0;
        for (int32_t i = 0; i < count; ++i) {
            void *at = side == Side::outlet ? static_cast<void *>(jbox_getoutlet(box, i))
                                            : jbox_getinlet(box, i);
            index_of[static_cast<size_t>(i)] = at == end ? -1 : next++;
        }
        each_line_of(patcher, box, [&](Patchline *line, Patchline *) {
            void *at = side == Side::outlet
                           ? static_cast<void *>(jbox_getoutlet(line->box1, line->outlet))
                           : jbox_getinlet(line->box2, line->inlet);
            if (at == end) {
                line_disconnect(line);
            }
            return false;
        });
        patcher_renumber_lines(patcher, box, side, index_of);
    } catch (const std::bad_alloc &) {
        object_error(as_object(patcher), "out of memory: cords were not removed");
    }
}

}  // namespace kiv

using namespace kiv;

ErrorCode jpatchline_addpaintmethod(void *line, Method paint, void *argument) noexcept {
    Patchline *self = as_patchline(line);
    if (!self || !paint) {
        return ErrorGeneric;
    }
    auto *added = static_cast<PaintMethod *>(sysmem_newptr(sizeof(PaintMethod)));
    if (!added) {
        return ErrorOutOfMemory;
    }
    *added = {paint, argument, self->paint_methods};
    self->paint_methods = added;
    return ErrorNone;
}
