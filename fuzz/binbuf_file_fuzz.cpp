// The binary form of message text: any bytes are read or refused; what is read is written as the
// bytes that read the same.
#include <kiv/object.h>

#include "containers/binbuf_record.h"
#include "fuzz/fuzz.h"

using namespace kiv;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Binbuf *buf = binbuf_new();
    if (store_read_binary(buf->store, fuzz::as_text(data, size))) {
        const Text bytes = store_write_binary(buf->store);
        Binbuf *again = binbuf_new();
        fuzz::require(store_read_binary(again->store, bytes), "what was written can be read");
        fuzz::require(store_write_binary(again->store) == bytes, "written again, it is the same");
        object_free(again);
    }
    object_free(buf);
    fuzz::settle();
    return 0;
}
