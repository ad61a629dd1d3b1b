// The document form of cords.
//
// An outlet serves its connections newest first. "order" in a document is a cord's place in that
// list; cords that have none are served as people read a patch for it: the receiver farthest to the
// right first, the lowest first among those, and on one box the rightmost inlet first. Loading
// connects the cords of each outlet from the last to the first.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/console.h>

#include <tuple>

#include "patcher/box.h"
#include "patcher/document.h"
#include "patcher/patchline.h"

namespace kiv {

namespace {

constexpr int64_t no_order = -1;

struct LoadedLine {
    Patchline *line;
    int64_t order;
    int32_t index;  // in the document
};

// --- Reading -------------------------------------------------------------------------------------

struct End {
    Symbol *id;
    int32_t index;
};

bool read_end(Dictionary *dictionary, Symbol *key, End *end) noexcept {
    int32_t argc = 0;
    Atom *argv = nullptr;
    if (dictionary_getatoms(dictionary, key, &argc, &argv) || argc < 2 ||
        argv[0].type != TypeSymbol || !atom_is_number(argv[1])) {
        return false;
    }
    *end = {argv[0].value.sym, static_cast<int32_t>(clipped_integer(argv[1], -1, INT32_MAX))};
    return true;
}

void keep_unknown(DictionaryEntry *entry, void *arg) noexcept {
    auto *line = static_cast<Patchline *>(arg);
    Symbol *key = dictionary_entry_getkey(entry);
    for (Symbol *known : {"source"_sym, "destination"_sym, "hidden"_sym, "color"_sym,
                          "midpoints"_sym, "disabled"_sym, "order"_sym}) {
        if (key == known) {
            return;
        }
    }
    Atom value;
    dictionary_entry_getvalue(entry, &value);
    keep_entry(&line->unknown, key, value);
}

// Counts the entries that were there, so that the usual cord needs no walk for unknown ones.
int32_t read_attributes(Patchline *line, Dictionary *dictionary, int64_t *order) noexcept {
    int32_t found = 0;
    int32_t argc = 0;
    Atom *argv = nullptr;
    const struct {
        Symbol *key;
        AttrSetter set;
    } numbers[] = {{"hidden"_sym, Member<&Patchline::hidden>::set},
                   {"disabled"_sym, Member<&Patchline::disabled>::set}};
    for (const auto &number : numbers) {
        if (!dictionary_getatoms(dictionary, number.key, &argc, &argv)) {
            number.set(line, nullptr, argc, argv);
            ++found;
        }
    }
    if (!dictionary_getatoms(dictionary, "color"_sym, &argc, &argv)) {
        object_attr_setvalueof(line, "patchlinecolor"_sym, argc, argv);
        ++found;
    }
    if (!dictionary_getatoms(dictionary, "midpoints"_sym, &argc, &argv)) {
        object_attr_setvalueof(line, "midpoints"_sym, argc, argv);
        ++found;
    }
    *order = no_order;
    if (!dictionary_getlong(dictionary, "order"_sym, order)) {
        ++found;
    }
    return found;
}

// Says why a cord between boxes that are there cannot be connected. A placeholder has been reported
// itself; cords at it wait for the document's next reader.
void check_ends(const Patchline *line) noexcept {
    const BoxState *from = line->box1->state;
    const BoxState *to = line->box2->state;
    if (!from->placeholder && !jbox_getoutlet(line->box1, line->outlet)) {
        object_error(as_object(line->patcher), "cord from %s to %s: %s has no outlet %d",
                     from->id->name, to->id->name, from->id->name, line->outlet);
    } else if (!to->placeholder && !jbox_getinlet(line->box2, line->inlet)) {
        object_error(as_object(line->patcher), "cord from %s to %s: %s has no inlet %d",
                     from->id->name, to->id->name, to->id->name, line->inlet);
    }
}

// The cord of one element, or null when there is no such cord to be made, after saying why.
Patchline *read_line(Patcher *patcher, const Atom &element, int64_t *order) noexcept {
    Dictionary *outer = dictionary_of(element);
    Dictionary *dictionary = nullptr;
    if (!outer || dictionary_getdictionary(outer, "patchline"_sym, &dictionary)) {
        object_error(as_object(patcher), "an element of \"lines\" is no cord");
        return nullptr;
    }
    End from;
    End to;
    if (!read_end(dictionary, "source"_sym, &from) ||
        !read_end(dictionary, "destination"_sym, &to)) {
        object_error(as_object(patcher), "a cord lacks its source or destination");
        return nullptr;
    }
    Jbox *box1 = patcher_box_by_id(patcher, from.id);
    Jbox *box2 = patcher_box_by_id(patcher, to.id);
    if (!box1 || !box2) {
        object_error(as_object(patcher), "cord from %s to %s: no such box: %s", from.id->name,
                     to.id->name, (box1 ? to : from).id->name);
        return nullptr;
    }
    Patchline *line = patcher_add_line(patcher, box1, from.index, box2, to.index);
    if (line) {
        const int32_t known = 2 + read_attributes(line, dictionary, order);
        if (dictionary_getentrycount(dictionary) > known) {
            dictionary_funall(dictionary, keep_unknown, line);
        }
        check_ends(line);
    }
    return line;
}

bool same_outlet(const Patchline *a, const Patchline *b) noexcept {
    return a->box1 == b->box1 && a->outlet == b->outlet;
}

// Where a cord without an order stands among those of its outlet.
bool served_before(const LoadedLine &a, const LoadedLine &b) noexcept {
    const auto place = [](const LoadedLine &loaded) {
        const BoxState *to = loaded.line->box2->state;
        return std::tuple(-to->patching_rect[0], -to->patching_rect[1],
                          -int64_t{loaded.line->inlet}, -to->serial, loaded.index);
    };
    return place(a) < place(b);
}

// Puts the cords of one outlet into serving order: each with an order at that place as far as it
// is free, the others around them.
void arrange(std::span<LoadedLine> group) {
    if (group.size() < 2) {
        return;
    }
    Vector<LoadedLine> ordered;
    Vector<LoadedLine> others;
    for (const LoadedLine &loaded : group) {
        (loaded.order >= 0 ? ordered : others).push_back(loaded);
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const LoadedLine &a, const LoadedLine &b) { return a.order < b.order; });
    std::sort(others.begin(), others.end(), served_before);
    size_t next_ordered = 0;
    size_t next_other = 0;
    for (size_t i = 0; i < group.size(); ++i) {
        const bool take_ordered =
            next_ordered < ordered.size() &&
            (ordered[next_ordered].order <= static_cast<int64_t>(i) || next_other == others.size());
        group[i] = take_ordered ? ordered[next_ordered++] : others[next_other++];
    }
}

void connect_all(std::span<LoadedLine> lines) {
    std::stable_sort(lines.begin(), lines.end(), [](const LoadedLine &a, const LoadedLine &b) {
        return std::tuple(a.line->box1->state->serial, a.line->outlet) <
               std::tuple(b.line->box1->state->serial, b.line->outlet);
    });
    for (size_t begin = 0, end = 0; begin < lines.size(); begin = end) {
        while (end < lines.size() && same_outlet(lines[begin].line, lines[end].line)) {
            ++end;
        }
        arrange(lines.subspan(begin, end - begin));
        for (size_t i = end; i > begin; --i) {
            line_connect(lines[i - 1].line);
        }
    }
}

// --- Writing -------------------------------------------------------------------------------------

bool write_end(Dictionary *dictionary, Symbol *key, Jbox *box, int32_t index) noexcept {
    Atom atoms[2];
    atom_setsym(atoms, box->state->id);
    atom_setlong(atoms + 1, index);
    return !dictionary_appendatoms(dictionary, key, 2, atoms);
}

bool write_line(Patchline *line, int64_t order, Dictionary *dictionary) noexcept {
    bool done = write_end(dictionary, "source"_sym, line->box1, line->outlet) &&
                write_end(dictionary, "destination"_sym, line->box2, line->inlet);
    if (line->hidden) {
        done &= !dictionary_appendlong(dictionary, "hidden"_sym, 1);
    }
    if (line->has_color) {
        Atom atoms[4];
        atom_setdouble_array(4, atoms, 4, line->color);
        done &= !dictionary_appendatoms(dictionary, "color"_sym, 4, atoms);
    }
    if (!line->midpoints.empty()) {
        int32_t argc = 0;
        Atom *argv = nullptr;
        done &= !object_attr_getvalueof(line, "midpoints"_sym, &argc, &argv) &&
                !dictionary_appendatoms(dictionary, "midpoints"_sym, argc, argv);
        sysmem_freeptr(argv);
    }
    if (line->disabled) {
        done &= !dictionary_appendlong(dictionary, "disabled"_sym, 1);
    }
    if (order != no_order) {
        done &= !dictionary_appendlong(dictionary, "order"_sym, order);
    }
    return done && add_missing(line->unknown, dictionary);
}

// The place of every cord among those of its outlet, indexed as the patcher's list; no_order for
// an outlet's only cord.
Vector<int64_t> line_orders(Patcher *patcher) {
    Vector<LoadedLine> lines;
    for (Patchline *line = patcher->first_line; line; line = line->next) {
        lines.push_back({line, no_order, static_cast<int32_t>(lines.size())});
    }
    std::sort(lines.begin(), lines.end(), [](const LoadedLine &a, const LoadedLine &b) {
        return std::tuple(a.line->box1->state->serial, a.line->outlet, -a.line->stamp) <
               std::tuple(b.line->box1->state->serial, b.line->outlet, -b.line->stamp);
    });
    Vector<int64_t> orders(lines.size(), no_order);
    for (size_t begin = 0, end = 0; begin < lines.size(); begin = end) {
        while (end < lines.size() && same_outlet(lines[begin].line, lines[end].line)) {
            ++end;
        }
        for (size_t i = begin; i < end && end - begin > 1; ++i) {
            orders[static_cast<size_t>(lines[i].index)] = static_cast<int64_t>(i - begin);
        }
    }
    return orders;
}

}  // namespace

