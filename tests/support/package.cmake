# Installs the package, builds the example modules against it as a project of their own, and runs the
# document that uses them with the installed program.
#   cmake -DBUILD=... -DSOURCE=... -DWORK=... [-DTOOLCHAIN=...] [-DEMULATOR=... -DSUFFIX=.exe] -P package.cmake
function(run)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE printed ERROR_VARIABLE printed RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${ARGN} failed (${status}):\n${printed}")
    endif()
    set(printed "${printed}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/installed)
run(${CMAKE_COMMAND} -S ${SOURCE}/examples/module -B ${WORK}/module -G Ninja
    -DCMAKE_PREFIX_PATH=${WORK}/installed
    -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
run(${CMAKE_COMMAND} --build ${WORK}/module)
run(${EMULATOR} ${WORK}/installed/bin/kiv${SUFFIX} --offline --for 0 --path ${WORK}/module
    ${SOURCE}/examples/module.kivpat)
file(READ ${SOURCE}/examples/expected/module.txt expected)
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "printed\n${printed}\nexpected\n${expected}")
endif()
