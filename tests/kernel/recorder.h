// An object that writes down every message it gets, for the tests of inlets, outlets and proxies.
#pragma once

#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/inlets.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kiv::test {

using namespace kiv::literals;

struct Recorder {
    Object ob;
    char name;
    int32_t stash;
    Outlet *out;
};

inline std::vector<std::string> &messages() {
    static std::vector<std::string> list;
    return list;
}
inline std::vector<std::string> take_messages() {
    return std::exchange(messages(), {});
}

// Called, when set, by every message after it was written down.
inline std::function<void(Recorder *)> &on_message() {
    static std::function<void(Recorder *)> function;
    return function;
}

inline std::string text_of(int32_t argc, const Atom *argv) {
    char buffer[1024] = "";
    char *text = buffer;
    int64_t size = sizeof buffer;
    atom_gettext(argc, argv, &size, &text, 0);
    return buffer;
}

inline void record(Recorder *x, std::string text) {
    messages().push_back(std::string(1, x->name) + " " + std::move(text));
    if (on_message()) {
        on_message()(x);
    }
}

// A class whose instances answer the messages named in `answers`, by letter: b bang, i int, f
// float, l list, a anything, 1 "in1" (int), 2 "ft1" (float), 3 "in2" (declared with a float).
inline Class *recorder_class(const char *name, const std::string &answers) {
    static std::vector<std::pair<std::string, Class *>> made;
    for (const auto &[known, c] : made) {
        if (known == name) {
            return c;
        }
    }
    Class *c = class_new(name, nullptr, nullptr, sizeof(Recorder), nullptr, 0);
    const auto add = [&](char letter, auto *method, const char *selector, int type) {
        if (answers.find(letter) != std::string::npos) {
            class_addmethod(c, reinterpret_cast<Method>(method), selector, type, 0);
        }
    };
    add(
        'b', +[](Recorder *x) { record(x, "bang"); }, "bang", 0);
    add(
        'i', +[](Recorder *x, int64_t n) { record(x, "int " + std::to_string(n)); }, "int",
        TypeLong);
    add(
        'f', +[](Recorder *x, double f) { record(x, "float " + std::to_string(f)); }, "float",
        TypeFloat);
    const auto gimme = +[](Recorder *x, Symbol *s, int32_t argc, Atom *argv) {
        record(x, std::string(s->name) + (argc > 0 ? " " + text_of(argc, argv) : ""));
    };
    add('l', gimme, "list", TypeGimme);
    add('a', gimme, "anything", TypeGimme);
    add(
        '1', +[](Recorder *x, int64_t n) { record(x, "in1 " + std::to_string(n)); }, "in1",
        TypeLong);
    add(
        '2', +[](Recorder *x, double f) { record(x, "ft1 " + std::to_string(f)); }, "ft1",
        TypeFloat);
    add(
        '3', +[](Recorder *x, double f) { record(x, "in2 " + std::to_string(f)); }, "in2",
        TypeFloat);
    class_register(nullptr, c);
    made.emplace_back(name, c);
    return c;
}

// Recorders that a test does not free live, in reach, to the end of the process.
inline Recorder *recorder(char name, const std::string &answers) {
    static auto &made = *new std::vector<Recorder *>;
    auto *x = static_cast<Recorder *>(object_alloc(recorder_class(answers.c_str(), answers)));
    x->name = name;
    made.push_back(x);
    return x;
}

inline Atom atom(int64_t value) {
    Atom a;
    atom_setlong(&a, value);
    return a;
}
inline Atom atom(double value) {
    Atom a;
    atom_setfloat(&a, value);
    return a;
}
inline Atom atom(const char *text) {
    Atom a;
    atom_setsym(&a, gensym(text));
    return a;
}

using Texts = std::vector<std::string>;

}  // namespace kiv::test
