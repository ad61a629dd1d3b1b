// What the benchmarks of the kernel share: classes to send to.
#pragma once

#include <kiv/kiv.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::bench {

struct Sink {
    Object ob;
    int64_t sum;
    Outlet *out;
    int32_t value;
};

inline void sink_int(Sink *x, int64_t value) {
    x->sum += value;
}
inline void sink_pass(Sink *x, int64_t value) {
    outlet_int(x->out, value);
}
inline void sink_values(Sink *x, int64_t a, double b, Symbol *c) {
    x->sum += a + static_cast<int64_t>(b) + (c->thing != nullptr);
}

// A class of so many methods; "values" takes an integer, a float and a symbol.
inline Class *sink_class(const char *name, int method_count) {
    Class *const c = class_new(name, nullptr, nullptr, sizeof(Sink), nullptr, 0);
    class_addmethod(c, method(sink_int), "int", TypeLong, 0);
    class_addmethod(c, method(sink_pass), "pass", TypeLong, 0);
    for (int i = 3; i < method_count; ++i) {
        class_addmethod(c, method(sink_int), ("method" + std::to_string(i)).c_str(), TypeLong, 0);
    }
    class_addmethod(c, method(sink_values), "values", TypeLong, TypeFloat, TypeSymbol, 0);
    class_addattr(c, attr_offset_new("value", gensym("long"), 0, nullptr, nullptr,
                                     static_cast<int32_t>(offsetof(Sink, value))));
    class_register(gensym("nobox"), c);
    return c;
}

inline Sink *sink_new(Class *c) {
    return static_cast<Sink *>(object_alloc(c));
}

}  // namespace kiv::bench
