// What the built-in object classes share. Like every class of theirs it rests on the public headers
// alone.
#pragma once

#include <kiv/kiv.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>

namespace kiv::objects {

// --- Classes -------------------------------------------------------------------------------------

// A class whose constructor takes the arguments typed after its name as atoms:
// void *constructor(Symbol *selector, int32_t argc, Atom *argv).
template <class Record>
Class *make_class(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *),
                  void (*destructor)(Record *) = nullptr) {
    return class_new(name, method(constructor), destructor ? method(destructor) : nullptr,
                     static_cast<int32_t>(sizeof(Record)), nullptr, TypeGimme, 0);
}

// Makes the class known to object boxes under its name and its aliases.
inline void add_class(Class *c, std::initializer_list<const char *> aliases = {}) {
    class_register("box"_sym, c);
    for (const char *name : aliases) {
        class_alias(c, gensym(name));
    }
}

template <class Record>
Record *make_object(Class *c) {
    return static_cast<Record *>(object_alloc(c));
}

// `count` elements of zeros, freed with sysmem_freeptr; null without memory.
template <class T>
T *new_array(int32_t count) {
    return static_cast<T *>(sysmem_newptrclear(static_cast<int64_t>(sizeof(T)) * count));
}

// Guards what an object keeps in memory of changing size, which messages on several threads may
// reach at once. Never held while something is sent.
class Guard {
  public:
    Guard() { critical_enter(nullptr); }
    ~Guard() { critical_exit(nullptr); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;
};

// --- Numbers -------------------------------------------------------------------------------------

// Truncates toward zero; what does not fit becomes the nearest integer, not-a-number 0.
inline int64_t to_long(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 9223372036854775808.0) {
        return std::numeric_limits<int64_t>::max();
    }
    if (value < -9223372036854775808.0) {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(value);
}

// Integer arithmetic wraps, as two's complement does: it is computed unsigned, where that is
// defined.
inline uint64_t bits(int64_t value) {
    return static_cast<uint64_t>(value);
}
inline int64_t wrapped(uint64_t value) {
    return static_cast<int64_t>(value);
}

inline bool is_long(const Atom &atom) {
    return atom.type == TypeLong;
}
inline bool is_number(const Atom &atom) {
    return atom.type == TypeLong || atom.type == TypeFloat;
}
inline bool is_symbol(const Atom &atom) {
    return atom.type == TypeSymbol;
}

inline Atom long_atom(int64_t value) {
    Atom atom;
    atom.type = TypeLong;
    atom.value.i = value;
    return atom;
}
inline Atom float_atom(double value) {
    Atom atom;
    atom.type = TypeFloat;
    atom.value.f = value;
    return atom;
}
inline Atom symbol_atom(Symbol *value) {
    Atom atom;
    atom.type = TypeSymbol;
    atom.value.sym = value;
    return atom;
}

// Milliseconds that a clock can work with: no fewer than `least`, no more than some 30,000 years;
// `least` for not-a-number.
inline double sane_ms(double ms, double least) {
    constexpr double most = 1e15;
    return !(ms >= least) ? least : ms <= most ? ms : most;
}

// Numbers keep their kind: an object works in floats when its first numeric argument is one.
inline int64_t long_of(const Atom &number) {
    return number.type == TypeFloat ? to_long(number.value.f) : number.value.i;
}
inline double float_of(const Atom &number) {
    return number.type == TypeFloat ? number.value.f : static_cast<double>(number.value.i);
}
inline Atom as_kind(const Atom &number, bool floats) {
    return floats ? float_atom(float_of(number)) : long_atom(long_of(number));
}

// The numeric argument at `index`, or `fallback`; an argument of another type is an error posted
// from the object.
Atom number_argument(void *x, int32_t index, int32_t argc, const Atom *argv, const Atom &fallback);
double float_argument(void *x, int32_t index, int32_t argc, const Atom *argv, double fallback);
int64_t long_argument(void *x, int32_t index, int32_t argc, const Atom *argv, int64_t fallback);
Symbol *symbol_argument(void *x, int32_t index, int32_t argc, const Atom *argv, Symbol *fallback);

// An outlet typed for numbers of one kind, and a cold inlet that stores them: its messages reach
// the owner's methods "in1".. (integers) or "ft1".. (floats).
inline Outlet *number_outlet(void *owner, bool floats) {
    return floats ? floatout(owner) : intout(owner);
}
inline Inlet *number_inlet(void *owner, bool floats, int32_t n) {
    return floats ? floatin(owner, n) : intin(owner, n);
}

// How many inlets or outlets an object makes that was asked for `wanted`: at least one, and not
// more than most_ports, which is an error posted from it.
constexpr int32_t most_ports = 256;
int32_t port_count(void *x, int64_t wanted);

// `count` inlets to the right of the first that take every message: proxy_getinlet tells, 1 for the
// first of them, which one it was. The result is the owner's, to free in its free function.
Linklist *make_inlets(void *owner, int32_t count);

// --- The patcher around an object ----------------------------------------------------------------

// The box that an object sits in, or is, and its patcher; null for an object in none. Main thread.
Object *box_of(void *x);
Object *patcher_of(void *x);

// --- Messages ------------------------------------------------------------------------------------

// Sends one number, or a whole message under its selector.
void send_number(Outlet *outlet, const Atom &number);
void send_message(Outlet *outlet, Symbol *selector, int32_t argc, Atom *argv);

// Methods that turn "bang", "int", "float", "list" and everything else into one function:
// void handle(Record *x, Symbol *selector, int32_t argc, Atom *argv). An integer arrives as the
// selector "int" with one atom, a bang as "bang" with none.
template <class Record, void (*handle)(Record *, Symbol *, int32_t, Atom *)>
struct Messages {
    static void on_bang(Record *x) { handle(x, "bang"_sym, 0, nullptr); }
    static void on_int(Record *x, int64_t value) {
        Atom atom = long_atom(value);
        handle(x, "int"_sym, 1, &atom);
    }
    static void on_float(Record *x, double value) {
        Atom atom = float_atom(value);
        handle(x, "float"_sym, 1, &atom);
    }
    static void on_any(Record *x, Symbol *selector, int32_t argc, Atom *argv) {
        handle(x, selector, argc, argv);
    }
    static void add(Class *c) {
        class_addmethod(c, method(on_bang), "bang", 0);
        class_addmethod(c, method(on_int), "int", TypeLong, 0);
        class_addmethod(c, method(on_float), "float", TypeFloat, 0);
        class_addmethod(c, method(on_any), "list", TypeGimme, 0);
        class_addmethod(c, method(on_any), "anything", TypeGimme, 0);
    }
};

// "int" and "float" methods for one function over numbers: void handle(Record *x, Atom number).
template <class Record, void (*handle)(Record *, Atom)>
struct Numbers {
    static void on_int(Record *x, int64_t value) { handle(x, long_atom(value)); }
    static void on_float(Record *x, double value) { handle(x, float_atom(value)); }
    static void add(Class *c) {
        class_addmethod(c, method(on_int), "int", TypeLong, 0);
        class_addmethod(c, method(on_float), "float", TypeFloat, 0);
    }
    // The methods of the n-th cold inlet.
    static void add_cold(Class *c, const char *in_name, const char *ft_name) {
        class_addmethod(c, method(on_int), in_name, TypeLong, 0);
        class_addmethod(c, method(on_float), ft_name, TypeFloat, 0);
    }
};

// A message as one row of atoms: the elements of a list or number, which stay where they are, or a
// copy of the selector and what follows.
class Elements {
  public:
    Elements(Symbol *selector, int32_t argc, Atom *argv) : atoms_(argv), count_(argc) {
        if (selector != "list"_sym && selector != "int"_sym && selector != "float"_sym) {
            copy(selector);
        }
    }
    ~Elements() {
        if (copied_) {
            atom_dynamic_end(local_, atoms_);
        }
    }
    Elements(const Elements &) = delete;
    Elements &operator=(const Elements &) = delete;
    int32_t count() const { return count_; }
    Atom *atoms() { return atoms_; }
    const Atom &operator[](int32_t index) const { return atoms_[index]; }

