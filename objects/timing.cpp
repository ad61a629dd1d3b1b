// metro, delay, timer: clocks and the time between messages.
#include "objects/common.h"

namespace kiv::objects {

namespace {

constexpr double shortest_interval_ms = 0.1;  // below it a metro would do nothing but tick

// An object that bangs when its clock comes due. Made from the right: in2 takes the time.
struct Clocked {
    Object ob;
    Outlet *out;
    Clock *clock;
};

template <class Record>
Record *clocked_new(Class *c, void (*tick)(Record *)) {
    auto *x = make_object<Record>(c);
    if (x) {
        x->clock = clock_new(x, method(tick));
        floatin(x, 1);
        x->out = bangout(x);
    }
    return x;
}

template <class Record>
void clocked_free(Record *x) {
    object_free(x->clock);
}

// What the two have in common: bang starts, "stop" stops, a number in the first inlet is a message
// of its own, one in the second the time.
template <class Record, void (*start)(Record *), void (*stop)(Record *),
          void (*number)(Record *, Atom), void (*time)(Record *, Atom)>
void add_clocked(Class *c, std::initializer_list<const char *> aliases) {
    class_addmethod(c, method(start), "bang", 0);
    class_addmethod(c, method(stop), "stop", 0);
    Numbers<Record, number>::add(c);
    Numbers<Record, time>::add_cold(c, "in1", "ft1");
    add_class(c, aliases);
}

// --- metro ---------------------------------------------------------------------------------------

// Ticks fall on `start` plus whole multiples of the interval, so that rounding never adds up; a new
// interval starts a new series at the tick it is first used for.
struct Metro : Clocked {
    double interval;
    double next_interval;  // used from the next tick on
    double start;
    double ticks;  // since the start of the series
    bool running;
};
Class *metro_class;

void metro_schedule(Metro *x) {
    if (x->next_interval != x->interval) {
        x->start += x->ticks * x->interval;
        x->ticks = 0;
        x->interval = x->next_interval;
    }
    x->ticks += 1;
    clock_fset(x->clock, x->start + x->ticks * x->interval);
}

void metro_tick(Metro *x) {
    metro_schedule(x);  // first, so that what the bang sets off may stop it
    outlet_bang(x->out);
}

void metro_start(Metro *x) {
    x->running = true;
    x->start = gettime_forobject(x);
    x->ticks = 0;
    metro_tick(x);
}

void metro_stop(Metro *x) {
    x->running = false;
    clock_unset(x->clock);
}

void metro_number(Metro *x, Atom number) {
    if (float_of(number) != 0.0) {
        metro_start(x);
    } else {
        metro_stop(x);
    }
}

void metro_interval(Metro *x, Atom ms) {
    x->next_interval = sane_ms(float_of(ms), shortest_interval_ms);
    if (!x->running) {
        x->interval = x->next_interval;
    }
}

void *metro_new(Symbol *, int32_t argc, Atom *argv) {
    Metro *const x = clocked_new(metro_class, metro_tick);
    if (x) {
        metro_interval(x, float_atom(float_argument(x, 0, argc, argv, 5.0)));
    }
    return x;
}

// --- delay ---------------------------------------------------------------------------------------

struct Delay : Clocked {
    double ms;
};
Class *delay_class;

void delay_tick(Delay *x) {
    outlet_bang(x->out);
}

void delay_start(Delay *x) {
    clock_fdelay(x->clock, x->ms);
}

void delay_stop(Delay *x) {
    clock_unset(x->clock);
}

void delay_time(Delay *x, Atom ms) {
    x->ms = sane_ms(float_of(ms), 0.0);
}

void delay_number(Delay *x, Atom ms) {
    delay_time(x, ms);
    delay_start(x);
}

void *delay_new(Symbol *, int32_t argc, Atom *argv) {
    Delay *const x = clocked_new(delay_class, delay_tick);
    if (x) {
        delay_time(x, float_atom(float_argument(x, 0, argc, argv, 0.0)));
    }
    return x;
}

// --- timer ---------------------------------------------------------------------------------------

struct Timer {
    Object ob;
    Outlet *out;
    double start;
};
Class *timer_class;

void timer_reset(Timer *x) {
    x->start = gettime_forobject(x);
}

void timer_report(Timer *x) {
    outlet_float(x->out, gettime_forobject(x) - x->start);
}

void *timer_new(Symbol *, int32_t, Atom *) {
    auto *x = make_object<Timer>(timer_class);
    if (x) {
        inlet4(x, x, "bang", "report");
        x->out = floatout(x);
        timer_reset(x);
    }
    return x;
}

}  // namespace

void timing_start() {
    metro_class = make_class<Metro>("metro", metro_new, clocked_free<Metro>);
    add_clocked<Metro, metro_start, metro_stop, metro_number, metro_interval>(metro_class, {});

    delay_class = make_class<Delay>("delay", delay_new, clocked_free<Delay>);
    add_clocked<Delay, delay_start, delay_stop, delay_number, delay_time>(delay_class, {"del"});

    timer_class = make_class<Timer>("timer", timer_new);
    class_addmethod(timer_class, method(timer_reset), "bang", 0);
    class_addmethod(timer_class, method(timer_report), "report", 0);
    add_class(timer_class);
}

}  // namespace kiv::objects
