# Adds the test that registers the provider in Wine's prefix, once for all folders with tests that require it.
include_guard(GLOBAL)
add_test(NAME RegisterTestCard
    COMMAND ${PROJECT_SOURCE_DIR}/tests/data/prepare-card register ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
set_tests_properties(RegisterTestCard PROPERTIES FIXTURES_SETUP test_card TIMEOUT 120)
