// Dictionary text: taken or refused; what is taken is JSON that reads, and goes through a list of
// atoms and back unchanged.
#include <kiv/dictionary.h>
#include <kiv/object.h>
#include <kiv/sysmem.h>

#include <string>

#include "containers/internal.h"
#include "fuzz/fuzz.h"

using namespace kiv;

namespace {

JsonText written(const Dictionary *dictionary) {
    JsonText text;
    fuzz::require(json_from_dictionary(dictionary, text), "what was read can be written");
    return text;
}

void through_atoms(const Dictionary *dictionary) {
    int32_t count = 0;
    Atom *atoms = nullptr;
    fuzz::require(dictobj_dictionarytoatoms(dictionary, &count, &atoms) == ErrorNone,
                  "what was read is a list of atoms");
    Dictionary *again = nullptr;
    fuzz::require(dictobj_dictionaryfromatoms(&again, count, atoms) == ErrorNone,
                  "the list of atoms is a dictionary");
    fuzz::require(written(again).view() == written(dictionary).view(), "the same one");
    object_free(again);
    sysmem_freeptr(atoms);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(fuzz::as_text(data, size));
    Dictionary *dictionary = nullptr;
    char message[KIV_JSON_ERROR_SIZE];
    if (dictobj_dictionaryfromstring(&dictionary, text.c_str(), 0, message) == ErrorNone) {
        through_atoms(dictionary);
        object_free(dictionary);
    }
    fuzz::settle();
    return 0;
}
