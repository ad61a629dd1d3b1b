// Evaluating message text: the messages of a buffer, or of plain atoms, sent to their receivers.
//
// Both evaluators are one walk over a source of atoms; they differ in where the assembled message
// lives, how many arguments they take and how they report. A message is sent while nothing of the
// walk but its position is remembered: the store of a buffer is held, read anew for each atom, and
// left when its buffer is freed; receivers are tested by typedmess, names looked up each time.
//
// A message may evaluate further text. Each evaluation needs room on the stack for its message, so
// one that finds the stack nearly used up is refused with an error.
//
// Thread safety: any thread; what is evaluated belongs to the caller.
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "containers/binbuf_record.h"
#include "containers/internal.h"
#include "containers/tokenizer.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

constexpr int32_t message_limit = 4096;     // atoms of a message from a buffer
constexpr int32_t small_message = 257;      // atoms of a message from plain atoms, on the stack
constexpr int32_t most_arguments = 9;       // of a buffer's evaluation
constexpr ptrdiff_t stack_margin = 196608;  // a message, and what its receivers need at least

struct {
    std::atomic<int64_t> evaluations{0};
} state;

bool stack_is_low() noexcept {
    thread_local const char *const base = static_cast<const char *>(platform::stack_base());
    return base && static_cast<const char *>(__builtin_frame_address(0)) - base < stack_margin;
}

Atom integer_atom(int64_t value) noexcept {
    return {TypeLong, {.i = value}};
}

bool is_separator(const Atom &atom) noexcept {
    return atom.type == TypeSemicolon || atom.type == TypeComma;
}

// What "$0" to "$n" stand for.
struct Arguments {
    const Atom *atoms;  // of $1 on
    int32_t count;      // given by the caller
    int32_t limit;      // highest number there is; beyond `count` it is the integer 0
    Atom evaluation;    // $0

    // The argument of a number, or null.
    const Atom *given(int64_t number) const noexcept {
        if (number == 0) {
            return &evaluation;
        }
        return number > 0 && number <= count ? &atoms[number - 1] : nullptr;
    }
};

// The text of an argument inside a symbol: names are not escaped there.
void argument_write(Text &out, const Atom &atom) {
    if (atom.type == TypeSymbol && atom.value.sym) {
        out.append(atom.value.sym->name);
    } else {
        atom_write(out, atom);
    }
}

bool is_word(const Atom &atom) noexcept {
    return atom.type == TypeLong || atom.type == TypeFloat || atom.type == TypeSymbol;
}

// The symbol that a placeholder symbol stands for; null when its argument is missing.
Symbol *expand(const Symbol *placeholder, const Arguments &arguments) {
    if (!placeholder || placeholder->name[0] < '0' || placeholder->name[0] > '9') {
        return nullptr;
    }
    const Atom *argument = arguments.given(placeholder->name[0] - '0');
    if (!argument || !is_word(*argument)) {
        return nullptr;
    }
    Text text;
    argument_write(text, *argument);
    text.append(placeholder->name + 1);
    return gensym(text.c_str());
}

Text text_of(const Atom &atom) {
    Text text;
    if (atom.type == TypeDollarSymbol && atom.value.sym) {
        text.append("$").append(atom.value.sym->name);
    } else {
        argument_write(text, atom);
    }
    return text;
}

Symbol *unexpanded(const Atom &atom) {
    return gensym(text_of(atom).c_str());
}

// --- Sources of atoms ----------------------------------------------------------------------------

class BufferSource {
  public:
    explicit BufferSource(BinbufStore *store) noexcept : store_(store) {
        store_->holders.fetch_add(1);
    }
    ~BufferSource() { store_release(store_); }
    BufferSource(const BufferSource &) = delete;
    BufferSource &operator=(const BufferSource &) = delete;
    // In a buffer, a tag of 0 is its end.
    bool read(int32_t index, Atom *atom) const noexcept {
        return !store_->orphaned && store_atom(store_, index, atom) && atom->type != TypeNothing;
    }

  private:
    BinbufStore *store_;
};

class ArraySource {
  public:
    ArraySource(int32_t count, const Atom *atoms) noexcept : count_(count), atoms_(atoms) {}
    bool read(int32_t index, Atom *atom) const noexcept {
        if (index >= count_) {
            return false;
        }
        *atom = atoms_[index];
        return true;
    }

  private:
    int32_t count_;
    const Atom *atoms_;
};

// --- How the two evaluators differ in what an atom of a message becomes --------------------------

