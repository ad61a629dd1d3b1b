# Every document of examples/ and tests/docs/ is run offline and its console compared with the
# expected/NAME.txt beside it, and what --save writes with expected/NAME.saved if that is there. A
# line of expected/NAME.args gives other arguments than the default.
function(kiv_add_document_tests prefix folder)
    file(GLOB documents CONFIGURE_DEPENDS ${folder}/*.kivpat)
    foreach(document ${documents})
        get_filename_component(name ${document} NAME_WE)
        set(expected ${folder}/expected/${name}.txt)
        if(NOT EXISTS ${expected})
            continue()  # an abstraction of another document
        endif()
        set(arguments "--offline --for 2")
        if(EXISTS ${folder}/expected/${name}.args)
            file(STRINGS ${folder}/expected/${name}.args arguments LIMIT_COUNT 1)
        endif()
        set(saved ${folder}/expected/${name}.saved)
        if(NOT EXISTS ${saved})
            set(saved)
        endif()
        add_test(NAME ${prefix}.${name}
            COMMAND ${CMAKE_COMMAND} -DKIV=$<TARGET_FILE:kiv>
                -DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR} -DDOCUMENT=${document}
                -DEXPECTED=${expected} "-DARGUMENTS=${arguments}"
                -DSAVED=${saved} -DMODULES=${CMAKE_BINARY_DIR}/modules
                -DWORK=${CMAKE_CURRENT_BINARY_DIR}/saved
                -P ${CMAKE_SOURCE_DIR}/tests/support/run_document.cmake)
        set_tests_properties(${prefix}.${name} PROPERTIES TIMEOUT 120
            ENVIRONMENT "KIV_PATH=${CMAKE_BINARY_DIR}/modules")
    endforeach()
endfunction()

kiv_add_document_tests(examples ${CMAKE_SOURCE_DIR}/examples)
kiv_add_document_tests(docs ${CMAKE_SOURCE_DIR}/tests/docs)

add_test(NAME host.CommandLine
    COMMAND ${CMAKE_COMMAND} -DKIV=$<TARGET_FILE:kiv> -DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}
        -DWORK=${CMAKE_CURRENT_BINARY_DIR}/host -P ${CMAKE_SOURCE_DIR}/tests/docs/host.cmake)
set_tests_properties(host.CommandLine PROPERTIES TIMEOUT 300)