void patcher_read_lines(Patcher *patcher, int32_t count, const Atom *elements) noexcept {
    try {
        Vector<LoadedLine> lines;
        lines.reserve(static_cast<size_t>(count));
        for (int32_t i = 0; i < count; ++i) {
            int64_t order = no_order;
            if (Patchline *line = read_line(patcher, elements[i], &order)) {
                lines.push_back({line, order, i});
            } else if (!keep_element(&patcher->stray_lines, elements[i])) {
                object_error(as_object(patcher), "out of memory: a cord was lost");
            }
        }
        connect_all(lines);
    } catch (const std::bad_alloc &) {
        object_error(as_object(patcher), "out of memory: cords were not connected");
    }
}

bool patcher_write_lines(Patcher *patcher, Dictionary *dictionary) noexcept {
    try {
        const Vector<int64_t> orders = line_orders(patcher);
        Elements elements;
        size_t i = 0;
        for (Patchline *line = patcher->first_line; line; line = line->next) {
            Owned<Dictionary> content(dictionary_new());
            if (!content || !write_line(line, orders[i++], content.get()) ||
                !elements.add(wrapped("patchline"_sym, std::move(content)))) {
                return false;
            }
        }
        return elements.add_copies(patcher->stray_lines) && elements.store(dictionary, "lines"_sym);
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool line_write_dictionary(Patchline *line, Dictionary *dictionary) noexcept {
    if (!line->patcher) {
        return false;
    }
    int64_t earlier = 0;
    int32_t count = 0;
    for (const Patchline *at = line->patcher->first_line; at; at = at->next) {
        if (same_outlet(at, line)) {
            ++count;
            earlier += at->stamp > line->stamp;
        }
    }
    return write_line(line, count > 1 ? earlier : no_order, dictionary);
}

}  // namespace kiv
