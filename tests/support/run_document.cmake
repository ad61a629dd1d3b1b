# Runs a document and compares everything it prints with what is expected, and with SAVED the document
# as it was written back, byte for byte. In the latter MODULES and FOLDER stand for where the modules
# and the document are, whatever the drive.
#   cmake -DKIV=... [-DEMULATOR=...] -DDOCUMENT=... -DEXPECTED=... -DARGUMENTS="..."
#         [-DSAVED=... -DMODULES=... -DWORK=...] -P run_document.cmake
separate_arguments(arguments NATIVE_COMMAND "${ARGUMENTS}")
get_filename_component(folder "${DOCUMENT}" DIRECTORY)
get_filename_component(document "${DOCUMENT}" NAME)
if(SAVED)
    file(MAKE_DIRECTORY ${WORK})
    file(REMOVE ${WORK}/${document})
    list(APPEND arguments --save ${WORK}/${document})
endif()
execute_process(COMMAND ${EMULATOR} ${KIV} ${arguments} ${document}
    WORKING_DIRECTORY ${folder} OUTPUT_VARIABLE printed ERROR_VARIABLE printed
    RESULT_VARIABLE status TIMEOUT 60)
file(READ ${EXPECTED} expected)
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "${document} (status ${status}) printed\n${printed}\nexpected\n${expected}")
endif()
if(SAVED)
    file(READ ${WORK}/${document} saved)
    file(READ ${SAVED} expected)
    file(RELATIVE_PATH modules ${folder} ${MODULES})
    foreach(place "MODULES;${MODULES}" "MODULES;${modules}" "FOLDER;${folder}")
        list(POP_FRONT place name)
        string(REPLACE "\"${place}\"" "\"${name}\"" saved "${saved}")
        string(REPLACE "\"Z:${place}\"" "\"${name}\"" saved "${saved}")
    endforeach()
    if(NOT saved STREQUAL expected)
        message(FATAL_ERROR "${WORK}/${document} is not ${SAVED}:\n${saved}")
    endif()
endif()
