/* level: a level from 0 to 1 that all objects of one name share.

     [level kitchen @gain 2.]

   A float in the left inlet sets the level of that name; every object of the name then sends the
   level, times its own gain. Bang sends it again. "fade" moves the level to a float, or with
   the word "half" behind it half the way. A float in the right inlet changes the level without a
   word from this object. The right outlet answers questions: "getgain" gives "gain 2.".

   The level itself is an object of a second class, registered under its name: the first object of
   the name makes it, the others find it. All of them are attached to it, so that they are told when
   its attribute "value" changes. */
#include <kiv/kiv.h>
#include <stddef.h>

typedef struct Store {
    Object ob;
    double value;
} Store;

typedef struct Level {
    Object ob;
    Store *store; /* shared */
    Outlet *value_out;
    Outlet *answers_out;
    Proxy *quiet;
    double gain;
    int32_t silent; /* while this object itself changes the level quietly */
} Level;

static Class *store_class;
static Class *level_class;

static void level_bang(Level *x) {
    outlet_float(x->value_out, object_attr_getfloat(x->store, gensym("value")) * x->gain);
}

static void level_float(Level *x, double value) {
    x->silent = proxy_getinlet(x) == 1;
    object_attr_setfloat(x->store, gensym("value"), value);
    x->silent = 0;
}

static void level_int(Level *x, int64_t value) {
    level_float(x, (double)value);
}

static void level_fade(Level *x, double target, Symbol *how) {
    const double part = how == gensym("half") ? 0.5 : 1.0;
    const double now = object_attr_getfloat(x->store, gensym("value"));
    level_float(x, now + (target - now) * part);
}

static void level_notify(Level *x, Symbol *name, Symbol *message, void *sender, void *attribute) {
    (void)name;
    (void)attribute;
    if (message == gensym("attr_modified") && sender == x->store && !x->silent) {
        level_bang(x);
    }
}

static void level_free(Level *x) {
    if (x->store) {
        object_detach_byptr(x, x->store);
        object_unregister(x->store);
        object_free(x->store);
    }
    object_free(x->quiet);
}

static void *level_new(Symbol *name, int32_t count, Atom *argv) {
    (void)name;
    Symbol *level = gensym("");
    if (attr_args_offset(count, argv) > 0) {
        atom_arg_getsym(&level, 0, count, argv);
    }
    if (level == gensym("")) {
        error("level: a name is needed");
        return NULL;
    }
    Level *x = object_alloc(level_class);
    if (x) {
        /* A name that is taken gives the object that has it, and frees the new one. */
        x->store = object_register(gensym("level"), level, object_alloc(store_class));
        object_attach_byptr(x, x->store);
        x->gain = 1.0;
        x->quiet = proxy_new(x, 1, NULL);
        x->answers_out = outlet_new(x, NULL);
        x->value_out = floatout(x);
        object_obex_store(x, gensym("dumpout"), x->answers_out);
        attr_args_process(x, count, argv);
    }
    return x;
}

static void add_store_class(void) {
    store_class = class_new("level_store", NULL, NULL, (int32_t)sizeof(Store), NULL, 0);
    void *value =
        attr_offset_new("value", gensym("float64"), 0, NULL, NULL, (int32_t)offsetof(Store, value));
    attr_addfilterset_clip(value, 0.0, 1.0, 1, 1);
    class_addattr(store_class, value);
    class_register(gensym("nobox"), store_class);
}

KIV_MODULE_EXPORT void ext_main(void *module) {
    (void)module;
    add_store_class();
    level_class = class_new("level", (Method)level_new, (Method)level_free, (int32_t)sizeof(Level),
                            NULL, TypeGimme, 0);
    class_addmethod(level_class, (Method)level_bang, "bang", 0);
    class_addmethod(level_class, (Method)level_int, "int", TypeLong, 0);
    class_addmethod(level_class, (Method)level_float, "float", TypeFloat, 0);
    class_addmethod(level_class, (Method)level_fade, "fade", TypeFloat, TypeDefSymbol, 0);
    class_addmethod(level_class, (Method)level_notify, "notify", TypeCant, 0);

    void *gain =
        attr_offset_new("gain", gensym("float64"), 0, NULL, NULL, (int32_t)offsetof(Level, gain));
    attr_addfilterset_clip(gain, 0.0, 0.0, 1, 0);
    class_addattr(level_class, gain);
    class_addattr_format(level_class, "gain", gensym("label"), "symbol", "z", "Gain");

    class_register(gensym("box"), level_class);
}
