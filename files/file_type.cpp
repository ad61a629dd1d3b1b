// File types by extension.
#include <cstring>
#include <string_view>

#include "files/file_type.h"

namespace kiv {

namespace {

// The first extension of a type is the one its files are saved with.
constexpr FileExtension extensions[] = {
    {".kve64", file_type("kv64")},     {".kivpat", file_type("JSON")},
    {".kivhelp", file_type("JSON")},   {".json", file_type("JSON")},
    {".kivb", file_type("kivb")},      {".kivtext", file_type("TEXT")},
    {".txt", file_type("TEXT")},       {".kivsnip", file_type("mSnp")},
    {".kivlesson", file_type("mLsn")}, {".kivc", file_type("kivc")},
};

const FileExtension *extension_of(std::string_view name) noexcept {
    for (const FileExtension &extension : extensions) {
        if (name.size() > extension.text.size() && name.ends_with(extension.text)) {
            return &extension;
        }
    }
    return nullptr;
}

}  // namespace

std::span<const FileExtension> file_extensions() noexcept {
    return extensions;
}

uint32_t file_type_of(const char *file_name) noexcept {
    const FileExtension *extension = file_name ? extension_of(file_name) : nullptr;
    return extension ? extension->type : 0;
}

size_t file_stem_length(const char *file_name) noexcept {
    const std::string_view name = file_name ? file_name : "";
    const FileExtension *extension = extension_of(name);
    return extension ? name.size() - extension->text.size() : name.size();
}

}  // namespace kiv
