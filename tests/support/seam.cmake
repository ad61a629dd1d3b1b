# Fails when a source outside platform/ includes a system header or asks which system it is built for.
#   cmake -DROOT=... -P seam.cmake
string(CONCAT names
    "windows|winsock2|mmsystem|process|io|direct|unistd|pthread|dlfcn|signal|fcntl|poll|error|sched|semaphore|"
    "spawn|link|execinfo|termios|dirent|sys/.*|linux/.*|netinet/.*|arpa/.*")
string(CONCAT questions
    "_WIN32|_WIN64|__MINGW|_MSC_VER|__CYGWIN__|__linux|__unix|__APPLE__|_POSIX_|__has_include|defined[ (]+WIN")
cmake_policy(VERSION 3.25)
file(GLOB folders ${ROOT}/*)
list(FILTER folders EXCLUDE REGEX "/(build[^/]*|platform)$")
set(sources)
foreach(folder ${folders})
    file(GLOB_RECURSE inside RELATIVE ${ROOT} ${folder}/*.h ${folder}/*.c ${folder}/*.cpp ${folder}/*.in)
    list(APPEND sources ${inside})
endforeach()
set(found)
foreach(source ${sources})
    file(STRINGS ${ROOT}/${source} lines REGEX "#[ ]*include[ ]*<(${names})([.]h)?>|${questions}")
    if(lines)
        list(APPEND found "${source}: ${lines}")
    endif()
endforeach()
if(NOT sources)
    message(FATAL_ERROR "no sources in ${ROOT}")
elseif(found)
    list(JOIN found "\n" text)
    message(FATAL_ERROR "outside platform/:\n${text}")
endif()
