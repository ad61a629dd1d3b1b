// What the attribute tables of patchers, boxes and cords have in common.
#include "patcher/fields.h"

namespace kiv {

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
