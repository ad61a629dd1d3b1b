// Message text: any bytes become atoms; as text they read back to the same atoms; evaluating them
// sends to nobody and to an object that takes nothing.
#include <kiv/atomarray.h>
#include <kiv/binbuf.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <string>
#include <vector>

#include "containers/internal.h"
#include "fuzz/fuzz.h"

using namespace kiv;

namespace {

std::vector<Atom> atoms_of(Binbuf *buf) {
    std::vector<Atom> atoms;
    int64_t types = 0;
    int64_t values = 0;
    Atom atom;
    while (binbuf_getatom(buf, &types, &values, &atom) == 0) {
        atoms.push_back(atom);
    }
    return atoms;
}

bool same(const Atom &a, const Atom &b) {
    return a.type == b.type && a.value.i == b.value.i;
}

void read_back(Binbuf *buf) {
    char *text = nullptr;
    int64_t size = 0;
    fuzz::require(binbuf_totext(buf, &text, &size) == 0, "atoms have a text");
    Binbuf *again = binbuf_new();
    char *start = text;
    fuzz::require(binbuf_text(again, &start, size) == 0, "the text can be read");
    fuzz::require(std::ranges::equal(atoms_of(buf), atoms_of(again), same), "to the same atoms");
    object_free(again);
    sysmem_freeptr(text);
}

void evaluate(Binbuf *buf) {
    Atom arguments[2] = {{TypeLong, {.i = 3}}, {TypeFloat, {.f = 0.5}}};
    void *receiver = atomarray_new(0, nullptr);
    binbuf_eval(buf, 2, arguments, nullptr);
    binbuf_eval(buf, 2, arguments, receiver);
    object_free(receiver);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    gensym("#N")->thing = nullptr;  // it makes objects for whoever asks
    std::string text(fuzz::as_text(data, size));
    Binbuf *buf = binbuf_new();
    for (const int32_t tokenizer : {0, 1}) {
        tokenizer_select(tokenizer);
        char *start = text.data();
        if (binbuf_text(buf, &start, static_cast<int64_t>(size)) == 0) {
            read_back(buf);
            start = text.data();
            binbuf_addtext(buf, &start, static_cast<int64_t>(size));
        }
    }
    tokenizer_select(0);
    evaluate(buf);
    object_free(buf);
    fuzz::settle();
    return 0;
}
