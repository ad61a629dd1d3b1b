// The versions that documents carry.
#pragma once

#include <cstdint>

namespace kiv {

// The form of documents that the writer writes.
inline constexpr int32_t document_file_version = 1;

// The program's version: major in bits 8 to 11, minor in bits 4 to 7, revision in bits 0 to 3.
inline constexpr uint16_t program_version = 0x100;
inline constexpr int32_t program_major = program_version >> 8 & 0xf;
inline constexpr int32_t program_minor = program_version >> 4 & 0xf;
inline constexpr int32_t program_revision = program_version & 0xf;

}  // namespace kiv
