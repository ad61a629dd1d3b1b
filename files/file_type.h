// The table of file extensions.
#pragma once

#include <span>
#include <string_view>

#include "files/internal.h"

namespace kiv {

struct FileExtension {
    std::string_view text;  // with its dot
    uint32_t type;
};
std::span<const FileExtension> file_extensions() noexcept;

}  // namespace kiv
