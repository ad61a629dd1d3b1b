// The binary operators: one table of functions over two numbers.
#include "objects/common.h"

namespace kiv::objects {

namespace {

// The operand that came in, the operand that is kept, and the result; integers or floats.
struct Operator {
    const char *name;
    int64_t (*integers)(int64_t a, int64_t b);
    double (*floats)(double a, double b);           // null: the operator works in integers only
    int64_t (*compare_floats)(double a, double b);  // set for operators that answer 1 or 0
};

int64_t divide(int64_t a, int64_t b) {
    if (b == 0) {
        return 0;
    }
    return b == -1 ? wrapped(0 - bits(a)) : a / b;
}

int64_t remainder(int64_t a, int64_t b) {
    return b == 0 || b == -1 ? 0 : a % b;
}

// Shifts by more than the width move every bit out; by a negative count, the other way.
int64_t shift_left(int64_t a, int64_t b);
int64_t shift_right(int64_t a, int64_t b) {
    if (b < 0) {
        return shift_left(a, b < -64 ? 64 : -b);
    }
    return a >> (b > 63 ? 63 : b);
}
int64_t shift_left(int64_t a, int64_t b) {
    if (b < 0) {
        return shift_right(a, b < -64 ? 64 : -b);
    }
    return b > 63 ? 0 : wrapped(bits(a) << b);
}

#define KIV_COMPARE(op)                                              \
    [](int64_t a, int64_t b) -> int64_t { return a op b; }, nullptr, \
        [](double a, double b) -> int64_t { return a op b; }

constexpr Operator operators[] = {
    {"+", [](int64_t a, int64_t b) { return wrapped(bits(a) + bits(b)); },
     [](double a, double b) { return a + b; }, nullptr},
    {"-", [](int64_t a, int64_t b) { return wrapped(bits(a) - bits(b)); },
     [](double a, double b) { return a - b; }, nullptr},
    {"*", [](int64_t a, int64_t b) { return wrapped(bits(a) * bits(b)); },
     [](double a, double b) { return a * b; }, nullptr},
    {"/", divide, [](double a, double b) { return a / b; }, nullptr},
    {"%", remainder, [](double a, double b) { return std::fmod(a, b); }, nullptr},
    {"==", KIV_COMPARE(==)},
    {"!=", KIV_COMPARE(!=)},
    {"<", KIV_COMPARE(<)},
    {"<=", KIV_COMPARE(<=)},
    {">", KIV_COMPARE(>)},
    {">=", KIV_COMPARE(>=)},
    {"&", [](int64_t a, int64_t b) { return a & b; }, nullptr, nullptr},
    {"|", [](int64_t a, int64_t b) { return a | b; }, nullptr, nullptr},
    {"<<", shift_left, nullptr, nullptr},
    {">>", shift_right, nullptr, nullptr},
    {"&&", [](int64_t a, int64_t b) -> int64_t { return a && b; }, nullptr, nullptr},
    {"||", [](int64_t a, int64_t b) -> int64_t { return a || b; }, nullptr, nullptr},
};
constexpr size_t operator_count = sizeof(operators) / sizeof(operators[0]);

#undef KIV_COMPARE

Class *classes[operator_count];

struct Binary {
    Object ob;
    const Operator *op;
    Outlet *out;
    Atom left;   // of the same kind
    Atom right;  // its kind is the object's
};

void send(Binary *x) {
    if (x->right.type == TypeLong) {
        outlet_int(x->out, x->op->integers(x->left.value.i, x->right.value.i));
    } else if (x->op->compare_floats) {
        outlet_int(x->out, x->op->compare_floats(x->left.value.f, x->right.value.f));
    } else {
        const double result = x->op->floats(x->left.value.f, x->right.value.f);
        // Not-a-number has no sign here: processors disagree about it.
        outlet_float(x->out,
                     std::isnan(result) ? std::numeric_limits<double>::quiet_NaN() : result);
    }
}

void operate(Binary *x, Atom number) {
    x->left = as_kind(number, x->right.type == TypeFloat);
    send(x);
}

// An integer to an object that works in integers: each operator has a method of its own, which
// computes in line.
template <size_t index>
void operate_int(Binary *x, int64_t value) {
    if (x->right.type == TypeFloat) {
        operate(x, long_atom(value));
        return;
    }
    x->left.value.i = value;
    outlet_int(x->out, operators[index].integers(value, x->right.value.i));
}
void operate_float(Binary *x, double value) {
    operate(x, float_atom(value));
}

void keep(Binary *x, Atom number) {
    x->right = as_kind(number, x->right.type == TypeFloat);
}

// A list gives both operands at once.
void operands(Binary *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (argc < 1 || !is_number(argv[0]) || (argc > 1 && !is_number(argv[1]))) {
        object_error(x, "bad arguments for message \"%s\"", selector->name);
        return;
    }
    if (argc > 1) {
        keep(x, argv[1]);
    }
    operate(x, argv[0]);
}

template <size_t index>
void *binary_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Binary>(classes[index]);
    if (x) {
        x->op = &operators[index];
        const bool can_float = x->op->floats || x->op->compare_floats;
        const Atom operand = number_argument(x, 0, argc, argv, long_atom(0));
        x->right = as_kind(operand, can_float && operand.type == TypeFloat);
        x->left = as_kind(long_atom(0), x->right.type == TypeFloat);
        number_inlet(x, x->right.type == TypeFloat, 1);
        x->out = number_outlet(x, x->right.type == TypeFloat && !x->op->compare_floats);
    }
    return x;
}

template <size_t index>
void add_operators() {
    if constexpr (index < operator_count) {
        Class *const c = make_class<Binary>(operators[index].name, binary_new<index>);
        class_addmethod(c, method(send), "bang", 0);
        class_addmethod(c, method(operands), "list", TypeGimme, 0);
        class_addmethod(c, method(operate_int<index>), "int", TypeLong, 0);
        class_addmethod(c, method(operate_float), "float", TypeFloat, 0);
        Numbers<Binary, keep>::add_cold(c, "in1", "ft1");
        add_class(c);
        classes[index] = c;
        add_operators<index + 1>();
    }
}

}  // namespace

void arithmetic_start() {
    add_operators<0>();
}

}  // namespace kiv::objects
