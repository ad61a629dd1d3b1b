// metro, delay, timer: clocks and the time between messages.
#include "objects/common.h"

namespace kiv::objects {

namespace {

constexpr double shortest_interval_ms = 0.1;  // below it a metro would do nothing but tick

double sane_ms(double ms, double least) {
    return ms >= least ? ms : least;
}

// --- metro ---------------------------------------------------------------------------------------

// Ticks fall on `start` plus whole multiples of the interval, so that rounding never adds up; a new
// interval starts a new series at the tick it is first used for.
struct Metro {
    Object ob;
    Outlet *out;
    Clock *clock;
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

void metro_free(Metro *x) {
    object_free(x->clock);
}

void *metro_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Metro>(metro_class);
    if (x) {
        x->clock = clock_new(x, method(metro_tick));
        metro_interval(x, float_atom(float_argument(x, 0, argc, argv, 5.0)));
        floatin(x, 1);
        x->out = bangout(x);
    }
    return x;
}

// --- delay ---------------------------------------------------------------------------------------

struct Delay {
    Object ob;
    Outlet *out;
    Clock *clock;
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

void delay_free(Delay *x) {
    object_free(x->clock);
}

void *delay_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Delay>(delay_class);
    if (x) {
        x->clock = clock_new(x, method(delay_tick));
        delay_time(x, float_atom(float_argument(x, 0, argc, argv, 0.0)));
        floatin(x, 1);
        x->out = bangout(x);
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
    metro_class = make_class<Metro>("metro", metro_new, metro_free);
    class_addmethod(metro_class, method(metro_start), "bang", 0);
    class_addmethod(metro_class, method(metro_stop), "stop", 0);
    Numbers<Metro, metro_number>::add(metro_class);
    Numbers<Metro, metro_interval>::add_cold(metro_class, "in1", "ft1");
    add_class(metro_class);

    delay_class = make_class<Delay>("delay", delay_new, delay_free);
    class_addmethod(delay_class, method(delay_start), "bang", 0);
    class_addmethod(delay_class, method(delay_stop), "stop", 0);
    Numbers<Delay, delay_number>::add(delay_class);
    Numbers<Delay, delay_time>::add_cold(delay_class, "in1", "ft1");
    add_class(delay_class, {"del"});

    timer_class = make_class<Timer>("timer", timer_new);
    class_addmethod(timer_class, method(timer_reset), "bang", 0);
    class_addmethod(timer_class, method(timer_report), "report", 0);
    add_class(timer_class);
}

}  // namespace kiv::objects
