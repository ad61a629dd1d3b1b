# kiv_add_module(NAME SOURCE...): builds NAME.kve64, an external module that kiv loads by the name
# of its class. The executable that loads it supplies the interface; nothing is linked.
# KIV_MODULE_FOLDER, when set, is where the module goes.
function(kiv_add_module name)
    add_library(${name} MODULE ${ARGN})
    target_link_libraries(${name} PRIVATE Kiv::headers)
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".kve64"
        C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden)
    if(KIV_MODULE_FOLDER)
        set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${KIV_MODULE_FOLDER})
    endif()
endfunction()
