// JSON text: the reader takes or refuses anything; what it takes is written and read back the same.
#include <kiv/dictionary.h>
#include <kiv/object.h>

#include <string>

#include "console/internal.h"
#include "containers/internal.h"
#include "fuzz/fuzz.h"

using namespace kiv;

namespace {

Dictionary *read(const char *text) {
    Dictionary *dictionary = nullptr;
    char message[KIV_JSON_ERROR_SIZE];
    const ErrorCode result = dictobj_dictionaryfromstring(&dictionary, text, 1, message);
    fuzz::require((result == ErrorNone) == (dictionary != nullptr),
                  "the result says what is there");
    return dictionary;
}

JsonText written(const Dictionary *dictionary) {
    JsonText text;
    fuzz::require(json_from_dictionary(dictionary, text), "what was read can be written");
    return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(fuzz::as_text(data, size));
    if (Dictionary *first = read(text.c_str())) {
        const int32_t warnings = console_nonplain_count();
        const JsonText once = written(first);
        // JSON knows no infinity; the writer warns of the one thing it cannot keep.
        const bool kept = console_nonplain_count() == warnings;
        Dictionary *second = read(once.c_str());
        fuzz::require(second, "what was written can be read");
        fuzz::require(!kept || written(second).view() == once.view(),
                      "written again, it is the same text");
        object_free(second);
        object_free(first);
    }
    fuzz::settle();
    return 0;
}
