// What the files of this folder share: the system's header, kept small, and names between UTF-8 and
// UTF-16.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// After windows.h, on which it rests.
#include <shellapi.h>

#include <string>

namespace kiv::platform {

// Text that is not UTF-8 is taken with replacement characters.
std::wstring to_wide(const char *text);
std::string to_utf8(const wchar_t *text);

// A path as the system's file calls take it: absolute where it is long, so that it may have more
// than 260 characters, with '\\' between folders.
std::wstring to_system_path(const char *path);

}  // namespace kiv::platform
