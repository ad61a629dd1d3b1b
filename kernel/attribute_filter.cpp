// Filters: they clip, scale or process values on the way into an object, out of it, or both.
//
// They work on a copy of the atoms around whatever accessor an attribute has. A value is scaled
// first, then clipped, so that what leaves a filter lies in its range; a filter for both ways keeps
// the stored value in the range and divides by the scale on the way out. Numbers alone change:
// integers stay integers unless they are scaled.
//
// Filters are added while a class is built and read without a lock afterwards.
#include "kernel/attribute.h"

namespace kiv {

namespace {

ErrorCode add(void *attribute, FilterChain chain, const Filter &filter) {
    Attribute *a = as_attribute(attribute);
    if (!a) {
        return attribute ? ErrorGeneric : ErrorInvalidPointer;
    }
    void *block = sysmem_newptr(sizeof(Filter));
    if (!block) {
        return ErrorOutOfMemory;
    }
    Filter **link = &a->filters[chain];
    while (*link) {
        link = &(*link)->next;
    }
    *link = new (block) Filter(filter);
    return ErrorNone;
}

ErrorCode add_clip(void *attribute, FilterChain chain, double scale, double min, double max,
                   bool use_min, bool use_max) {
    return add(attribute, chain, {nullptr, nullptr, scale, min, max, use_min, use_max});
}

ErrorCode add_proc(void *attribute, FilterChain chain, Method proc) {
    return proc ? add(attribute, chain, {nullptr, proc, 1, 0, 0, false, false})
                : ErrorInvalidPointer;
}

// What is not a number falls to an end that is in use.
double clip(const Filter &filter, double value) {
    if (filter.use_min && !(value >= filter.min)) {
        value = filter.min;
    }
    if (filter.use_max && !(value <= filter.max)) {
        value = filter.max;
    }
    return value;
}

int64_t clip_long(const Filter &filter, int64_t value) {
    const auto wide = static_cast<double>(value);
    const double inside = clip(filter, wide);
    if (inside == wide) {
        return value;
    }
    Atom end;
    atom_setfloat(&end, inside);
    return atom_getlong(&end);
}

enum class Scale { before, divide_after };

void apply(const Filter &filter, Scale scale, Atom *atom) {
    const bool scales = filter.scale != 1;
    if (atom->type == TypeLong && !scales) {
        atom->value.i = clip_long(filter, atom->value.i);
    } else if (atom->type == TypeLong || atom->type == TypeFloat) {
        const double value = atom_getfloat(atom);
        if (scale == Scale::before) {
            atom_setfloat(atom, clip(filter, value * filter.scale));
        } else {
            atom_setfloat(atom, clip(filter, value) / (filter.scale != 0 ? filter.scale : 1));
        }
    }
}

ErrorCode call_proc(const Filter &filter, const Attribute *a, void *x, int32_t argc, Atom *argv) {
    using Proc = ErrorCode (*)(void *x, void *attribute, int32_t argc, Atom *argv);
    try {
        return reinterpret_cast<Proc>(filter.proc)(x, const_cast<Attribute *>(a), argc, argv);
    } catch (...) {
        report_exception(a->name);
        return ErrorGeneric;
    }
}

ErrorCode run(const Filter *filter, Scale scale, const Attribute *a, void *x, int32_t argc,
              Atom *argv) {
    for (; filter; filter = filter->next) {
        if (filter->proc) {
            if (const ErrorCode refused = call_proc(*filter, a, x, argc, argv)) {
                return refused;
            }
            continue;
        }
        for (int32_t i = 0; i < argc; ++i) {
            apply(*filter, scale, &argv[i]);
        }
    }
    return ErrorNone;
}

}  // namespace

bool has_filters(const Attribute *attribute, FilterChain direction) noexcept {
    return attribute && (attribute->filters[FilterBoth] || attribute->filters[direction]);
}

ErrorCode filters_set(const Attribute *attribute, void *x, int32_t argc, Atom *argv) noexcept {
    const ErrorCode refused =
        run(attribute->filters[FilterBoth], Scale::before, attribute, x, argc, argv);
    return refused ? refused
                   : run(attribute->filters[FilterSet], Scale::before, attribute, x, argc, argv);
}

ErrorCode filters_get(const Attribute *attribute, void *x, int32_t argc, Atom *argv) noexcept {
    const ErrorCode refused =
        run(attribute->filters[FilterBoth], Scale::divide_after, attribute, x, argc, argv);
    return refused ? refused
                   : run(attribute->filters[FilterGet], Scale::before, attribute, x, argc, argv);
}

void filters_free(Attribute *attribute) noexcept {
    for (Filter *&head : attribute->filters) {
        while (Filter *filter = head) {
            head = filter->next;
            sysmem_freeptr(filter);
        }
    }
}

bool filters_copy(const Attribute *from, Attribute *to) noexcept {
    for (int chain = 0; chain < filter_chains; ++chain) {
        Filter **end = &to->filters[chain];
        for (const Filter *filter = from->filters[chain]; filter; filter = filter->next) {
            auto *copy = static_cast<Filter *>(sysmem_newptr(sizeof(Filter)));
            if (!copy) {
                return false;
            }
            *copy = *filter;
            copy->next = nullptr;
            *end = copy;
            end = &copy->next;
        }
    }
    return true;
}

}  // namespace kiv

using namespace kiv;

ErrorCode attr_addfilter_clip(void *attribute, double min, double max, int32_t use_min,
                              int32_t use_max) noexcept {
    return add_clip(attribute, FilterBoth, 1, min, max, use_min != 0, use_max != 0);
}

ErrorCode attr_addfilter_clip_scale(void *attribute, double scale, double min, double max,
                                    int32_t use_min, int32_t use_max) noexcept {
    return add_clip(attribute, FilterBoth, scale, min, max, use_min != 0, use_max != 0);
}

ErrorCode attr_addfilterset_clip(void *attribute, double min, double max, int32_t use_min,
                                 int32_t use_max) noexcept {
    return add_clip(attribute, FilterSet, 1, min, max, use_min != 0, use_max != 0);
}

ErrorCode attr_addfilterset_clip_scale(void *attribute, double scale, double min, double max,
                                       int32_t use_min, int32_t use_max) noexcept {
    return add_clip(attribute, FilterSet, scale, min, max, use_min != 0, use_max != 0);
}

ErrorCode attr_addfilterget_clip(void *attribute, double min, double max, int32_t use_min,
                                 int32_t use_max) noexcept {
    return add_clip(attribute, FilterGet, 1, min, max, use_min != 0, use_max != 0);
}

ErrorCode attr_addfilterget_clip_scale(void *attribute, double scale, double min, double max,
                                       int32_t use_min, int32_t use_max) noexcept {
    return add_clip(attribute, FilterGet, scale, min, max, use_min != 0, use_max != 0);
}

ErrorCode attr_addfilterset_proc(void *attribute, Method proc) noexcept {
    return add_proc(attribute, FilterSet, proc);
}

ErrorCode attr_addfilterget_proc(void *attribute, Method proc) noexcept {
    return add_proc(attribute, FilterGet, proc);
}
