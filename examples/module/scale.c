/* scale: maps numbers from one range to another.

     [scale 0. 127. 0. 1. @clip 1]

   Four arguments: the low and high end of the range that comes in, then of the one that goes out.
   A number in the left inlet is mapped and sent; bang maps the last one again. A list of four in
   the left inlet sets the ranges. The attribute "clip" keeps results within the outgoing range. */
#include <kiv/kiv.h>
#include <stddef.h>

typedef struct Scale {
    Object ob;
    Outlet *out;
    double in_low, in_high;
    double out_low, out_high;
    double last;
    int32_t clip;
} Scale;

static Class *scale_class;

static double clipped(const Scale *x, double value) {
    const double low = x->out_low < x->out_high ? x->out_low : x->out_high;
    const double high = x->out_low < x->out_high ? x->out_high : x->out_low;
    return value < low ? low : value > high ? high : value;
}

static void scale_bang(Scale *x) {
    const double width = x->in_high - x->in_low;
    const double part = width == 0.0 ? 0.0 : (x->last - x->in_low) / width;
    const double value = x->out_low + part * (x->out_high - x->out_low);
    outlet_float(x->out, x->clip ? clipped(x, value) : value);
}

static void scale_float(Scale *x, double value) {
    x->last = value;
    scale_bang(x);
}

static void scale_int(Scale *x, int64_t value) {
    scale_float(x, (double)value);
}

static void scale_ranges(Scale *x, int32_t argc, const Atom *argv) {
    double *const ends[] = {&x->in_low, &x->in_high, &x->out_low, &x->out_high};
    for (int32_t i = 0; i < 4; ++i) {
        double end;
        if (atom_arg_getdouble(&end, i, argc, argv) == ErrorNone) {
            *ends[i] = end;
        }
    }
}

static void scale_list(Scale *x, Symbol *selector, int32_t argc, Atom *argv) {
    (void)selector;
    if (argc != 4) {
        object_error(x, "a list of four numbers sets the ranges");
        return;
    }
    scale_ranges(x, argc, argv);
}

static void *scale_new(Symbol *name, int32_t argc, Atom *argv) {
    (void)name;
    Scale *x = object_alloc(scale_class);
    if (x) {
        x->in_high = x->out_high = 1.0;
        scale_ranges(x, attr_args_offset(argc, argv), argv);
        x->out = floatout(x);
        attr_args_process(x, argc, argv);
    }
    return x;
}

KIV_MODULE_EXPORT void ext_main(void *module) {
    (void)module;
    scale_class =
        class_new("scale", (Method)scale_new, NULL, (int32_t)sizeof(Scale), NULL, TypeGimme, 0);
    class_addmethod(scale_class, (Method)scale_bang, "bang", 0);
    class_addmethod(scale_class, (Method)scale_int, "int", TypeLong, 0);
    class_addmethod(scale_class, (Method)scale_float, "float", TypeFloat, 0);
    class_addmethod(scale_class, (Method)scale_list, "list", TypeGimme, 0);

    void *clip =
        attr_offset_new("clip", gensym("long"), 0, NULL, NULL, (int32_t)offsetof(Scale, clip));
    attr_addfilter_clip(clip, 0, 1, 1, 1);
    class_addattr(scale_class, clip);

    class_register(gensym("box"), scale_class);
}
