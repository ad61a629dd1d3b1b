// What all of box creation shares: its frames, the depth of nesting, arguments of abstractions.
//
// Creation recurs over documents (a box holds a patcher, whose boxes hold patchers), in this folder
// and in the box classes of modules, so its depth is bounded twice: by the nesting limit, and by
// the stack that is left. Main thread only; the chain of frames lives on the stack.
#include "patcher/creation.h"

#include <kiv/atom.h>
#include <kiv/symbol.h>

#include <algorithm>

#include "containers/internal.h"
#include "kernel/internal.h"
#include "patcher/records.h"
#include "platform/platform.h"

namespace kiv {

namespace {

// What one level of nesting may use of the stack, with much to spare.
constexpr intptr_t stack_reserve = 256 * 1024;

struct State {
    CreationFrame *frame = nullptr;
};
State state;

bool stack_is_short() noexcept {
    static thread_local const char *const base = static_cast<char *>(platform::stack_base());
    const char here = 0;
    return base && &here - base < stack_reserve;
}

void append_argument(Text &out, const Atom &argument) {
    if (argument.type != TypeSymbol) {
        char *text = nullptr;
        int64_t size = 0;
        if (atom_gettext(1, &argument, &size, &text, 0) == ErrorNone && text) {
            out.append(text);
        }
        sysmem_freeptr(text);
        return;
    }
    append_word(out, argument.value.sym->name);
}

}  // namespace

void creation_start() noexcept {
    bogus_start();
    newobj_start();
    bpatcher_start();
    maker_start();
    kernel_hooks().load_class_module = module_search;
    kernel_hooks().maker_knows = maker_understands;
}

CreationFrame::CreationFrame(Dictionary *dictionary) noexcept
    : box_dictionary(dictionary),
      patcher_name(""_sym),
      outer(state.frame),
      depth(outer ? outer->depth + 1 : 1) {
    state.frame = this;
}

CreationFrame::~CreationFrame() {
    state.frame = outer;
}

bool CreationFrame::allowed() const noexcept {
    return depth <= max_nesting && !stack_is_short();
}

CreationFrame *creation_frame() noexcept {
    return state.frame;
}

Symbol *creation_patcher_name() noexcept {
    return state.frame ? state.frame->patcher_name : ""_sym;
}

const Vector<Atom> *creation_arguments(Patcher *patcher) noexcept {
    for (int32_t hops = 0; patcher && hops < max_nesting; ++hops) {
        if (!patcher->arguments.empty()) {
            return &patcher->arguments;
        }
        if (patcher_is_file(patcher)) {
            return nullptr;
        }
        patcher = patcher_parent(patcher);
    }
    return nullptr;
}

bool same_casefree(std::string_view a, std::string_view b) noexcept {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [lower](char x, char y) { return lower(x) == lower(y); });
}

// What would end a word or a message keeps its place inside the word.
void append_word(Text &out, const char *word) {
    for (const char *c = word; *c; ++c) {
        if (*c == ' ' || *c == ',' || *c == ';' || *c == '"' || *c == '\\') {
            out.push_back('\\');
        }
        out.push_back(*c);
    }
}

Text creation_substitute(const char *text, const Vector<Atom> &arguments) {
    Text out;
    for (const char *c = text; *c; ++c) {
        const bool marker = c[0] == '#' && c[1] >= '0' && c[1] <= '9';
        if (marker && static_cast<size_t>(c[1] - '0') < arguments.size()) {
            append_argument(out, arguments[static_cast<size_t>(c[1] - '0')]);
            ++c;
        } else {
            out.push_back(*c);
        }
    }
    return out;
}

const char *translated(const char *text) noexcept {
    return gensym_tr(text)->name;
}

void creation_forget(Object *patcher) noexcept {
    loadbang_forget(patcher);
    nameload_forget(patcher);
    collective_forget(patcher);
}

}  // namespace kiv
