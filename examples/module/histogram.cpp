// histogram: counts how often each integer came in.
//
//   [histogram 8]
//
// An integer in the left inlet adds one to its count; a number outside 0 to the size minus one goes
// out of the right outlet. Bang sends all counts as a list; "clear" sets them to zero. The second
// inlet, a proxy, takes a list of counts to go on from.
#include <kiv/kiv.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

struct Histogram {
    Object ob;
    Outlet *counts_out;
    Outlet *outside_out;
    std::vector<int64_t> *counts;
};

Class *histogram_class;

void histogram_bang(Histogram *x) {
    std::vector<Atom> list(x->counts->size());
    atom_setlong_array(static_cast<int32_t>(list.size()), list.data(),
                       static_cast<int32_t>(list.size()), x->counts->data());
    outlet_list(x->counts_out, gensym("list"), static_cast<int32_t>(list.size()), list.data());
}

void histogram_int(Histogram *x, int64_t value) {
    if (value < 0 || value >= static_cast<int64_t>(x->counts->size())) {
        outlet_int(x->outside_out, value);
    } else {
        ++(*x->counts)[static_cast<size_t>(value)];
    }
}

void histogram_list(Histogram *x, Symbol *, int32_t argc, Atom *argv) {
    if (proxy_getinlet(x) == 0) {
        std::for_each(argv, argv + argc,
                      [x](const Atom &atom) { histogram_int(x, atom_getlong(&atom)); });
    } else {
        atom_getlong_array(argc, argv, static_cast<int32_t>(x->counts->size()), x->counts->data());
    }
}

void histogram_clear(Histogram *x) {
    std::fill(x->counts->begin(), x->counts->end(), 0);
}

void histogram_free(Histogram *x) {
    delete x->counts;
}

void *histogram_new(int64_t size) {
    auto *x = static_cast<Histogram *>(object_alloc(histogram_class));
    if (x) {
        constexpr int64_t largest = 10000;
        x->counts = new std::vector<int64_t>(
            static_cast<size_t>(std::clamp<int64_t>(size == 0 ? 10 : size, 1, largest)));
        proxy_new(x, 1, nullptr);
        x->outside_out = intout(x);
        x->counts_out = listout(x);
    }
    return x;
}

}  // namespace

extern "C" KIV_MODULE_EXPORT void ext_main(void *) {
    histogram_class =
        class_new("histogram", kiv::method(histogram_new), kiv::method(histogram_free),
                  static_cast<int32_t>(sizeof(Histogram)), nullptr, TypeDefLong, 0);
    class_addmethod(histogram_class, kiv::method(histogram_bang), "bang", 0);
    class_addmethod(histogram_class, kiv::method(histogram_int), "int", TypeLong, 0);
    class_addmethod(histogram_class, kiv::method(histogram_list), "list", TypeGimme, 0);
    class_addmethod(histogram_class, kiv::method(histogram_clear), "clear", 0);
    class_register(gensym("box"), histogram_class);
}