  private:
    void copy(Symbol *selector);

    static constexpr int32_t local_count = 32;
    Atom local_[local_count];
    Atom *atoms_;
    int32_t count_;
    bool copied_ = false;
};

// Says that the object has no use for a message.
void refuse(void *x, const Symbol *selector);

// Equal in type and value; for numbers, an integer never equals a float.
bool same_atom(const Atom &a, const Atom &b);

// The atom as a value of the kind of `kind` (integer, float or symbol); false when it has none, a
// symbol where a number is wanted.
bool convert_atom(const Atom &from, const Atom &kind, Atom &to);
// The atom as a value of the kind that `to` has: 0 or the empty symbol when it has none.
void convert_or_zero(const Atom &from, Atom &to);
// Fills the places of `values` from index `first` on, each keeping its kind. False when an element
// does not fit, which is an error posted from `x`; the others are stored.
bool store_elements(void *x, Atom *values, int32_t value_count, int32_t first, int32_t argc,
                    const Atom *argv);

// --- The start of each family --------------------------------------------------------------------

void print_start();
void loading_start();
void message_box_start();
void number_boxes_start();
void store_start();
void arithmetic_start();
void trigger_start();
void lists_start();
void routing_start();
void counting_start();
void timing_start();
void pipe_start();
void named_start();
void subpatcher_start();
void defer_start();
void accumulators_start();
void bag_start();
void thispatcher_start();
void pcontrol_start();
void preset_start();

}  // namespace kiv::objects
