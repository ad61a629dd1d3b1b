// Atom buffers: a counted block of atoms, the bare form of message text.
//
// Invariant: a buffer is one block that has room for its atoms, and always for one. Functions that
// change the number of atoms may move it, hence their Atombuf **; on no memory they leave it as it
// was.
#include <kiv/atom.h>
#include <kiv/atombuf.h>
#include <kiv/object.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <limits>

#include "containers/internal.h"

namespace kiv {

namespace {

int64_t bytes_of(int64_t count) noexcept {
    return static_cast<int64_t>(offsetof(Atombuf, atoms)) +
           std::max<int64_t>(count, 1) * static_cast<int64_t>(sizeof(Atom));
}

// A buffer of two lists of atoms, one after the other.
Atombuf *joined(int32_t count1, const Atom *atoms1, int32_t count2, const Atom *atoms2) noexcept {
    const int64_t count = int64_t{count1} + count2;
    if (count > INT32_MAX) {
        return nullptr;
    }
    auto *buffer = static_cast<Atombuf *>(sysmem_newptr(bytes_of(count)));
    if (buffer) {
        buffer->count = static_cast<int32_t>(count);
        buffer->atoms[0] = {};
        std::copy_n(atoms2, count2, std::copy_n(atoms1, count1, buffer->atoms));
    }
    return buffer;
}

// Puts a new block in the place of the old one; its atoms may have come from there.
ErrorCode put(Atombuf **buffer, Atombuf *made) noexcept {
    if (!made) {
        return ErrorOutOfMemory;
    }
    atombuf_free(*buffer);
    *buffer = made;
    return ErrorNone;
}

int32_t usable(int32_t argc, const Atom *argv) noexcept {
    return argv ? std::max(argc, 0) : 0;
}

// Replaces placeholders; the first argument has the number 1.
ErrorCode substitute(Atombuf *buffer, char marker, int32_t argc, const Atom *argv) noexcept {
    if (!buffer) {
        return ErrorGeneric;
    }
    try {
        Vector<Atom> arguments(1, Atom{TypeLong, {.i = 0}});
        arguments.insert(arguments.end(), argv, argv + usable(argc, argv));
        atoms_substitute(buffer->count, buffer->atoms, marker,
                         static_cast<int32_t>(arguments.size()), arguments.data());
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

}  // namespace

}  // namespace kiv

using namespace kiv;

Atombuf *atombuf_new(int32_t argc, const Atom *argv) noexcept {
    argc = std::max(argc, 0);
    if (argv) {
        return joined(argc, argv, 0, nullptr);
    }
    auto *buffer = static_cast<Atombuf *>(sysmem_newptrclear(bytes_of(argc)));
    if (buffer) {
        buffer->count = argc;
    }
    return buffer;
}

void atombuf_free(Atombuf *buffer) noexcept {
    sysmem_freeptr(buffer);
}

int32_t atombuf_count(const Atombuf *buffer) noexcept {
    return buffer ? buffer->count : 0;
}

ErrorCode atombuf_set(Atombuf **buffer, int32_t start, int32_t end) noexcept {
    if (!buffer || !*buffer) {
        return ErrorGeneric;
    }
    start = std::clamp(start, 0, (*buffer)->count);
    end = std::clamp(end, start, (*buffer)->count);
    return put(buffer, joined(end - start, (*buffer)->atoms + start, 0, nullptr));
}

ErrorCode atombuf_append(Atombuf **buffer, int32_t argc, const Atom *argv) noexcept {
    if (!buffer || !*buffer) {
        return ErrorGeneric;
    }
    return put(buffer, joined((*buffer)->count, (*buffer)->atoms, usable(argc, argv), argv));
}

ErrorCode atombuf_prepend(Atombuf **buffer, int32_t argc, const Atom *argv) noexcept {
    if (!buffer || !*buffer) {
        return ErrorGeneric;
    }
    return put(buffer, joined(usable(argc, argv), argv, (*buffer)->count, (*buffer)->atoms));
}

ErrorCode atombuf_replace(Atombuf **buffer, int32_t argc, const Atom *argv) noexcept {
    return buffer ? put(buffer, joined(usable(argc, argv), argv, 0, nullptr)) : ErrorGeneric;
}

Atom *atombuf_firstatom(Atombuf *buffer) noexcept {
    return buffer && buffer->count > 0 ? buffer->atoms : nullptr;
}

Atom *atombuf_next(Atombuf *buffer, Atom *atom) noexcept {
    return buffer && atom && atom + 1 < buffer->atoms + buffer->count ? atom + 1 : nullptr;
}

ErrorCode atombuf_text(Atombuf **buffer, char **text, int32_t size) noexcept {
    if (!buffer || !text || !*text) {
        return ErrorGeneric;
    }
    Binbuf *parsed = binbuf_new();
    if (!parsed) {
        return ErrorOutOfMemory;
    }
    ErrorCode result = binbuf_text(parsed, text, size) == 0 ? ErrorNone : ErrorGeneric;
    try {
        Vector<Atom> atoms;
        Atom atom{};
        for (int64_t types = 0, values = 0; binbuf_getatom(parsed, &types, &values, &atom) == 0;) {
            atoms.push_back(atom);
        }
        if (result == ErrorNone) {
            result = put(buffer, atombuf_new(static_cast<int32_t>(atoms.size()), atoms.data()));
        }
    } catch (const std::bad_alloc &) {
        result = ErrorOutOfMemory;
    }
    object_free(parsed);
    return result;
}

ErrorCode atombuf_totext(const Atombuf *buffer, char **text, int32_t *size) noexcept {
    if (!buffer || !text || !size) {
        return ErrorGeneric;
    }
    *text = nullptr;
    *size = 0;
    Binbuf *message = binbuf_make(buffer->count, buffer->atoms);
    int64_t length = 0;
    const bool written = message && binbuf_totext(message, text, &length) == 0;
    object_free(message);
    if (written && length > INT32_MAX) {
        sysmem_freeptr(*text);
        *text = nullptr;
    }
    if (!*text) {
        return ErrorOutOfMemory;
    }
    *size = static_cast<int32_t>(length);
    return ErrorNone;
}

void *atombuf_eval(Atombuf *buffer, int32_t argc, Atom *argv, void *receiver) noexcept {
    if (!buffer) {
        return nullptr;
    }
    // A receiver may free or replace the buffer that is being evaluated.
    Atombuf *copy = atombuf_new(buffer->count, buffer->atoms);
    void *result = copy ? atoms_eval(copy->count, copy->atoms, argc, argv, receiver) : nullptr;
    atombuf_free(copy);
    return result;
}

ErrorCode atombuf_subst(Atombuf **buffer, int32_t argc, const Atom *argv) noexcept {
    return buffer ? substitute(*buffer, '$', argc, argv) : ErrorGeneric;
}

ErrorCode atombuf_replacepoundargs(Atombuf **buffer, int32_t argc, const Atom *argv) noexcept {
    return buffer ? substitute(*buffer, '#', argc, argv) : ErrorGeneric;
}

ErrorCode atombuf_save(const Atombuf *buffer, Binbuf *target) noexcept {
    if (!buffer || !target) {
        return ErrorGeneric;
    }
    constexpr int32_t most_at_once = std::numeric_limits<int16_t>::max();
    for (int32_t i = 0; i < buffer->count; i += most_at_once) {
        // Inserting stores the atoms as they are, unlike appending, which would rewrite them.
        binbuf_insert(target, nullptr,
                      static_cast<int16_t>(std::min(buffer->count - i, most_at_once)),
                      const_cast<Atom *>(buffer->atoms + i));
    }
    return ErrorNone;
}

int32_t atombuf_misc(const Atombuf *buffer, int32_t query) noexcept {
    if (!buffer) {
        return 0;
    }
    const auto is_separator = [](const Atom &atom) {
        return atom.type == TypeSemicolon || atom.type == TypeComma;
    };
    const auto is_placeholder = [](const Atom &atom) {
        return atom.type == TypeDollar || atom.type == TypeDollarSymbol;
    };
    const Atom *end = buffer->atoms + buffer->count;
    switch (query) {
        case AtombufPlaceholders:
            return static_cast<int32_t>(std::count_if(buffer->atoms, end, is_placeholder));
        case AtombufSeparators:
            return static_cast<int32_t>(std::count_if(buffer->atoms, end, is_separator));
        default:
            return query == AtombufAtoms ? buffer->count : 0;
    }
}
