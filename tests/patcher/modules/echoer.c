/* A module with one object class and an alias; says when it is entered. */
#include <kiv/kiv.h>

typedef struct Echoer {
    Object ob;
    int64_t number;
} Echoer;

static Class *echoer_class;

static void *echoer_new(int64_t number) {
    Echoer *x = object_alloc(echoer_class);
    x->number = number;
    return x;
}

KIV_MODULE_EXPORT void ext_main(void *module);
void ext_main(void *module) {
    post("echoer entered %s", module ? "with its module" : "without a module");
    echoer_class =
        class_new("echoer", (Method)echoer_new, NULL, sizeof(Echoer), NULL, TypeDefLong, 0);
    alias("repeater");
    class_register(gensym("box"), echoer_class);
}