// An atom of a buffer's message; false when the message is to be skipped.
struct BufferRules {
    static bool resolve(const Arguments &arguments, Atom &atom) {
        switch (atom.type) {
            case TypeLong:
            case TypeFloat:
                return true;
            case TypeSymbol:
                atom.value.sym = atom.value.sym ? atom.value.sym : ""_sym;
                return true;
            case TypeDollar: {
                const int64_t number = atom.value.i;
                if (number >= 1 && number <= arguments.limit) {
                    const Atom *argument = arguments.given(number);
                    atom = argument ? *argument : integer_atom(0);
                    return true;
                }
                break;
            }
            case TypeDollarSymbol:
                if (Symbol *symbol = expand(atom.value.sym, arguments)) {
                    atom = {TypeSymbol, {.sym = symbol}};
                    return true;
                }
                break;
            default:
                error("%s: bad argument", text_of(atom).c_str());
                return false;
        }
        error("\"$\" variable out of range");
        atom = {TypeSymbol, {.sym = unexpanded(atom)}};
        return true;
    }
};

// "#f1" and "#i1" stand for the arguments of an object that has none yet.
bool read_typed_placeholder(const char *name, Atom &atom) noexcept {
    const bool typed = name[0] == '#' && (name[1] == 'f' || name[1] == 'i') && name[2] >= '1' &&
                       name[2] <= '9' && name[3] == '\0';
    if (typed) {
        atom = name[1] == 'i' ? integer_atom(0) : Atom{TypeFloat, {.f = 0.0}};
    }
    return typed;
}

struct ArrayRules {
    static bool resolve(const Arguments &arguments, Atom &atom) {
        switch (atom.type) {
            case TypeSymbol:
                atom.value.sym = atom.value.sym ? atom.value.sym : ""_sym;
                read_typed_placeholder(atom.value.sym->name, atom);
                return true;
            case TypeDollar: {
                const int64_t number = atom.value.i;
                if (number >= 1 && number <= arguments.limit) {
                    atom = *arguments.given(number);
                    return true;
                }
                error("\"$\" variable out of range (%ld)", static_cast<long>(number));
                break;
            }
            case TypeDollarSymbol:
                if (Symbol *symbol = expand(atom.value.sym, arguments)) {
                    atom = {TypeSymbol, {.sym = symbol}};
                    return true;
                }
                error("\"$\" symbol variable out of range");
                break;
            default: {
                const auto tag = static_cast<int16_t>(atom.type);
                if (tag < 1) {
                    error("bad argument (%d)", int{tag});
                }
                return tag >= 1;
            }
        }
        atom = {TypeSymbol, {.sym = unexpanded(atom)}};
        return true;
    }
};

// --- The walk ------------------------------------------------------------------------------------

template <class Source, class Rules>
class Evaluation {
  public:
    Evaluation(const Source &source, const Arguments &arguments, Atom *message, int32_t room,
               void *receiver) noexcept
        : source_(source),
          arguments_(arguments),
          message_(message),
          room_(room),
          receiver_(receiver) {}

    // Throws std::bad_alloc.
    void *run() {
        Atom atom;
        while (!stopped_ && source_.read(position_, &atom)) {
            if (is_separator(atom)) {
                if (atom.type == TypeSemicolon) {
                    receiver_ = nullptr;
                }
                ++position_;
            } else if (!receiver_) {
                ++position_;
                if (!name_receiver(atom)) {
                    skip();
                }
            } else if (gather()) {
                send();
            }
        }
        return result_;
    }

  private:
    void skip() noexcept {
        Atom atom;
        while (source_.read(position_, &atom) && !is_separator(atom)) {
            ++position_;
        }
    }

    // The symbol that an atom in the receiver's place names; null, with the error posted.
    Symbol *receiver_name(const Atom &atom) {
        if (atom.type == TypeDollarSymbol) {
            Symbol *symbol = expand(atom.value.sym, arguments_);
            if (!symbol) {
                error("%s: argument out of range", text_of(atom).c_str());
            }
            return symbol;
        }
        const Atom *named = &atom;
        if (atom.type == TypeDollar) {
            named = arguments_.given(atom.value.i);
            if (!named) {
                error("%s: argument out of range", text_of(atom).c_str());
                return nullptr;
            }
        }
        if (named->type != TypeSymbol || !named->value.sym) {
            error("%s: not a symbol", text_of(*named).c_str());
            return nullptr;
        }
        return named->value.sym;
    }

    bool name_receiver(const Atom &atom) {
        Symbol *name = receiver_name(atom);
        if (!name) {
            return false;
        }
        receiver_ = std::atomic_ref(name->thing).load(std::memory_order_acquire);
        if (!receiver_) {
            error("%s: no such object", name->name);
            return false;
        }
        return true;
    }

    // Assembles the message up to the next separator; false when there is none to send.
    bool gather() {
        count_ = 0;
        Atom atom;
        for (; source_.read(position_, &atom) && !is_separator(atom); ++position_) {
            if (count_ == room_) {
                ouchstring("Message stack overflow");
                stopped_ = true;
                return false;
            }
            if (!Rules::resolve(arguments_, atom)) {
                skip();
                return false;
            }
            message_[count_++] = atom;
        }
        return true;
    }

