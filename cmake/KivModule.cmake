# kiv_add_module(NAME SOURCE... [HOST TARGET]): builds NAME.kve64, an external module that kiv loads
# by the name of its class. The executable that loads it, kiv or HOST, supplies the interface.
# KIV_MODULE_FOLDER, when set, is where the module goes.
function(kiv_add_module name)
    cmake_parse_arguments(module "" "HOST" "" ${ARGN})
    if(NOT module_HOST)
        set(module_HOST Kiv::kiv)
    endif()
    add_library(${name} MODULE ${module_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${module_HOST})
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".kve64"
        C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden)
    if(KIV_MODULE_FOLDER)
        set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${KIV_MODULE_FOLDER})
    endif()
endfunction()
