# Modules that the tests load as a person's modules are loaded.
set(KIV_MODULE_FOLDER ${CMAKE_CURRENT_BINARY_DIR}/modules)
target_include_directories(test_patcher INTERFACE ${CMAKE_SOURCE_DIR}/include)
foreach(name echoer noentry)
    kiv_add_module(${name} ${CMAKE_CURRENT_LIST_DIR}/modules/${name}.c HOST test_patcher)
    target_link_libraries(${name} PRIVATE kiv_warnings)
endforeach()
target_compile_definitions(test_patcher PRIVATE KIV_TEST_MODULES="${KIV_MODULE_FOLDER}")
unset(KIV_MODULE_FOLDER)