    void send() {
        Symbol *selector = nullptr;
        int32_t skipped = 0;
        switch (message_[0].type) {
            case TypeSymbol:
                selector = message_[0].value.sym;
                skipped = 1;
                break;
            case TypeLong:
                selector = count_ == 1 ? "int"_sym : "list"_sym;
                break;
            case TypeFloat:
                selector = count_ == 1 ? "float"_sym : "list"_sym;
                break;
            default:
                break;
        }
        if (!selector) {
            error("badly formed message");
            return;
        }
        result_ = typedmess(receiver_, selector, count_ - skipped, message_ + skipped);
    }

    const Source &source_;
    const Arguments &arguments_;
    Atom *message_;
    int32_t room_;
    void *receiver_;
    int32_t count_ = 0;
    int32_t position_ = 0;
    bool stopped_ = false;
    void *result_ = nullptr;
};

// Refuses an evaluation that the stack has no room for.
bool has_room() noexcept {
    if (stack_is_low()) {
        error("message text: evaluations are nested too deeply");
        overflow_unwind();
        return false;
    }
    return true;
}

// Apart from its caller, so that only an evaluation that is admitted takes the stack.
[[gnu::noinline]] void *eval_buffer(BinbufStore *store, const Arguments &arguments,
                                    void *receiver) {
    const BufferSource source(store);
    Atom message[message_limit];
    return Evaluation<BufferSource, BufferRules>(source, arguments, message, message_limit,
                                                 receiver)
        .run();
}

Arguments arguments_from(int32_t argc, const Atom *argv, int32_t most, int32_t limit) noexcept {
    const int32_t count = argv ? std::clamp(argc, 0, most) : 0;
    const int64_t number = state.evaluations.fetch_add(1) + 1;
    return {argv, count, limit, integer_atom(number)};
}

}  // namespace

void *atoms_eval(int32_t count, const Atom *atoms, int32_t argc, Atom *argv,
                 void *receiver) noexcept {
    if (!atoms || count <= 0 || !has_room()) {
        return nullptr;
    }
    const int32_t given = argv ? std::max(argc, 0) : 0;
    const Arguments arguments = arguments_from(given, argv, given, given);
    const ArraySource source(count, atoms);
    using ArrayEvaluation = Evaluation<ArraySource, ArrayRules>;
    try {
        if (count <= small_message) {
            Atom message[small_message];
            return ArrayEvaluation(source, arguments, message, small_message, receiver).run();
        }
        Vector<Atom> message(static_cast<size_t>(count));
        return ArrayEvaluation(source, arguments, message.data(), count, receiver).run();
    } catch (const std::bad_alloc &) {
        error("message text: out of memory");
        return nullptr;
    }
}

// A name inside which the marker stands further back is left alone: "C#4" is a name.
void atoms_substitute(int32_t count, Atom *atoms, char marker, int32_t argc,
                      const Atom *argv) noexcept {
    const int32_t given = argv ? std::max(argc, 0) : 0;
    const Atom evaluation = given > 0 ? argv[0] : integer_atom(0);
    const Arguments arguments{given > 0 ? argv + 1 : nullptr, std::max(given - 1, 0),
                              most_arguments, evaluation};
    for (int32_t i = 0; atoms && i < count; ++i) {
        Atom placeholder = atoms[i];
        const bool from_text = placeholder.type == TypeSymbol && placeholder.value.sym &&
                               read_placeholder(placeholder.value.sym->name, marker, &placeholder);
        if (!from_text && (marker != '$' || (placeholder.type != TypeDollar &&
                                             placeholder.type != TypeDollarSymbol))) {
            continue;
        }
        if (placeholder.type == TypeDollar) {
            const Atom *argument = arguments.given(placeholder.value.i);
            atoms[i] = argument ? *argument : integer_atom(0);
            continue;
        }
        try {
            if (Symbol *symbol = expand(placeholder.value.sym, arguments)) {
                atoms[i] = {TypeSymbol, {.sym = symbol}};
            }
        } catch (const std::bad_alloc &) {
            error("message text: out of memory");
        }
    }
}

}  // namespace kiv

using namespace kiv;

void *binbuf_eval(Binbuf *buf, int16_t argc, Atom *argv, void *receiver) noexcept {
    if (!buf || !has_room()) {
        return nullptr;
    }
    const Arguments arguments = arguments_from(argc, argv, most_arguments, most_arguments);
    try {
        return eval_buffer(buf->store, arguments, receiver);
    } catch (const std::bad_alloc &) {
        error("message text: out of memory");
        return nullptr;
    }
}
