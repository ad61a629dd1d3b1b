# Runs a document and compares everything it prints with what is expected.
#   cmake -DKIV=... [-DEMULATOR=...] -DDOCUMENT=... -DEXPECTED=... -DARGUMENTS="..." -P run_document.cmake
separate_arguments(arguments NATIVE_COMMAND "${ARGUMENTS}")
get_filename_component(folder "${DOCUMENT}" DIRECTORY)
get_filename_component(document "${DOCUMENT}" NAME)
execute_process(COMMAND ${EMULATOR} ${KIV} ${arguments} ${document}
    WORKING_DIRECTORY ${folder} OUTPUT_VARIABLE printed ERROR_VARIABLE printed
    RESULT_VARIABLE status TIMEOUT 60)
file(READ ${EXPECTED} expected)
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "${document} (status ${status}) printed\n${printed}\nexpected\n${expected}")
endif()
