// Dictionaries as files: JSON documents, read whole and written so that the old file stands until
// the new one is complete.
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/object.h>

#include "containers/json.h"
#include "containers/values.h"
#include "files/internal.h"

using namespace kiv;

ErrorCode dictionary_read(const char *file_name, int16_t path, Dictionary **dictionary) noexcept {
    if (!file_name || !dictionary) {
        return ErrorGeneric;
    }
    *dictionary = nullptr;
    try {
        Text text;
        if (const int32_t failure = file_read_all(file_name, path, text)) {
            error("dictionary_read: can't read %s: error %d", file_name, failure);
            return ErrorGeneric;
        }
        char message[json_error_size];
        Object *result = nullptr;
        if (json_parse(text.data(), static_cast<int64_t>(text.size()), &result, message) !=
            ErrorNone) {
            error("dictionary_read: %s: %s", file_name, message);
            return ErrorGeneric;
        }
        if (!is_dictionary(result)) {
            object_free(result);
            error("dictionary_read: %s: the document is not a dictionary", file_name);
            return ErrorGeneric;
        }
        *dictionary = reinterpret_cast<Dictionary *>(result);
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        error("dictionary_read: %s: out of memory", file_name);
        return ErrorOutOfMemory;
    }
}

ErrorCode dictionary_write(const Dictionary *dictionary, const char *file_name,
                           int16_t path) noexcept {
    if (!dictionary || !file_name) {
        return ErrorGeneric;
    }
    try {
        JsonText text;
        if (!json_from_dictionary(dictionary, text)) {
            error("dictionary_write: %s: not written", file_name);
            return ErrorGeneric;
        }
        if (const int32_t failure =
                file_write_all(file_name, path, text.data(), static_cast<int64_t>(text.size()))) {
            error("dictionary_write: can't write %s: error %d", file_name, failure);
            return ErrorGeneric;
        }
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        error("dictionary_write: %s: out of memory", file_name);
        return ErrorOutOfMemory;
    }
}
