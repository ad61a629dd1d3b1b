// send, receive, value: messages and numbers by name.
#include "objects/common.h"

namespace kiv::objects {

namespace {

// --- send ----------------------------------------------------------------------------------------

struct Send {
    Object ob;
    Symbol *name;
};
Class *send_class;

// Nobody of that name: the message is dropped without a word.
void send_on(Send *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (x->name != ""_sym && object_isvalid(x->name->thing)) {
        typedmess(x->name->thing, selector, argc, argv);
    }
}

void *send_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Send>(send_class);
    if (x) {
        x->name = symbol_argument(x, 0, argc, argv, ""_sym);
    }
    return x;
}

// --- receive -------------------------------------------------------------------------------------

// What is bound to the name is an object of its own, so that a message through the name is told
// from one at the inlet: the inlet understands "set", the name takes everything.
struct Ear {
    Object ob;
    Outlet *out;  // the outlet of the receive object that owns the ear
};
Class *ear_class;

struct Receive {
    Object ob;
    Ear *ear;
    Symbol *name;  // the empty symbol: silent
};
Class *receive_class;

void ear_hear(Ear *ear, Symbol *selector, int32_t argc, Atom *argv) {
    send_message(ear->out, selector, argc, argv);
}

void receive_name(Receive *x, Symbol *name) {
    if (x->name != ""_sym) {
        receiver_unbind(x->name, x->ear);
    }
    x->name = name;
    if (name != ""_sym) {
        receiver_bind(name, x->ear);
    }
}

void receive_free(Receive *x) {
    if (x->ear) {
        receive_name(x, ""_sym);
        object_free(x->ear);
    }
}

void *receive_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Receive>(receive_class);
    if (!x) {
        return nullptr;
    }
    x->name = ""_sym;
    x->ear = make_object<Ear>(ear_class);
    if (!x->ear) {
        object_free(x);
        return nullptr;
    }
    x->ear->out = outlet_new(x, nullptr);
    receive_name(x, symbol_argument(x, 0, argc, argv, ""_sym));
    return x;
}

// --- value ---------------------------------------------------------------------------------------

// The variable of a name: registered while any value object of that name lives.
struct Variable {
    Object ob;
    Atomarray *message;  // its elements; empty until something is stored
};
Class *variable_class;

struct Value {
    Object ob;
    Outlet *out;
    Variable *variable;
};
Class *value_class;

void variable_free(Variable *variable) {
    object_free(variable->message);
}

Variable *variable_find(Symbol *name) {
    auto *variable = make_object<Variable>(variable_class);
    if (!variable) {
        return nullptr;
    }
    variable->message = atomarray_new(0, nullptr);
    if (name == ""_sym) {
        return variable;  // nameless: this object's own
    }
    // When the name is taken, the new one is freed and the registered one, retained, comes back.
    void *const registered = object_register("value"_sym, name, variable);
    if (!registered && object_isvalid(variable)) {
        object_free(variable);
    }
    return static_cast<Variable *>(registered);
}

void value_send(Value *x) {
    int32_t argc = 0;
    Atom *argv = nullptr;
    {
        const Guard guard;
        atomarray_copyatoms(x->variable->message, &argc, &argv);
    }
    if (argc > 0) {
        outlet_atoms(x->out, argc, argv);
    }
    sysmem_freeptr(argv);
}

void value_store(Value *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (selector == "bang"_sym && argc == 0) {
        value_send(x);
        return;
    }
    Elements elements(selector, argc, argv);
    const Guard guard;
    atomarray_setatoms(x->variable->message, elements.count(), elements.atoms());
}

void value_free(Value *x) {
    object_free(x->variable);
}

void *value_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Value>(value_class);
    if (!x) {
        return nullptr;
    }
    x->variable = variable_find(symbol_argument(x, 0, argc, argv, ""_sym));
    if (!x->variable) {
        object_free(x);
        return nullptr;
    }
    if (argc > 1) {
        atomarray_setatoms(x->variable->message, argc - 1, argv + 1);
    }
    x->out = outlet_new(x, nullptr);
    return x;
}

}  // namespace

void named_start() {
    send_class = make_class<Send>("send", send_new);
    Messages<Send, send_on>::add(send_class);
    add_class(send_class, {"s"});

    ear_class =
        class_new("receive", nullptr, nullptr, static_cast<int32_t>(sizeof(Ear)), nullptr, 0);
    Messages<Ear, ear_hear>::add(ear_class);
    class_register("nobox"_sym, ear_class);

    receive_class = make_class<Receive>("receive", receive_new, receive_free);
    class_addmethod(receive_class, method(receive_name), "set", TypeDefSymbol, 0);
    add_class(receive_class, {"r"});

    variable_class = class_new("value_variable", nullptr, method(variable_free),
                               static_cast<int32_t>(sizeof(Variable)), nullptr, 0);
    class_register("nobox"_sym, variable_class);

    value_class = make_class<Value>("value", value_new, value_free);
    Messages<Value, value_store>::add(value_class);
    add_class(value_class, {"v"});
}

}  // namespace kiv::objects
