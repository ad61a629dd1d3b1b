// The font of a patcher's new boxes, for the code that will draw them: an object whose attributes
// read the patcher's defaults. Main thread.
#include <kiv/class.h>

#include <cstddef>

#include "patcher/fields.h"
#include "patcher/patcher.h"

namespace kiv {

namespace {

struct BoxFont {
    RecordHead head;
    Patcher *patcher;  // its owner
};

struct {
    Class *font_class;
} state;

template <auto member>
ErrorCode read(void *x, void *, int32_t *argc, Atom **argv) noexcept {
    return Member<member>::get(static_cast<BoxFont *>(x)->patcher, nullptr, argc, argv);
}

constexpr Field font_fields[] = {
    computed_field("fontname", "symbol", read<&Patcher::default_font_name>),
    computed_field("fontsize", "float64", read<&Patcher::default_font_size>),
    computed_field("fontface", "long", read<&Patcher::default_font_face>),
};

}  // namespace

void box_font_start() noexcept {
    Class *c = class_new("jboxfont", nullptr, nullptr, sizeof(BoxFont), nullptr, 0);
    class_obexoffset_set(c, offsetof(RecordHead, obex));
    class_add_fields(c, font_fields);
    state.font_class = c;
    class_register("nobox"_sym, c);
}

}  // namespace kiv

using namespace kiv;

void *jpatcher_getboxfont(void *x) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || patcher->freeing) {
        return nullptr;
    }
    if (!patcher->box_font) {
        if (auto *made = static_cast<BoxFont *>(object_alloc(state.font_class))) {
            made->patcher = patcher;
            patcher->box_font = &made->head.ob;
        }
    }
    return patcher->box_font;
}
