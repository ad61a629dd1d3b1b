// Hooks between containers/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/atomarray.h>
#include <kiv/binbuf.h>
#include <kiv/dictionary.h>
#include <kiv/hashtab.h>
#include <kiv/linklist.h>
#include <kiv/string.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "sched/internal.h"

namespace kiv {

// Registers the container classes. The list, table and entry classes exist before any of their
// methods is added, because adding a method stores into a table.
void containers_start() noexcept;

// A list without a lock, for owners that have one of their own.
Linklist *linklist_new_unlocked() noexcept;
Linklist *linklist_new_with_readonly(int32_t readonly) noexcept;
// A list with a read-write lock instead of a critical section.
Linklist *linklist_new_shared() noexcept;
// The new count; 0 when the list holds the item already, -1 on failure.
int32_t linklist_append_if_absent(Linklist *list, void *item) noexcept;
// For owners that remember the element: removing by it needs no search. Null on no memory.
LinklistElement *linklist_append_element(Linklist *list, void *item) noexcept;

// Deepest nesting of containers that any recursive walk follows; beyond it an error is posted.
inline constexpr int32_t max_nesting = 1000;

// JSON that is being written. The block is resized, not replaced, so that a long text need not be
// moved each time it has doubled. What adds to it throws std::bad_alloc.
class JsonText {
  public:
    JsonText() noexcept = default;
    JsonText(JsonText &&other) noexcept
        : data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    JsonText &operator=(JsonText &&) = delete;
    ~JsonText() { sysmem_freeptr(data_); }

    char *data() noexcept { return data_; }
    size_t size() const noexcept { return size_; }
    std::string_view view() const noexcept { return {data_, size_}; }
    const char *c_str() const noexcept { return data_ ? data_ : ""; }
    void clear() noexcept {
        if (data_) {
            end(data_);
        }
    }

    // Where `size` bytes may be written; end() says up to where they were.
    char *room(size_t size) {
        if (capacity_ - size_ <= size) {
            grow(size);
        }
        return data_ + size_;
    }
    void end(char *at) noexcept {
        *at = '\0';
        size_ = static_cast<size_t>(at - data_);
    }
    void put(std::string_view text) { end(std::copy(text.begin(), text.end(), room(text.size()))); }
    void put(char c, size_t count = 1);
    void put_quoted(std::string_view text);  // with quotes and escapes

  private:
    void grow(size_t size);

    char *data_ = nullptr;  // owned
    size_t size_ = 0;
    size_t capacity_ = 0;  // more than the size, for the zero byte behind the text
};

// The text of a dictionary as a JSON document, as the writer lays it out. False on no memory.
bool json_from_dictionary(const Dictionary *dictionary, JsonText &out);

// Which tokenizer reads message text: 0, or 1, which knows exponents. Any thread.
void tokenizer_select(int32_t number) noexcept;
int32_t tokenizer_selected() noexcept;

// Evaluates atoms by the rules of the second evaluator (arrays that are not message buffers).
void *atoms_eval(int32_t count, const Atom *atoms, int32_t argc, Atom *argv,
                 void *receiver) noexcept;
// Replaces "marker + digit" ("#1", "$2", "#0-x") in atoms by arguments; argument 0 is argv[0].
void atoms_substitute(int32_t count, Atom *atoms, char marker, int32_t argc,
                      const Atom *argv) noexcept;

}  // namespace kiv
