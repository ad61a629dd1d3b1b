// The messages of the class "dictionary", and the functions that walk one.
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include "containers/families.h"
#include "containers/values.h"

namespace kiv {

namespace {

struct Visit {
    DictionaryFunction function;
    void *arg;
};

void *visit(void *entry, void *arg) {
    const auto *call = static_cast<const Visit *>(arg);
    call->function(static_cast<DictionaryEntry *>(entry), call->arg);
    return nullptr;
}

}  // namespace

void dictionary_add_methods(Class *c) noexcept {
    static const DirectMethod methods[] = {
        {"clear", method(dictionary_clear)},
        {"appendlong", method(dictionary_appendlong)},
        {"appendsym", method(dictionary_appendsym)},
        {"appendatom", method(dictionary_appendatom)},
        {"appendatom_flags", method(dictionary_appendatom_flags)},
        {"appendstring", method(dictionary_appendstring)},
        {"appendobject", method(dictionary_appendobject)},
        {"appendobject_flags", method(dictionary_appendobject_flags)},
        {"appenddictionary", method(dictionary_appenddictionary)},
        {"appendatomarray", method(dictionary_appendatomarray)},
        {"appendatoms", method(dictionary_appendatoms)},
        {"appendatoms_flags", method(dictionary_appendatoms_flags)},
        {"appendbinbuf", method(dictionary_appendbinbuf)},
        {"appendattribute", method(dictionary_appendattribute)},
        {"getlong", method(dictionary_getlong)},
        {"getfloat", method(dictionary_getfloat)},
        {"getsym", method(dictionary_getsym)},
        {"getatom", method(dictionary_getatom)},
        {"getstring", method(dictionary_getstring)},
        {"getobject", method(dictionary_getobject)},
        {"getdictionary", method(dictionary_getdictionary)},
        {"getatomarray", method(dictionary_getatomarray)},
        {"getatoms", method(dictionary_getatoms)},
        {"copyatoms", method(dictionary_copyatoms)},
        {"getattribute", method(dictionary_getattribute)},
        {"hasentry", method(dictionary_hasentry)},
        {"getentrycount", method(dictionary_getentrycount)},
        {"entryisdictionary", method(dictionary_entryisdictionary)},
        {"entryisatomarray", method(dictionary_entryisatomarray)},
        {"entryisstring", method(dictionary_entryisstring)},
        {"getkeys", method(dictionary_getkeys)},
        {"getkeys_ordered", method(dictionary_getkeys_ordered)},
        {"freekeys", method(dictionary_freekeys)},
        {"deleteentry", method(dictionary_deleteentry)},
        {"chuckentry", method(dictionary_chuckentry)},
        {"clone", method(dictionary_clone)},
        {"object_clone", method(dictionary_clone)},
        {"clone_to_existing", method(dictionary_clone_to_existing)},
        {"copyentries", method(dictionary_copyentries)},
        {"copyunique", method(dictionary_copyunique)},
        {"merge_to_existing", method(dictionary_merge_to_existing)},
        {"funall", method(dictionary_funall)},
        {"dump", method(dictionary_dump)},
        {"write", method(dictionary_write)},
        {"transaction_lock", method(dictionary_transaction_lock)},
        {"transaction_unlock", method(dictionary_transaction_unlock)},
    };
    add_direct_methods(c, methods);
}

}  // namespace kiv

using namespace kiv;

void dictionary_funall(Dictionary *dictionary, DictionaryFunction function, void *arg) noexcept {
    if (!dictionary || !function) {
        return;
    }
    if (!dictionary_unpack(dictionary)) {
        error("dictionary_funall: out of memory");
        return;
    }
    // The list's iteration survives any change that the function makes, the freeing of the
    // dictionary included.
    Visit call{function, arg};
    linklist_funall(dictionary->order, visit, &call);
}
