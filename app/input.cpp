#include "app/input.h"

#include <kiv/kiv.h>

#include <iostream>
#include <iterator>
#include <memory>

#include "app/application.h"

namespace kiv::app {

namespace {

struct {
    bool open = false;
    bool ends_when_idle = false;
} state;

void evaluate_line(void *, Symbol *, int32_t, Atom *argv) {
    const std::unique_ptr<std::string> line(static_cast<std::string *>(atom_getobj(argv)));
    evaluate(*line);
}

void end_of_input(void *, Symbol *, int32_t, Atom *) {
    state.open = false;
    if (!state.ends_when_idle) {
        quit_request();
    }
}

void read_lines(void *) {
    std::string line;
    while (std::getline(std::cin, line)) {
        Atom atom;
        atom_setobj(&atom, new std::string(line));
        defer_low(nullptr, method(evaluate_line), nullptr, 1, &atom);
    }
    defer_low(nullptr, method(end_of_input), nullptr, 0, nullptr);  // after the last line
}

}  // namespace

void evaluate(const std::string &text) {
    Binbuf *const message = binbuf_new();
    std::string copy = text;
    char *start = copy.data();
    if (binbuf_text(message, &start, static_cast<int64_t>(copy.size())) == 0) {
        binbuf_eval(message, 0, nullptr, nullptr);
    } else {
        error("this is no message text: %s", text.c_str());
    }
    object_free(message);
}

void interactive_start(bool ends_when_idle) {
    state = {true, ends_when_idle};
    ThreadId thread = 0;
    if (systhread_create(method(read_lines), nullptr, 0, 0, 0, &thread) != 0) {
        error("standard input cannot be read: no thread");
        quit_request();
    }
}

bool input_open() {
    return state.open;
}

std::string read_standard_input() {
    return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
}

}  // namespace kiv::app
