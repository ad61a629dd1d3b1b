// Finding boxes, their objects and subpatchers by scripting name or along a path of names.
//
// A path joins names by "::", each but the last naming a box that shows a patcher. A name is a
// scripting name, else a box id, so that every box has a path.
#include <kiv/console.h>
#include <kiv/jpatcher.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "patcher/patcher.h"

namespace kiv {

namespace {

constexpr std::string_view separator = "::";

// Without memory: the empty symbol, which no box bears.
Symbol *symbol_of(std::string_view text) noexcept {
    try {
        return gensym(Text(text).c_str());
    } catch (const std::bad_alloc &) {
        return ""_sym;
    }
}

Symbol *box_name(const Jbox *box) noexcept {
    return *box->state->var_name->name ? box->state->var_name : box->state->id;
}

Object *object_in(Jbox *box) noexcept {
    return box ? box_object(box) : nullptr;
}

Object *box_or_null(Jbox *box) noexcept {
    return box ? as_object(box) : nullptr;
}

Jbox *find_box(void *x, Symbol *name, int32_t flags) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || !name) {
        return nullptr;
    }
    const bool is_path = std::strstr(name->name, "::") != nullptr;
    for (int32_t depth = 0; patcher && depth < max_nesting; ++depth) {
        Jbox *box = is_path ? patcher_box_at_path(patcher, name) : patcher_named_box(patcher, name);
        if (box || !(flags & JPATCHER_RESOLVE_OUTWARD)) {
            return box;
        }
        patcher = patcher_parent(patcher);
    }
    return nullptr;
}

}  // namespace

Jbox *patcher_named_box(Patcher *patcher, Symbol *name) noexcept {
    if (!name || !*name->name) {
        return nullptr;
    }
    Jbox *box = patcher_box_by_name(patcher, name);
    return box ? box : patcher_box_by_id(patcher, name);
}

Jbox *patcher_box_at_path(Patcher *patcher, Symbol *path) noexcept {
    std::string_view rest = path ? path->name : "";
    if (rest.starts_with(separator)) {
        patcher = patcher_top(patcher);
        rest.remove_prefix(separator.size());
    }
    for (;;) {
        const size_t end = rest.find(separator);
        Jbox *box = patcher_named_box(patcher, symbol_of(rest.substr(0, end)));
        if (!box || end == std::string_view::npos) {
            return box;
        }
        patcher = as_patcher(box_object(box));
        if (!patcher) {
            return nullptr;
        }
        rest.remove_prefix(end + separator.size());
    }
}

Symbol *box_path(Jbox *box) noexcept {
    try {
        Text path = box_name(box)->name;
        Patcher *patcher = box->state->patcher;
        for (int32_t depth = 0; patcher && depth < max_nesting; ++depth) {
            Jbox *outer = as_box(patcher->box);
            if (!outer) {
                break;
            }
            path.insert(0, separator);
            path.insert(0, box_name(outer)->name);
            patcher = outer->state->patcher;
        }
        return gensym(path.c_str());
    } catch (const std::bad_alloc &) {
        return ""_sym;
    }
}

}  // namespace kiv

using namespace kiv;

Symbol *jbox_get_boxpath(void *box) noexcept {
    Jbox *self = as_box(box);
    return self ? box_path(self) : ""_sym;
}

Symbol *jpatcher_uniqueboxname(void *x, Symbol *name) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || !name || !patcher_box_by_name(patcher, name)) {
        return name;
    }
    try {
        const size_t size = std::strlen(name->name) + 24;
        Text text(size, '\0');
        for (long n = 1;; ++n) {
            snprintf(text.data(), size, "%s[%ld]", name->name, n);
            Symbol *candidate = gensym(text.c_str());
            if (!patcher_box_by_name(patcher, candidate)) {
                return candidate;
            }
        }
    } catch (const std::bad_alloc &) {
        return symbol_unique();
    }
}

Object *jpatcher_resolvebox(void *patcher, Symbol *name) noexcept {
    return box_or_null(find_box(patcher, name, 0));
}

Object *jpatcher_resolvebox_ex(void *patcher, Symbol *name, int32_t flags) noexcept {
    return box_or_null(find_box(patcher, name, flags));
}

Object *jpatcher_resolvebox_boxpath(void *x, Symbol *path) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || !path) {
        return nullptr;
    }
    Jbox *box = patcher_box_at_path(patcher, path);
    return box_or_null(box ? box : patcher_box_at_path(patcher_top(patcher), path));
}

Object *jpatcher_resolveobj(void *patcher, Symbol *name) noexcept {
    return object_in(find_box(patcher, name, 0));
}

Object *jpatcher_resolveobj_boxpath(void *patcher, Symbol *path) noexcept {
    return object_in(as_box(jpatcher_resolvebox_boxpath(patcher, path)));
}

Object *jpatcher_resolvepatcher(void *patcher, Symbol *name) noexcept {
    Jbox *box = find_box(patcher, name, 0);
    Patcher *inner = box ? as_patcher(box_object(box)) : nullptr;
    return inner ? as_object(inner) : nullptr;
}
