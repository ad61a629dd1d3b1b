// change, counter, random: numbers that depend on what came before.
#include "objects/common.h"

namespace kiv::objects {

namespace {

// --- change --------------------------------------------------------------------------------------

struct Change {
    Object ob;
    Outlet *out;
    Outlet *rise;
    Outlet *fall;
    Atom last;  // its kind is the object's
};
Class *change_class;

void change_number(Change *x, Atom number) {
    const Atom last = x->last;
    const Atom value = as_kind(number, last.type == TypeFloat);
    if (same_atom(value, last)) {
        return;
    }
    x->last = value;
    const bool was_zero = float_of(last) == 0.0;
    const bool is_zero = float_of(value) == 0.0;
    if (is_zero && !was_zero) {
        outlet_int(x->fall, 1);
    } else if (was_zero && !is_zero) {
        outlet_int(x->rise, 1);
    }
    if (object_isvalid(x)) {
        send_number(x->out, value);
    }
}

void change_bang(Change *x) {
    send_number(x->out, x->last);
}

void change_set(Change *x, Symbol *, int32_t argc, Atom *argv) {
    x->last = as_kind(number_argument(x, 0, argc, argv, x->last), x->last.type == TypeFloat);
}

void *change_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Change>(change_class);
    if (x) {
        x->last = number_argument(x, 0, argc, argv, long_atom(0));
        x->fall = intout(x);
        x->rise = intout(x);
        x->out = number_outlet(x, x->last.type == TypeFloat);
    }
    return x;
}

// --- counter -------------------------------------------------------------------------------------

enum Direction : int64_t { up = 0, down = 1, up_and_down = 2 };

// The next count is worked out when it is wanted, from limits that may have changed meanwhile.
struct Counter {
    Object ob;
    Outlet *out;
    Outlet *rounds_out;
    int64_t direction;
    int64_t minimum;
    int64_t maximum;
    bool has_maximum;
    int64_t count;   // the last one
    bool is_next;    // `count` has not been sent: it is the next one
    int64_t step;    // 1 or -1
    int64_t rounds;  // how often it has come round
};
Class *counter_class;

void counter_restart(Counter *x) {
    x->step = x->direction == down ? -1 : 1;
    x->count = x->direction == down && x->has_maximum ? x->maximum : x->minimum;
    x->is_next = true;
}

void counter_reset(Counter *x) {
    x->rounds = 0;
    counter_restart(x);
}

// At an end it comes round, or turns when it goes up and down; then the result is true.
bool counter_advance(Counter *x) {
    const bool at_top = x->has_maximum && x->step > 0 && x->count >= x->maximum;
    const bool at_bottom = x->step < 0 && x->count <= x->minimum;
    if (!at_top && !at_bottom) {
        x->count = wrapped(bits(x->count) + bits(x->step));
    } else if (x->direction == up_and_down && x->minimum < x->maximum) {
        x->step = -x->step;
        x->count = at_top ? x->maximum - 1 : x->minimum + 1;
    } else {
        x->count = at_top || !x->has_maximum ? x->minimum : x->maximum;
    }
    return at_top || at_bottom;
}

void counter_bang(Counter *x) {
    const bool came_round = !x->is_next && counter_advance(x);
    const int64_t count = x->count;
    x->is_next = false;
    if (came_round) {
        outlet_int(x->rounds_out, ++x->rounds);
    }
    if (object_isvalid(x)) {
        outlet_int(x->out, count);
    }
}

void counter_number(Counter *x, Atom) {
    counter_bang(x);
}

void counter_next(Counter *x, int64_t next) {
    x->count = next;
    x->is_next = true;
}

void counter_maximum(Counter *x, int64_t maximum) {
    x->maximum = maximum;
    x->has_maximum = true;
}

// One argument is the maximum, two minimum and maximum, three put the direction first.
void *counter_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Counter>(counter_class);
    if (!x) {
        return nullptr;
    }
    if (argc > 2) {
        x->direction = long_argument(x, 0, argc, argv, up);
        if (x->direction < up || x->direction > up_and_down) {
            object_error(x, "%lld is no direction: 0 up, 1 down, 2 up and down",
                         static_cast<long long>(x->direction));
            x->direction = up;
        }
    }
    if (argc > 1) {
        x->minimum = long_argument(x, argc > 2 ? 1 : 0, argc, argv, 0);
    }
    if (argc > 0) {
        counter_maximum(x, long_argument(x, argc > 2 ? 2 : argc - 1, argc, argv, x->minimum));
    }
    counter_restart(x);
    intin(x, 2);
    intin(x, 1);
    x->rounds_out = intout(x);
    x->out = intout(x);
    return x;
}

// --- random --------------------------------------------------------------------------------------

// SplitMix64: the same sequence on every platform, whatever the seed.
struct Random {
    Object ob;
    Outlet *out;
    int64_t range;
    uint64_t state;
};
Class *random_class;

uint64_t random_next(Random *x) {
    uint64_t z = x->state += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

void random_bang(Random *x) {
    if (x->range < 1) {
        outlet_int(x->out, 0);
        return;
    }
    // Numbers beyond the last whole multiple of the range are drawn again: no value is favoured.
    const auto range = static_cast<uint64_t>(x->range);
    const uint64_t unfair = (0 - range) % range;
    uint64_t drawn = random_next(x);
    while (drawn < unfair) {
        drawn = random_next(x);
    }
    outlet_int(x->out, static_cast<int64_t>(drawn % range));
}

void random_seed(Random *x, int64_t seed) {
    x->state = static_cast<uint64_t>(seed);
}

void random_range(Random *x, int64_t range) {
    x->range = range;
}

void *random_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Random>(random_class);
    if (x) {
        // Unseeded objects differ from one another, and from run to run by the time they are made;
        // offline, where time is the document's own, they give the same numbers every time.
        static int64_t made = 0;
        const double time = gettime_forobject(x);
        random_seed(x, ++made + to_long(time * 1000.0) * 7919);
        x->range = long_argument(x, 0, argc, argv, 1);
        if (argc > 1) {
            random_seed(x, long_argument(x, 1, argc, argv, 0));
        }
        intin(x, 1);
        x->out = intout(x);
    }
    return x;
}

}  // namespace

void counting_start() {
    change_class = make_class<Change>("change", change_new);
    class_addmethod(change_class, method(change_bang), "bang", 0);
    class_addmethod(change_class, method(change_set), "set", TypeGimme, 0);
    Numbers<Change, change_number>::add(change_class);
    add_class(change_class);

    counter_class = make_class<Counter>("counter", counter_new);
    class_addmethod(counter_class, method(counter_bang), "bang", 0);
    Numbers<Counter, counter_number>::add(counter_class);
    class_addmethod(counter_class, method(counter_next), "in1", TypeLong, 0);
    class_addmethod(counter_class, method(counter_maximum), "in2", TypeLong, 0);
    class_addmethod(counter_class, method(counter_reset), "reset", 0);
    add_class(counter_class);

    random_class = make_class<Random>("random", random_new);
    class_addmethod(random_class, method(random_bang), "bang", 0);
    class_addmethod(random_class, method(random_seed), "seed", TypeLong, 0);
    class_addmethod(random_class, method(random_range), "in1", TypeLong, 0);
    add_class(random_class);
}

}  // namespace kiv::objects
