# Fails when a source outside platform/ includes a system header or asks which system it is built for.
file(GLOB_RECURSE sources RELATIVE ${ROOT}
    ${ROOT}/include/*.h ${ROOT}/sched/* ${ROOT}/kernel/* ${ROOT}/containers/* ${ROOT}/console/*
    ${ROOT}/files/* ${ROOT}/patcher/* ${ROOT}/objects/* ${ROOT}/app/* ${ROOT}/bench/*)
set(found)
foreach(source ${sources})
    if(source MATCHES "[.](h|c|cpp|in)$")
        file(STRINGS ${ROOT}/${source} lines REGEX
            "#[ ]*include[ ]*<(windows[.]h|unistd[.]h|pthread[.]h|sys/|dlfcn[.]h|signal[.]h|csignal|fcntl[.]h|poll[.]h|error[.]h)|_WIN32|__linux__|__APPLE__")
        if(lines)
            list(APPEND found "${source}: ${lines}")
        endif()
    endif()
endforeach()
if(found)
    list(JOIN found "\n" text)
    message(FATAL_ERROR "outside platform/:\n${text}")
endif()
