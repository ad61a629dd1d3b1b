// The start of this folder, and what it answers to the floors below: which box, patcher and inner
// object belong to an object.
#include <kiv/systhread.h>

#include "console/internal.h"
#include "kernel/internal.h"
#include "patcher/controller.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "patcher/patcher.h"
#include "patcher/patchline.h"

namespace kiv {

namespace {

// The box an object is, or sits in. An object under construction sits in none yet: it belongs to
// the box that is being made.
Jbox *box_of(Object *x) noexcept {
    if (Jbox *box = as_box(x)) {
        return box;
    }
    if (Jbox *box = as_box(object_box(x))) {
        return box;
    }
    return systhread_ismainthread() ? as_box("#B"_sym->thing) : nullptr;
}

Object *top_patcher_of(Object *x) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher) {
        Jbox *box = as_box(x);
        box = box ? box : as_box(object_box(x));
        patcher = box ? box->state->patcher : nullptr;
    }
    return patcher ? as_object(patcher_top(patcher)) : nullptr;
}

Object *inner_object(Object *x) noexcept {
    Jbox *box = as_box(x);
    return box ? box->state->object : nullptr;
}

// Called on the thread that posts. A box is known by the class of the object it shows; a patcher
// speaks of its own boxes and cords, so it is named itself.
void fill_origin(Object *source, ConsoleOrigin *origin) noexcept {
    if (!object_valid(source)) {
        return;
    }
    if (Patcher *patcher = as_patcher(source)) {
        origin->patcher_name = patcher_name(patcher);
    } else if (Jbox *box = box_of(source)) {
        if (as_object(box) == source) {
            origin->class_name = box_shown_class(box);
        }
        origin->box_id = box->state->id;
        if (box->state->patcher) {
            origin->patcher_name = patcher_name(box->state->patcher);
        }
    }
}

}  // namespace

void patcher_start() noexcept {
    kernel_hooks().patcher_of = top_patcher_of;
    kernel_hooks().inner_object = inner_object;
    console_set_origin_hook(fill_origin);
    patcher_class_start();
    patchline_start();
    controller_start();
    box_font_start();
    creation_start();
}

}  // namespace kiv
