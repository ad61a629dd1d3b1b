// Hooks between patcher/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/jpatcher.h>

namespace kiv {

// Registers the patcher, box and cord classes, binds the object maker to "#N", and registers this
// folder's hooks with the kernel and the console.
void patcher_start() noexcept;
// Maps a class name to the file that defines it ("objectfile").
void nametab_add(Symbol *class_name, Symbol *file_name) noexcept;
// While creation is suspended, object makers make nothing: object boxes become placeholders.
void creation_suspend(bool on) noexcept;
// Writes a patcher in document form, as the message "write" does; 0, or the system's error code.
int32_t patcher_save(Object *patcher, const char *file_name, int16_t path) noexcept;
// Loads a document given by its path in the file system, with the folder it is in as the default
// path, and delivers loadbang. Null when it cannot be loaded, after saying why; *result (may be
// null) is then the system's error code, or -1 for a file that is no patcher document.
Object *document_load(const char *file_path, int32_t *result) noexcept;
// The same for text (a document from standard input).
Object *document_load_text(const char *text, int64_t length) noexcept;
// Posts the names of the operations on the loadbang queue.
void loadbang_debug(bool on) noexcept;

}  // namespace kiv
