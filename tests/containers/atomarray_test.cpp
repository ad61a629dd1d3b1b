#include <kiv/atombuf.h>

#include <vector>

#include "containers/values.h"
#include "containers/values_support.h"

namespace kiv::test {
namespace {

using namespace kiv::literals;

std::string text_of_array(const Atomarray *array) {
    return text_of_atoms(array->count, array->atoms);
}

TEST(Atomarray, GrowsByExactlyWhatIsAdded) {
    const OwnedArray array(atomarray_new(0, nullptr));
    EXPECT_EQ(array->atoms, nullptr);
    for (int i = 1; i <= 3; ++i) {
        const Atom atom = long_atom(i);
        EXPECT_EQ(atomarray_appendatom(array.get(), &atom), ErrorNone);
    }
    EXPECT_EQ(sysmem_ptrsize(array->atoms), 3 * static_cast<int64_t>(sizeof(Atom)));
    EXPECT_EQ(text_of_array(array.get()), "1 2 3");
    EXPECT_EQ(atomarray_appendatoms(array.get(), 2, array->atoms + 1), ErrorNone);
    EXPECT_EQ(text_of_array(array.get()), "1 2 3 2 3");
    EXPECT_EQ(atomarray_setatoms(array.get(), 2, array->atoms + 3), ErrorNone);
    EXPECT_EQ(text_of_array(array.get()), "2 3");
}

TEST(Atomarray, ChecksIndices) {
    const Atom atoms[] = {long_atom(1), long_atom(2), long_atom(3)};
    const OwnedArray array(atomarray_new(3, atoms));
    Atom atom = long_atom(9);
    for (const int32_t index : {-1, 3, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(atomarray_getindex(array.get(), index, &atom), ErrorGeneric);
        EXPECT_EQ(atomarray_chuckindex(array.get(), index), ErrorGeneric);
    }
    EXPECT_EQ(atom.value.i, 9);
    EXPECT_EQ(atomarray_chuckindex(array.get(), 1), ErrorNone);
    EXPECT_EQ(text_of_array(array.get()), "1 3");
    EXPECT_EQ(atomarray_chuckindex(array.get(), 1), ErrorNone);
    EXPECT_EQ(atomarray_chuckindex(array.get(), 0), ErrorNone);
    EXPECT_EQ(array->atoms, nullptr);
    EXPECT_EQ(atomarray_getsize(nullptr), 0);
    EXPECT_EQ(atomarray_appendatom(nullptr, &atom), ErrorGeneric);
}

TEST(Atomarray, FreesObjectsOnlyAsItsOwnAndAtItsEnd) {
    for (const int32_t flags : {0, int32_t{AtomarrayOwns}}) {
        for (const bool cleared : {false, true}) {
            String *string = string_new("x");
            const Atom atom = object_atom(string);
            Atomarray *array = atomarray_new(1, &atom);
            atomarray_flags(array, flags);
            if (cleared) {
                atomarray_clear(array);
            }
            object_free(array);
            const bool freed = flags == AtomarrayOwns && !cleared;
            EXPECT_EQ(object_isvalid(string) != 0, !freed);
            if (!freed) {
                object_free(string);
            }
        }
    }
}

TEST(Atomarray, CopiesDeeplyOrNot) {
    const Atom atoms[] = {object_atom(string_new("x")), long_atom(2)};
    OwnedArray array(atomarray_new(2, atoms));
    atomarray_flags(array.get(), AtomarrayOwns);
    const OwnedArray shallow(atomarray_duplicate(array.get()));
    EXPECT_EQ(shallow->atoms[0].value.obj, atoms[0].value.obj);
    EXPECT_EQ(atomarray_getflags(shallow.get()), 0);
    const OwnedArray deep(atomarray_clone(array.get()));
    EXPECT_NE(deep->atoms[0].value.obj, atoms[0].value.obj);
    array.reset();
    EXPECT_STREQ(string_getptr(static_cast<String *>(deep->atoms[0].value.obj)), "x");
    EXPECT_TRUE(take_posts().empty());
}

// What cannot be cloned is shared, and freed by the last of its owners.
TEST(Atomarray, SharesWhatCannotBeCloned) {
    void *list = linklist_new();
    const Atom atom = object_atom(list);
    OwnedArray array(atomarray_new(1, &atom));
    atomarray_flags(array.get(), AtomarrayOwns);
    OwnedArray clone(atomarray_clone(array.get()));
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"cloneatoms: non-clonable object; class is linklist"}));
    EXPECT_EQ(clone->atoms[0].value.obj, list);
    array.reset();
    EXPECT_TRUE(object_isvalid(list));
    clone.reset();
    EXPECT_FALSE(object_isvalid(list));
}

