// The inlets and outlets of a patcher, made for the `inlet` and `outlet` objects among its boxes.
//
// Invariant: ports that have an inlet (outlet) stand in the patcher's vector in the order of these
// in the patcher object's list, which is the order of their boxes from left to right. The records
// keep their places in that list: when the order of the boxes changes, the objects behind the
// records change, and the cords of the box that contains the patcher follow their objects.
#include <kiv/subpatcher.h>

#include <kiv/console.h>
#include <kiv/inlets.h>

#include <algorithm>
#include <tuple>

#include "kernel/internal.h"
#include "patcher/patchline.h"

namespace kiv {

namespace {

using Ports = Vector<Port>;

Ports &ports_of(Patcher *patcher, Side side) noexcept {
    return side == Side::inlet ? patcher->inlets : patcher->outlets;
}

bool has_record(const Port &port) noexcept {
    return port.inlet || port.outlet;
}

auto place_of(const Port &port) noexcept {
    const BoxState *part = port.box ? port.box->state : nullptr;
    return part ? std::tuple(part->patching_rect[0], part->patching_rect[1], part->serial)
                : std::tuple(0., 0., int64_t{0});
}

bool left_of(const Port &a, const Port &b) noexcept {
    return place_of(a) < place_of(b);
}

// Puts the i-th record of the patcher object in front of the i-th port.
void assign_records(Patcher *patcher, Side side) noexcept {
    int32_t i = 0;
    for (Port &port : ports_of(patcher, side)) {
        if (side == Side::inlet) {
            port.inlet = inlet_nth(patcher, i);
            if (port.inlet) {
                inlet_to(port.inlet, port.object);
            } else {
                port.inlet = inlet_append(patcher, port.object, nullptr, nullptr);
            }
        } else {
            port.outlet = outlet_nth(patcher, i);
            if (!port.outlet) {
                port.outlet = outlet_append(patcher, nullptr, nullptr);
            }
            *port.slot = port.outlet;
        }
        ++i;
    }
}

void settle(Patcher *patcher, Side side) {
    Ports &ports = ports_of(patcher, side);
    const bool all_made = std::all_of(ports.begin(), ports.end(), has_record);
    if (all_made && std::is_sorted(ports.begin(), ports.end(), left_of)) {
        return;
    }
    Vector<const Object *> before;
    for (const Port &port : ports) {
        if (has_record(port)) {
            before.push_back(port.object);
        }
    }
    std::sort(ports.begin(), ports.end(), left_of);
    Vector<int32_t> index_of;
    for (const Object *object : before) {
        const auto at = std::find_if(ports.begin(), ports.end(),
                                     [object](const Port &port) { return port.object == object; });
        index_of.push_back(static_cast<int32_t>(at - ports.begin()));
    }
    Jbox *box = as_box(patcher->box);
    Patcher *outer = box ? box->state->patcher : nullptr;
    if (outer && box->state->object == as_object(patcher) && !before.empty()) {
        patcher_detach_lines(outer, box);
        assign_records(patcher, side);
        patcher_renumber_lines(outer, box, side, index_of);
        patcher_attach_lines(outer, box);
    } else {
        assign_records(patcher, side);
    }
}

void settle_or_report(Patcher *patcher, Side side) noexcept {
    try {
        settle(patcher, side);
    } catch (const std::bad_alloc &) {
        object_error(as_object(patcher), "out of memory: inlets and outlets were not made");
    }
}

Port *find_port(Ports &ports, const void *object) noexcept {
    const auto at = std::find_if(ports.begin(), ports.end(),
                                 [object](const Port &port) { return port.object == object; });
    return at == ports.end() ? nullptr : &*at;
}

ErrorCode add_port(void *x, void *object, Side side, Outlet **slot) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || !object_valid(object) || patcher->freeing) {
        return ErrorGeneric;
    }
    Ports &ports = ports_of(patcher, side);
    if (find_port(ports, object)) {
        return ErrorDuplicate;
    }
    Jbox *box = as_box("#B"_sym->thing);
    if (!box || box->state->patcher != patcher) {
        box = as_box(object_box(static_cast<Object *>(object)));
    }
    try {
        ports.push_back({static_cast<Object *>(object), box, nullptr, nullptr, slot});
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
    if (!patcher->loading) {
        settle_or_report(patcher, side);
    }
    return ErrorNone;
}

// The record goes first: it takes the cords at it along, and needs the ports as they are for that.
bool remove_port(Patcher *patcher, const void *object, Side side) noexcept {
    Ports &ports = ports_of(patcher, side);
    Port *port = find_port(ports, object);
    if (!port) {
        return false;
    }
    if (port->slot) {
        *port->slot = nullptr;
    }
    if (port->inlet && !patcher->freeing) {
        inlet_delete(port->inlet);
    }
    if (port->outlet && !patcher->freeing) {
        outlet_delete(port->outlet);
    }
    ports.erase(ports.begin() + (port - ports.data()));
    return true;
}

}  // namespace

void patcher_settle_ports(Patcher *patcher) noexcept {
    settle_or_report(patcher, Side::inlet);
    settle_or_report(patcher, Side::outlet);
}

void patcher_port_moved(Patcher *patcher, Jbox *box) noexcept {
    if (patcher->loading || (patcher->inlets.empty() && patcher->outlets.empty())) {
        return;
    }
    if (find_port(patcher->inlets, box->state->object)) {
        settle_or_report(patcher, Side::inlet);
    } else if (find_port(patcher->outlets, box->state->object)) {
        settle_or_report(patcher, Side::outlet);
    }
}

}  // namespace kiv

using namespace kiv;

ErrorCode jpatcher_add_inlet(void *patcher, void *object) noexcept {
    return add_port(patcher, object, Side::inlet, nullptr);
}

ErrorCode jpatcher_add_outlet(void *patcher, void *object, Outlet **slot) noexcept {
    return slot ? add_port(patcher, object, Side::outlet, slot) : ErrorInvalidPointer;
}

void jpatcher_remove_port(void *x, const void *object) noexcept {
    Patcher *patcher = as_patcher(x);
    if (patcher && !remove_port(patcher, object, Side::inlet)) {
        remove_port(patcher, object, Side::outlet);
    }
}
