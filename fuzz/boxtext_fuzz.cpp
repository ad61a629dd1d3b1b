// Box text: anything typed into a box makes an object or a placeholder, and the box is written and
// loaded as it was.
#include <kiv/dictionary.h>
#include <kiv/jbox.h>
#include <kiv/jpatcher.h>
#include <kiv/kiv.h>

#include <string>

#include "console/internal.h"
#include "containers/internal.h"
#include "fuzz/fuzz.h"

using namespace kiv;

namespace {

JsonText saved(Object *box) {
    Dictionary *dictionary = dictionary_new();
    object_method(box, gensym("appendtodictionary"), dictionary);
    JsonText text;
    fuzz::require(json_from_dictionary(dictionary, text), "a box can be written");
    object_free(dictionary);
    return text;
}

Object *made_of(Object *patcher, const JsonText &text) {
    Dictionary *dictionary = nullptr;
    char message[KIV_JSON_ERROR_SIZE];
    const ErrorCode result = dictobj_dictionaryfromstring(&dictionary, text.c_str(), 1, message);
    fuzz::require(!result && dictionary, "what was written is a dictionary");
    Object *box = newobject_fromdictionary(patcher, dictionary);
    object_free(dictionary);
    return box;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(fuzz::as_text(data, size));
    auto *patcher =
        static_cast<Object *>(jpatcher_load_frombuffer(nullptr, 0, nullptr, 0, 0, nullptr));
    Object *box = newobject_fromboxtext(patcher, text.c_str());
    fuzz::require(box && jpatcher_get_count(patcher) == 1, "whatever the text, there is a box");
    const JsonText first = saved(box);
    jpatcher_deleteobj(patcher, box);
    Object *again = made_of(patcher, first);
    const JsonText once = saved(again);
    jpatcher_deleteobj(patcher, again);
    again = made_of(patcher, once);
    fuzz::require(saved(again).view() == once.view(),
                  "from the second time on it is written the same");
    object_free(patcher);
    main_queues_pass();
    fuzz::settle();
    return 0;
}
