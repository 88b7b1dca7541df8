# Libraries for the load diagnostics. The dependency of one of them is outside the DLL search path.
set(libraries ${CMAKE_CURRENT_BINARY_DIR}/libraries)
add_library(kes_test_needed SHARED libraries_win/needed.c)
add_library(kes_test_fine MODULE libraries_win/fine.c)
add_library(kes_test_engine MODULE libraries_win/engine.c)
add_library(kes_test_module MODULE libraries_win/module.c)
add_library(kes_test_dependent MODULE libraries_win/dependent.c)
target_link_libraries(kes_test_dependent PRIVATE kes_test_needed)
set_target_properties(kes_test_needed PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${libraries}/needed)
set_target_properties(kes_test_fine kes_test_engine kes_test_module kes_test_dependent PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${libraries})
target_compile_definitions(kes_unit_utils_tests PRIVATE
    KES_TEST_FINE_DLL="${MARVO_TEST_DRIVE}$<TARGET_FILE:kes_test_fine>"
    KES_TEST_ENGINE_DLL="${MARVO_TEST_DRIVE}$<TARGET_FILE:kes_test_engine>"
    KES_TEST_MODULE_DLL="${MARVO_TEST_DRIVE}$<TARGET_FILE:kes_test_module>"
    KES_TEST_DEPENDENT_DLL="${MARVO_TEST_DRIVE}$<TARGET_FILE:kes_test_dependent>")
add_dependencies(kes_unit_utils_tests kes_test_fine kes_test_engine kes_test_module kes_test_dependent)
