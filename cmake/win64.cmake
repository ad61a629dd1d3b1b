# Cross-compiles for 64-bit Windows; what is built runs under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)  # those that CMAKE_PREFIX_PATH names

# The header-only libraries of the build machine, without the rest of its headers.
set(headers ${CMAKE_BINARY_DIR}/host-headers)
file(MAKE_DIRECTORY ${headers})
foreach(library CLI nlohmann)
    file(CREATE_LINK /usr/include/${library} ${headers}/${library} SYMBOLIC)
endforeach()
include_directories(SYSTEM ${headers})

# One file to carry around: the compiler's libraries are linked in. The main thread has the stack
# that other systems give it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,--stack,8388608")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
