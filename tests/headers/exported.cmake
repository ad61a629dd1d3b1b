# functions.txt lists every function of the interface. A module written in C takes the address of
# each through the public headers; a document loads it, which fails when the program lacks one.
set(list ${CMAKE_CURRENT_LIST_DIR}/functions.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
file(STRINGS ${list} names)
list(TRANSFORM names REPLACE "(.+)" "    (Method)\\1,")
list(JOIN names "\n" KIV_EXPORTED_FUNCTIONS)
set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/exported.c)
configure_file(${CMAKE_CURRENT_LIST_DIR}/exported.c.in ${source} @ONLY)

set(KIV_MODULE_FOLDER ${CMAKE_CURRENT_BINARY_DIR}/headers)
kiv_add_module(exported ${source})
target_link_libraries(exported PRIVATE kiv_warnings)
add_test(NAME headers.EveryExportedFunctionIsThereForModules
    COMMAND ${CMAKE_COMMAND} -DKIV=$<TARGET_FILE:kiv> -DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}
        -DDOCUMENT=${CMAKE_CURRENT_LIST_DIR}/interface.kivpat
        -DEXPECTED=${CMAKE_CURRENT_LIST_DIR}/interface_expected.txt "-DARGUMENTS=--offline --for 0"
        -P ${CMAKE_CURRENT_SOURCE_DIR}/support/run_document.cmake)
set_tests_properties(headers.EveryExportedFunctionIsThereForModules PROPERTIES TIMEOUT 120
    ENVIRONMENT "KIV_PATH=${KIV_MODULE_FOLDER}")
unset(KIV_MODULE_FOLDER)
