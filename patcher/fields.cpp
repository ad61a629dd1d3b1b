// What the attribute tables of patchers, boxes and cords have in common.
#include "patcher/fields.h"

namespace kiv {

Symbol *symbol_of_atoms(int32_t argc, const Atom *argv) noexcept {
    if (argc == 1 && argv->type == TypeSymbol) {
        return argv->value.sym;
    }
    char *text = nullptr;
    int64_t size = 0;
    if (atom_gettext(argc, argv, &size, &text, 0) || !text) {
        return nullptr;
    }
    Symbol *symbol = gensym(text);
    sysmem_freeptr(text);
    return symbol;
}

void class_add_fields(Class *c, std::span<const Field> fields) noexcept {
    for (const Field &field : fields) {
        if (!field.get) {
            continue;  // a key of documents only
        }
        const int32_t flags = field.set ? 0 : AttrSetOpaque | AttrSetOpaqueUser;
        class_addattr(c, attr_offset_new(field.name, gensym(field.type), flags,
                                         reinterpret_cast<Method>(field.get),
                                         reinterpret_cast<Method>(field.set), 0));
        if (field.same) {
            class_addattr_parse(c, field.name, "save"_sym, "long", "1");
        }
    }
}

bool field_write(const Field &field, void *x, Dictionary *dictionary) noexcept {
    Atom local[4];
    Atom *values = local;
    int32_t count = 4;
    if (field.get(x, nullptr, &count, &values)) {
        return false;
    }
    Symbol *key = gensym(field.name);
    const ErrorCode failure = count == 1 ? dictionary_appendatom(dictionary, key, values)
                                         : dictionary_appendatoms(dictionary, key, count, values);
    if (values != local) {
        sysmem_freeptr(values);
    }
    return !failure;
}

}  // namespace kiv