TEST(Atomarray, LetsAFunctionShortenIt) {
    const Atom atoms[] = {long_atom(1), long_atom(2), long_atom(3)};
    const OwnedArray array(atomarray_new(3, atoms));
    struct Seen {
        Atomarray *array;
        int64_t sum;
    } seen{array.get(), 0};
    atomarray_funall(
        array.get(),
        [](Atom *atom, void *arg) {
            auto *s = static_cast<Seen *>(arg);
            s->sum += atom->value.i;
            atomarray_chuckindex(s->array, 2);
        },
        &seen);
    EXPECT_EQ(seen.sum, 3);
}

TEST(Atomarray, FailedAllocationsLeaveItAsItWas) {
    const Atom atoms[] = {long_atom(1), long_atom(2)};
    const OwnedArray array(atomarray_new(2, atoms));
    memory_fail_at(1);
    EXPECT_EQ(atomarray_appendatoms(array.get(), 2, atoms), ErrorOutOfMemory);
    memory_fail_at(1);
    EXPECT_EQ(atomarray_setatoms(array.get(), 1, atoms), ErrorOutOfMemory);
    memory_fail_at(0);
    EXPECT_EQ(text_of_array(array.get()), "1 2");
}

// --- Atom buffers --------------------------------------------------------------------------------

struct FreeBuffer {
    void operator()(Atombuf *buffer) const { atombuf_free(buffer); }
};

std::string text_of_buffer(const Atombuf *buffer) {
    char *text = nullptr;
    int32_t size = 0;
    EXPECT_EQ(atombuf_totext(buffer, &text, &size), ErrorNone);
    std::string result(text, static_cast<size_t>(size));
    sysmem_freeptr(text);
    return result;
}

TEST(Atombuf, HasRoomForOneAtomWhenEmpty) {
    Atombuf *buffer = atombuf_new(-3, nullptr);
    EXPECT_EQ(atombuf_count(buffer), 0);
    EXPECT_EQ(atombuf_firstatom(buffer), nullptr);
    EXPECT_GE(sysmem_ptrsize(buffer), static_cast<int64_t>(sizeof(Atombuf)));
    atombuf_free(buffer);
}

TEST(Atombuf, ChangesAtBothEnds) {
    const Atom atoms[] = {long_atom(1), long_atom(2)};
    Atombuf *buffer = atombuf_new(2, atoms);
    EXPECT_EQ(atombuf_append(&buffer, 2, buffer->atoms), ErrorNone);
    const Atom zero = long_atom(0);
    EXPECT_EQ(atombuf_prepend(&buffer, 1, &zero), ErrorNone);
    EXPECT_EQ(text_of_buffer(buffer), "0 1 2 1 2");
    EXPECT_EQ(atombuf_set(&buffer, 1, 3), ErrorNone);
    EXPECT_EQ(text_of_buffer(buffer), "1 2");
    EXPECT_EQ(atombuf_next(buffer, atombuf_firstatom(buffer)), buffer->atoms + 1);
    EXPECT_EQ(atombuf_next(buffer, buffer->atoms + 1), nullptr);
    memory_fail_at(1);
    EXPECT_EQ(atombuf_append(&buffer, 2, atoms), ErrorOutOfMemory);
    memory_fail_at(0);
    EXPECT_EQ(text_of_buffer(buffer), "1 2");
    EXPECT_EQ(atombuf_set(&buffer, 5, -5), ErrorNone);
    EXPECT_EQ(atombuf_count(buffer), 0);
    atombuf_free(buffer);
}

TEST(Atombuf, ReadsAndSubstitutesMessageText) {
    Atombuf *buffer = nullptr;
    std::string source = "set $1 $2-x #1 #3; bang, $4";
    char *text = source.data();
    ASSERT_EQ(atombuf_text(&buffer, &text, static_cast<int32_t>(source.size())), ErrorNone);
    EXPECT_EQ(atombuf_misc(buffer, AtombufPlaceholders), 3);
    EXPECT_EQ(atombuf_misc(buffer, AtombufSeparators), 2);
    EXPECT_EQ(atombuf_misc(buffer, AtombufAtoms), atombuf_count(buffer));

    Binbuf *target = binbuf_new();
    EXPECT_EQ(atombuf_save(buffer, target), ErrorNone);
    char *saved = nullptr;
    int64_t size = 0;
    binbuf_totext(target, &saved, &size);
    EXPECT_EQ(std::string(saved), text_of_buffer(buffer));
    sysmem_freeptr(saved);
    object_free(target);

    const Atom arguments[] = {symbol_atom("one"), long_atom(2)};
    EXPECT_EQ(atombuf_subst(&buffer, 2, arguments), ErrorNone);
    EXPECT_EQ(atombuf_replacepoundargs(&buffer, 2, arguments), ErrorNone);
    EXPECT_EQ(text_of_buffer(buffer), "set one 2-x one 0; bang, 0");
    atombuf_free(buffer);
}

}  // namespace
}  // namespace kiv::test
