// The record of a message text buffer and its store. Private to the files of message text.
#pragma once

#include <kiv/binbuf.h>
#include <kiv/sysmem.h>

#include <atomic>
#include <cstdint>
#include <string_view>

#include "sched/internal.h"

namespace kiv {

// The atoms: one relocatable block with the values as 8-byte words from its start on and the type
// tags, one byte each, from its end downwards. The block moves when it grows: nobody keeps its
// address across a call out.
//
// A store is held by its buffer and by every evaluation that reads it; it goes with the last one.
struct BinbufStore {
    Handle block;
    int64_t used;      // bytes of values and tags
    int64_t capacity;  // of the block; doubles
    int32_t count;     // atoms
    std::atomic<int32_t> holders;
    std::atomic<bool> orphaned;  // the buffer is freed
};

BinbufStore *store_new() noexcept;
void store_release(BinbufStore *store) noexcept;
// False, with an error posted, on no memory; then nothing is appended. Atoms whose tag does not fit
// in a byte are left out, with an error posted for each.
bool store_append(BinbufStore *store, int32_t count, const Atom *atoms) noexcept;
// False when there is no atom of that index.
bool store_atom(const BinbufStore *store, int64_t index, Atom *atom) noexcept;
void store_remove(BinbufStore *store, int32_t from, int32_t to) noexcept;
void store_clear(BinbufStore *store) noexcept;

// The text of one atom as it is written in message text. Throws std::bad_alloc.
void atom_write(Text &out, const Atom &atom);
// The shortest decimal form with a point and no exponent that reads back as the same float.
void float_write(Text &out, double value);
// The atoms as text, with `line_end` behind each semicolon that is followed by more.
Text store_write(const BinbufStore *store, char line_end);
// The atoms in the binary form of files.
Text store_write_binary(const BinbufStore *store);
// Appends the atoms of a binary form; false, and nothing appended, when it is damaged or on no
// memory. Throws std::bad_alloc.
bool store_read_binary(BinbufStore *store, std::string_view file);

}  // namespace kiv

// Global, as its name is in the public header. Fields in the order of the record.
struct Binbuf {
    Object ob;
    kiv::BinbufStore *store;
    // How far the tags and the values reach, each counted from 8 in an empty buffer.
    int32_t types_end;
    int32_t values_end;
    // Private from here on.
    void *obex;
};

namespace kiv {

// Brings the record's counts up to its store.
void binbuf_counted(Binbuf *buf) noexcept;
void binbuf_clear(Binbuf *buf) noexcept;

}  // namespace kiv
